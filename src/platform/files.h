#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace platform {

// Ordinary files. Paths are UTF-8; how a path may be spelled on each side (separators, letter case,
// long forms) is settled here, so that no caller needs to know.

// A file that is open, or why it is not.
struct opened_file {
    int descriptor = -1;
    std::string reason; // in words, as in "no such file"; empty for one that is open
};

// Opens a regular file or a block device for reading; anything else is told in `reason`. Its access
// time stays as it is, where the system lets us.
opened_file open_for_reading(const std::string& path);

// Opens a file for writing, which is created if it is not there. What is there already stays
// (`keep`), gives way to a new file (`renew`, but for a link or a folder), or is a reason not to open
// it (`refuse`).
enum class existing_file { keep, renew, refuse };
opened_file open_for_writing(const std::string& path, existing_file existing);

// False if what was written did not all arrive.
bool close_file(int descriptor);

// Length in bytes, 0 for what has none; negative where the system does not tell.
std::int64_t file_length(int descriptor);

struct read_result {
    std::size_t count = 0;
    bool failed = false; // otherwise the file ended, or `out` is full
};

// Reads at `offset` until `out` is full, the file ends or reading fails.
read_result read_file(int descriptor, std::span<std::uint8_t> out, std::int64_t offset);

inline constexpr int standard_input_descriptor = 0;
inline constexpr int standard_output_descriptor = 1;
inline constexpr int standard_error_descriptor = 2;

// Writes all of `bytes` at the place that writing has reached; false on failure.
bool write_file(int descriptor, std::span<const std::uint8_t> bytes);
// Makes the end of the file the place to write at; false for what has no places.
bool seek_end(int descriptor);
// Cuts a file to a length.
bool cut_file(int descriptor, std::int64_t length);

// Keeps other runs of this program from writing the file, until it is closed; false if one does.
bool hold_file(int descriptor);
// Whether the file at `path` is the one that is open.
bool is_file_at(int descriptor, const std::string& path);
// Removes a file, or a link itself.
bool remove_file(const std::string& path);

// Puts a file in the place of another, or where there is none.
bool replace_file(const std::string& from, const std::string& to);

// What tells a file apart from all others, whatever its path; nothing for none.
struct file_id {
    std::uint64_t device = 0;
    std::uint64_t node = 0;
    friend bool operator==(const file_id&, const file_id&) = default;
};
std::optional<file_id> identify_file(const std::string& path);
// The same of what a standard stream is; nothing for what is no regular file or block device.
std::optional<file_id> identify_stream(int descriptor);

// What an output path leads to: the end of its links, in its spelling on disk, and whether something
// else than a regular file is there, such as a device or a pipe.
struct output_place {
    std::string path;
    bool is_special = false;
    bool exists = false;
};
output_place find_output(const std::string& path);

// Gives a file the mode and owner of another, as far as the system lets us.
void take_rights(int descriptor, const std::string& from);

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

// Whether there is surely nothing at `path`.
bool is_missing(const std::string& path);

// Whether `path`, its links followed, lies in a folder or below it; true for what is not there.
bool lies_below(const std::string& path, const std::string& folder);

// Facts of an open file.
bool read_file_facts(int descriptor, file_facts& facts);

// Facts of the file or directory at `path`; false, and `facts` at its defaults, if there is none.
bool read_file_facts(const std::string& path, file_facts& facts);

} // namespace platform
