#include "support/reports.h"

#include <deque>
#include <functional>
#include <stdexcept>

#include "form/forms.h"
#include "form/tag_text.h"
#include "report/reports.h"

namespace test_support {

namespace {

class gathered_notices : public io::notices {
public:
    std::string text;

private:
    void take(std::string_view message) override { text += message; }
};

using report_maker = std::function<bool(report::job&)>;

made_report make_into(uni::text_buffer& out, const request::sdb_opts& options, const about& subject,
                      const report_maker& maker)
{
    uni::text_buffer console;
    gathered_notices notices;
    const auto form = form::form_of(options.form).make(out, options, subject.state);
    uni::thread_allowance threads(uni::threads_for(options.bounds.threads));
    const uni::busy_thread busy(threads);
    files::file_tree tree;
    report::job work{options, *form, console, notices, &threads};
    work.files = &tree;
    work.path = subject.path;
    work.times = subject.times;
    work.installed = subject.installed;
    made_report made;
    made.asked = maker(work);
    made.console = console.view();
    made.notices = notices.text;
    made.state = form->state();
    return made;
}

made_report make(const request::sdb_opts& options, const about& subject, const report_maker& maker)
{
    uni::text_buffer text;
    made_report made = make_into(text, options, subject, maker);
    made.text = text.view();
    return made;
}

report_maker maker_of_listings(const sdb::sdb_database& database)
{
    return [&database](report::job& work) {
        work.database = &database;
        return report::make_database_report(work);
    };
}

report_maker maker_of_statistics(const sdb::sdb_database& database)
{
    return [&database](report::job& work) {
        work.database = &database;
        return report::report_of("stats").make(work);
    };
}

} // namespace

loaded_database::loaded_database(const bytes& image)
{
    if (database.load_image(io::byte_vector(image.begin(), image.end())) !=
        sdb::load_result::loaded) {
        throw std::logic_error("the image is no database");
    }
}

request::sdb_opts listing_options(std::initializer_list<std::string_view> listings,
                                  std::string_view form)
{
    request::sdb_opts options;
    options.listings = listings;
    options.form = form;
    return options;
}

request::sdb_opts tag_options(std::uint16_t tag, std::string_view form)
{
    request::sdb_opts options = listing_options({"tag"}, form);
    options.tag_filter = tag;
    return options;
}

request::sdb_opts row_options(std::string_view form, std::string_view timeformat)
{
    request::sdb_opts options;
    options.form = form;
    options.csv_separator = options.field_char_from = ',';
    options.field_char_to = ' ';
    options.timeformat = timeformat;
    uni::compile_date_style(options.date_style, options.dateformat, timeformat, false);
    return options;
}

made_report database_report(const sdb::sdb_database& database, const request::sdb_opts& options,
                            const about& subject)
{
    return make(options, subject, maker_of_listings(database));
}

made_report database_report(const bytes& image, const request::sdb_opts& options,
                            const about& subject)
{
    return database_report(loaded_database(image).database, options, subject);
}

made_report statistics_report(const bytes& image, const request::sdb_opts& options,
                              const about& subject)
{
    return make(options, subject, maker_of_statistics(loaded_database(image).database));
}

void write_report(uni::text_buffer& out, const sdb::sdb_database& database,
                  const request::sdb_opts& options)
{
    make_into(out, options, {},
              options.stats ? maker_of_statistics(database) : maker_of_listings(database));
}

made_report program_report(const model::pe_list& properties, const request::sdb_opts& options,
                           const about& subject)
{
    return make(options, subject, [&](report::job& work) {
        work.program = &properties;
        return report::report_of("pe").make(work);
    });
}

made_report explained_report(const sdb::sdb_database& database, const request::sdb_opts& options,
                             const model::known_filter* known)
{
    static const model::explain_context context;
    return make(options, {}, [&](report::job& work) {
        work.database = &database;
        work.explained = &context;
        work.known = known;
        return report::make_database_report(work);
    });
}

made_report difference_report(const sdb::sdb_database& before, const sdb::sdb_database& after,
                              const request::sdb_opts& options)
{
    return make(options, {}, [&](report::job& work) {
        work.database = &before;
        work.other = &after;
        work.other_path = "other.sdb";
        return report::report_of("diff").make(work);
    });
}

made_report caught_report(const model::pe_list& properties, const sdb::sdb_database& database,
                          const std::string& path, const request::sdb_opts& options)
{
    std::deque<model::matchable_database> candidates;
    candidates.emplace_back(
        about().path, database,
        [&](std::uint32_t offset, std::size_t longest) {
            return form::comparable_text(database, offset, longest, options);
        },
        options.bounds);
    about subject;
    subject.path = path;
    return make(options, subject, [&](report::job& work) {
        work.program = &properties;
        work.candidates = &candidates;
        return report::report_of("caught").make(work);
    });
}

} // namespace test_support
