#include "../support/temporary_folder.h"
#include "loopback_server.h"
#include "platform/cancellation.h"
#include "tool_fixture.h"
#include "tools/download_delegate.h"
#include "tools/tool_downloader.h"
#include "tools/tool_error.h"

#include <gtest/gtest.h>
#include <regex>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;
using testing::failureOf;
using testing::readFile;

TEST(DownloadDelegateAnswers, ExactlyOnceWhicheverEventComesFirst) {
    lumivesper::testing::TemporaryFolder folder;
    const fs::path partial = folder.path() / "transfer.part";
    const platform::HttpResponse ok{200, {}, {}};

    std::ofstream(partial) << "archive bytes";
    DownloadDelegate finishFirst({}, folder.path());
    std::stop_source task;
    auto finished = finishFirst.start(task);
    finishFirst.didCompleteWithError(nullptr); // ended well: the finish gives the answer
    finishFirst.didFinishDownloading(partial, ok);
    finishFirst.didCompleteWithError(std::make_exception_ptr(std::runtime_error("late")));
    finishFirst.didFinishDownloading(partial, ok);
    EXPECT_EQ(readFile(finished.get().location), "archive bytes");
    EXPECT_TRUE(task.stop_requested()) << "the transfer is torn down once answered";

    std::ofstream(partial) << "archive bytes";
    DownloadDelegate errorFirst({}, folder.path());
    auto failed = errorFirst.start(std::stop_source());
    errorFirst.didCompleteWithError(std::make_exception_ptr(std::runtime_error("first")));
    errorFirst.didFinishDownloading(partial, ok);
    EXPECT_THROW(failed.get(), std::runtime_error);
    EXPECT_TRUE(fs::exists(partial)) << "the late finish must not move anything";

    DownloadDelegate noResponse({}, folder.path());
    auto unanswered = noResponse.start(std::stop_source());
    noResponse.didFinishDownloading(partial, std::nullopt);
    EXPECT_THROW(unanswered.get(), platform::HttpError);

    DownloadDelegate nowhere({}, folder.path() / "no-such-folder");
    auto unmoved = nowhere.start(std::stop_source());
    nowhere.didFinishDownloading(partial, ok);
    EXPECT_THROW(unmoved.get(), fs::filesystem_error);
}

class ToolDownloads : public ::testing::Test {
protected:
    void SetUp() override {
        for (std::size_t index = 0; index < body.size(); ++index)
            body[index] = static_cast<char>('a' + index % 26); // misplaced bytes show
        server.server.Get("/known", [this](const httplib::Request&, httplib::Response& response) {
            response.set_content(body, "application/zip");
        });
        server.server.Get("/unknown", [this](const httplib::Request&, httplib::Response& response) {
            response.set_chunked_content_provider(
                "application/zip", [this](size_t offset, httplib::DataSink& sink) {
                    if (offset < body.size())
                        return sink.write(body.data() + offset,
                                          std::min<size_t>(16384, body.size() - offset));
                    sink.done();
                    return true;
                });
        });
        server.start();
    }

    std::string body = std::string(600'000, ' ');
    testing::LoopbackServer server;
    lumivesper::testing::TemporaryFolder folder;
    fs::path downloads = folder.path() / "downloads";
    ToolDownloader downloader{downloads, folder.path()};
};

TEST_F(ToolDownloads, DeliversTheBodyWithFractionsOnlyForAKnownLength) {
    for (const std::string path : {"/known", "/unknown"}) {
        std::vector<double> fractions;
        const DownloadOutcome outcome =
            downloader.download(server.url(path), [&](double f) { fractions.push_back(f); });
        EXPECT_EQ(outcome.response.status, 200);
        EXPECT_EQ(outcome.response.header("Transfer-Encoding") == "chunked", path == "/unknown");
        EXPECT_TRUE(std::regex_match(outcome.location.filename().string(),
                                     std::regex("LumivesperDownload-[0-9A-F]{8}-[0-9A-F]{4}-"
                                                "[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\\.zip")))
            << outcome.location;
        EXPECT_EQ(readFile(outcome.location), body);
        EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
        if (path == "/known") {
            ASSERT_FALSE(fractions.empty());
            EXPECT_GT(fractions.front(), 0.0);
            EXPECT_DOUBLE_EQ(fractions.back(), 1.0);
        } else {
            EXPECT_TRUE(fractions.empty());
        }
    }
    EXPECT_TRUE(fs::is_empty(downloads)) << "nothing of the transfers is left behind";
}

TEST_F(ToolDownloads, AFailureGivesItsStatusOrCauseAndKeepsNoFile) {
    const ToolError notFound =
        failureOf<ToolError>([&] { downloader.download(server.url("/missing")); });
    EXPECT_EQ(notFound.kind(), ToolError::Kind::downloadFailed);
    EXPECT_EQ(notFound.statusCode(), 404);
    EXPECT_EQ(notFound.description(),
              "Download failed (HTTP 404). Check your internet connection.");

    const ToolError refused =
        failureOf<ToolError>([&] { downloader.download(testing::refusingURL("/")); });
    EXPECT_FALSE(refused.statusCode());
    EXPECT_EQ(refused.description(), "Download failed. Check your internet connection.");
    ASSERT_TRUE(refused.underlyingError());
    EXPECT_EQ(failureOf<platform::HttpError>([&] {
                  std::rethrow_exception(refused.underlyingError());
              }).kind(),
              platform::HttpError::Kind::cannotConnect);

    EXPECT_TRUE(fs::is_empty(downloads));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1)
        << "nothing but the transfer folder";
}

TEST_F(ToolDownloads, ACancelledDownloadIsACancellation) {
    std::stop_source stop;
    EXPECT_THROW(downloader.download(
                     server.url("/known"), [&](double) { stop.request_stop(); }, stop.get_token()),
                 platform::CancellationError);
    EXPECT_TRUE(fs::is_empty(downloads));
}

} // namespace
} // namespace lumivesper::tools
