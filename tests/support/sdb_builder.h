#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "support/byte_writer.h"

// Shim database images for tests, laid out as a tree that reads like the file it makes:
//
//     sdb_builder b;
//     b.version(2, 3);
//     b.add(b.list(tag::library, {
//         b.label("fix", b.list(tag::shim, {b.text(tag::name, "PinOldVersion")})),
//     }));
//     b.add(b.list(tag::exe, {
//         b.text(tag::name, "svc.exe"),
//         b.guid(tag::exe_id, "11111111-2222-3333-4444-555555555555"),
//         b.list(tag::shim_ref, {b.reference(tag::shim_tagid, "fix")}),
//     }));
//     const auto image = b.build();
//     const std::uint32_t where = b.offset_of("fix");
//
// The image, in file order: 12 bytes of the two version words and the magic "sdbf"; the index
// collection, if index() was called; what lead() gave; the database list with what add() gave it;
// the string table, each distinct text once, in the order of first use; what trail() gave.
//
// A tag is a node, and a node stands at one place of one tree. Nodes cost a few bytes each in one
// arena, and building is one pass, so images of many megabytes are made the same way as small ones.
//
// Misuse (a tag of another type than the call's, a malformed GUID or UTF-8 text, an unknown label,
// a node that stands twice or a reference to one that stands nowhere) throws std::logic_error.
// Malformed images are made with raw(), list_with_size(), with_size(), string_ref(), table_bytes()
// and string_table_size().
namespace test_support {

// What a node is known by before and after it stands in an image; made by sdb_builder alone.
struct node {
    std::uint32_t id;
};

// Where a reference leads: a label (which may be given later), a node, or any number at all.
class target {
public:
    target(const std::convertible_to<std::string_view> auto& label)
        : kind_(kind::label), label_(std::string_view(label))
    {}
    target(node tag) : kind_(kind::node), number_(tag.id) {}
    static target at(std::uint32_t offset) { return target(kind::offset, offset); }

private:
    friend class sdb_builder;
    enum class kind { label, node, offset };
    target(kind what, std::uint32_t number) : kind_(what), number_(number) {}

    kind kind_;
    std::string label_;
    std::uint32_t number_ = 0;
};

// One 12-byte entry of an index: u64 key, u32 offset of the tag.
struct index_entry {
    std::uint64_t key;
    target where;
};

// One patch operation: a head of 84 bytes and the data.
//
//     0 u32 opcode    4 u32 next_size    8 u32 data_size    12 u32 address    16 u32 reserved
//     20 64 bytes of module name in UTF-16LE    84 data
//
// `data_size` and `next_size` (the whole operation's size) are computed unless forged.
struct patch_op {
    std::uint32_t opcode = 0;
    std::string module_name; // UTF-8; at most 32 units
    std::uint32_t address = 0;
    bytes data;
    std::optional<std::uint32_t> next_size = {};
    std::optional<std::uint32_t> data_size = {};
    std::uint32_t reserved = 0;
};

patch_op match_op(std::string_view module_name, std::uint32_t address, bytes data);
patch_op replace_op(std::string_view module_name, std::uint32_t address, bytes data);

// The value bytes of a 0x9002 tag: the operations one behind the other.
bytes patch_bytes(const std::vector<patch_op>& operations);

// a.b.c.d as a version qword, `a` in the highest 16 bits.
std::uint64_t version_quad(std::uint16_t a, std::uint16_t b, std::uint16_t c, std::uint16_t d);

// UTC as seconds since 1970, and as FILETIME (100 ns since 1601).
std::uint32_t unix_time(int year, unsigned month, unsigned day, unsigned hour = 0,
                        unsigned minute = 0, unsigned second = 0);
std::uint64_t filetime(int year, unsigned month, unsigned day, unsigned hour = 0,
                       unsigned minute = 0, unsigned second = 0);

// The usual key of an index over texts: the first eight ASCII characters in capitals, the first
// in the highest byte, zeros behind a shorter text.
std::uint64_t index_key(std::string_view text);

// UTF-8 as UTF-16LE bytes, without a terminating zero unit.
bytes utf16_bytes(std::string_view text);

// The 16 bytes of "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" as they are stored.
bytes guid_bytes(std::string_view text);

// The compressed form ("zdbf") of a plain image: its version words, the magic, eight reserved
// bytes and one zlib stream of the whole image. `level` is zlib's, 0 to 9.
bytes compress(std::span<const std::uint8_t> image, int level = 6);

class sdb_builder {
public:
    // The two version words of the header; 2 and 3 unless told.
    sdb_builder& version(std::uint32_t major, std::uint32_t minor)
    {
        return set(major_, major).set(minor_, minor);
    }

