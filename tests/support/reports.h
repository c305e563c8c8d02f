#pragma once

#include <string>

#include "form/writer.h"
#include "io/byte_source.h"
#include "model/installed_databases.h"
#include "model/known_records.h"
#include "model/pe_properties.h"
#include "request/sdb_opts.h"
#include "sdb/database.h"
#include "support/sdb_builder.h"

// Reports made in memory, as a run makes them of one input.
namespace test_support {

// A database that loads; anything else throws std::logic_error.
struct loaded_database {
    explicit loaded_database(const bytes& image);
    sdb::sdb_database database;
};

// What a report wrote.
struct made_report {
    std::string text;
    std::string console;
    std::string notices; // as said, without what wipes a progress line
    bool asked = false;  // what the report's maker answered
    form::stream_state state;
};

// Options that ask for these listings in a form.
request::sdb_opts listing_options(std::initializer_list<std::string_view> listings,
                                  std::string_view form = "xml");
// The same for the records with one tag.
request::sdb_opts tag_options(std::uint16_t tag, std::string_view form = "xml");

// Options of a form as they are once the command line was read, with a comma between fields.
request::sdb_opts row_options(std::string_view form, std::string_view timeformat = "hh:mm:ss.xxx");

// What a report is about, beside the database.
struct about {
    std::string path = "c:\\a&b.sdb";
    io::file_times times = {};
    const model::installed_database* installed = nullptr;
    form::stream_state state = {.is_lone = true};
};

// The listings that the options ask for, or what takes their place.
made_report database_report(const sdb::sdb_database& database, const request::sdb_opts& options,
                            const about& subject = {});
made_report database_report(const bytes& image, const request::sdb_opts& options,
                            const about& subject = {});
// The statistics of a database.
made_report statistics_report(const bytes& image, const request::sdb_opts& options,
                              const about& subject = {});
// The statistics or the listings, whichever the options ask for, as they go out.
void write_report(uni::text_buffer& out, const sdb::sdb_database& database,
                  const request::sdb_opts& options);
// The explanation of a database, and what differs between two.
made_report explained_report(const sdb::sdb_database& database, const request::sdb_opts& options,
                             const model::known_filter* known = nullptr);
made_report difference_report(const sdb::sdb_database& before, const sdb::sdb_database& after,
                              const request::sdb_opts& options);
// Which records of a database catch a program, each in a row.
made_report caught_report(const model::pe_list& properties, const sdb::sdb_database& database,
                          const std::string& path, const request::sdb_opts& options);
// What a program says of itself.
made_report program_report(const model::pe_list& properties, const request::sdb_opts& options,
                           const about& subject = {});

} // namespace test_support
