// What a directory holds, by the names in its index, as the operating system lists it. No record of a
// child is read: a folder of any size costs its index alone.
//
// The key of an index entry is a file name attribute, which tells of the file behind it:
//   offset  bytes
//        0      8  reference of the directory
//        8   4 x 8  times: creation, change, change of the record, access
//       40      8  allocated size
//       48      8  real size
//       56      4  file attributes: 0x10000000 a directory, 0x400 a reparse point
//       60      4  kind of the reparse point
//       64      1  length of the name in UTF-16 units
//       65      1  namespace
//       66         the name
//
// A bitmap, "$I30" too, has a bit for each block of the index that is in use; the others may hold what
// was there once.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ntfs/letter_case.h"
#include "ntfs/volume.h"

namespace ntfs {

namespace file_attribute {
inline constexpr std::uint32_t reparse_point = 0x400;
inline constexpr std::uint32_t encrypted = 0x4000;
inline constexpr std::uint32_t index_of_names = 0x10000000; // of a directory, in its names alone
} // namespace file_attribute

// Whether a reparse point stands for something that is elsewhere, as links do.
constexpr bool stands_for_another(std::uint32_t reparse_kind) noexcept
{
    return (reparse_kind & 0x20000000) != 0;
}

class folder {
public:
    enum class state {
        whole,
        damaged,    // some of its index could not be read
        unreadable, // it has none, or nothing of it could be read
    };

    struct child {
        std::uint64_t reference = 0; // entry number, and sequence number in the upper 16 bits
        std::uint32_t attributes = 0;
        std::uint32_t reparse_kind = 0;
        bool is_short_name = false; // in the DOS namespace alone: the child has another name
        std::u16string_view name;

        bool is_directory() const noexcept
        {
            return (attributes & file_attribute::index_of_names) != 0;
        }
        bool is_link() const noexcept
        {
            return (attributes & file_attribute::reparse_point) != 0 &&
                   stands_for_another(reparse_kind);
        }
    };

    // Reads the index of the directory with that entry number.
    state read(mft_entries_ctx& context, std::uint64_t entry);

    std::size_t size() const noexcept { return children_.size(); }
    child at(std::size_t number) const noexcept;
    // The child of a name: the one that is spelled so, or one by letter case. Null pointer of a name
    // view, and no reference, if there is none.
    child find(std::u16string_view name, const letter_case& letters);
    // Bytes that it takes.
    std::size_t cost() const noexcept
    {
        return children_.capacity() * sizeof(stored) + names_.capacity() * sizeof(char16_t);
    }

private:
    struct stored {
        std::uint64_t reference;
        std::uint64_t name_at; // in units
        std::uint32_t attributes;
        std::uint32_t reparse_kind;
        std::uint16_t length; // in units
        bool is_short_name;
    };
    bool take_node(uni::byte_view node);
    bool take_entry(uni::byte_view key, std::uint64_t reference);
    bool has_equal_names() const;
    std::u16string_view name_of(const stored& of) const noexcept
    {
        return std::u16string_view(names_).substr(static_cast<std::size_t>(of.name_at), of.length);
    }

    std::vector<stored> children_;
    std::u16string names_;
    bool is_sorted_ = false;        // by letter case
    bool has_marked_names_ = false; // in which something stands for what no path can hold
    std::uint64_t nodes_below_ = 0; // to which the entries lead
};

} // namespace ntfs
