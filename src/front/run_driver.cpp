#include "front/run_driver.h"

#include "form/forms.h"
#include "front/cmdline_ctx.h"
#include "front/common_options.h"
#include "front/diag_log.h"
#include "front/help.h"
#include "front/outputs.h"
#include "front/run.h"
#include "front/sdb_options.h"
#include "front/startup.h"
#include "io/notice.h"
#include "io/output_sink.h"
#include "platform/console.h"
#include "platform/redirection.h"
#include "request/sdb_opts.h"

namespace front {

namespace {

constexpr int success = 0;
constexpr int failure = -1;

// What the stream begins with, in one of the two ways.
struct run_beginning {
    form::run_facts facts;
    std::string header;
};

bool begins_itself(const request::sdb_opts& options)
{
    return form::form_of(options.form).header == form::banner::in_the_form;
}

// Whether the output is to be rows of a body file and nothing else.
bool is_body_file(const request::sdb_opts& options)
{
    return form::form_of(options.form).header == form::banner::not_on_files && options.stats &&
           !options.pe_stats;
}

int refuse(const run_beginning& run, const request::sdb_opts& options, files::file_tree& tree,
           io::output_sink& standard_output)
{
    if (begins_itself(options)) {
        platform::set_standard_output_binary();
        tell_refusal(standard_output, options, run.facts, tree, true);
    } else if (!options.no_header && !is_body_file(options)) {
        standard_output.text(run.header);
        standard_output.line_end();
    }
    return failure;
}

int refuse_stream(outputs::stream_kind stream, io::output_sink& standard_output,
                  io::notices& notices)
{
    standard_output.clear();
    if (stream == outputs::stream_kind::output) {
        notices.fail("standard output is examined by this run, aborting\n");
    }
    return failure;
}

bool has_banner(const request::sdb_opts& options)
{
    const form::banner header = form::form_of(options.form).header;
    return !options.no_header && !is_body_file(options) && header != form::banner::never &&
           header != form::banner::in_the_form;
}

void say_what_was_not_written(const io::standard_output& standard_output, io::notices& notices)
{
    if (standard_output.reader_is_gone()) {
        notices.note_failure(); // nobody wants to know more
    } else if (!standard_output.good()) {
        notices.fail("prob writing to standard output\n");
    }
}

bool may_write_to(const cmdline_ctx& context, io::notices& notices)
{
    if (!context.has_standard_output()) {
        notices.fail("standard output is closed, aborting\n");
    }
    return context.has_standard_output();
}

// A stream that begins itself is whole beside the usage text too.
int tell_help(std::string_view form, const form::run_facts& run, const request::bounds& bounds,
              files::file_tree& tree, const cmdline_ctx& context,
              io::standard_output& standard_output, io::notices& notices)
{
    request::sdb_opts options;
    options.form = form;
    options.bounds = bounds;
    if (!begins_itself(options)) {
        return success;
    }
    if (may_write_to(context, notices)) {
        platform::set_standard_output_binary();
        tell_refusal(standard_output, options, run, tree, false);
        standard_output.flush();
        say_what_was_not_written(standard_output, notices);
    }
    return notices.failed() ? failure : success;
}

int print_text(std::string_view text, const cmdline_ctx& context,
               io::standard_output& standard_output, io::notices& notices)
{
    if (may_write_to(context, notices)) {
        standard_output.text(text);
        standard_output.flush();
        say_what_was_not_written(standard_output, notices);
    }
    return notices.failed() ? failure : success;
}

} // namespace

int run_driver(argument_list args, const request::bounds& bounds)
{
    cmdline_ctx context;
    io::error_notices notices;
    io::standard_output standard_output;
    diag_log log;
    files::file_tree tree;
    request::sdb_opts options;
    options.bounds = bounds;
    run_beginning beginning;
    {
        const platform::wow64_redirect_adt redirection;
        if (const auto text = text_asked_for(args)) {
            return print_text(*text, context, standard_output, notices);
        }
        if (args.size() <= 1) {
            print_first_words();
            return success;
        }
        beginning.facts = gather_run_facts(args);
        const std::string_view form = form_asked_for(args).value_or(options.form);
        const std::string unknown = unknown_option_asked_for(args);
        if (asks_for_help(args)) {
            print_usage();
            if (!unknown.empty()) {
                notices.say("no option %s: quilt --help shows all\n", unknown.c_str());
            }
            return tell_help(form, beginning.facts, bounds, tree, context, standard_output,
                             notices);
        }
        beginning.header = make_run_header(args, beginning.facts);
    }
    io::kept_notices early; // until it is known that what they go to is not examined itself
    model::run_targets targets;
    bool is_parsed = false;
    try {
        is_parsed = parse_sdb_options(options, args, tree, log, early, standard_output);
        if (is_parsed) {
            targets = find_targets(options, tree, log, early);
        }
    } catch (...) {
        early.say_all(notices);
        throw;
    }
    outputs files(options, tree, log, [&context] { return context.elapsed_text(); });
    const std::vector<std::string> inputs = examined_files(options, targets);
    if (const auto stream = files.examined_stream(inputs); stream != outputs::stream_kind::none) {
        return refuse_stream(stream, standard_output, notices);
    }
    early.say_all(notices);
    if (!is_parsed) {
        return refuse(beginning, options, tree, standard_output);
    }
    context.bind_options(options);
    if (options.out_path.empty() && !may_write_to(context, notices)) {
        return failure;
    }
    if (files.are_in_the_way(inputs, notices)) {
        return refuse(beginning, options, tree, standard_output);
    }
    try {
        const auto line_ends = begins_itself(options) || is_body_file(options)
                                   ? io::line_ends::as_they_are
                                   : io::line_ends::with_return;
        if (!files.open(line_ends, notices)) {
            return refuse(beginning, options, tree, standard_output);
        }
        io::output_sink* const results = files.results();
        io::output_sink& out = results ? *results : standard_output;
        if (has_banner(options)) {
            out.text(beginning.header);
            out.line_end();
        }
        if (line_ends == io::line_ends::as_they_are && results == nullptr) {
            platform::set_standard_output_binary();
        }
        run(out, standard_output, options, beginning.facts, tree, targets, files, log, notices);
        files.finish(notices);
    } catch (...) {
        files.give_up(notices);
        throw;
    }
    standard_output.flush();
    say_what_was_not_written(standard_output, notices);
    if (!context.has_standard_output() && standard_output.was_written_to()) {
        notices.fail("standard output is closed, what was to go there is lost\n");
    }
    return notices.failed() ? failure : success;
}

} // namespace front
