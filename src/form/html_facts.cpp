#include "form/html_facts.h"

#include <algorithm>
#include <utility>

#include "form/html_text.h"
#include "form/tag_text.h"
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

// As much of a text as stands in a table with others.
std::string beginning_of(const value& known, const sdb::sdb_database* database)
{
    constexpr std::size_t longest = 200;
    std::string text;
    if (const std::string* const own = std::get_if<std::string>(&known)) {
        text = own->substr(0, longest + 1);
    } else if (const stored_value* const stored = std::get_if<stored_value>(&known)) {
        const std::uint16_t tag = database->tag_from(stored->offset);
        text = stored_text_of(*database, tag, stored->offset, longest).value_or("");
    }
    std::size_t shown = std::min(text.size(), longest);
    while (shown > 0 && shown < text.size() &&
           (static_cast<unsigned char>(text[shown]) & 0xc0) == 0x80) {
        --shown;
    }
    return text.substr(0, shown) + (shown < text.size() ? "..." : "");
}

// Takes a size or a digest; false for another fact.
bool note_digest(told_digests& noted, std::string_view name, const value& known,
                 const request::cmd_params& style)
{
    std::string* const place = name == "size"     ? &noted.size
                               : name == "md5"    ? &noted.md5
                               : name == "sha1"   ? &noted.sha1
                               : name == "sha256" ? &noted.sha256
                                                  : nullptr;
    if (place != nullptr) {
        *place = value_text(known, style);
    }
    return place != nullptr;
}

void note_time(std::vector<told_time>& times, std::string_view name, const value& known)
{
    if (name == "source") {
        times.push_back({std::get<std::string>(known), {}, {}});
    } else if (name == "event") {
        times.back().event = std::get<std::string>(known);
    } else if (name == "time") {
        times.back().time = std::get<moment>(known);
    }
}

} // namespace

html_facts::html_facts(uni::text_buffer& out, const request::cmd_params& style,
                       const sdb::sdb_database* database, std::function<bool()> goes_on,
                       opening_text opening)
    : out_(out), style_(style), database_(database), goes_on_(std::move(goes_on)), held_("<dl>"),
      opening_(std::move(opening))
{}

// What closes the lists and objects that are open, from the innermost.
std::string html_facts::closing() const
{
    std::string text;
    for (std::size_t i = open_.size(); i > 0; --i) {
        const level& one = open_[i - 1];
        const std::string_view cell = one.is_in_row ? "</td>" : "</dd>";
        switch (one.is) {
        case kind::text:
            text.append(cell);
            break;
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

// Writes what is held. A row whose head is not complete goes without one.
void html_facts::let_go()
{
    std::string closing_then = closing();
    if (!has_begun_ && opening_) {
        held_.insert(0, opening_(subject_));
    }
    if (held_.size() < 2 * most_held) {
        out_.text(held_); // wholly or not at all
    } else {
        out_.long_text(held_);
    }
    closing_ = std::move(closing_then);
    has_begun_ = true;
    held_.clear();
    for (level& one : open_) {
        one.makes_head = false;
    }
}

void html_facts::settle()
{
    if (held_.size() > most_held) {
        let_go();
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

// Takes note of what stands on top of the page.
void html_facts::note(std::string_view name, const value& known)
{
    if (open_.empty()) {
        note_own(name, known);
    } else if (open_.size() == 1 && is_in("file")) {
        note_digest(subject_.file, name, known, style_);
    } else if (open_.size() == 1 && is_in("program_file")) {
        note_digest(program_.file, name, known, style_);
    } else if (open_.size() == 2 && is_in("times")) {
        note_time(subject_.times, name, known);
    } else if (open_.size() == 3 && is_in("program_file")) {
        note_time(program_.times, name, known);
    }
}

void html_facts::note_own(std::string_view name, const value& known)
{
    if (name == "database" || name == "path") {
        subject_.path = value_text(known, style_, database_);
    } else if (name == "program") {
        program_.path = value_text(known, style_, database_);
    } else if (name == "name") {
        subject_.name = beginning_of(known, database_);
    } else if (name == "compressed" && std::get<truth>(known).holds) {
        note_inflated();
    } else if (note_digest(subject_.file, name, known, style_)) {
        size_labels_.push_back(held_.rfind("</dt>"));
    }
}

// What was told up to here is that of the inflated database.
void html_facts::note_inflated()
{
    subject_.inflated = std::exchange(subject_.file, {});
    while (!size_labels_.empty() && !has_begun_) {
        held_.insert(size_labels_.back(), ", inflated");
        size_labels_.pop_back();
    }
}

// A long text is not held back once more.
void html_facts::write_text(std::string_view text)
{
    if (text.size() <= most_held) {
        held_ += html_text(text);
    } else {
        let_go();
        write_html_text(out_, text);
    }
}

void html_facts::fact(std::string_view name, const value& known)
{
    const bool is_row = is_in_row();
    open_member(name);
    note(name, known);
    open_.push_back({.is = kind::text, .is_in_row = is_row});
    if (const std::string* const text = std::get_if<std::string>(&known)) {
        write_text(*text);
    } else if (is_long(known, database_)) {
        let_go();
        write_html_value(out_, known, style_, database_);
    } else {
        uni::text_buffer text_of_value;
        write_html_value(text_of_value, known, style_, database_);
        held_.append(text_of_value.view());
    }
    end();
}

void html_facts::begin_object(std::string_view name)
{
    const bool is_row = is_in_row();
    open_member(name);
    held_ += "<dl>";
    open_.push_back({.is = kind::object, .name = name, .is_in_row = is_row});
}

void html_facts::begin_list(std::string_view name)
{
    const bool is_row = is_in_row();
    open_member(name);
    held_ += "<table>";
    open_.push_back({.is = kind::list, .name = name, .is_in_row = is_row});
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
    case kind::text:
        break;
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

void html_facts::finish(std::string_view behind)
{
    held_.append("</dl>\n").append(behind);
    let_go();
}

void html_facts::abandon(std::string_view behind)
{
    if (has_begun_) {
        out_.text(closing_);
        out_.literal("</dl>\n");
        out_.text(behind);
    }
}

} // namespace form
