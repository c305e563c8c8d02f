#include <memory>
#include <string>
#include <vector>

#include "form/json_line.h"
#include "form/json_records.h"
#include "form/json_text.h"
#include "form/writer.h"

namespace form {

namespace {

constexpr std::uint64_t schema = 1;

// Lines, each an object with a `kind`; docs/schema tells them. Nothing else stands in the stream.
class json_form : public writer {
public:
    using writer::writer;

    bool begin_stream(const run_facts& run) override
    {
        json_line line = new_line("run", {});
        line.fact("schema", count{schema});
        line.fact("program", run.program);
        line.fact("version", run.version);
        line.fact("command", run.command);
        tell_arguments(line, run.arguments);
        line.fact("time", moment{run.time});
        line.fact("host", run.host);
        line.fact("system", run.system);
        return end_line(line);
    }
    bool end_stream(const run_outcome& outcome) override
    {
        // Not by a line, as there may be no memory for one.
        out_.literal("{\"kind\":\"end\"");
        write_json_member(out_, "databases", count{outcome.databases}, nullptr);
        write_json_member(out_, "programs", count{outcome.programs}, nullptr);
        write_json_member(out_, "failed", count{outcome.failed}, nullptr);
        write_json_member(out_, "refused", truth{outcome.was_refused}, nullptr);
        write_json_member(out_, "whole", truth{outcome.is_whole}, nullptr);
        out_.literal("}\n");
        return goes_on();
    }

    bool end() override
    {
        if (is_cut()) {
            json_line line = new_line("cut", database_member_);
            line.fact("offset", count{cut_at()});
            line.fact("reason", std::string(is_too_long() ? "text" : "lists"));
            end_line(line);
        }
        database_member_.clear();
        return goes_on();
    }
    bool end_section() override { return goes_on(); }
    bool note(std::string_view text) override
    {
        json_line line = new_line("note", database_member_);
        line.fact("text", std::string(text));
        return end_line(line);
    }
    bool remark(std::string_view text) override { return note(text); }
    bool heading(std::string_view) override { return goes_on(); }
    // A cell may hold a long text, and none needs memory.
    bool row(std::string_view kind, std::span<const cell> cells) override
    {
        out_.literal("{\"kind\":\"");
        out_.text(kind);
        out_.character('"');
        out_.text(database_member_);
        for (const cell& one : cells) {
            if (!one.names_document || database_member_.empty()) {
                write_json_member(out_, one.name, one.shown, document_.database);
            }
        }
        out_.literal("}\n");
        return goes_on();
    }
    bool line(std::string_view) override { return goes_on(); }
    bool shows_lines() const override { return false; }
    bool entry_row(std::string_view kind, std::span<const cell> cells,
                   std::span<const std::string>) override
    {
        return row(kind, cells);
    }
    void aside(uni::text_buffer&, std::string_view) override {}
    void end_asides(uni::text_buffer&) override {}
    bool subject(const entry& facts) override { return tell(facts, {}); }
    bool separate() override { return goes_on(); }
    bool shows_facts() const override { return true; }
    bool facts(const told_facts& facts) override { return tell(facts, database_member_); }

private:
    void begin_document() override
    {
        uni::text_buffer path;
        write_json_member(path, "database", document_.path, nullptr);
        database_member_ = path.view();
        prepare();
        if (document_.about != nullptr) {
            tell(*document_.about, {}); // which begins with the path
        } else {
            json_line line = new_line("database", database_member_);
            end_line(line);
        }
    }
    void prepare()
    {
        records_ = std::make_unique<json_record_writer>(out_, database(), style_.bounds,
                                                        "{\"kind\":\"record\"" + database_member_);
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
    void write_failure(std::string_view path, std::string_view reason,
                       const told_facts* known) override
    {
        json_line line = new_line("failure", {});
        line.fact("path", std::string(path));
        line.fact("reason", std::string(reason));
        if (known != nullptr) {
            known->tell(line);
        }
        end_line(line);
    }
    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override
    {
        auto made = std::make_unique<json_form>(out, style_, state_);
        made->document_ = document_;
        made->database_member_ = database_member_;
        made->prepare();
        return made;
    }
    // As readable forms have it.
    std::optional<std::string> patch_text(const sdb::patch_op&) const override
    {
        return std::string();
    }

    json_line new_line(std::string_view kind, std::string_view members) const
    {
        return {out_, kind, members, document_.database, [this] { return goes_on(); }};
    }
    bool end_line(json_line& line)
    {
        line.finish();
        return goes_on();
    }
    bool tell(const told_facts& facts, std::string_view members)
    {
        json_line line(out_, facts.kind(), members, database_of(facts),
                       [this] { return goes_on(); });
        try {
            facts.tell(line);
        } catch (...) {
            line.abandon();
            throw;
        }
        return end_line(line);
    }
    // Where some are no UTF-8, the bytes of all follow.
    static void tell_arguments(json_line& line, const std::vector<std::string>& arguments)
    {
        bool are_utf8 = true;
        line.begin_list("arguments");
        for (const std::string& argument : arguments) {
            are_utf8 &= line.text_item(argument);
        }
        line.end();
        if (are_utf8) {
            return;
        }
        line.begin_list("arguments_bytes");
        for (const std::string& argument : arguments) {
            line.bytes_item(argument);
        }
        line.end();
    }

    std::string database_member_; // `,"database":"..."` while there is a document
    std::unique_ptr<json_record_writer> records_;
};

} // namespace

std::unique_ptr<writer> make_json_form(uni::text_buffer& out, const request::cmd_params& style,
                                       stream_state state)
{
    return std::make_unique<json_form>(out, style, state);
}

} // namespace form
