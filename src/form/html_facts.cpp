#include "form/html_facts.h"

#include <algorithm>
#include <utility>

#include "form/html_text.h"
#include "form/value_text.h"

namespace form {

namespace {

constexpr std::size_t most_held = 0x10000;

std::string label(std::string_view name)
{
    std::string text(name);
    std::ranges::replace(text, '_', ' ');
    return text;
}

} // namespace

html_facts::html_facts(uni::text_buffer& out, const request::cmd_params& style,
                       const sdb::sdb_database* database, std::function<bool()> goes_on)
    : out_(out), style_(style), database_(database), goes_on_(std::move(goes_on)), held_("<dl>")
{}

// What closes the lists and objects that are open, from the innermost.
std::string html_facts::closing() const
{
    std::string text;
    for (std::size_t i = open_.size(); i > 0; --i) {
        const level& one = open_[i - 1];
        const std::string_view cell = one.is_in_row ? "</td>" : "</dd>";
        switch (one.is) {
        case kind::object:
            text.append("</dl>").append(cell);
            break;
        case kind::list:
            text.append("</table>").append(cell);
            break;
        case kind::item:
            text += "</tr>";
        }
    }
    return text;
}

// Lets go of what is held where that is much. A row whose head is not complete goes without one.
void html_facts::settle()
{
    if (held_.size() <= most_held) {
        return;
    }
    std::string closing_then = closing();
    out_.long_text(held_);
    closing_ = std::move(closing_then);
    has_begun_ = true;
    held_.clear();
    for (level& one : open_) {
        one.makes_head = false;
    }
}

// Begins a member, or a cell of a row.
void html_facts::open_member(std::string_view name)
{
    if (!is_in_row()) {
        held_.append("<dt>").append(label(name)).append("</dt><dd>");
        return;
    }
    if (open_.back().makes_head) {
        open_.back().head.append("<th>").append(label(name)).append("</th>");
    }
    held_ += "<td>";
}

void html_facts::note(std::string_view name, const value& known)
{
    const auto text = [&] { return value_text(known, style_, database_); };
    if (name == "database" || name == "path") {
        subject_.path = text();
    } else if (name == "name") {
        subject_.name = text();
    } else if (name == "size") {
        subject_.size = text();
    } else if (name == "md5") {
        subject_.md5 = text();
    } else if (name == "sha1") {
        subject_.sha1 = text();
    } else if (name == "sha256") {
        subject_.sha256 = text();
    }
}

// Takes note of a time of the subject's.
void html_facts::note_time(std::string_view name, const value& known)
{
    if (name == "source") {
        subject_.times.push_back({std::get<std::string>(known), {}, {}});
    } else if (name == "event") {
        subject_.times.back().event = std::get<std::string>(known);
    } else if (name == "time") {
        subject_.times.back().time = std::get<moment>(known);
    }
}

void html_facts::fact(std::string_view name, const value& known)
{
    const bool is_row = is_in_row();
    open_member(name);
    uni::text_buffer text;
    write_html_value(text, known, style_, database_);
    held_.append(text.view()).append(is_row ? "</td>" : "</dd>");
    if (open_.empty()) {
        note(name, known);
    } else if (is_row && open_.size() == 2 && open_.front().is_times) {
        note_time(name, known);
    }
    settle();
}

void html_facts::begin_object(std::string_view name)
{
    const bool is_row = is_in_row();
    open_member(name);
    held_ += "<dl>";
    open_.push_back({.is = kind::object, .is_in_row = is_row});
}

void html_facts::begin_list(std::string_view name)
{
    const bool is_row = is_in_row();
    open_member(name);
    held_ += "<table>";
    open_.push_back({.is = kind::list, .is_in_row = is_row, .is_times = name == "times"});
}

void html_facts::begin_item()
{
    const bool is_first = !std::exchange(open_.back().has_items, true);
    open_.push_back({.is = kind::item, .makes_head = is_first, .row = held_.size()});
    held_ += "<tr>";
}

void html_facts::end()
{
    const level ended = std::move(open_.back());
    open_.pop_back();
    switch (ended.is) {
    case kind::object:
        held_ += "</dl>";
        break;
    case kind::list:
        held_ += "</table>";
        break;
    case kind::item:
        held_ += "</tr>\n";
        if (ended.makes_head) {
            held_.insert(ended.row, "<tr>" + ended.head + "</tr>\n");
        }
        settle();
        return;
    }
    held_ += ended.is_in_row ? "</td>" : "</dd>";
    settle();
}

void html_facts::finish()
{
    held_ += "</dl>\n";
    out_.text(held_);
}

void html_facts::abandon()
{
    if (has_begun_) {
        out_.text(closing_);
        out_.literal("</dl>\n");
    }
}

} // namespace form
