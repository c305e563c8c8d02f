#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace platform {

// Ordinary files. Paths are UTF-8; how a path may be spelled on each side (separators, letter case,
// long forms) is settled here, so that no caller needs to know.

enum class open_mode {
    read,           // reading only
    write_existing, // reading and writing; the file must exist, its contents stay
    write_truncate, // reading and writing; created if absent, emptied if not
};

// Opens a file. Opening for writing first takes away a read-only mark, so that a read-only file can
// be replaced. Gives a descriptor for the operations below, or -1.
int open_file(const std::string& path, open_mode mode);
void close_file(int descriptor);

// Length in bytes, found by seeking to the end; 0 for what cannot be sought.
std::int64_t file_length(int descriptor);

// Reads at `offset` until `out` is full, the file ends or reading fails; gives the bytes read.
std::size_t read_file(int descriptor, std::span<std::uint8_t> out, std::int64_t offset);

// Writes all of `bytes` at `offset`; false on failure.
bool write_file(int descriptor, std::span<const std::uint8_t> bytes, std::int64_t offset);

// Removes a regular file; anything else (a device or a link that was named as an output, say)
// stays.
bool delete_file(const std::string& path);

// A path as this system's users write it, for paths that messages show; it names the same file.
std::string native_spelling(std::string path);

// The path of a volume that `value` names as it stands: a mounted folder, or an image of the
// volume, trailing separators cut. Nothing where volumes are named by letters alone.
std::optional<std::string> volume_at(const std::string& value);

struct file_facts {
    std::uint64_t write_time = 0;    // FILETIME ticks; 0 where the file system keeps none
    std::uint64_t access_time = 0;   // the same
    std::uint64_t creation_time = 0; // the same
    std::uint64_t size = 0;          // bytes
    bool is_directory = false;
};

// Facts of the file or directory at `path`; false, and `facts` at its defaults, if there is none.
bool read_file_facts(const std::string& path, file_facts& facts);

// The 48-bit file reference of a file on a mounted volume, where the platform gives one; else 0.
std::uint64_t file_identity(const std::string& path);

} // namespace platform
