#include <memory>
#include <utility>

#include "form/value_text.h"
#include "form/writer.h"
#include "form/xml_records.h"
#include "uni/text.h"

namespace form {

namespace {

constexpr std::string_view declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

// One document for the whole stream: a <shimdb>, or, where there may be several databases, one for
// each inside of <shimdbs>. Facts and rows are not said in this form.
class xml_form : public writer {
public:
    using writer::writer;

    bool subject(const entry&) override { return goes_on(); }
    bool line(std::string_view) override { return goes_on(); }
    bool shows_lines() const override { return false; }
    // An element that has the cells as attributes.
    bool entry_row(std::string_view kind, std::span<const cell> cells,
                   std::span<const std::string>) override
    {
        begin_root();
        out_.literal(" <");
        out_.text(kind);
        for (const cell& one : cells) {
            if (std::holds_alternative<std::monostate>(one.shown)) {
                continue;
            }
            out_.character(' ');
            out_.text(one.name);
            out_.literal("=\"");
            out_.text(uni::xml_escape(value_text(one.shown, style_, document_.database)));
            out_.character('"');
        }
        out_.literal(" />\n");
        return goes_on();
    }
    bool end() override
    {
        out_.literal("</shimdb>\n");
        document_ = {};
        return goes_on();
    }
    bool end_stream(const run_outcome& outcome) override
    {
        if (outcome.was_refused) {
            return goes_on();
        }
        if (!state_.head_stands) {
            out_.text(declaration);
            out_.literal("<shimdb>\n</shimdb>\n");
        } else if (!state_.is_lone) {
            out_.literal("</shimdbs>\n");
        }
        return goes_on();
    }
    // Where the line would stand in the document it is a comment.
    void aside(uni::text_buffer& console, std::string_view line) override
    {
        if (&console != &out_) {
            writer::aside(console, line);
            return;
        }
        out_.literal("<!-- ");
        out_.text(line);
        out_.literal(" -->\n");
    }

private:
    void begin_document() override
    {
        // All that may fail comes first: a document is begun wholly or not at all.
        prepare(document_);
        const std::string file = state_.is_lone ? "" : uni::xml_escape(marked_path_);
        out_.room(declaration.size() + file.size() + 64);
        begin_root();
        if (state_.is_lone) {
            out_.literal("<shimdb>\n");
        } else {
            out_.literal("<shimdb file=\"");
            out_.text(file);
            out_.literal("\">\n");
        }
    }
    void begin_root()
    {
        if (!state_.head_stands) {
            out_.text(declaration);
            out_.text(state_.is_lone ? "" : "<shimdbs>\n");
            state_.head_stands = true;
        }
    }
    void prepare(const document& about)
    {
        document_ = about;
        records_ = std::make_unique<xml_record_writer>(out_, database(), style_);
    }
    bool write_record(const model::record_groups& groups) override
    {
        try {
            return records_->write_record(groups, most_in_record(), folds());
        } catch (...) {
            records_->abandon_record();
            throw;
        }
    }
    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override
    {
        auto made = std::make_unique<xml_form>(out, style_, state_);
        made->prepare(document_);
        return made;
    }
    std::optional<std::string> patch_text(const sdb::patch_op& first) const override
    {
        uni::text_buffer element;
        write_patch_element(element, first, false);
        return std::string(element.view());
    }

    std::unique_ptr<xml_record_writer> records_;
};

} // namespace

std::unique_ptr<writer> make_xml_form(uni::text_buffer& out, const request::cmd_params& style,
                                      stream_state state)
{
    return std::make_unique<xml_form>(out, style, state);
}

} // namespace form
