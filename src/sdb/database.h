#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "io/byte_source.h"
#include "io/large_vector.h"
#include "sdb/inflate.h"
#include "sdb/tag_index.h"
#include "sdb/tag_table.h"
#include "sdb/vocabulary.h"
#include "uni/byte_view.h"
#include "uni/guid.h"

// A shim database in memory.
//
// The file, plain form; all numbers are little-endian:
//
//   offset  width  field
//   0       u32    major version
//   4       u32    minor version
//   8       u32    magic: "sdbf"
//   12             the first tag; root tags follow one another to the end of the file
//
// Compressed form: the same head with the magic "zdbf", 8 reserved bytes at offset 12, and from
// offset 20 on one zlib stream that holds a whole plain file, head included.
//
// A tag starts at any byte with a u16 tag word whose top four bits are its type:
//
//   type    name        behind the tag word                        value          bytes to the next
//   0x1000  null        nothing                                    none           2
//   0x2000  byte        1 byte                                     that byte      3
//   0x3000  word        u16                                        2 bytes        4
//   0x4000  dword       u32                                        4 bytes        6
//   0x5000  qword       u64                                        8 bytes        10
//   0x6000  stringref   u32 reference                              4 bytes        6
//   0x7000  list        u32 size of its contents, then these       the size word  6: its first child
//   0x8000  string      u32 length n, n bytes of UTF-16LE          the n bytes    6 + n
//   0x9000  binary      u32 length n, n bytes, a pad byte if odd   the n bytes    6 + n + n mod 2
//   other   unknown     not decoded                                none           2
//
// Root tags: an optional index collection (0x7802) of index lists (0x7803), the database list
// (0x7001), from which on every tag is recorded, and the string table (0x7801), a list of strings
// (0x8801). A string reference is the distance from the tag word of the string table to the tag
// word of the string, so that the first string has the reference 6.
//
// Input is never trusted: a value that the image's end cuts off holds the bytes that exist, its tag
// is recorded, and the scan ends behind it.
namespace sdb {

inline constexpr std::uint32_t plain_magic = 0x66626473;
inline constexpr std::uint32_t compressed_magic = 0x6662647a;
inline constexpr std::uint64_t header_size = 12;
// Tag word and size word.
inline constexpr std::uint64_t tag_header = 6;
inline constexpr std::uint64_t compressed_header_size = 20;
// A longer file is read up to here and handled as if it ended here.
inline constexpr std::uint64_t largest_file = 20'971'520;

// One decoded tag. `value` looks into the image of the database that gave it.
struct sdb_tag_item {
    std::uint32_t offset = 0; // of the tag word, from the image's first byte
    std::uint16_t tag = 0;
    bool valid = false;   // the tag's type is a known one
    bool indexed = false; // an index entry of the file refers to this offset
    // The size word of a list, string or binary, as read; a string reference's value; else 0.
    std::uint32_t size = 0;
    uni::byte_view value;
};

// One entry of an index: the key and the offset of the tag that it leads to.
struct index_entry {
    std::uint64_t key;
    std::uint32_t tag_offset;
};

// One index of the file.
struct sdb_index_record {
    std::uint16_t index_tag = 0;      // the tag that the index is over
    std::uint16_t index_key = 0;      // the tag of its key
    std::uint32_t index_flags = 0;    // 16 bits of the flags
    std::uint64_t list_offset = 0;    // of the 0x7803 list
    std::uint32_t list_size = 0;      // its size word
    std::uint32_t bits_position = 0;  // where the entries' tag stands in the list, plus 6
    std::uint32_t bits_size = 0;      // size word of the entries' tag
    std::vector<index_entry> entries; // ascending by key, equal keys in file order
};

struct ordinals_by_number;

// A 16-byte binary, which is a GUID whatever its tag.
struct guid_item {
    std::array<std::uint8_t, uni::guid_size> shown; // its bytes in the order of its text
    tag_ordinal ordinal;

    std::string text() const;
};

enum class load_result {
    loaded,
    unreadable,   // reading failed
    no_database,  // another head, or none
    not_inflated, // a compressed one, but damaged, too long or of no database
    too_large,    // a compressed one that inflates beyond what is allowed
};

// How far a loaded image goes, beside its tags.
struct image_extent {
    // The first tag whose stored size, or value, goes beyond the image's end; none in a whole one.
    std::optional<std::uint32_t> cut_off_at;
    std::uint64_t claimed_end = 0; // where that tag would end
    // Where bytes begin, behind the last root list, that form no list; the image's end for none.
    std::uint64_t trailing_at = 0;
    bool is_file_longer = false; // than what is read of a file
    std::uint64_t file_size = 0;
};

// One database: loads a file, scans it once and answers from what the scan left. Indexes that not
// every report needs are made when they are first asked for, by one thread only.
class sdb_database {
public:
    sdb_database();
    ~sdb_database();
    sdb_database(const sdb_database&) = delete;
    sdb_database& operator=(const sdb_database&) = delete;

