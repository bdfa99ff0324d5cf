// Not a test: the program's server as a generation meets it, for running the application by hand
// (under Xvfb, say) without the real service. It serves eleven pictures from a folder, in name
// order (the base frame first), each after a delay, and can fail one phase with a 500.
//
//   program_server_stand_in --pictures DIR [--delay-ms N] [--fail PHASE]
//
// Prints its base URL (for API_SERVER_URL) and runs until interrupted.
#include "../support/program_server_stand_in.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>

namespace {

namespace fs = std::filesystem;
using namespace lumivesper;

std::vector<generation::Bytes> readPictures(const fs::path& folder) {
    std::set<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.is_regular_file())
            files.insert(entry.path());
    std::vector<generation::Bytes> pictures;
    for (const auto& file : files) {
        std::ifstream stream(file, std::ios::binary);
        pictures.emplace_back(std::istreambuf_iterator<char>(stream),
                              std::istreambuf_iterator<char>());
    }
    return pictures;
}

} // namespace

int main(int argc, char** argv) {
    fs::path folder;
    int delayMs = 0;
    std::string failingPhase;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string flag = argv[i];
        if (flag == "--pictures")
            folder = argv[i + 1];
        else if (flag == "--delay-ms")
            delayMs = std::stoi(argv[i + 1]);
        else if (flag == "--fail")
            failingPhase = argv[i + 1];
    }
    if (folder.empty()) {
        std::cerr
            << "usage: program_server_stand_in --pictures DIR [--delay-ms N] [--fail PHASE]\n";
        return 2;
    }
    const auto pictures = readPictures(folder);
    if (pictures.size() < 11) {
        std::cerr << "program_server_stand_in: " << folder << " holds fewer than 11 pictures\n";
        return 1;
    }

    // Blocked before the server's threads start, so that sigwait below receives them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    lumivesper::testing::ProgramServerStandIn server(pictures);
    server.setDelay(std::chrono::milliseconds(delayMs));
    if (!failingPhase.empty()) {
        server.setHook([failingPhase, delayMs](const std::string& phase, httplib::Response& r) {
            if (phase != failingPhase)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
            r.status = 500;
            r.set_content("The image model is unavailable right now.", "text/plain");
            return true;
        });
    }
    std::cout << server.url() << std::endl;
    int received = 0;
    sigwait(&stopSignals, &received);
    std::cerr << "program_server_stand_in: " << server.proxyRequests() << " proxy requests\n";
    return 0;
}