    // Tags. The tag's type must be the call's.
    node null(std::uint16_t tag) { return number(tag, 0, 0); }
    node byte(std::uint16_t tag, std::uint8_t value) { return number(tag, value, 1); }
    node word(std::uint16_t tag, std::uint16_t value) { return number(tag, value, 2); }
    node dword(std::uint16_t tag, std::uint32_t value) { return number(tag, value, 4); }
    node qword(std::uint16_t tag, std::uint64_t value) { return number(tag, value, 8); }
    // String reference with any number as its value.
    node string_ref(std::uint16_t tag, std::uint32_t reference);
    // String reference to a text of the string table, put there when it is new, with a
    // terminating zero unit in its stored bytes.
    node text(std::uint16_t tag, std::string_view utf8);
    // The same for units that no UTF-8 text gives: lone surrogates, zeros in the middle.
    node text_units(std::uint16_t tag, std::u16string_view units);
    node list(std::uint16_t tag, const std::vector<node>& children);
    // Inline string, with a terminating zero unit.
    node string(std::uint16_t tag, std::string_view utf8);
    // Binary; an odd length is followed by the pad byte.
    node binary(std::uint16_t tag, const bytes& value);
    node guid(std::uint16_t tag, std::string_view text) { return binary(tag, guid_bytes(text)); }
    node patch_bits(const std::vector<patch_op>& operations);
    node index_bits(const std::vector<index_entry>& entries);
    // Dword that holds the offset of another tag.
    node reference(std::uint16_t tag, const target& where);

    // Gives a node a name, and hands it back.
    node label(std::string_view name, node tag);

    // Malformed input. None of these checks anything.
    node raw(const bytes& data);
    // A list whose size word is `size`, whatever its children take.
    node list_with_size(std::uint16_t tag, std::uint32_t size, const std::vector<node>& children);
    // Tag word, size word and the data, of any tag, with no pad byte.
    node with_size(std::uint16_t tag, std::uint32_t size, const bytes& data);

    // The image's roots.
    sdb_builder& add(node tag) { return add_to(database_, {tag}); }
    sdb_builder& add(const std::vector<node>& tags) { return add_to(database_, tags); }
    sdb_builder& lead(node tag) { return add_to(lead_, {tag}); }
    sdb_builder& trail(node tag) { return add_to(trail_, {tag}); }
    sdb_builder& index(std::uint16_t over, std::uint16_t key, std::uint32_t flags,
                       const std::vector<index_entry>& entries);
    sdb_builder& without_database() { return set(has_database_, false); }
    sdb_builder& without_string_table() { return set(has_string_table_, false); }
    // Forges the size word of the string table.
    sdb_builder& string_table_size(std::uint32_t size) { return set(forged_table_size_, size); }

    // Puts a text in the string table, if it is new, and answers its reference value: 6 for the
    // first. Text search never sees the last string of a table, so a test that searches for the
    // text it used last adds one more here.
    std::uint32_t table_text(std::string_view utf8);
    // Appends bytes to the string table as they are, and answers the reference value of the first.
    std::uint32_t table_bytes(const bytes& data);

    // The plain image. May be called again after more was added.
    bytes build();

    // The size that build() would give now, when no node that was made is left out.
    std::uint64_t size_so_far() const noexcept;

    // Places in the image built last.
    std::uint32_t offset_of(const target& tag) const;
    std::uint32_t indexes_offset() const noexcept { return indexes_offset_; }
    std::uint32_t database_offset() const noexcept { return database_offset_; }
    std::uint32_t string_table_offset() const noexcept { return string_table_offset_; }

private:
    // A leaf holds its whole encoding in arena_[first .. first + count); a list its children in
    // children_[first .. first + count).
    struct record {
        std::uint32_t first = 0;
        std::uint32_t count = 0;
        std::uint16_t tag = 0;
        bool is_list = false;
    };
    // A list that is being written: where it began, and which of its children comes next.
    struct open_list {
        std::uint32_t id;
        std::uint32_t next;
    };
    // Four bytes of a leaf that get the offset of a tag once it is known.
    struct fixup {
        std::uint32_t owner;
        std::uint32_t position;
        target where;
    };
    struct text_hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept
        {
            return std::hash<std::string_view>{}(text);
        }
    };
    using text_map = std::unordered_map<std::string, std::uint32_t, text_hash, std::equal_to<>>;

    sdb_builder& set(auto& what, const auto& value)
    {
        what = value;
        return *this;
    }
    sdb_builder& add_to(std::vector<node>& roots, const std::vector<node>& tags)
    {
        roots.insert(roots.end(), tags.begin(), tags.end());
        return *this;
    }
    node begin_leaf(std::uint16_t tag);
    node end_leaf(node leaf);
    node number(std::uint16_t tag, std::uint64_t value, unsigned width);
    node leaf_of(std::uint16_t tag, std::uint64_t value, unsigned width);
    void put_target(node leaf, const target& where);
    std::uint32_t add_to_table(const bytes& units);

    std::uint32_t write_root(bytes& image, std::uint16_t tag, const std::vector<node>& roots);
    void write_trees(bytes& image, const std::vector<node>& roots);
    void write_start(bytes& image, std::uint32_t id);

    std::uint32_t major_ = 2;
    std::uint32_t minor_ = 3;
    bool has_database_ = true;
    bool has_string_table_ = true;
    std::optional<std::uint32_t> forged_table_size_;

    bytes arena_;
    std::vector<record> records_;
    std::vector<node> children_;
    std::unordered_map<std::uint32_t, std::uint32_t> forged_sizes_; // of lists
    std::vector<fixup> fixups_;
    std::uint64_t list_head_bytes_ = 0;
    text_map labels_; // to nodes

    bytes table_;
    text_map table_references_;

    std::vector<node> indexes_;
    std::vector<node> lead_;
    std::vector<node> database_;
    std::vector<node> trail_;

    std::vector<std::uint32_t> places_;
    std::vector<open_list> open_lists_;
    std::uint32_t indexes_offset_ = 0;
    std::uint32_t database_offset_ = 0;
    std::uint32_t string_table_offset_ = 0;
};

} // namespace test_support
