#pragma once

#include <array>
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
    void add(const std::string& name, const std::string& content, std::uint16_t mode = 0644) {
        entries_.push_back({name, content, mode});
    }

    void write(const std::filesystem::path& path) const {
        std::string archive;
        std::string directory;
        for (const auto& entry : entries_) {
            const std::uint32_t offset = static_cast<std::uint32_t>(archive.size());
            const std::uint32_t checksum = crc32(entry.content);
            const auto size = static_cast<std::uint32_t>(entry.content.size());
            const auto nameLength = static_cast<std::uint16_t>(entry.name.size());

            put32(archive, 0x04034b50);
            put16(archive, 20); // version needed
            put16(archive, 0);  // flags
            put16(archive, 0);  // stored
            put16(archive, 0);  // time
            put16(archive, dosDate);
            put32(archive, checksum);
            put32(archive, size);
            put32(archive, size);
            put16(archive, nameLength);
            put16(archive, 0);
            archive += entry.name;
            archive += entry.content;

            put32(directory, 0x02014b50);
            put16(directory, (3 << 8) | 20); // made on Unix, so the permissions count
            put16(directory, 20);
            put16(directory, 0);
            put16(directory, 0);
            put16(directory, 0);
            put16(directory, dosDate);
            put32(directory, checksum);
            put32(directory, size);
            put32(directory, size);
            put16(directory, nameLength);
            put16(directory, 0); // extra
            put16(directory, 0); // comment
            put16(directory, 0); // disk
            put16(directory, 0); // internal attributes
            put32(directory, static_cast<std::uint32_t>(0100000 | entry.mode) << 16);
            put32(directory, offset);
            directory += entry.name;
        }
        const auto directoryOffset = static_cast<std::uint32_t>(archive.size());
        archive += directory;
        put32(archive, 0x06054b50);
        put16(archive, 0);
        put16(archive, 0);
        put16(archive, static_cast<std::uint16_t>(entries_.size()));
        put16(archive, static_cast<std::uint16_t>(entries_.size()));
        put32(archive, static_cast<std::uint32_t>(directory.size()));
        put32(archive, directoryOffset);
        put16(archive, 0);

        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << archive;
    }

private:
    struct Entry {
        std::string name;
        std::string content;
        std::uint16_t mode;
    };

    static constexpr std::uint16_t dosDate = (44 << 9) | (1 << 5) | 1; // 2024-01-01

    static void put16(std::string& out, std::uint32_t value) {
        out += static_cast<char>(value & 0xff);
        out += static_cast<char>((value >> 8) & 0xff);
    }
    static void put32(std::string& out, std::uint32_t value) {
        put16(out, value & 0xffff);
        put16(out, value >> 16);
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
