// Holds CONCURRENT proxied image requests at once against the real lumivesper-server (started as a
// child process on 127.0.0.1) in front of a slow loopback stand-in for OpenRouter, for ROUNDS
// rounds, and reports errors, round times and the server's resident memory before, after the
// first round and at the end. Exits 1 on any error or when memory grew by more than BOUND_MIB
// after the first round.
//
//   server_load_bench [CONCURRENT] [ROUNDS] [PROVIDER_DELAY_MS] [BOUND_MIB]   (defaults: 50 6 1000
//   32)

#include "generation/openrouter_proxy_client.h"
#include "generation/request_text.h"
#include "settings/defaults.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <httplib.h>
#include <iterator>
#include <netinet/in.h>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace lumivesper;
namespace fs = std::filesystem;

// The stand-in must accept as many connections at once as the server forwards.
class WideBacklogServer : public httplib::Server {
public:
    void widenBacklog() { ::listen(svr_sock_, 256); }
};

// "VmRSS" now, or "VmHWM", the highest it has been.
long statusKiB(pid_t pid, const std::string& field = "VmRSS") {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field + ":"))
            return std::stol(line.substr(field.size() + 1));
    return -1;
}

// User and system CPU seconds the process has used.
double cpuSeconds(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    long user = 0, system = 0;
    for (int index = 3; fields >> field; ++index) {
        if (index == 14)
            user = std::stol(field);
        if (index == 15) {
            system = std::stol(field);
            break;
        }
    }
    return double(user + system) / double(sysconf(_SC_CLK_TCK));
}

int freeLoopbackPort() {
    const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(probe);
    return ntohs(address.sin_port);
}

} // namespace

int main(int argc, char** argv) {
    const int concurrent = argc > 1 ? std::atoi(argv[1]) : 50;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 6;
    const int delayMs = argc > 3 ? std::atoi(argv[3]) : 1000;
    const long boundKiB = (argc > 4 ? std::atol(argv[4]) : 32) * 1024;

    const fs::path work =
        fs::temp_directory_path() / ("lumivesper-load-" + std::to_string(getpid()));
    fs::create_directories(work);

    // The slow provider: answers every chat completion after the delay with a 1 MiB image.
    const std::string image(1024 * 1024, '\x7f');
    const std::string answer = R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
                               generation::pngDataURL(generation::toBytes(image)) + R"("}}]}}]})";
    WideBacklogServer provider;
    provider.new_task_queue = [concurrent] {
        return new httplib::ThreadPool(static_cast<std::size_t>(concurrent) + 8);
    };
    provider.Post(".*", [&](const httplib::Request&, httplib::Response& response) {
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
        response.set_content(answer, "application/json");
    });
    const int providerPort = provider.bind_to_any_port("127.0.0.1");
    provider.widenBacklog();
    std::thread providerThread([&] { provider.listen_after_bind(); });

    const int port = freeLoopbackPort();
    const std::string serverURL = "http://127.0.0.1:" + std::to_string(port);
    const pid_t server = fork();
    if (server == 0) {
        const std::string log = (work / "access.log").string();
        std::freopen(log.c_str(), "w", stdout);
        setenv("OPENROUTER_API_KEY", "sk-load-test", 1);
        setenv("LUMIVESPER_TOKEN_SECRET", "load-test-secret-load-test-secret-0123", 1);
        const std::string portText = std::to_string(port);
        const std::string providerURL =
            "http://127.0.0.1:" + std::to_string(providerPort) + "/api/v1";
        execl(LUMIVESPER_SERVER_BINARY, "lumivesper-server", "--port", portText.c_str(),
              "--provider-url", providerURL.c_str(), "--proxy-burst", "1000", "--token-burst",
              "1000", static_cast<char*>(nullptr));
        _exit(127);
    }

    httplib::Client probe("127.0.0.1", port);
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!probe.Get("/healthz") && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const long idleKiB = statusKiB(server);

    // One device per client, each with its token fetched before the first round.
    std::vector<std::unique_ptr<settings::Defaults>> stores;
    std::vector<std::unique_ptr<generation::OpenRouterProxyClient>> clients;
    generation::NetworkSession session{{}, std::chrono::milliseconds(60000)};
    for (int i = 0; i < concurrent; ++i) {
        stores.push_back(
            std::make_unique<settings::Defaults>(work / ("device-" + std::to_string(i) + ".json")));
        clients.push_back(std::make_unique<generation::OpenRouterProxyClient>(
            serverURL, *stores.back(), session));
        clients.back()->tokenManager->validToken();
    }
    const generation::Bytes reference(512 * 1024, 0x42); // each request carries ~700 KB of JSON

    std::atomic<int> errors{0};
    long firstRoundKiB = 0, peakKiB = 0;
    std::printf("server_load_bench: %d concurrent, %d rounds, provider delay %d ms\n", concurrent,
                rounds, delayMs);
    std::printf("idle RSS: %ld KiB\n", idleKiB);
    for (int round = 1; round <= rounds; ++round) {
        const auto start = Clock::now();
        std::vector<std::thread> threads;
        for (int i = 0; i < concurrent; ++i)
            threads.emplace_back([&, i] {
                try {
                    const auto bytes =
                        clients[i]->generateImage("relight", reference, "vendor/model");
                    if (bytes.size() != image.size())
                        ++errors;
                } catch (const std::exception& error) {
                    std::fprintf(stderr, "request failed: %s\n", error.what());
                    ++errors;
                }
            });
        for (auto& thread : threads)
            thread.join();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        const long rss = statusKiB(server);
        peakKiB = std::max(peakKiB, rss);
        if (round == 1)
            firstRoundKiB = rss;
        std::printf("round %d: %.2f s, RSS %ld KiB\n", round, seconds, rss);
    }
    const long finalKiB = statusKiB(server);
    const long highWaterKiB = statusKiB(server, "VmHWM");
    const long growth = finalKiB - firstRoundKiB;
    std::printf("errors: %d of %d requests; server CPU %.1f s\n", errors.load(),
                concurrent * rounds, cpuSeconds(server));
    std::printf("RSS after round 1: %ld KiB, final: %ld KiB, highest between rounds: %ld KiB, "
                "highest during the run: %ld KiB, growth after round 1: %ld KiB (bound %ld KiB)\n",
                firstRoundKiB, finalKiB, peakKiB, highWaterKiB, growth, boundKiB);

    kill(server, SIGTERM);
    int status = 0;
    waitpid(server, &status, 0);
    provider.stop();
    providerThread.join();
    fs::remove_all(work);
    return errors == 0 && growth <= boundKiB ? 0 : 1;
}
