#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "form/record_tree.h"
#include "form/tag_text.h"
#include "model/record.h"
#include "request/cmd_params.h"
#include "sdb/database.h"
#include "sdb/vocabulary.h"
#include "uni/text_buffer.h"

// Records as cards that fold, a line each:
//
//   <details class="c"><summary>0x0000052a <b>exe</b> <span>ledger.exe</span> <em>Ledger</em></summary>
//   <dl><dt>0x00000530 name</dt><dd class="n">ledger.exe</dd>...</dl>
//   <div><p>0x00000562 matching_file</p><dl>...</dl></div>
//   ...</details>
//
// A list in it is a <div>, whose <p> is of the class "f" where it is or leads to a fix. As few elements as
// will do: a page of many records holds millions.
namespace form {

inline constexpr std::size_t longest_html_member = 64; // ` name</dt><dd>`

// How the scalars of a tag are written.
struct html_member {
    // What stands between offset and value, in a block of one size, which is copied whole.
    std::array<char, longest_html_member> name{};
    std::uint8_t length = 0; // of the name in the block
    bool is_dword = false;   // and a plain number
};

class html_record_writer : public record_tree<html_record_writer> {
public:
    html_record_writer(uni::text_buffer& out, const sdb::sdb_database& database,
                       const request::cmd_params& style);

private:
    friend record_tree<html_record_writer>;

    void begin_root(std::uint32_t within, std::uint32_t reference);
    void begin_child(bool is_first, std::uint32_t reference);
    void write_list(item_span items);
    void end_list(bool is_root, bool is_cut);

    void write_summary(item_span items);
    void write_scalar(const model::record_item& item);
    const html_member& member_of(std::uint16_t tag)
    {
        const std::size_t slot = sdb::tag_slot(tag);
        return slot != sdb::tag_slots - 1 ? known_[slot] : uncommon_member(tag);
    }
    const html_member& uncommon_member(std::uint16_t tag);

    const request::cmd_params& style_;
    std::span<const html_member> known_; // by their tags' slots
    html_member uncommon_;
    bool is_root_ = false;     // the list that was begun last
    std::uint32_t within_ = 0; // of it, the offset of the list around it
};

extern template class record_tree<html_record_writer>;

} // namespace form
