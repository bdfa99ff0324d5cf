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
    void add(std::string name, std::string content, std::uint32_t mode = 0644) {
        entries_.push_back({std::move(name), std::move(content), mode});
    }

    void write(const std::filesystem::path& path) const {
        std::string archive;
        std::string directory;
        for (const Entry& entry : entries_) {
            // Version needed, no flags, stored, no time, date, checksum, sizes, name length, no
            // extra field: the same in the local header and the central directory.
            std::string common;
            put(common, 20, 2);
            put(common, 0, 6);
            put(common, (44 << 9) | (1 << 5) | 1, 2); // 2024-01-01
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
        std::string name, content;
        std::uint32_t mode;
    };

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
