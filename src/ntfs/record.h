// FILE records, index blocks and attributes as bytes. Numbers are little-endian.
//
// FILE record, which describes a file:
//   offset  bytes
//        0      4  "FILE", or "BAAD" where the file system gave the record up
//        4      2  offset of the update sequence; 48
//        6      2  its count of elements; at most 9
//       16      2  sequence number
//       20      2  offset of the first attribute; at most 72
//       22      2  flags: 1 in use, else the file was deleted; 2 a directory
//       24      4  used size
//       28      4  allocated size
//       32      8  reference of the base record, low 48 bits its entry number; not 0 in a record
//                  that only extends another
//       40      2  next attribute id
//       44      4  entry number
//
// An "INDX" block begins like it up to offset 8. In both, the last two bytes of every 512 are kept
// in the update sequence, behind its first element, while a check value stands in their place. A
// volume may be in use while it is read: the check value is not compared.
//
// Attribute:
//        0      4  type; 0xffffffff ends the list
//        4      4  length of the whole
//        8      1  not 0: non-resident, the value lies in clusters
//        9      1  length of the name in UTF-16 units
//       10      2  offset of the name
//       12      2  flags: 1 compressed, 0x4000 encrypted, 0x8000 sparse
//       14      2  id
//   resident:
//       16      4  length of the value
//       20      2  offset of the value
//   non-resident:
//       16      8  first cluster of the value that this attribute tells of
//       24      8  last one
//       32      2  offset of the run list
//       40      8  allocated size in bytes
//       48      8  real size
//       56      8  initialized size
//       64      8  compressed size, where there is compression
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "uni/byte_view.h"

namespace ntfs {

namespace attribute_type {
inline constexpr std::uint32_t standard_information = 0x10;
inline constexpr std::uint32_t attribute_list = 0x20;
inline constexpr std::uint32_t file_name = 0x30;
inline constexpr std::uint32_t data = 0x80;
inline constexpr std::uint32_t index_root = 0x90;
inline constexpr std::uint32_t index_allocation = 0xa0;
inline constexpr std::uint32_t bitmap = 0xb0;
inline constexpr std::uint32_t reparse_point = 0xc0;
inline constexpr std::uint32_t end = 0xffffffff;
} // namespace attribute_type

namespace record_flag {
inline constexpr std::uint16_t in_use = 1;
inline constexpr std::uint16_t directory = 2;
} // namespace record_flag

// The entry number of a record reference.
constexpr std::uint64_t entry_of(std::uint64_t reference) noexcept
{
    return reference & 0xffffffffffff;
}
// And the sequence number that the record had when the reference was made.
constexpr std::uint16_t sequence_of(std::uint64_t reference) noexcept
{
    return static_cast<std::uint16_t>(reference >> 48);
}

// Whether bytes that share an update sequence, not yet fixed up, were written whole: it has an element
// for each 512 of them, and its check value stands in each of its places.
bool was_written_whole(uni::byte_view bytes);

enum class record_kind {
    unknown,
    file,  // a good "FILE" record
    index, // an "INDX" block
    bad,   // "BAAD"
};

// Tells what the bytes begin with, and puts back what the update sequence keeps of a record or
// block. Bad and unknown bytes stay as they are.
record_kind fix_up(std::span<std::uint8_t> bytes);

// The same for every 4096 bytes that begin "INDX", as an index allocation holds them.
void fix_up_index_blocks(std::span<std::uint8_t> bytes);
inline constexpr std::size_t index_block_size = 4096;

// Header fields of a FILE record.
class file_record {
public:
    file_record() = default;
    explicit file_record(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    uni::byte_view bytes() const noexcept { return bytes_; }
    std::uint16_t update_count() const noexcept { return bytes_.u16(6); }
    std::uint16_t sequence() const noexcept { return bytes_.u16(16); }
    std::uint16_t first_attribute() const noexcept { return bytes_.u16(20); }
    std::uint16_t flags() const noexcept { return bytes_.u16(22); }
    bool is_in_use() const noexcept { return (flags() & record_flag::in_use) != 0; }
    bool is_directory() const noexcept { return (flags() & record_flag::directory) != 0; }
    std::uint32_t used_size() const noexcept { return bytes_.u32(24); }
    std::uint32_t allocated_size() const noexcept { return bytes_.u32(28); }
    // Whether the sizes that the record tells go together and fit it.
    bool has_sound_sizes() const noexcept
    {
        return allocated_size() != 0 && used_size() <= allocated_size() &&
               allocated_size() <= bytes_.size();
    }
    std::uint64_t base_reference() const noexcept { return bytes_.u64(32); }

private:
    uni::byte_view bytes_;
};

// An attribute, as a view of its record. Its bytes end with its length; a name, a value or a run
// list that leaves them is empty.
class attribute {
public:
    attribute() = default;
    explicit attribute(uni::byte_view bytes) : bytes_(bytes) {}

    uni::byte_view bytes() const noexcept { return bytes_; }
    std::uint32_t type() const noexcept { return bytes_.u32(0); }
    bool is_resident() const noexcept { return bytes_.u8(8) == 0; }
    std::uint16_t flags() const noexcept { return bytes_.u16(12); }
    std::uint16_t id() const noexcept { return bytes_.u16(14); }
    bool is_named() const noexcept { return bytes_.u8(9) != 0; }
    // UTF-16 units.
    uni::byte_view name() const noexcept;
    bool has_name(std::u16string_view wanted) const noexcept;

    // Value of a resident attribute.
    uni::byte_view value() const noexcept;

    // Of a non-resident one.
    std::uint64_t first_vcn() const noexcept { return bytes_.u64(16); }
    uni::byte_view run_list() const noexcept;
    std::uint64_t allocated_size() const noexcept { return bytes_.u64(40); }
    std::uint64_t real_size() const noexcept { return bytes_.u64(48); }
    std::uint64_t initialized_size() const noexcept { return bytes_.u64(56); }
    std::uint64_t compressed_size() const noexcept;

private:
    uni::byte_view bytes_;
};

// Goes through the attributes of a record in order. It ends at the end mark, and, as damaged, at a
// length that cannot hold an attribute's head, leaves the record or is greater than `longest`.
class attribute_walk {
public:
    attribute_walk(const file_record& record, std::uint64_t longest)
        : header_(record), record_(record.bytes()), longest_(longest),
          position_(record.first_attribute())
    {}

    bool next(attribute& out);
    // Once it has ended: whether it did so elsewhere than where the record says that its attributes end.
    bool is_damaged() const noexcept { return is_damaged_; }

private:
    const file_record header_;
    uni::byte_view record_;
    std::uint64_t longest_;
    std::uint64_t position_;
    bool is_damaged_ = false;
};

} // namespace ntfs
