#include <memory>

#include "form/lines_form.h"
#include "form/with_fields.h"
#include "uni/marks.h"
#include "uni/text.h"

namespace form {

namespace {

constexpr std::string_view bar = "|";
constexpr std::string_view unknown = "0";

// A path without the separator: readers of these files know no quotes.
std::string path_text(std::string path)
{
    uni::mark(path);
    uni::replace_char(path, bar.front(), ';');
    return path;
}

std::string seconds_text(std::uint64_t filetime)
{
    if (!uni::told_moment(filetime, uni::time_kind::filetime).valid) {
        return std::string(unknown);
    }
    const auto since_1601 = static_cast<std::int64_t>(filetime / uni::ticks_per_second);
    return std::to_string(since_1601 - uni::seconds_1601_to_1970);
}

// Rows of eleven fields as tools for timelines read them, and lines for what is no file of the kind:
//
//   md5|path|0|0|0|0|size|accessed|modified|0|born
//
// in seconds since 1970, 0 for what is not known. What else is known to have happened to a file has
// rows of its own, with the moment as modified.
class bodyfile_form : public with_fields<lines_form> {
public:
    using with_fields::with_fields;

    bool subject(const entry& facts) override
    {
        const std::optional<file_facts> file = facts.file();
        if (!file) {
            wrote_lines_ = true;
            return lines_form::subject(facts);
        }
        write_row(file->digest_md5, file->path, file->size, file->access, file->write,
                  file->creation);
        for (const file_event& event : file->events) {
            if (uni::told_moment(event.time, uni::time_kind::filetime).valid) {
                const std::string name = file->path + " (" + std::string(event.meaning) + ")";
                write_row({}, name, 0, 0, event.time, 0);
            }
        }
        return goes_on();
    }

    bool separate() override { return wrote_lines_ ? lines_form::separate() : goes_on(); }

private:
    void write_row(std::string_view digest, const std::string& path, std::uint64_t size,
                   std::uint64_t access, std::uint64_t write, std::uint64_t creation)
    {
        out_.text(digest.empty() ? unknown : digest);
        out_.text(bar);
        out_.text(path_text(path));
        out_.literal("|0|0|0|0|");
        out_.decimal(size);
        for (const std::string& text : {seconds_text(access), seconds_text(write),
                                        std::string(unknown), seconds_text(creation)}) {
            out_.text(bar);
            out_.text(text);
        }
        out_.line_end();
    }

    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override
    {
        return std::make_unique<bodyfile_form>(out, style_, state_);
    }

    bool wrote_lines_ = false;
};

} // namespace

std::unique_ptr<writer> make_bodyfile_form(uni::text_buffer& out, const request::cmd_params& style,
                                           stream_state state)
{
    return std::make_unique<bodyfile_form>(out, style, state);
}

} // namespace form
