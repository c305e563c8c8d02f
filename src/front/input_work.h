#pragma once

#include <algorithm>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "files/file_tree.h"
#include "front/input_output.h"
#include "model/explain_context.h"
#include "model/installed_databases.h"
#include "model/matchable_database.h"
#include "report/program_digests.h"
#include "request/sdb_opts.h"

namespace front {

struct loaded_file;

// What became of a file that was to be told about.
enum class outcome { told, passed_over, failed };

// The work of a run on one input, which several threads may do side by side: each with its own input.
class input_work {
public:
    // `explained` is null in a run that explains nothing, `known` where nothing is known.
    input_work(const request::sdb_opts& options, files::file_tree& tree,
               const model::run_targets& targets, const model::explain_context* explained,
               const model::known_records* known)
        : options_(options), tree_(tree), targets_(targets), explained_(explained), known_(known)
    {}

    // The report of a target, or its statistics.
    void tell_target(const std::string& path, const input_output& out) const;
    // The report of an entry of a list; answers whether it is what the list is made for.
    bool tell_entry(const std::string& path, const input_output& out) const;
    // Loads the databases that programs are held against. To be called before any is.
    void load_candidates(const input_output& out);
    // Whether no name with wildcards was left out of them.
    bool has_all_patterns() const
    {
        return std::ranges::all_of(candidates_, [](const model::matchable_database& one) {
            return one.index.has_all_patterns();
        });
    }
    // The records that would catch the one program that was named.
    void match_program_alone(const input_output& out) const;
    // What differs between two databases; answers whether both could be read.
    bool tell_difference(const std::string& before, const std::string& after,
                         const input_output& out) const;
    // That a database has no counterpart; one of the two paths is empty.
    void tell_lone_database(const std::string& before, const std::string& after,
                            const input_output& out) const;
    // By what a database may be found again in another place.
    struct likeness {
        std::string id;     // its identifier as text, empty for none
        std::string digest; // of its image
    };
    // Nothing for what is no database.
    std::optional<likeness> likeness_of(const std::string& path, const input_output& out) const;
    // What the one program that was named says of itself.
    void tell_program_alone(const input_output& out) const;
    // An input that could not be told about; that was said.
    void tell_failure(const std::string& path, const std::string& reason, const input_output& out,
                      io::byte_source* source = nullptr) const;

private:
    outcome load(loaded_file& file, const std::string& path, const input_output& out) const;
    bool tell_database_entry(const std::string& path, const input_output& out) const;
    bool tell_program_entry(const std::string& path, const input_output& out) const;
    void report_database(loaded_file& file, const std::string& path, bool is_one_of_several,
                         const input_output& out) const;
    bool match_program_entry(const std::string& path, const input_output& out) const;
    outcome tell_program(const std::string& path, bool is_one_of_several, std::string& reason,
                         const input_output& out) const;
    void say_processing(const std::string& path, const input_output& out) const;

    const request::sdb_opts& options_;
    files::file_tree& tree_;
    const model::run_targets& targets_;
    const model::explain_context* explained_;
    const model::known_records* known_;
    std::vector<std::shared_ptr<loaded_file>> candidate_files_;
    std::deque<model::matchable_database> candidates_;
    mutable report::program_digests digests_of_program_; // of the one that is matched
};

} // namespace front
