// A zip archive of files made piece by piece while it is sent: the files are stored (photos
// and movies are compressed already), each followed by a data descriptor, so nothing is
// written to disk and no piece needs to be revisited. Zip libraries on the system (libzip,
// minizip) seek back into what they wrote, which a response being streamed can't do.
#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace app::web {

// CRC-32 as zip uses it (polynomial 0xEDB88320), continued from `crc`.
std::uint32_t crc32Update(std::uint32_t crc, const char* data, std::size_t size);

class ZipStream {
  public:
    struct Entry {
        std::string path;  // the file to read
        std::string name;  // its name in the archive
    };

    // Files of 4 GiB or more and more than 65535 files need zip64, which this writer leaves
    // out: such a request is refused by `check`.
    explicit ZipStream(std::vector<Entry> entries);
    // Why the archive can't be made (a file missing or too large), or none.
    std::optional<std::string> check() const;

    // The next piece of the archive; empty once it is complete. False in `ok` when a file
    // could not be read to its end.
    std::string next(bool* ok);

  private:
    enum class Phase { header, data, descriptor, directory, done };
    struct Written {
        std::string name;
        std::uint32_t crc = 0;
        std::uint32_t size = 0;
        std::uint32_t offset = 0;
    };

    std::string localHeader(const std::string& name) const;
    std::string directory() const;

    std::vector<Entry> _entries;
    std::vector<Written> _written;
    std::size_t _index = 0;
    Phase _phase = Phase::header;
    std::ifstream _file;
    std::uint64_t _offset = 0;
    std::uint32_t _crc = 0;
    std::uint64_t _size = 0;
    std::uint16_t _dosTime = 0;
    std::uint16_t _dosDate = 0;
};

// Names made unique within an archive: a repeated "a.jpg" becomes "a-2.jpg".
std::vector<std::string> uniqueArchiveNames(const std::vector<std::string>& names);

}  // namespace app::web
