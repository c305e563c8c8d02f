#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "form/facts.h"
#include "form/value.h"
#include "request/cmd_params.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

namespace form {

// When something happened to a subject.
struct told_time {
    std::string source;
    std::string event;
    moment time;
};

struct told_digests {
    std::string size;
    std::string md5;
    std::string sha1;
    std::string sha256;
};

// What the page tells of a subject in front of all others.
struct told_subject {
    std::string path;
    std::string name;      // or its beginning
    told_digests file;     // as it lies there
    told_digests inflated; // of a compressed one
    std::vector<told_time> times;
};

// Facts as a list of names and values; a list of them is a table, under a head of the names that its first
// item has. It is held back while it is not long: one that an exception ends early is not begun.
class html_facts : public fact_taker {
public:
    // `opening` gives what stands in front of the list, from what is known of the subject once that goes
    // out: at least its path.
    using opening_text = std::function<std::string(const told_subject&)>;
    html_facts(uni::text_buffer& out, const request::cmd_params& style,
               const sdb::sdb_database* database, std::function<bool()> goes_on,
               opening_text opening = {});

    void fact(std::string_view name, const value& known) override;
    void begin_object(std::string_view name) override;
    void begin_list(std::string_view name) override;
    void begin_item() override;
    void end() override;
    bool goes_on() const override { return goes_on_(); }

    // Writes the rest, and what stands behind the list. Nothing may fail behind that which is to be ended.
    void finish(std::string_view behind);
    // Ends all that was begun, where some of it went out, with what stands behind the list.
    void abandon(std::string_view behind);

    // What was told of the subject itself, and of a program that it was held against.
    const told_subject& subject() const noexcept { return subject_; }
    const told_subject& program() const noexcept { return program_; }

private:
    enum class kind : std::uint8_t { text, object, list, item };
    struct level {
        kind is;
        std::string_view name = {}; // no item's
        bool is_in_row = false;     // it stands in a cell
        bool has_items = false;     // a list
        bool makes_head = false;    // the first item of a list, from whose names its head is made
        std::size_t row = 0;        // where its row began
        std::string head = {};
    };

    bool is_in_row() const { return !open_.empty() && open_.back().is == kind::item; }
    void open_member(std::string_view name);
    bool is_in(std::string_view outer) const
    {
        return !open_.empty() && open_.front().name == outer;
    }
    void note(std::string_view name, const value& known);
    void note_own(std::string_view name, const value& known);
    void note_inflated();
    void write_text(std::string_view text);
    void let_go();
    void settle();
    std::string closing() const;

    uni::text_buffer& out_;
    const request::cmd_params& style_;
    const sdb::sdb_database* database_;
    std::function<bool()> goes_on_;
    std::string held_;
    std::vector<level> open_;
    opening_text opening_;
    bool has_begun_ = false; // some went out
    std::string closing_;    // what closes that
    std::vector<std::size_t>
        size_labels_; // ends of the labels of size and digests, as long as they are held
    told_subject subject_;
    told_subject program_;
};

} // namespace form
