#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "form/entry.h"
#include "form/facts.h"
#include "form/value.h"
#include "model/record_groups.h"
#include "request/cmd_params.h"
#include "sdb/database.h"
#include "sdb/patch_op.h"
#include "uni/text_buffer.h"

namespace form {

// What one input of a stream leaves behind for the next.
struct stream_state {
    bool is_lone = false;               // there is no other input
    bool head_stands = false;           // the head of the table was written
    bool depths_in_hexadecimal = false; // a record line was written

    // Whether it stays as it is from here on: each form notes one thing of the stream, once.
    bool is_settled() const noexcept { return head_stands || depths_in_hexadecimal; }

    friend bool operator==(const stream_state&, const stream_state&) = default;
};

// The database that is told about.
struct document {
    const sdb::sdb_database* database = nullptr;
    std::string path;
    const told_facts* about = nullptr; // what is known of it, for forms that show that
};

// How a report is said: a report hands over what it knows, in this order, and each form makes of it
// what has a place in that form. Without more, it is lines of text. Each call answers whether to go
// on: false once what was written does not arrive, or is more than a database may have said of it.
class writer {
public:
    // `out` and `style` must outlive the writer.
    writer(uni::text_buffer& out, const request::cmd_params& style, stream_state state)
        : out_(out), style_(style), state_(state), folds_(style.bounds.folded_bytes)
    {}
    virtual ~writer() = default;
    writer(const writer&) = delete;
    writer& operator=(const writer&) = delete;

    // Around all that a run writes into one stream, whatever comes of it.
    virtual bool begin_stream(const run_facts&) { return goes_on(); }
    virtual bool end_stream(const run_outcome&) { return goes_on(); }
    // Around the listings of one database.
    bool begin(document about);
    virtual bool end() { return goes_on(); }

    // A record with all that belongs to it, of the document's database.
    bool record(const model::record_groups& groups);
    // The end of the records of one kind.
    virtual bool end_section();
    // A line for the reader; text in it that may not be shown is marked.
    virtual bool note(std::string_view text);
    // A word that the messages say too, for what has no other way to tell it.
    virtual bool remark(std::string_view) { return goes_on(); }
    // The head of rows that follow, and one of these, with one word for what it tells.
    virtual bool heading(std::string_view text);
    virtual bool row(std::string_view kind, std::span<const cell> cells);
    // To be asked in front of each record and row of a document, with the offset of its tag. False, and
    // the document is cut, where the text is too long already.
    bool takes_more(std::uint32_t offset) noexcept
    {
        place_ = is_cut_ ? place_ : offset;
        is_cut_ = is_cut_ || is_too_long();
        return goes_on();
    }
    // Lets the document end here.
    void cut() noexcept { is_cut_ = true; }
    // Lets a fork go on with something else.
    void uncut() noexcept { is_cut_ = false; }
    // A line for people, of what is handed over as facts or rows too, and whether there is a place for such.
    virtual bool line(std::string_view text);
    virtual bool shows_lines() const { return true; }
    // The same, of a line below which stands what it names.
    virtual bool title(std::string_view text) { return line(text); }
    // The head of such rows as follow, from the names of the cells, whether or not there will be any.
    virtual bool table_head(std::span<const cell>) { return goes_on(); }
    // A row of a table whose head are the names of its cells, and the lines that people read in its place.
    virtual bool entry_row(std::string_view kind, std::span<const cell> cells,
                           std::span<const std::string> lines);
    // The end of rows that stand together.
    virtual bool end_rows() { return goes_on(); }
    // A line for standard output, `console`, wherever the report goes, and what stands behind some of them.
    virtual void aside(uni::text_buffer& console, std::string_view line);
    virtual void end_asides(uni::text_buffer& console) { console.line_end(); }
    // The facts of one subject.
    virtual bool subject(const entry& facts) = 0;
    // What is known of something by names alone.
    virtual bool facts(const told_facts&) { return goes_on(); }
    virtual bool shows_facts() const { return false; }
    // An input that could not be told about, and what is known of it all the same.
    bool failure(std::string_view path, std::string_view reason, const told_facts* known = nullptr);
    std::uint64_t failures() const noexcept { return failures_; }
    // How many records were said, and how many of them the form's readers take well in one stream.
    std::uint64_t records() const noexcept { return records_; }
    virtual std::uint64_t most_records() const { return no_limit; }
    // What it keeps for the end of the stream, which another writer says.
    std::string_view kept() const noexcept { return kept_.view(); }
    // What stands between two subjects.
    virtual bool separate() { return goes_on(); }

    // Whether all that was said so far could be written, and more may be said.
    bool goes_on() const noexcept { return out_.good() && !is_cut_ && !is_too_long(); }
    // Whether the document ended before all was said, at which tag, and whether for its length.
    bool is_cut() const noexcept { return is_cut_; }
    std::uint32_t cut_at() const noexcept { return place_; }
    bool is_too_long() const noexcept { return out_.total() > most_text_; }
    // Whether that much more may be said.
    bool has_room_for(std::size_t bytes) const noexcept
    {
        return out_.total() + bytes <= most_text_;
    }

    // The text that the tag at an offset of the document has in this form, to be compared: a stored text as it
    // stands, without marks. One of more than `longest` bytes may be cut, but not to that. Nothing for a
    // tag that has none.
    std::optional<std::string> tag_text(std::uint32_t offset, std::size_t longest) const;

    // The followed records whose text was kept, which stand in records for all that belongs to them.
    model::folded_records& folds() noexcept { return folds_; }

    // Names its place in the stream, as no other writer's is; for links.
    void name_place(std::string name) { place_name_ = std::move(name); }

    // A writer of the same form and document into another buffer, so that stretches of a listing
    // can be made apart. It begins in the state in which this one is.
    std::unique_ptr<writer> fork(uni::text_buffer& out) const;

    stream_state state() const noexcept { return state_; }
    void set_state(stream_state state) noexcept { state_ = state; }
    // Takes over what a fork wrote, so many records, and the state in which that ended.
    void take(std::string_view text, std::uint64_t records, stream_state state);

protected:
    const sdb::sdb_database& database() const noexcept { return *document_.database; }
    const sdb::sdb_database* database_of(const told_facts& facts) const
    {
        return facts.database() != nullptr ? facts.database() : document_.database;
    }

    virtual void begin_document() {}
    virtual void write_failure(std::string_view, std::string_view, const told_facts*) {}
    // False for a record that was cut, since it took most_in_record().
    virtual bool write_record(const model::record_groups& groups) = 0;
    // Up to which place in what is written to out_ a record may go on.
    std::uint64_t most_in_record() const noexcept { return most_in_record_; }
    virtual std::unique_ptr<writer> make_fork(uni::text_buffer& out) const = 0;
    // The line that a patch value's first operation has in this form; nothing where it shows none.
    virtual std::optional<std::string> patch_text(const sdb::patch_op& first) const = 0;

    uni::text_buffer& out_;
    const request::cmd_params& style_;
    stream_state state_;
    document document_;
    std::string marked_path_; // of the document
    std::string place_name_;
    uni::text_buffer kept_;
    static constexpr std::uint64_t no_limit = 0xffffffffffffffff;

private:
    // Places in what is written to out_.
    std::uint64_t most_text_ = no_limit;
    std::uint64_t most_in_record_ = no_limit;
    std::uint32_t place_ = 0; // of what was to be said last
    model::folded_records folds_;
    std::uint64_t failures_ = 0;
    std::uint64_t records_ = 0;
    bool is_cut_ = false;
};

} // namespace form
