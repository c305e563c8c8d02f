#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "sdb/tags.h"
#include "support/byte_writer.h"

// Shim database images for tests, laid out as a tree that reads like the file it makes:
//
//     sdb_builder b;
//     b.add(b.list(tag::library, {b.label("fix", b.list(tag::shim, {b.text(tag::name, "Pin")}))}));
//     b.add(b.list(tag::exe, {b.list(tag::shim_ref, {b.reference(tag::shim_tagid, "fix")})}));
//     const auto image = b.build();
//
// In file order: the header; the index collection, if index() was called; what lead() gave; the
// database list with what add() gave; the string table, each distinct text once, in the order of
// first use; what trail() gave. A node stands at one place of one tree.
//
// Misuse (a tag of another type than the call's, an unknown label and the like) throws. Malformed
// images are made with raw(), list_with_size(), with_size(), string_ref(), table_bytes() and
// string_table_size().
namespace test_support {

struct node {
    std::uint32_t id;
};

// Where a reference leads: a label (which may be given later), a node, or any number at all.
struct target : std::variant<std::string, node, std::uint32_t> {
    using variant::variant;
    target(std::string_view label) : variant(std::string(label)) {}
    static target at(std::uint32_t offset) { return offset; }
};

struct index_entry {
    std::uint64_t key;
    target where;
};

// One patch operation: five words, 64 bytes of module name in UTF-16LE, the data. `data_size` and
// `next_size` (the whole operation's size) are computed unless forged.
struct patch_op {
    std::uint32_t opcode = 0;
    std::string module_name; // UTF-8; at most 32 units
    std::uint32_t address = 0;
    bytes data;
    std::optional<std::uint32_t> next_size = {}, data_size = {};
    std::uint32_t reserved = 0;
};

inline patch_op match_op(std::string_view module_name, std::uint32_t address, bytes data)
{
    return {4, std::string(module_name), address, std::move(data)};
}
inline patch_op replace_op(std::string_view module_name, std::uint32_t address, bytes data)
{
    return {2, std::string(module_name), address, std::move(data)};
}

bytes patch_bytes(const std::vector<patch_op>& operations);

// UTC as FILETIME (100 ns since 1601), and that as seconds since 1970.
std::uint64_t filetime(int year, unsigned month, unsigned day, unsigned hour = 0,
                       unsigned minute = 0, unsigned second = 0);
constexpr std::uint32_t unix_time(std::uint64_t filetime)
{
    return static_cast<std::uint32_t>(filetime / 10'000'000 - 11'644'473'600);
}

// The usual key of an index over texts: their first eight characters in capitals.
std::uint64_t index_key(std::string_view text);

// UTF-8 as UTF-16LE bytes, without a terminating zero unit.
bytes utf16_bytes(std::string_view text);

bytes guid_bytes(std::string_view text);

// The compressed form of a plain image. `level` is zlib's, 0 to 9.
bytes compress(std::span<const std::uint8_t> image, int level = 6);

class sdb_builder {
public:
    // Of the header; 2 and 3 unless told.
    void version(std::uint32_t major, std::uint32_t minor)
    {
        set(major_, major).set(minor_, minor);
    }

    // Tags. The tag's type must be the call's.
    node null(std::uint16_t tag) { return number(tag, 0, 0); }
    node byte(std::uint16_t tag, std::uint8_t value) { return number(tag, value, 1); }
    node word(std::uint16_t tag, std::uint16_t value) { return number(tag, value, 2); }
    node dword(std::uint16_t tag, std::uint32_t value) { return number(tag, value, 4); }
    node qword(std::uint16_t tag, std::uint64_t value) { return number(tag, value, 8); }
    // String reference with any number as its value.
    node string_ref(std::uint16_t tag, std::uint32_t reference);
    // String reference to a text of the string table, put there when it is new.
    node text(std::uint16_t tag, std::string_view utf8)
    {
        return string_ref(tag, table_text(utf8));
    }
    // The same for units that no UTF-8 text gives: lone surrogates, zeros in the middle.
    node text_units(std::uint16_t tag, std::u16string_view units);
    node list(std::uint16_t tag, const std::vector<node>& children);
    // Inline string, with a terminating zero unit.
    node string(std::uint16_t tag, std::string_view utf8);
    // Binary; an odd length is followed by the pad byte.
    node binary(std::uint16_t tag, const bytes& value);
    node guid(std::uint16_t tag, std::string_view text) { return binary(tag, guid_bytes(text)); }
    node patch_bits(const std::vector<patch_op>& operations)
    {
        return binary(sdb::tag::patch_bits, patch_bytes(operations));
    }
    node index_bits(const std::vector<index_entry>& entries);
    node reference(std::uint16_t tag, const target& where);

    node label(std::string_view name, node tag);

    // Malformed input. None of these checks anything.
    node raw(const bytes& data);
    node list_with_size(std::uint16_t tag, std::uint32_t size, const std::vector<node>& children);
    // Tag word, size word and the data, of any tag, with no pad byte.
    node with_size(std::uint16_t tag, std::uint32_t size, const bytes& data);

    sdb_builder& add(node tag) { return add_to(database_, {tag}); }
    sdb_builder& add(const std::vector<node>& tags) { return add_to(database_, tags); }
    sdb_builder& lead(node tag) { return add_to(lead_, {tag}); }
    sdb_builder& trail(node tag) { return add_to(trail_, {tag}); }
    sdb_builder& index(std::uint16_t over, std::uint16_t key, std::uint32_t flags,
                       const std::vector<index_entry>& entries);
    sdb_builder& without_database() { return set(has_database_, false); }
    sdb_builder& without_string_table() { return set(has_string_table_, false); }
    sdb_builder& string_table_size(std::uint32_t size) { return set(forged_table_size_, size); }

    // Puts a text in the string table, if it is new, or bytes as they are, and answers the reference
    // value. Text search never sees the last string of a table, so a test that searches for the text
    // it used last adds one more.
    std::uint32_t table_text(std::string_view utf8);
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
    // A leaf is its contents; of a list they are the head.
    struct record {
        bytes contents;
        std::vector<node> children = {};
        bool is_list = false;
        std::optional<std::uint32_t> forged_size = {};
    };
    // Four bytes of a leaf that get the offset of a tag once it is known.
    struct fixup {
        std::uint32_t owner, position;
        target where;
    };
    using text_map = std::map<std::string, std::uint32_t, std::less<>>;

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
    node number(std::uint16_t tag, std::uint64_t value, unsigned width);
    std::uint32_t add_to_table(const bytes& units);

    // Writes a list of roots and answers where it begins.
    std::uint32_t write_root(bytes& image, std::uint16_t tag, const std::vector<node>& roots);
    void write_trees(bytes& image, const std::vector<node>& roots);

    std::uint32_t major_ = 2, minor_ = 3;
    bool has_database_ = true, has_string_table_ = true;
    std::optional<std::uint32_t> forged_table_size_;

    std::vector<record> records_;
    std::vector<fixup> fixups_;
    std::uint64_t size_of_records_ = 0;
    text_map labels_; // to nodes
    bytes table_;
    text_map table_references_;
    std::vector<node> indexes_, lead_, database_, trail_;
    std::vector<std::uint32_t> places_;
    std::uint32_t indexes_offset_ = 0, database_offset_ = 0, string_table_offset_ = 0;
};

} // namespace test_support
