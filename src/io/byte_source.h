#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "io/large_vector.h"

namespace io {

// When a file was last written and read, and when it was made: FILETIME ticks, 0 for what is not
// known.
struct file_times {
    std::uint64_t write = 0;
    std::uint64_t access = 0;
    std::uint64_t creation = 0;
};

// What a file system keeps of a file beyond its usual times. All times are FILETIME ticks.
struct kept_times {
    std::string name; // whose times these are, as a file may have several names
    file_times times;
    std::uint64_t record_change = 0; // of the file's record
};
struct file_history {
    file_times times = {};
    std::uint64_t record_change = 0;
    std::vector<kept_times> names = {};
    // Of a file that was deleted: how many clusters it had, and how many of them are no other's yet.
    bool is_deleted = false;
    std::uint64_t clusters = 0;
    std::optional<std::uint64_t> free_clusters = 0; // none where that cannot be told
    // Its record is damaged, or was not written whole: there may be more of the file, or other bytes.
    bool is_damaged = false;
    bool is_hidden = false;
    bool is_system = false;
    std::uint32_t reparse_kind = 0;              // 0 for what is no reparse point
    std::string stream = {};                     // its name; empty for the file's content
    std::vector<std::string> other_streams = {}; // of the file, those with names
};

// Bytes at places: an ordinary file, a block of memory, or a file inside something else. Formats
// read these and never a path, so that it is all one to them where their bytes lie.
class byte_source {
public:
    byte_source() = default;
    virtual ~byte_source() = default;
    byte_source(const byte_source&) = delete;
    byte_source& operator=(const byte_source&) = delete;

    // Length in bytes when it was opened.
    virtual std::uint64_t size() const noexcept = 0;
    // Reads at `offset` until `out` is full, the source ends or reading fails; gives how many of its
    // first bytes were read.
    virtual std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) = 0;
    virtual file_times times() const { return {}; }
    // Null where nothing of the kind is known.
    virtual const file_history* history() const noexcept { return nullptr; }
    // Whether a read failed since it was opened, though there should have been bytes.
    virtual bool has_failed() const noexcept { return false; }
    // Whether it is another now than when it was opened: longer, shorter or written to.
    virtual bool has_changed() const { return false; }
};

// The file at `path` (UTF-8); null, with the reason in words, if it does not open.
std::unique_ptr<byte_source> open_source(const std::string& path, std::string& reason);
inline std::unique_ptr<byte_source> open_source(const std::string& path)
{
    std::string reason;
    return open_source(path, reason);
}

// Bytes that are there already.
class memory_source : public byte_source {
public:
    explicit memory_source(byte_vector bytes) : bytes_(std::move(bytes)) {}

    std::uint64_t size() const noexcept override { return bytes_.size(); }
    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override;

private:
    byte_vector bytes_;
};

// Reads the first `limit` bytes of a source. False, and nothing in `out`, when nothing was read.
bool read_source(byte_vector& out, byte_source& source, std::uint64_t limit);

} // namespace io
