#include "form/html_summary.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <utility>

#include "form/html_text.h"
#include "form/value_text.h"
#include "uni/marks.h"
#include "uni/numbers.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/time.h"
#include "uni/utf.h"

namespace form {

namespace {

// Fields of a line that is kept: the row, the label in the picture, and words and ticks of each time. No
// text that is shown holds it.
constexpr char field_end = '\x1f';

struct shown_time {
    std::string_view words;
    std::uint64_t ticks = 0;
};

// Takes the first field off a line.
std::string_view take_field(std::string_view& line)
{
    const std::size_t end = std::min(line.find(field_end), line.size());
    const std::string_view field = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    return field;
}

// Of a subject without a section, which comes with each database, the first line.
void for_each_line(std::string_view lines, auto&& act)
{
    constexpr std::string_view link = "<tr><td><a ";
    std::string_view last_without;
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        const std::string_view line = lines.substr(0, end);
        const bool has_section = line.starts_with(link);
        if (has_section || line != last_without) {
            act(line);
        }
        last_without = has_section ? last_without : line;
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
}

void for_each_time(std::string_view fields, auto&& act)
{
    while (!fields.empty()) {
        shown_time one{take_field(fields)};
        const std::string_view ticks = take_field(fields);
        std::from_chars(ticks.data(), ticks.data() + ticks.size(), one.ticks);
        act(one);
    }
}

// The end of a path, as long as there is room for it.
std::string short_label(const std::string& path)
{
    constexpr std::size_t longest = 36;
    std::string folder;
    std::string name;
    if (!uni::split_path(path, folder, name) || name.empty()) {
        name = path;
    }
    const std::string whole = uni::marked(name);
    std::size_t end = 0;
    for (std::size_t count = 0; end < whole.size() && count < longest; ++count) {
        end += uni::decode_utf8(std::string_view(whole).substr(end)).length;
    }
    return uni::xml_escape(whole.substr(0, end)) + (end < whole.size() ? "..." : "");
}

std::string moment_line(const told_time& one, const request::cmd_params& style)
{
    return one.source + " " + one.event + " " + html_moment(one.time, style) + " UTC";
}

std::string digest_lines(const told_digests& digests, std::string_view state)
{
    std::string lines;
    for (const auto& [label, digest] :
         {std::pair("MD5 ", &digests.md5), std::pair("SHA-1 ", &digests.sha1),
          std::pair("SHA-256 ", &digests.sha256)}) {
        if (!digest->empty()) {
            lines.append(state).append(label).append(html_text(*digest)).append("<br/>");
        }
    }
    return lines;
}

bool is_known(const told_time& one)
{
    return uni::told_moment(one.time.raw, one.time.kind).valid;
}

// Where the picture has a moment.
class time_axis {
public:
    static constexpr std::uint64_t left = 300;
    static constexpr std::uint64_t width = 640;

    void take(std::uint64_t ticks)
    {
        first_ = std::min(first_, ticks);
        last_ = std::max(last_, ticks);
    }
    bool is_empty() const noexcept { return last_ == 0; }
    std::uint64_t place_of(std::uint64_t ticks) const noexcept
    {
        const std::uint64_t seconds = (last_ - first_) / uni::ticks_per_second;
        return seconds == 0 ? left + width / 2
                            : left + (ticks - first_) / uni::ticks_per_second * width / seconds;
    }
    // One of the moments with a label, from 0 to `marks`.
    static constexpr std::uint64_t marks = 4;
    std::uint64_t mark(std::uint64_t number) const noexcept
    {
        return first_ + (last_ - first_) / marks * number;
    }
    bool is_short() const noexcept
    {
        constexpr std::uint64_t day = 86'400 * uni::ticks_per_second;
        return last_ - first_ < 8 * day;
    }

private:
    std::uint64_t first_ = ~std::uint64_t{0};
    std::uint64_t last_ = 0;
};

// What the picture shows a time as: the words for it, and the outline of its mark around 0.
struct time_mark {
    std::string_view words;
    std::string_view outline;
};
constexpr time_mark time_marks[] = {
    {"database compiled", "M0-7 7 0 0 7-7 0z"},  {"program compiled", "M0-7 7 0 0 7-7 0z"},
    {"file modified", "M-5-5h10v10h-10z"},       {"file accessed", "M-2-7h4v14h-4z"},
    {"file created", "M-6 5 0-6 6 5z"},          {"registry installed", "M-6-5 0 6 6-5z"},
    {"registry key written", "M-7-2h14v4h-14z"},
};

std::size_t mark_of(std::string_view words)
{
    const auto found = std::ranges::find(time_marks, words, &time_mark::words);
    return static_cast<std::size_t>(
        std::distance(std::begin(time_marks), found == std::end(time_marks) ? time_marks : found));
}

constexpr std::uint64_t row_height = 26;
constexpr std::uint64_t first_row = 44;
constexpr std::uint64_t most_rows = 100;

// The picture, in units of its own, one of which is a hundredth of an em or so on a wide screen.
class time_picture {
public:
    time_picture(uni::text_buffer& out, std::string_view lines, const request::cmd_params& style)
        : out_(out), style_(style), lines_(lines)
    {
        for_each_row([&](std::string_view, std::string_view times) {
            ++rows_;
            for_each_time(times, [&](const shown_time& one) { axis_.take(one.ticks); });
        });
    }

