#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "io/byte_source.h"

namespace files {

// Files that belong together, of which no more are open at a time than a system allows.
class part_files {
public:
    // False, with the reason in words, if one of them does not open.
    bool add(const std::string& path, std::string& reason);

    std::size_t count() const noexcept { return parts_.size(); }
    std::uint64_t size(std::size_t number) const { return parts_[number].size; }
    const std::vector<std::string>& paths() const noexcept { return paths_; }
    // Reads of one of them; gives how many bytes could be read.
    std::size_t read(std::size_t number, std::span<std::uint8_t> out, std::uint64_t offset);
    bool has_changed() const;

private:
    struct part {
        std::uint64_t size = 0;
        io::file_times times;
    };
    struct open_part {
        std::size_t number = 0;
        std::unique_ptr<io::byte_source> source;
    };
    io::byte_source* source_of(std::size_t number);
    void keep(std::size_t number, std::unique_ptr<io::byte_source> source);

    std::vector<std::string> paths_;
    std::vector<part> parts_;
    std::list<open_part> open_; // the one used last first
    bool is_another_ = false;   // one that was opened again
};

// The bytes of an image, whatever it is kept in: raw, in parts (disk.001, disk.002 and so on), or as E01.
struct image_source {
    std::unique_ptr<io::byte_source> bytes; // null where it cannot be read
    std::vector<std::string> paths;         // all files that it consists of
    std::string reason;                     // in words
};
image_source open_image(const std::string& path);

} // namespace files