    // Forgets what was loaded and loads a file, inflating a compressed one. A file with the right
    // head always loads, whatever follows; what does not load leaves the object empty. No more than
    // `most` bytes are inflated. `on_image` is called with the image that will be scanned, which stays
    // where it is until the next load.
    using image_user = std::function<void(std::span<const std::uint8_t> image)>;
    load_result load(io::byte_source& file, std::uint64_t most = most_inflated,
                     const image_user& on_image = {});
    // The same over bytes in memory.
    load_result load_image(io::byte_vector image, std::uint64_t most = most_inflated,
                           const image_user& on_image = {});
    void clear();

    bool loaded() const noexcept { return loaded_; }
    // Whether the file last tried was a compressed one.
    bool was_compressed() const noexcept { return was_compressed_; }
    // How many bytes of a compressed file stand behind its stream.
    std::uint64_t bytes_behind_stream() const noexcept { return bytes_behind_stream_; }
    uni::byte_view image() const noexcept { return uni::byte_view(image_); }
    image_extent extent() const;
    std::uint32_t version_major() const noexcept { return version_major_; }
    std::uint32_t version_minor() const noexcept { return version_minor_; }

    // Offsets of the lists that the scan noted, 0 for one that is not there. Of several of a kind
    // the last counts.
    std::uint32_t database_offset() const noexcept { return database_offset_; }
    std::uint32_t library_offset() const noexcept { return library_offset_; }
    std::uint32_t indexes_offset() const noexcept { return indexes_offset_; }
    std::uint32_t string_table_offset() const noexcept { return string_table_offset_; }
    std::uint32_t string_table_size() const noexcept { return string_table_size_; }

    // Recorded tags, counted by ordinal in file order.
    std::uint32_t tag_count() const noexcept { return tags_.size(); }
    std::uint32_t offset_at(tag_ordinal ordinal) const noexcept { return tags_.offset(ordinal); }
    std::uint16_t tag_at(tag_ordinal ordinal) const noexcept
    {
        return tag_from(offset_at(ordinal));
    }
    // The tag word at the offset of a recorded tag.
    std::uint16_t tag_from(std::uint32_t offset) const noexcept { return image().u16(offset); }
    std::optional<tag_ordinal> ordinal_of(std::uint64_t offset) const noexcept
    {
        return ordinal_by_offset_.ordinal_of(offset);
    }
    // The first ordinal whose tag does not lie below `offset`.
    tag_ordinal ordinal_from(std::uint64_t offset) const noexcept
    {
        return tag_ordinal(ordinal_by_offset_.count_below(offset));
    }
    // The tag of that ordinal, decoded; `indexed` is left out, is_indexed() answers it.
    sdb_tag_item item_at(tag_ordinal ordinal) const { return decode(offset_at(ordinal)); }
    // The same for the offset of a recorded tag.
    sdb_tag_item item_from(std::uint32_t offset) const { return decode(offset); }
    // The u32 behind the tag word at `offset`: a dword's value, a reference, or a size word.
    std::uint32_t word_behind(std::uint32_t offset) const noexcept
    {
        return image().u32(std::uint64_t{offset} + 2);
    }
    // The size word of the list at `offset`; 0 for any other tag.
    std::uint32_t list_size_from(std::uint32_t offset) const noexcept
    {
        return tag_type(tag_from(offset)) == type::list ? word_behind(offset) : 0;
    }
    // The payload of the string or binary at `offset`, as far as it exists.
    uni::byte_view payload_at(std::uint32_t offset) const noexcept
    {
        return image().slice(offset + tag_header, word_behind(offset));
    }
    // The value of the tag at `offset`, as far as it exists: the payload of a string or binary.
    uni::byte_view value_from(std::uint32_t offset) const noexcept
    {
        const std::uint16_t tag = tag_from(offset);
        const std::uint16_t type_bits = tag_type(tag);
        return type_bits == type::string || type_bits == type::binary_
                   ? payload_at(offset)
                   : image().slice(std::uint64_t{offset} + 2, bytes_to_next[tag >> 12] - 2u);
    }
    // Whether the tag that stands at an offset is recorded.
    bool is_recorded(std::uint64_t offset) const noexcept
    {
        return ordinal_by_offset_.contains(offset);
    }

