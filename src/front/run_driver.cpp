#include "front/run_driver.h"

#include "front/cmdline_ctx.h"
#include "front/run_modes.h"
#include "front/sdb_options.h"
#include "front/sdb_opts.h"
#include "front/startup.h"
#include "platform/host.h"
#include "platform/redirection.h"
#include "io/fileio.h"
#include "io/notice.h"
#include "io/output_sink.h"

namespace front {

namespace {

constexpr int success = 0;
constexpr int failure = -1;
void set_run_defaults(sdb_opts& options)
{
    options.xml = true;
    options.print_header = true;
    options.csv = options.csvl2t = options.bodyfile = options.multiline = false;
    options.byte_dump_limit = 256;
    options.short_byte_dumps = true;
}

int run_to_output(sdb_opts& options, const std::string& run_header,
                  io::output_sink& standard_output)
{
    io::fileio results;
    io::output_sink* out = &standard_output;
    if (!options.out_path.empty()) {
        if (!results.open_write(options.out_path, true, false, true)) {
            io::print_notice("prob opening results file: %s for writing\n",
                              options.out_path.c_str());
            return failure;
        }
        out = results.output_stream();
    }
    if (!options.xml) {
        out->text(run_header);
        out->line_end();
    }
    return run_mode(*out, standard_output, options);
}

} // namespace

int run_driver(argument_list args)
{
    cmdline_ctx context;
    io::standard_output standard_output;
    sdb_opts options;
    std::string run_header;
    {
        const platform::wow64_redirect_adt redirection;
        if (asks_for_help(args)) {
            print_usage();
            return success;
        }
        run_header = make_run_header(args);
    }
    options.is_admin = platform::is_process_admin();
    set_run_defaults(options);
    if (!parse_sdb_options(options, args, standard_output)) {
        standard_output.text(run_header);
        standard_output.line_end();
        return failure;
    }
    context.bind_options(options);
    return run_to_output(options, run_header, standard_output);
}

} // namespace front
