#include "app/web/ZipStream.h"

#include <array>
#include <ctime>
#include <filesystem>
#include <set>

namespace app::web {
namespace {

constexpr std::uint16_t kFlagDescriptor = 0x0008;
constexpr std::uint16_t kFlagUTF8 = 0x0800;
constexpr std::size_t kChunk = 1 << 16;

void put16(std::string& out, std::uint32_t value) {
    out.push_back(static_cast<char>(value & 0xFF));
    out.push_back(static_cast<char>((value >> 8) & 0xFF));
}

void put32(std::string& out, std::uint32_t value) {
    put16(out, value & 0xFFFF);
    put16(out, value >> 16);
}

std::array<std::uint32_t, 256> makeCrcTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t n = 0; n < 256; ++n) {
        std::uint32_t c = n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        table[n] = c;
    }
    return table;
}

}  // namespace

std::uint32_t crc32Update(std::uint32_t crc, const char* data, std::size_t size) {
    static const auto table = makeCrcTable();
    crc = ~crc;
    for (std::size_t i = 0; i < size; ++i)
        crc = table[(crc ^ static_cast<unsigned char>(data[i])) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

std::vector<std::string> uniqueArchiveNames(const std::vector<std::string>& names) {
    std::set<std::string> taken;
    std::vector<std::string> unique;
    for (const auto& name : names) {
        std::string candidate = name;
        const auto dot = name.rfind('.');
        const std::string stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
        const std::string extension = stem.size() == name.size() ? "" : name.substr(dot);
        for (int n = 2; taken.count(candidate); ++n)
            candidate = stem + "-" + std::to_string(n) + extension;
        taken.insert(candidate);
        unique.push_back(candidate);
    }
    return unique;
}

ZipStream::ZipStream(std::vector<Entry> entries) : _entries(std::move(entries)) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    _dosTime = static_cast<std::uint16_t>((local.tm_hour << 11) | (local.tm_min << 5) |
                                          (local.tm_sec / 2));
    _dosDate = static_cast<std::uint16_t>(((local.tm_year - 80) << 9) | ((local.tm_mon + 1) << 5) |
                                          local.tm_mday);
}

std::optional<std::string> ZipStream::check() const {
    if (_entries.empty()) return "No files were given.";
    if (_entries.size() > 0xFFFE) return "Too many files for one archive.";
    std::uint64_t total = 0;
    for (const auto& entry : _entries) {
        std::error_code code;
        const auto size = std::filesystem::file_size(entry.path, code);
        if (code) return entry.name + " can't be read.";
        if (size >= 0xFFFFFFFFull) return entry.name + " is too large for a zip archive.";
        total += size + 100 + entry.name.size();
        if (entry.name.size() > 0xFFFF) return "A name is too long.";
    }
    if (total >= 0xFFFFFFFFull) return "The files are too large together for one zip archive.";
    return std::nullopt;
}

std::string ZipStream::localHeader(const std::string& name) const {
    std::string out;
    put32(out, 0x04034b50);
    put16(out, 20);
    put16(out, kFlagDescriptor | kFlagUTF8);
    put16(out, 0);  // stored
    put16(out, _dosTime);
    put16(out, _dosDate);
    put32(out, 0);  // crc and sizes follow in the descriptor
    put32(out, 0);
    put32(out, 0);
    put16(out, static_cast<std::uint32_t>(name.size()));
    put16(out, 0);
    return out + name;
}

std::string ZipStream::directory() const {
    std::string out;
    std::uint32_t start = static_cast<std::uint32_t>(_offset);
    for (const auto& file : _written) {
        put32(out, 0x02014b50);
        put16(out, 20);
        put16(out, 20);
        put16(out, kFlagDescriptor | kFlagUTF8);
        put16(out, 0);
        put16(out, _dosTime);
        put16(out, _dosDate);
        put32(out, file.crc);
        put32(out, file.size);
        put32(out, file.size);
        put16(out, static_cast<std::uint32_t>(file.name.size()));
        put16(out, 0);  // extra
        put16(out, 0);  // comment
        put16(out, 0);  // disk
        put16(out, 0);  // internal attributes
        put32(out, 0);  // external attributes
        put32(out, file.offset);
        out += file.name;
    }
    const auto directorySize = static_cast<std::uint32_t>(out.size());
    put32(out, 0x06054b50);
    put16(out, 0);
    put16(out, 0);
    put16(out, static_cast<std::uint32_t>(_written.size()));
    put16(out, static_cast<std::uint32_t>(_written.size()));
    put32(out, directorySize);
    put32(out, start);
    put16(out, 0);
    return out;
}

std::string ZipStream::next(bool* ok) {
    *ok = true;
    std::string out;
    switch (_phase) {
        case Phase::header: {
            if (_index >= _entries.size()) {
                _phase = Phase::directory;
                return next(ok);
            }
            const Entry& entry = _entries[_index];
            _written.push_back({entry.name, 0, 0, static_cast<std::uint32_t>(_offset)});
            _file = std::ifstream(entry.path, std::ios::binary);
            if (!_file) {
                *ok = false;
                _phase = Phase::done;
                return {};
            }
            _crc = 0;
            _size = 0;
            out = localHeader(entry.name);
            _phase = Phase::data;
            break;
        }
        case Phase::data: {
            out.resize(kChunk);
            _file.read(out.data(), static_cast<std::streamsize>(out.size()));
            out.resize(static_cast<std::size_t>(_file.gcount()));
            if (out.empty()) {
                if (_file.bad()) {
                    *ok = false;
                    _phase = Phase::done;
                    return {};
                }
                _phase = Phase::descriptor;
                return next(ok);
            }
            _crc = crc32Update(_crc, out.data(), out.size());
            _size += out.size();
            break;
        }
        case Phase::descriptor: {
            Written& file = _written.back();
            file.crc = _crc;
            file.size = static_cast<std::uint32_t>(_size);
            put32(out, 0x08074b50);
            put32(out, file.crc);
            put32(out, file.size);
            put32(out, file.size);
            _file.close();
            ++_index;
            _phase = Phase::header;
            break;
        }
        case Phase::directory:
            out = directory();
            _phase = Phase::done;
            break;
        case Phase::done:
            return {};
    }
    _offset += out.size();
    return out;
}

}  // namespace app::web
