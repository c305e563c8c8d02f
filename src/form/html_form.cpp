#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "form/html_facts.h"
#include "form/html_page.h"
#include "form/html_records.h"
#include "form/html_summary.h"
#include "form/html_text.h"
#include "form/value_text.h"
#include "form/writer.h"

namespace form {

namespace {

// One page for the whole stream, which is XML too: the run, a section for each database or program, and the
// summary, which the style shows above them.
class html_form : public writer {
public:
    using writer::writer;

    bool begin_stream(const run_facts& run) override
    {
        uni::text_buffer head;
        write_html_head(head, run, style_);
        out_.text(head.view());
        return goes_on();
    }
    // The document is closed whatever comes of the summary, for which there may be no memory.
    bool end_stream(const run_outcome& outcome) override
    {
        close_rows();
        uni::text_buffer summary;
        std::exception_ptr fault;
        try {
            if (outcome.records > most_records()) {
                summary.text(many_records_words);
            }
            write_html_summary(summary, outcome, style_);
            write_html_script(summary);
        } catch (const std::bad_alloc&) {
            fault = std::current_exception();
        }
        out_.literal("</main>\n<section id=\"summary\">\n");
        if (fault) {
            out_.literal("<p class=\"bad\">Memory ran out.</p>\n</section>\n");
        } else {
            out_.long_text(summary.view());
        }
        out_.literal("</body>\n</html>\n");
        if (fault) {
            std::rethrow_exception(fault);
        }
        return goes_on();
    }

