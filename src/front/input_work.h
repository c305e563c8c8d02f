#pragma once

#include <string>

#include "files/file_tree.h"
#include "front/input_output.h"
#include "model/installed_databases.h"
#include "request/sdb_opts.h"

namespace front {

struct loaded_file;

// What became of a file that was to be told about.
enum class outcome { told, passed_over, failed };

// The work of a run on one input, which several threads may do side by side: each with its own input.
class input_work {
public:
    input_work(const request::sdb_opts& options, files::file_tree& tree,
               const model::run_targets& targets)
        : options_(options), tree_(tree), targets_(targets)
    {}

    // The report of a target, or its statistics.
    void tell_target(const std::string& path, const input_output& out) const;
    // The report of an entry of a list; answers whether it is what the list is made for.
    bool tell_entry(const std::string& path, const input_output& out) const;
    // What the one program that was named says of itself.
    void tell_program_alone(const input_output& out) const;
    // An input that could not be told about; that was said.
    void tell_failure(const std::string& path, const std::string& reason,
                      const input_output& out) const;

private:
    outcome load(loaded_file& file, const std::string& path, const input_output& out) const;
    bool tell_database_entry(const std::string& path, const input_output& out) const;
    bool tell_program_entry(const std::string& path, const input_output& out) const;
    void report_database(loaded_file& file, const std::string& path, bool is_one_of_several,
                         const input_output& out) const;
    outcome tell_program(const std::string& path, bool is_one_of_several, std::string& reason,
                         const input_output& out) const;
    void say_processing(const std::string& path, const input_output& out) const;

    const request::sdb_opts& options_;
    files::file_tree& tree_;
    const model::run_targets& targets_;
};

} // namespace front