    void write()
    {
        if (axis_.is_empty()) {
            return;
        }
        out_.literal(
            "<h2>Times</h2>\n<svg role=\"img\" aria-label=\"The times of the table above, from "
            "left to right\" viewBox=\"0 0 1000 ");
        out_.decimal(first_row + (rows_ + 1) * row_height);
        out_.literal("\">\n");
        write_axis();
        std::uint64_t y = first_row;
        for_each_row([&](std::string_view label, std::string_view times) {
            write_row(y, label, times);
            y += row_height;
        });
        write_legend(y);
        out_.literal("</svg>\n");
        if (rows_ == most_rows) {
            out_.literal("<p class=\"note\">The picture shows the first 100.</p>\n");
        }
    }

private:
    void for_each_row(auto&& act) const
    {
        std::uint64_t rows = 0;
        for_each_line(lines_, [&](std::string_view line) {
            take_field(line);
            const std::string_view label = take_field(line);
            if (!line.empty() && rows < most_rows) {
                ++rows;
                act(label, line);
            }
        });
    }
    void write_axis()
    {
        for (std::uint64_t number = 0; number <= axis_.marks; ++number) {
            const std::uint64_t ticks = axis_.mark(number);
            const std::uint64_t x = axis_.place_of(ticks);
            out_.literal("<path class=\"ax\" d=\"M");
            out_.decimal(x);
            out_.literal(" 28V");
            out_.decimal(first_row + (rows_ - 1) * row_height + 14);
            out_.literal("\"/><text class=\"ad\" x=\"");
            out_.decimal(x);
            out_.literal("\" y=\"20\">");
            write_date(ticks);
            out_.literal("</text>\n");
            if (axis_.place_of(axis_.mark(0)) == axis_.place_of(axis_.mark(axis_.marks))) {
                return;
            }
        }
    }
    void write_date(std::uint64_t ticks)
    {
        const uni::time_value moment = uni::time_value_from(ticks, uni::time_kind::filetime);
        char* end = uni::put_decimal_min(out_.room(40), moment.year, 4);
        for (const auto& [lead, part] :
             {std::pair('-', moment.month), std::pair('-', moment.day), std::pair(' ', moment.hour),
              std::pair(':', moment.minute)}) {
            if (lead == ' ' && !axis_.is_short()) {
                break;
            }
            *end++ = lead;
            end = uni::put_two_decimals(end, part);
        }
        out_.taken(end);
    }
    void write_row(std::uint64_t y, std::string_view label, std::string_view times)
    {
        out_.literal("<text x=\"8\" y=\"");
        out_.decimal(y + 5);
        out_.literal("\">");
        out_.text(label);
        out_.literal("</text><path class=\"ax\" d=\"M300 ");
        out_.decimal(y);
        out_.literal("h640\"/>\n");
        for_each_time(times, [&](const shown_time& one) {
            begin_mark(axis_.place_of(one.ticks), y, mark_of(one.words));
            out_.literal("<title>");
            out_.text(one.words);
            out_.character(' ');
            out_.text(html_moment({one.ticks}, style_));
            out_.literal(" UTC</title></path>\n");
        });
    }
    void begin_mark(std::uint64_t x, std::uint64_t y, std::size_t number)
    {
        out_.literal("<path class=\"t");
        out_.decimal(number);
        out_.literal("\" transform=\"translate(");
        out_.decimal(x);
        out_.character(' ');
        out_.decimal(y);
        out_.literal(")\" d=\"");
        out_.text(time_marks[number].outline);
        out_.literal("\">");
    }
    // The marks that there are, each with its words.
    void write_legend(std::uint64_t y)
    {
        std::array<bool, std::size(time_marks)> is_shown{};
        for_each_row([&](std::string_view, std::string_view times) {
            for_each_time(times,
                          [&](const shown_time& one) { is_shown[mark_of(one.words)] = true; });
        });
        std::uint64_t x = 20;
        for (std::size_t number = 0; number < is_shown.size(); ++number) {
            if (is_shown[number]) {
                begin_mark(x, y + 4, number);
                out_.literal("</path><text x=\"");
                out_.decimal(x + 14);
                out_.literal("\" y=\"");
                out_.decimal(y + 9);
                out_.literal("\">");
                out_.text(time_marks[number].words);
                out_.literal("</text>\n");
                x += 164;
            }
        }
    }

