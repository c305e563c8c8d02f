#include "front/run_driver.h"

#include "form/forms.h"
#include "front/cmdline_ctx.h"
#include "front/diag_log.h"
#include "front/run.h"
#include "front/sdb_options.h"
#include "front/startup.h"
#include "io/fileio.h"
#include "io/notice.h"
#include "io/output_sink.h"
#include "platform/redirection.h"
#include "request/sdb_opts.h"

namespace front {

namespace {

constexpr int success = 0;
constexpr int failure = -1;

int run_to_output(const request::sdb_opts& options, diag_log& log, const std::string& run_header,
                  io::output_sink& standard_output)
{
    io::fileio results;
    io::output_sink* out = &standard_output;
    if (!options.out_path.empty()) {
        if (!results.open_write(options.out_path, true, false, true)) {
            io::error_stream().say("prob opening results file: %s for writing\n",
                                   options.out_path.c_str());
            return failure;
        }
        out = results.output_stream();
    }
    if (form::form_of(options.form).has_banner) {
        out->text(run_header);
        out->line_end();
    }
    return run(*out, standard_output, options, log);
}

} // namespace

int run_driver(argument_list args)
{
    cmdline_ctx context;
    io::standard_output standard_output;
    diag_log log;
    request::sdb_opts options;
    std::string run_header;
    {
        const platform::wow64_redirect_adt redirection;
        if (asks_for_help(args)) {
            print_usage();
            return success;
        }
        run_header = make_run_header(args);
    }
    if (!parse_sdb_options(options, args, log, standard_output)) {
        standard_output.text(run_header);
        standard_output.line_end();
        return failure;
    }
    context.bind_options(options);
    return run_to_output(options, log, run_header, standard_output);
}

} // namespace front