    bool end() override
    {
        close_rows();
        if (is_cut()) {
            uni::text_buffer line;
            line.literal("<p class=\"bad\">The report of this database ends at tag 0x");
            line.hex(cut_at(), 8);
            line.text(is_too_long() ? ", as it is too long.</p>\n"
                                    : ", as its lists hold one another again and again.</p>\n");
            out_.text(line.view());
        }
        if (is_open_) {
            is_open_ = false;
            out_.literal("</section>\n");
            add_summary_line(kept_, about_, place_name_, style_, records());
        }
        return goes_on();
    }
    bool end_section() override { return end_rows(); }
    bool end_rows() override
    {
        close_rows();
        return goes_on();
    }
    bool line(std::string_view) override { return goes_on(); }
    bool shows_lines() const override { return false; }
    bool entry_row(std::string_view kind, std::span<const cell> cells,
                   std::span<const std::string>) override
    {
        std::vector<cell> shown(cells.begin(), cells.end());
        std::erase_if(shown, [&](const cell& one) {
            return one.names_document && document_.database != nullptr;
        });
        return row(kind, shown);
    }
    bool note(std::string_view text) override { return paragraph("note", text); }
    bool remark(std::string_view text) override { return note(text); }
    bool heading(std::string_view text) override
    {
        close_rows();
        const std::string shown = "<h3>" + html_text(text) + "</h3>\n";
        out_.text(shown);
        return goes_on();
    }
    // A row is held until it is whole, but for its long values.
    bool row(std::string_view kind, std::span<const cell> cells) override
    {
        row_.clear();
        begin_row(kind, cells);
        const std::uint64_t begin = out_.total();
        try {
            write_cells(cells);
        } catch (...) {
            if (out_.total() != begin) {
                out_.literal("</td></tr>\n");
                ++rows_;
            }
            throw;
        }
        row_.literal("</tr>\n");
        out_.text(row_.view());
        ++rows_;
        return goes_on();
    }
    void aside(uni::text_buffer&, std::string_view) override {}
    void end_asides(uni::text_buffer&) override {}
    bool subject(const entry& facts) override
    {
        about_ = tell(facts, "</section>\n",
                      [this](const told_subject& subject) { return section_head(subject.path); });
        add_summary_line(kept_, about_, place_name_, style_, 0);
        return goes_on();
    }
    bool separate() override { return goes_on(); }
    bool shows_facts() const override { return true; }
    bool facts(const told_facts& facts) override
    {
        close_rows();
        tell(facts, {}, {});
        return goes_on();
    }
    std::uint64_t most_records() const override { return 20'000; }

private:
    void begin_document() override
    {
        records_writer();
        if (document_.about != nullptr) {
            about_ = tell(
                *document_.about, "</details>\n",
                [this](const told_subject&) {
                    return section_head(marked_path_) +
                           "<details class=\"facts\"><summary>What it is</summary>\n";
                },
                "</section>\n");
        } else {
            about_.path = marked_path_;
            out_.text(section_head(marked_path_));
        }
        is_open_ = true;
    }
    std::string section_head(const std::string& path) const
    {
        return "<section id=\"" + place_name_ + "\"><h2>" + html_text(path) + "</h2>\n";
    }
    // Tells facts between an opening and a closing, and gives what the table on top has of them. Where an
    // exception ends them, what was begun is ended, with what else was opened.
    told_subject tell(const told_facts& facts, const std::string& closing,
                      html_facts::opening_text opening, const std::string& more_closing = {})
    {
        html_facts taker(
            out_, style_, database_of(facts), [this] { return goes_on(); }, std::move(opening));
        told_subject known;
        const std::string all_closing = closing + more_closing;
        try {
            facts.tell(taker);
            known = taker.subject();
            if (!taker.program().path.empty()) {
                add_summary_line(kept_, taker.program(), {}, style_, 0);
            }
            taker.finish(closing);
        } catch (...) {
            taker.abandon(all_closing);
            throw;
        }
        return known;
    }
    html_record_writer& records_writer()
    {
        if (records_ == nullptr) {
            records_ = std::make_unique<html_record_writer>(out_, database(), style_);
        }
        return *records_;
    }
    bool write_record(const model::record_groups& groups) override
    {
        close_rows();
        html_record_writer& records = records_writer();
        try {
            return records.write_record(groups, most_in_record(), folds());
        } catch (...) {
            records.abandon_record();
            throw;
        }
    }
    void write_failure(std::string_view path, std::string_view reason,
                       const told_facts* known) override
    {
        close_rows();
        told_subject unread;
        if (!is_open_) {
            const std::string begun = section_head(std::string(path)) + "<p class=\"bad\">" +
                                      html_text(reason) + "</p>\n";
            out_.text(begun);
            if (known != nullptr) {
                unread = tell(*known, {}, {});
            }
            out_.literal("</section>\n");
        } else {
            paragraph("bad", std::string(path) + ": " + std::string(reason));
        }
        unread.path = path;
        add_summary_line(kept_, unread, is_open_ ? std::string() : place_name_, style_, 0, reason);
    }
    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override
    {
        return std::make_unique<html_form>(out, style_, state_);
    }
    // As readable forms have it.
    std::optional<std::string> patch_text(const sdb::patch_op&) const override
    {
        return std::string();
    }

    bool paragraph(std::string_view kind, std::string_view text)
    {
        close_rows();
        const std::string shown =
            "<p class=\"" + std::string(kind) + "\">" + html_text(text) + "</p>\n";
        out_.text(shown);
        return goes_on();
    }
    void close_rows()
    {
        if (rows_ != 0) {
            rows_ = 0;
            out_.literal("</table>\n");
        }
    }

    // Long tables are parted, as browsers lay a table out at once.
    void begin_row(std::string_view kind, std::span<const cell> cells)
    {
        constexpr unsigned most_rows = 500;
        if (rows_ % most_rows == 0) {
            row_.text(rows_ == 0 ? "<table class=\"" : "</table>\n<table class=\"");
            row_.text(kind);
            row_.literal("\"><thead><tr>");
            for (const cell& one : cells) {
                row_.literal("<th>");
                row_.text(one.name);
                row_.literal("</th>");
            }
            row_.literal("</tr></thead>\n");
        }
        row_.literal("<tr>");
    }
    void write_cells(std::span<const cell> cells)
    {
        for (const cell& one : cells) {
            row_.literal("<td>");
            const bool is_long_one = is_long(one.shown, document_.database);
            if (is_long_one) {
                out_.text(row_.view());
                row_.clear();
            }
            write_html_value(is_long_one ? out_ : row_, one.shown, style_, document_.database);
            row_.literal("</td>");
        }
    }

    std::unique_ptr<html_record_writer> records_;
    told_subject about_;
    bool is_open_ = false;   // a section
    std::uint64_t rows_ = 0; // of the table that is open
    uni::text_buffer row_;
};

} // namespace

std::unique_ptr<writer> make_html_form(uni::text_buffer& out, const request::cmd_params& style,
                                       stream_state state)
{
    return std::make_unique<html_form>(out, style, state);
}

} // namespace form