    uni::text_buffer& out_;
    const request::cmd_params& style_;
    std::string_view lines_;
    time_axis axis_;
    std::uint64_t rows_ = 0;
};

void write_counts(uni::text_buffer& out, const run_outcome& outcome)
{
    out.literal("<p>");
    out.decimal(outcome.databases);
    out.text(outcome.databases == 1 ? " database" : " databases");
    if (outcome.programs != 0) {
        out.literal(", ");
        out.decimal(outcome.programs);
        out.text(outcome.programs == 1 ? " program" : " programs");
    }
    if (outcome.lists_records) {
        out.literal(", ");
        out.decimal(outcome.records);
        out.text(outcome.records == 1 ? " record" : " records");
    }
    out.literal("; ");
    out.decimal(outcome.failed);
    out.literal(" could not be read.</p>\n");
    if (outcome.was_refused) {
        out.literal("<p class=\"bad\">The run was refused. Its messages say why.</p>\n");
    } else if (!outcome.is_whole) {
        out.literal(
            "<p class=\"bad\">Not all that was asked for was done. The messages of the run say "
            "what was not.</p>\n");
    }
}

} // namespace

void add_summary_line(uni::text_buffer& kept, const told_subject& subject,
                      const std::string& section, const request::cmd_params& style,
                      std::uint64_t records, std::string_view failure)
{
    const std::string path = html_text(subject.path);
    std::string line = section.empty() ? "<tr><td>" + path
                                       : "<tr><td><a href=\"#" + section + "\">" + path + "</a>";
    if (!subject.name.empty()) {
        line += "<br/>" + html_text(subject.name);
    }
    line += "</td><td>";
    if (!failure.empty()) {
        line += "<em>" + html_text(failure) + "</em>";
    }
    for (const told_time& one : subject.times) {
        line += is_known(one) ? html_text(moment_line(one, style)) + "<br/>" : "";
    }
    line += "</td><td>" + html_text(subject.file.size);
    if (!subject.inflated.size.empty()) {
        line += "<br/>inflated " + html_text(subject.inflated.size);
    }
    line +=
        "</td><td>" + digest_lines(subject.file, "") + digest_lines(subject.inflated, "inflated ");
    line += "</td><td>" + std::to_string(records) + "</td></tr>";
    line += field_end + short_label(subject.path);
    for (const told_time& one : subject.times) {
        if (is_known(one)) {
            line += field_end + html_text(one.source + " " + one.event) + field_end +
                    std::to_string(uni::told_moment(one.time.raw, one.time.kind).filetime);
        }
    }
    line += '\n';
    kept.text(line);
}

void write_html_summary(uni::text_buffer& out, const run_outcome& outcome,
                        const request::cmd_params& style)
{
    write_counts(out, outcome);
    if (outcome.kept.empty()) {
        return;
    }
    out.literal("<h2>Examined</h2>\n<table class=\"all\"><tr><th>path, name</th><th>times</th>"
                "<th>size</th><th>digests</th><th>records</th></tr>\n");
    for_each_line(outcome.kept, [&](std::string_view line) {
        out.text(take_field(line));
        out.line_end();
    });
    out.literal("</table>\n");
    if (outcome.left_out != 0) {
        out.literal("<p class=\"note\">");
        out.decimal(outcome.left_out);
        out.literal(" more have no place in the table. Each has its own part of the page.</p>\n");
    }
    time_picture(out, outcome.kept, style).write();
}

} // namespace form
