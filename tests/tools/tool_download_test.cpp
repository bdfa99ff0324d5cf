#include "../support/temporary_folder.h"
#include "loopback_server.h"
#include "platform/cancellation.h"
#include "tools/download_delegate.h"
#include "tools/tool_downloader.h"
#include "tools/tool_error.h"

#include <atomic>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <regex>
#include <sstream>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string bodyOfSize(std::size_t size) {
    std::string body(size, '\0');
    for (std::size_t index = 0; index < size; ++index)
        body[index] = static_cast<char>('a' + index % 26);
    return body;
}

bool isFinishedDownloadName(const fs::path& path) {
    static const std::regex pattern(
        "LumivesperDownload-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\\.zip");
    return std::regex_match(path.filename().string(), pattern);
}

// Records what the caller of a download is told.
struct Fractions {
    std::mutex mutex;
    std::vector<double> values;

    DownloadDelegate::ProgressHandler handler() {
        return [this](double fraction) {
            std::lock_guard lock(mutex);
            values.push_back(fraction);
        };
    }
};

class DownloadDelegateAnswers : public ::testing::Test {
protected:
    lumivesper::testing::TemporaryFolder folder;
    fs::path finished = folder.path() / "finished";
    fs::path partial = folder.path() / "transfer.part";

    void SetUp() override {
        fs::create_directories(finished);
        std::ofstream(partial) << "archive bytes";
    }

    static platform::HttpResponse okResponse() {
        platform::HttpResponse response;
        response.status = 200;
        return response;
    }
};

TEST_F(DownloadDelegateAnswers, MovesTheFinishedFileUnderANewName) {
    DownloadDelegate delegate({}, finished);
    std::stop_source task;
    auto answer = delegate.start(task);
    delegate.didFinishDownloading(partial, okResponse());

    const DownloadOutcome outcome = answer.get();
    EXPECT_EQ(outcome.location.parent_path(), finished);
    EXPECT_TRUE(isFinishedDownloadName(outcome.location)) << outcome.location;
    EXPECT_EQ(readFile(outcome.location), "archive bytes");
    EXPECT_FALSE(fs::exists(partial));
    EXPECT_EQ(outcome.response.status, 200);
    EXPECT_TRUE(task.stop_requested()) << "the transfer is torn down once answered";
}

TEST_F(DownloadDelegateAnswers, ALaterErrorLeavesTheCallerUntouched) {
    DownloadDelegate delegate({}, finished);
    auto answer = delegate.start(std::stop_source());
    delegate.didFinishDownloading(partial, okResponse());
    delegate.didCompleteWithError(std::make_exception_ptr(std::runtime_error("late")));
    delegate.didFinishDownloading(partial, okResponse());

    EXPECT_NO_THROW(answer.get());
    EXPECT_TRUE(delegate.hasCompleted());
}

TEST_F(DownloadDelegateAnswers, AnErrorFirstWinsOverALateFinish) {
    DownloadDelegate delegate({}, finished);
    auto answer = delegate.start(std::stop_source());
    delegate.didCompleteWithError(std::make_exception_ptr(std::runtime_error("first")));
    delegate.didFinishDownloading(partial, okResponse());

    EXPECT_THROW(answer.get(), std::runtime_error);
    EXPECT_TRUE(fs::exists(partial)) << "the late finish must not move anything";
}

