#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "form/facts.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

namespace form {

// A JSON object on a line of its own, from facts. Of a text that is not all UTF-8 the bytes stand beside it,
// under its name with "_bytes" behind. A line that is not long goes out when it is whole: one that an
// exception ends is not begun.
class json_line : public fact_taker {
public:
    // `members` stand behind the kind, with a comma in front of each. `database` is the one in which stored
    // values stand.
    json_line(uni::text_buffer& out, std::string_view kind, std::string_view members,
              const sdb::sdb_database* database, std::function<bool()> goes_on);

    void fact(std::string_view name, const value& known) override;
    void begin_object(std::string_view name) override;
    void begin_list(std::string_view name) override;
    void begin_item() override;
    void end() override;
    bool goes_on() const override { return goes_on_(); }
    // Items of a list that are no objects.
    bool text_item(std::string_view text); // false where not all of it is UTF-8
    void bytes_item(std::string_view text);

    void finish();
    // Ends a line that an exception ended: one that went out in part says that it is cut.
    void abandon();

private:
    void begin(std::string_view opening, std::string_view name, char closing);
    void begin_value();
    void settle();

    uni::text_buffer& out_;
    const sdb::sdb_database* database_;
    std::function<bool()> goes_on_;
    uni::text_buffer held_;
    std::string open_; // the brackets that close what was begun
    bool has_members_ = true;
    // Up to where all is whole, and what is open there; whether some of the line went out.
    std::size_t whole_ = 0;
    std::size_t open_whole_ = 0;
    bool has_begun_ = false;
};

} // namespace form
