#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "form/json_text.h"
#include "form/writer.h"

namespace form {

namespace {

// The times of a subject, and all else that is known of it as members of an object without objects: what
// stands in one has its name in front, other lists are left out.
class event_facts : public fact_taker {
public:
    struct event {
        std::string source;
        std::string what;
        moment time;
    };

    std::vector<event> events;
    std::string subject; // its path
    uni::text_buffer members;

    explicit event_facts(const sdb::sdb_database* database) : database_(database) {}

    void fact(std::string_view name, const value& known) override
    {
        if (in_times_ && depth_ == 2) {
            take_time(name, known);
        } else if (list_ == 0 && !std::holds_alternative<std::monostate>(known)) {
            if (depth_ == 0 && (name == "database" || name == "path")) {
                subject = std::get<std::string>(known);
            }
            add(prefix_ + std::string(name), known);
        }
    }
    void flat_fact(std::string_view name, const value& known) override
    {
        add(std::string(name), known);
    }
    void begin_object(std::string_view name) override
    {
        prefix_ = std::string(name) + "_";
        ++depth_;
    }
    void begin_list(std::string_view name) override
    {
        ++depth_;
        if (list_ == 0) {
            list_ = depth_;
            in_times_ = name == "times";
        }
    }
    void begin_item() override
    {
        ++depth_;
        if (in_times_) {
            events.emplace_back();
        }
    }
    void end() override
    {
        if (list_ == depth_) {
            list_ = 0;
            in_times_ = false;
        }
        --depth_;
        prefix_.clear();
    }
    bool goes_on() const override { return true; }

    // A member under a name that none has yet.
    void add(std::string name, const value& known)
    {
        const auto [place, is_new] = names_.insert(std::move(name));
        if (is_new) {
            write_json_member(members, *place, known, database_);
        }
    }

private:
    void take_time(std::string_view name, const value& known)
    {
        if (name == "time") {
            events.back().time = std::get<moment>(known);
        } else if (name == "source") {
            events.back().source = std::get<std::string>(known);
        } else if (name == "event") {
            events.back().what = std::get<std::string>(known);
        }
    }

    const sdb::sdb_database* database_;
    std::set<std::string> names_;
    std::string prefix_;
    unsigned depth_ = 0;
    unsigned list_ = 0; // the depth of the outermost list around what is told; 0 outside of lists
    bool in_times_ = false;
};

// A JSON line for each time that is known of a subject, as Timesketch reads them: `message`, `datetime` and
// `timestamp_desc`, and the facts of the subject beside them. Nothing else is said in this form.
class timesketch_form : public writer {
public:
    using writer::writer;

    bool subject(const entry& facts) override
    {
        event_facts known(database_of(facts));
        facts.tell(known);
        for (const auto& [name, text] :
             {std::pair("host", &style_.hostname), std::pair("user", &style_.username)}) {
            if (!text->empty()) {
                known.add(name, *text);
            }
        }
        for (const event_facts::event& event : known.events) {
            const uni::time_value moment = uni::told_moment(event.time.raw, event.time.kind);
            if (moment.valid) {
                write_event(facts.kind(), known, event, moment);
            }
        }
        return goes_on();
    }
    bool end_section() override { return goes_on(); }
    bool note(std::string_view) override { return goes_on(); }
    bool row(std::string_view, std::span<const cell>) override { return goes_on(); }
    bool separate() override { return goes_on(); }

private:
    void write_event(std::string_view kind, const event_facts& known,
                     const event_facts::event& event, const uni::time_value& moment)
    {
        constexpr std::int64_t microseconds = 1'000'000; // of a second
        const std::int64_t since_1970 = static_cast<std::int64_t>(moment.filetime / 10) -
                                        uni::seconds_1601_to_1970 * microseconds;
        const std::string what = event.source + " " + event.what;
        out_.literal("{\"message\":");
        write_json_text(out_, what + ": " + known.subject);
        out_.literal(",\"datetime\":");
        write_json_moment(out_, event.time);
        out_.literal(",\"timestamp_desc\":");
        write_json_text(out_, what);
        out_.literal(",\"timestamp\":");
        out_.text(std::to_string(since_1970));
        out_.literal(",\"data_type\":");
        write_json_text(out_, "shim:" + std::string(kind));
        out_.text(known.members.view());
        out_.literal("}\n");
    }

    bool write_record(const model::record_groups&) override { return true; }
    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override
    {
        return std::make_unique<timesketch_form>(out, style_, state_);
    }
    std::optional<std::string> patch_text(const sdb::patch_op&) const override
    {
        return std::nullopt;
    }
};

} // namespace

std::unique_ptr<writer> make_timesketch_form(uni::text_buffer& out,
                                             const request::cmd_params& style, stream_state state)
{
    return std::make_unique<timesketch_form>(out, style, state);
}

} // namespace form
