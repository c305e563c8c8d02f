#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "form/record_tree.h"
#include "form/tag_text.h"
#include "io/large_vector.h"
#include "model/record.h"
#include "request/bounds.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

// Records as JSON, a line each. A list is an object:
//
//   reference  of a followed record: the offset of the tag that led to it
//   tag, offset, size
//   values     each scalar under the name of its tag; of several of a name the first
//   at         the offsets of these scalars under the same names
//   raw        of values that do not show all their bits, these bits
//   tags       the tag words of scalars whose names do not tell them: bytes, and tags of no known type
//   repeated   of several scalars of a name all, as an array of {"at", "value"}, with raw and tag as above
//   children   the lists in it, as objects
//   cut        true where it ends early
//
// raw, tags, repeated, reference and cut are left out where there is nothing to tell. Readers follow lists in
// one another only so deep: what stands deeper begins a line of its own, with `within`, the offset of the
// list around it.
namespace form {

inline constexpr std::size_t longest_member = 48; // `,"name":`

// How the scalars of a tag are written.
struct json_member {
    // `,"name":`, in a block of one size, which is copied whole (list_applications/json in
    // bench/listing_benchmark.cpp).
    std::array<char, longest_member> name{};
    std::uint8_t length = 0; // of the name in the block
    value_form form = value_form::nothing;
    bool is_dword = false;    // and a plain number
    bool shares_name = false; // with other tags
    std::uint16_t key = 0;    // the tag that stands for all of its name
};

class json_record_writer : public record_tree<json_record_writer> {
public:
    // `line_begin` stands at the beginning of each line, up to the comma in front of the next member.
    json_record_writer(uni::text_buffer& out, const sdb::sdb_database& database,
                       const request::bounds& bounds, std::string line_begin);

private:
    friend record_tree<json_record_writer>;

    void begin_root(std::uint32_t within, std::uint32_t reference);
    void begin_child(bool is_first, std::uint32_t reference);
    void write_list(item_span items);
    void end_list(bool is_root, bool is_cut);

    void begin_members(std::uint32_t reference);
    void write_offset(std::string_view name, std::uint32_t offset);
    const json_member& member_of(std::uint16_t tag)
    {
        const std::size_t slot = sdb::tag_slot(tag);
        return slot != sdb::tag_slots - 1 ? known_[slot] : uncommon_member(tag);
    }
    const json_member& uncommon_member(std::uint16_t tag);
    bool is_first_of_its_name(const json_member& member)
    {
        return std::exchange(seen_in_[member.key], pass_) != pass_;
    }
    char* open_member(const json_member& member, bool is_first);
    void write_values(item_span items);
    bool write_member(const model::record_item& item, const json_member& member, bool is_first);
    bool write_short_text(std::uint32_t reference);
    void write_places(item_span items);
    void write_more(std::string_view opening, item_span items, auto&& write);
    void write_repeated(item_span items);

    const std::string line_begin_;
    std::span<const json_member> known_; // by their tags' slots
    json_member uncommon_;

    // State of the list in work.
    std::uint32_t pass_ = 0;                      // over its scalars
    io::large_vector<std::uint32_t> seen_in_;     // by tag: the pass that met its name last
    io::large_vector<std::uint32_t> repeats_in_;  // the same, not for the first time
    std::size_t written_ = 0;                     // of its names
    io::large_vector<model::record_item> hidden_; // scalars whose values do not show all their bits
    io::large_vector<model::record_item> sharing_; // scalars whose names do not tell their tags
    bool has_repeated_ = false;
    io::large_vector<std::uint32_t> repeated_; // places of the scalars whose names repeat
};

extern template class record_tree<json_record_writer>;

} // namespace form
