#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "form/value.h"
#include "sdb/database.h"

// What is told under names, for programs that read it. A name stays the same from version to version, and
// so does the type of what stands under it.
namespace form {

// Takes facts one by one. Objects and lists of objects may stand in one another.
class fact_taker {
public:
    virtual ~fact_taker() = default;

    virtual void fact(std::string_view name, const value& known) = 0;
    // What an item of a list tells, for forms that have no lists. The first of a name counts.
    virtual void flat_fact(std::string_view, const value&) {}
    virtual void begin_object(std::string_view name) = 0;
    virtual void begin_list(std::string_view name) = 0;
    virtual void begin_item() = 0; // an object of the list
    virtual void end() = 0;        // of what was begun last
    // False once no more may be said: what was begun is to be ended, and nothing else done.
    virtual bool goes_on() const = 0;
};

// All that is known of one subject.
class told_facts {
public:
    virtual ~told_facts() = default;

    // One word for what they are about.
    virtual std::string_view kind() const = 0;
    virtual void tell(fact_taker& to) const = 0;
    // The one in which stored values among them stand; null for none, or for that of the document.
    virtual const sdb::sdb_database* database() const { return nullptr; }
};

// What is known of the run itself.
struct run_facts {
    std::string program;
    std::string version;
    std::vector<std::string> arguments; // as they came, behind the program's own
    std::string command;                // the program as it was called
    std::uint64_t time = 0;             // when it began, FILETIME ticks
    std::string host;
    std::string system;
};

// How the run went.
struct run_outcome {
    std::uint64_t databases = 0; // that were told about
    std::uint64_t programs = 0;  // the same
    std::uint64_t failed = 0;    // databases and programs that could not be
    std::uint64_t records = 0;   // that were said
    bool lists_records = true;   // the report is a listing of records
    // What writers kept of their inputs for the end of the stream, in order, and of how many that had no
    // room.
    std::string_view kept = {};
    std::uint64_t left_out = 0;
    bool is_whole = true;     // all that was asked for was done, as far as the run itself knows
    bool was_refused = false; // it did not begin
};

} // namespace form
