// What a file's record says: its attributes as rows, and their contents.
//
// A file whose attributes do not fit one record has an attribute list, which names all of them and
// the records that hold them. Its value is a sequence of entries:
//   offset  bytes
//        0      4  type
//        4      2  length of the entry; 0 ends the list
//       16      8  reference of the record
//       24      2  id of the attribute there
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "io/large_vector.h"
#include "ntfs/compression.h"
#include "ntfs/volume.h"

namespace ntfs {

// An attribute, or, continued in several records, all its parts.
struct record_row {
    std::uint32_t type = 0;
    std::uint64_t entry = 0; // of the record
    std::uint16_t sequence = 0;
    bool is_named = false; // also with a name that is no text, which leaves `name` empty
    std::string name;
    std::uint16_t flags = 0; // of the row for a record, the record's own
    bool is_resident = true;
    bool is_damaged = false; // resident, and its value leaves it
    bool has_start = false;  // the part that tells the sizes was met; true of a resident one
    std::uint64_t allocated_size = 0; // bytes, as the next three
    std::uint64_t real_size = 0;
    std::uint64_t initialized_size = 0;
    std::uint64_t compressed_size = 0;
    std::vector<std::uint8_t> value; // of a resident one
    std::vector<extent> extents;     // of another, ascending by vcn
};

inline constexpr std::uint32_t row_of_record = 272; // type of the row for the record itself

// Rows for a record: first one for itself, then standard information, then file names, then all
// else in the order met. False, and no rows, for a record that cannot be read or is bad; the context
// tells whether there may be more.
bool list_record_attributes(mft_entries_ctx& context, std::uint64_t entry,
                            std::vector<record_row>& rows);

// Whether the row is a file's content; named data are alternate streams.
bool is_main_content(const record_row& row);

// Whether it is stored in a way that only its system can read: encrypted, or compressed otherwise.
bool is_compressed_otherwise(const record_row& row);
constexpr bool is_encrypted(const record_row& row) noexcept
{
    return (row.flags & 0x4000) != 0;
}

// Reads an attribute's whole content, decompressed. True if anything was read; what cannot be read
// ends it. Bytes behind the initialized size are zeros.
bool read_attribute_data(mft_entries_ctx& context, const record_row& row, io::byte_vector& stream);

// Of a non-resident value, whose bytes are read where they are wanted: how many there are up to the
// first cluster that is missing or lies beyond the volume; and those at an offset, up to the first
// that cannot be read. One value goes with one `last`, see read_compressed().
std::uint64_t readable_size(const ntfs_volume& volume, const record_row& row);
std::uint64_t read_value(ntfs_volume& volume, const record_row& row, std::uint64_t offset,
                         std::span<std::uint8_t> out, expanded_unit& last);

using attribute_visitor = std::function<void(const attribute&)>;

// Visits the attributes of a record, none longer than `longest`, and then those that its attribute
// list names in other records, of the `types` alone, all for none given. A record that is named
// often is walked once; one that says that it extends another file is left to that. What could not be
// visited marks the context as incomplete, and so does a record that was not written whole, but for
// the first: whoever read that knows of it.
void visit_attributes(mft_entries_ctx& context, std::uint64_t entry, const file_record& record,
                      std::uint64_t longest, std::span<const std::uint32_t> types,
                      const attribute_visitor& visit);

} // namespace ntfs
