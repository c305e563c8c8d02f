#include "form/json_line.h"

#include <utility>

#include "form/json_text.h"
#include "uni/byte_view.h"

namespace form {

json_line::json_line(uni::text_buffer& out, std::string_view kind, std::string_view members,
                     const sdb::sdb_database* database, std::function<bool()> goes_on)
    : out_(out), database_(database), goes_on_(std::move(goes_on))
{
    held_.literal("{\"kind\":\"");
    held_.text(kind);
    held_.character('"');
    held_.text(members);
    settle();
}

// Notes that what is held is whole, and lets go of much.
void json_line::settle()
{
    constexpr std::size_t most_held = 0x10000;
    if (held_.view().size() > most_held) {
        has_begun_ = true;
        out_.long_text(held_.view());
        held_.clear();
    }
    whole_ = held_.view().size();
    open_whole_ = open_.size();
}

void json_line::fact(std::string_view name, const value& known)
{
    write_json_member(held_, name, known, database_, !has_members_);
    has_members_ = true;
    settle();
}

void json_line::begin(std::string_view opening, std::string_view name, char closing)
{
    open_ += closing;
    if (has_members_) {
        held_.character(',');
    }
    if (!name.empty()) {
        held_.character('"');
        held_.text(name);
        held_.literal("\":");
    }
    held_.text(opening);
    has_members_ = false;
    settle();
}

void json_line::begin_object(std::string_view name)
{
    begin("{", name, '}');
}

void json_line::begin_list(std::string_view name)
{
    begin("[", name, ']');
}

void json_line::begin_item()
{
    begin("{", {}, '}');
}

void json_line::end()
{
    held_.character(open_.back());
    open_.pop_back();
    has_members_ = true;
    settle();
}

void json_line::begin_value()
{
    if (has_members_) {
        held_.character(',');
    }
    has_members_ = true;
}

bool json_line::text_item(std::string_view text)
{
    begin_value();
    held_.character('"');
    const bool is_utf8 = put_json_text(held_, text);
    held_.character('"');
    settle();
    return is_utf8;
}

void json_line::bytes_item(std::string_view text)
{
    begin_value();
    write_json_hex(held_, uni::bytes_of(text));
    settle();
}

void json_line::finish()
{
    out_.text(held_.view());
    out_.literal("}\n");
}

void json_line::abandon()
{
    if (!has_begun_) {
        return;
    }
    out_.text(held_.view().substr(0, whole_));
    for (std::size_t left = open_whole_; left > 0; --left) {
        out_.character(open_[left - 1]);
    }
    out_.literal(",\"cut\":true}\n");
}

} // namespace form
