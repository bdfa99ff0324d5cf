#pragma once

#include "tools/tool_package.h"
#include "tools/tool_records.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <httplib.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace lumivesper::tools::testing {

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The error `work` throws; anything else, or nothing, fails the test.
template <typename Error> Error failureOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const Error& error) {
        return error;
    }
    throw std::runtime_error("the expected error was not thrown");
}

struct ZipEntry {
    std::string name, content;
    std::uint32_t mode = 0644;
};

// `value` little-endian in `bytes` bytes.
inline void put(std::string& out, std::uint64_t value, int bytes) {
    for (int index = 0; index < bytes; ++index, value >>= 8)
        out += static_cast<char>(value & 0xff);
}

inline std::uint32_t crc32(const std::string& data) {
    std::uint32_t crc = 0xffffffffu;
    for (unsigned char byte : data) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

// Writes a zip archive of stored (uncompressed) files with Unix permissions, so tests can make
// tool archives without a zip program.
inline void writeZip(const std::filesystem::path& path, const std::vector<ZipEntry>& entries) {
    std::string archive;
    std::string directory;
    for (const ZipEntry& entry : entries) {
        // From "version needed" to "extra field length", alike in both headers: no flags, stored,
        // 2024-01-01, no extra field.
        std::string common;
        put(common, 20, 2);
        put(common, 0, 6);
        put(common, (44 << 9) | (1 << 5) | 1, 2);
        put(common, crc32(entry.content), 4);
        put(common, entry.content.size(), 4);
        put(common, entry.content.size(), 4);
        put(common, entry.name.size(), 4);

        put(directory, 0x02014b50, 4);
        put(directory, (3 << 8) | 20, 2); // made on Unix, so the permissions count
        directory += common;
        put(directory, 0, 6); // comment, disk, internal attributes
        put(directory, (0100000u | entry.mode) << 16, 4);
        put(directory, archive.size(), 4);
        directory += entry.name;

        put(archive, 0x04034b50, 4);
        archive += common + entry.name + entry.content;
    }
    const std::size_t directoryOffset = archive.size();
    archive += directory;
    put(archive, 0x06054b50, 4);
    put(archive, 0, 4); // disk numbers
    put(archive, entries.size(), 2);
    put(archive, entries.size(), 2);
    put(archive, directory.size(), 4);
    put(archive, directoryOffset, 4);
    put(archive, 0, 2); // comment length
    std::ofstream(path, std::ios::binary | std::ios::trunc) << archive;
}

// A shell script for a program and model files making the models "x2" and "x4".
inline void writeUpscalerArchive(const std::filesystem::path& path,
                                 const std::string& greeting = "upscaled") {
    writeZip(path, {{"bin/upscale", "#!/bin/sh\necho " + greeting + "\n", 0755},
                    {"models/x4.param", "param"},
                    {"models/x4.bin", "weights"},
                    {"models/x2.bin", "weights"}});
}

// Name, version, address (set by the test), space needed, program, models folder, models.
inline ToolPackage upscalerPackage() {
    return {"upscaler", "1.0", "", 1000, "bin/upscale", "models", {"x4"}};
}

// A real HTTP server on 127.0.0.1, serving the routes a test sets up on `server` before start().
class LoopbackServer {
public:
    ~LoopbackServer() {
        server.stop();
        if (thread_.joinable())
            thread_.join();
    }

    void start() {
        port_ = server.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server.listen_after_bind(); });
        for (int tries = 0; !server.is_running() && tries < 10'000; ++tries)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

    httplib::Server server;

private:
    int port_ = 0;
    std::thread thread_;
};

// A loopback URL where nothing listens any more.
inline std::string refusingURL(const std::string& path) {
    LoopbackServer stopped;
    stopped.start();
    return stopped.url(path);
}

} // namespace lumivesper::tools::testing
