#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "form/xml_names.h"
#include "model/record_groups.h"
#include "request/cmd_params.h"
#include "sdb/database.h"
#include "sdb/patch_op.h"
#include "uni/text_buffer.h"

// Records as XML: a list tag is an element, its scalars are attributes, and what cannot be an
// attribute is a child element.
//
// A string reference with "<", ">" or "&" becomes a child element around CDATA, its attribute holding
// the word "CDATA"; its double quotes become single ones. All other text is escaped. Of several
// scalars of one tag the first is the attribute and each further one a child.
namespace form {

template <typename sayer_type>
class folding;

// Writes a patch operation as its element, a bare one without its data.
void write_patch_element(uni::text_buffer& out, const sdb::patch_op& op, bool is_bare);

// What of a text is replaced: double quotes by single ones, markup by entities, what is no plain ASCII by
// its bytes ("%c3%a9").
enum class replacing : std::uint8_t {
    nothing,
    quotes,
    markup,
    quotes_and_markup,
    markup_to_ascii,
    quotes_and_markup_to_ascii,
};

// A text and how it is shown where it stands, with its marks.
struct protected_text {
    std::string_view text;
    bool plain; // nothing of it is marked or replaced
    replacing what = replacing::nothing;
};

// Writes records as nested elements, one after the other.
class xml_record_writer {
public:
    xml_record_writer(uni::text_buffer& out, const sdb::sdb_database& database,
                      const request::cmd_params& style)
        : out_(out), database_(database), style_(style)
    {}

    // Writes one record. An element stays open when the next group stands deeper or when it has a
    // child element of its own. It ends early, with
    // all its elements closed, and answers false where `most_text` bytes were written to the buffer.
    bool write_record(const model::record_groups& groups, std::uint64_t most_text,
                      model::folded_records& folds);

    // Closes what a record left open that an exception ended.
    void abandon_record();

private:
    friend class folding<xml_record_writer>;

    // What an element is called.
    enum class name_of : std::uint8_t { tag, include, exclude };
    // An element that is open, under the name it was opened with.
    struct open_element {
        std::uint16_t depth;
        std::uint16_t tag;
        name_of name;
    };
    using item_span = std::span<const model::record_item>;
    // A scalar of a group, and its place among the items.
    struct member {
        const model::record_item& item;
        std::size_t index;
    };
    // A text as it is stored, with what is known of it; good until the next is made.
    struct known_text {
        std::string_view text;
        bool plain = true; // see uni::put_stored_utf16
    };

    bool may_say_more() noexcept { return has_room(); }
    bool has_room_for(const model::folded_record& folded) const noexcept
    {
        return out_.total() + folded.text.size() +
                   usual_close * (open_.size() + folded.items.size()) <=
               most_text_;
    }
    void say(item_span group, bool nests);

    static constexpr std::uint64_t usual_close = 80;
    // Whether a record may go on, what closes its elements included. Once it may not, it stays so.
    bool has_room() noexcept
    {
        is_cut_ = is_cut_ || !out_.good() || out_.total() + usual_close * open_.size() > most_text_;
        return !is_cut_;
    }
    void indent(unsigned depth);
    void for_each_scalar(item_span group, auto&& act);
    void note_record_name(item_span first_group);
    void close_down_to(std::uint16_t depth);
    void write_name(const open_element& element);
    void write_attributes(item_span group);
    bool is_first_of_its_tag(const member& scalar);
    void move_to_child(const member& scalar);
    void open_attribute(std::uint16_t tag);
    void write_pair(std::uint16_t tag, const protected_text& shown);
    void write_general(const member& scalar);
    void write_matching(const member& scalar);
    void write_apphelp(const member& scalar);
    void write_severity(std::string_view number);
    void write_application(item_span group);
    bool is_text(const member& scalar) const;
    known_text text_of(const member& scalar);
    protected_text reference_text(const member& scalar);
    protected_text attribute_text(const member& scalar);
    std::string_view number_of(const member& scalar);
    void write_moved(const member& scalar);
    void write_cdata_child(const member& scalar);
    void write_children(item_span group);
    void write_child(const member& scalar);
    void write_patch_children(const model::record_item& item);

    // Where an exception can find the record in work: in its elements, in the tag that begins one or
    // its <app>, or among the patch operations of a child. Whatever else is written is made before.
    enum class place : std::uint8_t { content, tag, app_tag, operations };

    uni::text_buffer& out_;
    const sdb::sdb_database& database_;
    const request::cmd_params& style_;
    const xml_names& names_ = xml_names::known();
    std::uint64_t most_text_ = 0;
    bool is_cut_ = false; // the record in work
    io::roomy_vector<open_element> open_;
    place place_ = place::content;
    std::uint16_t operations_tag_ = 0; // the child that place::operations speaks of
    std::string record_name_;          // of the record in work
    // State of the group in work.
    std::vector<bool> moved_; // by index: to children, though they are no child elements
    uni::text_buffer aside_;
    std::uint32_t element_ = 0;                           // its number
    std::array<std::uint32_t, sdb::tag_slots> seen_in_{}; // by tag: the element that has it
    std::set<std::uint16_t> uncommon_tags_; // that it has, without a slot of their own
    bool has_tag_children_ = false;
    bool self_closed_ = true;
};

} // namespace form
