#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_tree.h"
#include "front/arguments.h"
#include "front/diag_log.h"
#include "io/notice.h"
#include "io/output_sink.h"
#include "request/sdb_opts.h"

namespace front {

// What an option works on: what is asked for, the arguments that are left, the files that they may
// name, and where words go.
struct parsing {
    request::sdb_opts& options;
    argument_list& args;
    files::file_tree& tree;
    diag_log& log;
    io::notices& notices;
    io::output_sink& standard_output;
    std::vector<std::string_view> taken = {}; // names of the options that took effect
};

// How the arguments are searched for an option.
enum class look_up {
    once,
    each,             // as often as it stands there
    if_none_yet,      // once, unless the row above was taken or passed over for the same reason
    alone_in_lists,   // the same, where the targets come from a list
    more_for_match,   // as often as it still stands there, where programs are matched
    more_for_explain, // the same, where databases are explained
    by_another_effect // not here: the effect of another row asks for it
};

// One option: its name with one dash, whether a value follows it, and its effect, which answers
// false when it has said why the run is to end.
struct option_row {
    std::string_view name;
    bool takes_value;
    bool (*effect)(parsing& now, const option_row& row, const std::string& value) = nullptr;
    look_up how = look_up::once;
};

// Takes the options of the rows out of the arguments, row after row, and has each take effect.
// False when the run is to end.
bool take_rows(std::span<const option_row> rows, parsing& now);

// Says of every argument behind the program's name that it is ignored, and which of the options may
// have been wanted.
void tell_ignored(std::span<const option_row> rows, const argument_list& args,
                  io::notices& notices);

} // namespace front
