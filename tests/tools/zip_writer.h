#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace lumivesper::tools::testing {

// Writes a small zip archive of stored (uncompressed) files with Unix permissions, so tests can
// make tool archives without a zip program.
class ZipWriter {
public:
    void add(std::string name, std::string content, std::uint16_t mode = 0644) {
        entries_.push_back({std::move(name), std::move(content), mode});
    }

    void write(const std::filesystem::path& path) const {
        std::string archive;
        std::string directory;
        for (const Entry& entry : entries_) {
            const std::size_t offset = archive.size();
            // Version needed, flags, method (stored), time, date, checksum, sizes, name length.
            const auto common = [&](std::string& out) {
                put(out, 20, 2);
                put(out, 0, 6);
                put(out, dosDate, 2);
                put(out, crc32(entry.content), 4);
                put(out, entry.content.size(), 4);
                put(out, entry.content.size(), 4);
                put(out, entry.name.size(), 2);
            };
            put(archive, 0x04034b50, 4);
            common(archive);
            put(archive, 0, 2); // extra
            archive += entry.name + entry.content;

            put(directory, 0x02014b50, 4);
            put(directory, (3 << 8) | 20, 2); // made on Unix, so the permissions count
            common(directory);
            put(directory, 0, 8); // extra, comment, disk, internal attributes
            put(directory, std::uint64_t{0100000u | entry.mode} << 16, 4);
            put(directory, offset, 4);
            directory += entry.name;
        }
        const std::size_t directoryOffset = archive.size();
        archive += directory;
        put(archive, 0x06054b50, 4);
        put(archive, 0, 4);
        put(archive, entries_.size(), 2);
        put(archive, entries_.size(), 2);
        put(archive, directory.size(), 4);
        put(archive, directoryOffset, 4);
        put(archive, 0, 2);
        std::ofstream(path, std::ios::binary | std::ios::trunc) << archive;
    }

private:
    struct Entry {
        std::string name;
        std::string content;
        std::uint16_t mode;
    };

    static constexpr std::uint16_t dosDate = (44 << 9) | (1 << 5) | 1; // 2024-01-01

    // `value` little-endian in `bytes` bytes.
    static void put(std::string& out, std::uint64_t value, int bytes) {
        for (int index = 0; index < bytes; ++index, value >>= 8)
            out += static_cast<char>(value & 0xff);
    }

    static std::uint32_t crc32(const std::string& data) {
        std::uint32_t crc = 0xffffffffu;
        for (unsigned char byte : data) {
            crc ^= byte;
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
        }
        return ~crc;
    }

    std::vector<Entry> entries_;
};

} // namespace lumivesper::tools::testing