TEST_F(DownloadDelegateAnswers, ACompletionWithoutErrorAnswersNothing) {
    DownloadDelegate delegate({}, finished);
    auto answer = delegate.start(std::stop_source());
    delegate.didCompleteWithError(nullptr);
    EXPECT_FALSE(delegate.hasCompleted());
    EXPECT_EQ(answer.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
}

TEST_F(DownloadDelegateAnswers, NoResponseIsABadServerResponse) {
    DownloadDelegate delegate({}, finished);
    auto answer = delegate.start(std::stop_source());
    delegate.didFinishDownloading(partial, std::nullopt);
    EXPECT_THROW(answer.get(), platform::HttpError);
}

TEST_F(DownloadDelegateAnswers, AFailedMoveIsTheAnswer) {
    DownloadDelegate delegate({}, folder.path() / "no-such-folder");
    auto answer = delegate.start(std::stop_source());
    delegate.didFinishDownloading(partial, okResponse());
    EXPECT_THROW(answer.get(), fs::filesystem_error);
}

TEST_F(DownloadDelegateAnswers, ReportsFractionsOnlyForAKnownTotal) {
    Fractions fractions;
    DownloadDelegate delegate(fractions.handler(), finished);
    delegate.didWriteData(10, 10, -1);
    delegate.didWriteData(10, 20, 0);
    delegate.didWriteData(10, 25, 100);
    delegate.didWriteData(75, 100, 100);
    EXPECT_EQ(fractions.values, (std::vector<double>{0.25, 1.0}));
}

class ToolDownloads : public ::testing::Test {
protected:
    void SetUp() override {
        server.server.Get("/known", [this](const httplib::Request&, httplib::Response& response) {
            response.set_content(body, "application/zip");
        });
        server.server.Get("/unknown", [this](const httplib::Request&, httplib::Response& response) {
            response.set_chunked_content_provider(
                "application/zip", [this](size_t offset, httplib::DataSink& sink) {
                    if (offset >= body.size()) {
                        sink.done();
                        return true;
                    }
                    const size_t count = std::min<size_t>(16384, body.size() - offset);
                    sink.write(body.data() + offset, count);
                    return true;
                });
        });
        server.server.Get("/missing", [](const httplib::Request&, httplib::Response& response) {
            response.status = 404;
            response.set_content("not here", "text/plain");
        });
        server.start();
    }

    void TearDown() override {
        for (const auto& location : delivered) {
            std::error_code ignored;
            fs::remove(location, ignored);
        }
    }

    DownloadOutcome fetch(const std::string& path, Fractions* fractions = nullptr) {
        DownloadOutcome outcome =
            downloader.download(server.url(path), fractions ? fractions->handler() : nullptr);
        delivered.push_back(outcome.location);
        return outcome;
    }

    ToolError failureOf(const std::string& url) {
        try {
            delivered.push_back(downloader.download(url).location);
        } catch (const ToolError& error) {
            return error;
        }
        throw std::runtime_error("the download succeeded");
    }

    const std::string body = bodyOfSize(600'000);
    testing::LoopbackServer server;
    lumivesper::testing::TemporaryFolder folder;
    fs::path downloads = folder.path() / "downloads";
    ToolDownloader downloader{downloads};
    std::vector<fs::path> delivered;
};

TEST_F(ToolDownloads, AKnownLengthReportsFractionsUpToOne) {
    Fractions fractions;
    const DownloadOutcome outcome = fetch("/known", &fractions);

    EXPECT_EQ(outcome.response.status, 200);
    EXPECT_EQ(outcome.location.parent_path(), fs::temp_directory_path());
    EXPECT_TRUE(isFinishedDownloadName(outcome.location)) << outcome.location;
    EXPECT_EQ(readFile(outcome.location), body);
    ASSERT_FALSE(fractions.values.empty());
    EXPECT_TRUE(std::is_sorted(fractions.values.begin(), fractions.values.end()));
    EXPECT_GT(fractions.values.front(), 0.0);
    EXPECT_DOUBLE_EQ(fractions.values.back(), 1.0);
    EXPECT_TRUE(fs::is_empty(downloads)) << "nothing of the transfer is left behind";
}

TEST_F(ToolDownloads, AnUnknownLengthArrivesWithoutFractions) {
    Fractions fractions;
    const DownloadOutcome outcome = fetch("/unknown", &fractions);

    EXPECT_EQ(outcome.response.header("Transfer-Encoding"), "chunked");
    EXPECT_EQ(readFile(outcome.location), body);
    EXPECT_TRUE(fractions.values.empty());
}

TEST_F(ToolDownloads, ANotFoundFailsWithItsStatusAndKeepsNoFile) {
    const ToolError error = failureOf(server.url("/missing"));
    EXPECT_EQ(error.kind(), ToolError::Kind::downloadFailed);
    EXPECT_EQ(error.statusCode(), 404);
    EXPECT_EQ(error.description(), "Download failed (HTTP 404). Check your internet connection.");
    EXPECT_TRUE(fs::is_empty(downloads));
}

TEST_F(ToolDownloads, ARefusedConnectionFailsWithItsCause) {
    const int port = testing::closedLoopbackPort();
    const ToolError error = failureOf("http://127.0.0.1:" + std::to_string(port) + "/tool.zip");
    EXPECT_EQ(error.kind(), ToolError::Kind::downloadFailed);
    EXPECT_FALSE(error.statusCode());
    EXPECT_EQ(error.description(), "Download failed. Check your internet connection.");
    ASSERT_TRUE(error.underlyingError());
    try {
        std::rethrow_exception(error.underlyingError());
    } catch (const platform::HttpError& cause) {
        EXPECT_EQ(cause.kind(), platform::HttpError::Kind::cannotConnect);
    }
    EXPECT_TRUE(fs::is_empty(downloads));
}

TEST_F(ToolDownloads, ACancelledDownloadIsACancellation) {
    std::stop_source stop;
    std::atomic<bool> stopped = false;
    const auto stopOnFirstBytes = [&](double) {
        if (!stopped.exchange(true))
            stop.request_stop();
    };
    EXPECT_THROW(downloader.download(server.url("/known"), stopOnFirstBytes, stop.get_token()),
                 platform::CancellationError);
    EXPECT_TRUE(stopped);
    EXPECT_TRUE(fs::is_empty(downloads));
}

} // namespace
} // namespace lumivesper::tools