    // The tag at exactly `offset`; false, and an empty item, if none is recorded there.
    bool read_item(sdb_tag_item& item, std::uint64_t offset) const;
    // The stored UTF-16LE text of the string that a reference names: the value of whatever tag
    // stands there. Empty when none does, or when its value is.
    uni::byte_view string_bytes(std::uint32_t reference) const
    {
        return has_string(reference) ? value_from(string_table_offset_ + reference)
                                     : uni::byte_view();
    }
    // Whether a tag stands there.
    bool has_string(std::uint32_t reference) const
    {
        return is_recorded(std::uint64_t{string_table_offset_} + reference);
    }
    // The stored text of one of string_offsets(). (What is recorded as a tag may be another thing.)
    uni::byte_view searchable_bytes(std::uint32_t reference) const noexcept
    {
        return payload_at(string_table_offset_ + reference);
    }
    // The stored text of a reference as UTF-8 text, up to its first zero unit; false when nothing stands there.
    bool read_string_ref(std::string& text, std::uint32_t reference) const;

    // Ordinals of all tags with that tag word, ascending.
    std::span<const tag_ordinal> ordinals_by_tag(std::uint16_t tag) const;
    // The index lists before the database list, ascending by index_tag, equal ones in file order.
    const std::vector<sdb_index_record>& indexes() const;
    // Whether an index entry leads to the tag of that ordinal.
    bool is_indexed(tag_ordinal ordinal) const;
    // Makes what is_indexed() and read_item() need, so that threads may share the database for
    // these and for all that needs no index.
    void make_shared_indexes() const;
    // All GUIDs, ascending by their text, equal ones in file order.
    const std::vector<guid_item>& guid_items() const;
    // The references of the strings that a text search sees: those of the string table but its
    // last, which is left out as it always was: readers of earlier searches count on it.
    const std::vector<std::uint32_t>& string_offsets() const;
    // The offsets of the tags that hold one of these string references, those before the database
    // list included, in file order. One pass over all tags, however many references there are.
    std::vector<std::uint32_t> string_referrers(std::span<const std::uint32_t> references) const;
    // Calls `act` with the offset and the tag of each tag that stands directly in the list at `parent`, in
    // file order.
    template <typename action>
    void for_each_child(std::uint32_t parent, action&& act) const
    {
        if (const std::optional<tag_ordinal> list = ordinal_of(parent)) {
            tags_.for_each_child(*list,
                                 [&](tag_ordinal child) { act(offset_at(child), tag_at(child)); });
        }
    }
    // The list around `offset`, 0 and false if there is none.
    //
    // Without `want_parent`, `offset` itself if it is a list with children, else the list with
    // children that starts last before it, though it may have ended already: the identifiers of a
    // list's end are told with that list.
    // With `want_parent`, the list around the list at `offset`. One around whose list the relation
    // has only its very first row has no parent here, as the relation is searched backward up to
    // that row.
    bool find_enclosing_list(std::uint32_t& result, std::uint32_t offset, bool want_parent) const;
    const tag_table& children() const noexcept { return tags_; }

private:
    // An index list as the scan met it, its entries not decoded yet.
    struct raw_index {
        sdb_index_record record;
        uni::byte_view entries;
    };
    struct lazy_indexes;

    enum class scan_outcome { no_database, compressed, scanned };
    scan_outcome scan();
    std::uint64_t scan_leading_part();
    void scan_recorded_part(std::uint64_t position);
    void note_leading_tag(const sdb_tag_item& item, sdb_index_record& pending);
    void note_index_entries(const sdb_tag_item& item, const sdb_index_record& pending);
    void note_list(std::uint64_t position, std::uint16_t tag);
    sdb_tag_item decode(std::uint64_t position) const
    {
        sdb_tag_item item;
        item.offset = static_cast<std::uint32_t>(position);
        item.tag = tag_from(item.offset);
        const std::uint16_t type_bits = tag_type(item.tag);
        item.valid = is_known_type(type_bits);
        if (type_bits >= type::stringref && type_bits <= type::binary_) {
            item.size = word_behind(item.offset);
        }
        item.value = value_from(item.offset);
        return item;
    }
    std::vector<std::uint32_t> read_string_table() const;

    bool loaded_ = false;
    bool was_compressed_ = false;
    std::uint64_t bytes_behind_stream_ = 0;
    io::byte_vector image_;
    std::uint64_t file_size_ = 0; // of a plain file
    std::uint32_t version_major_ = 0;
    std::uint32_t version_minor_ = 0;
    std::uint32_t indexes_offset_ = 0;
    std::uint32_t database_offset_ = 0;
    std::uint32_t library_offset_ = 0;
    std::uint32_t string_table_offset_ = 0;
    std::uint32_t string_table_size_ = 0;
    tag_table tags_;
    tag_index ordinal_by_offset_;
    std::vector<raw_index> raw_indexes_;
    // String references before the database list: reference and tag offset.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> leading_referrers_;
    mutable std::unique_ptr<lazy_indexes> lazy_;
};

} // namespace sdb
