#include "report/listings.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "report/identifiers.h"
#include "report/match.h"
#include "report/tag_line.h"
#include "sdb/finders.h"
#include "sdb/tags.h"
#include "io/notice.h"
#include "uni/ordered_work.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace report {

namespace {

namespace tag = sdb::tag;

constexpr std::string_view record_rule = "-------------------- ";
// Long listings are made by several threads, that many records at a time.
constexpr std::size_t stretch_records = 128;
constexpr std::size_t fewest_stretches = 4;

std::span<const std::uint32_t> stretch_of(std::span<const std::uint32_t> ordinals,
                                          std::size_t number)
{
    const auto rest = ordinals.subspan(number * stretch_records);
    return rest.first(std::min(stretch_records, rest.size()));
}

// The tags of the lists that stand directly in a list.
std::set<std::uint16_t> list_tags_in(const sdb::sdb_database& database, std::uint32_t list_offset)
{
    std::set<std::uint16_t> tags;
    if (const auto list = database.ordinal_of(list_offset)) {
        database.children().for_each_list_in(
            *list, [&](const sdb::tag_table::list_row& child) { tags.insert(child.tag); });
    }
    return tags;
}

// Lists records tag by tag, each tag's followed by an empty line; answers whether there were any.
bool list_tags(record_printer& printer, io::output_sink& out, front::sdb_opts& options,
               const std::set<std::uint16_t>& tags)
{
    bool found = false;
    options.listed_items = 0;
    for (const std::uint16_t tag : tags) {
        if (printer.list_records_by_tag(tag)) {
            out.line_end();
            found = true;
        }
    }
    return found;
}

// The listings of one tag each, in the order in which they come.
bool list_single_tags(record_printer& printer, io::output_sink& out, front::sdb_opts& options)
{
    const std::pair<bool, std::uint16_t> listings[] = {
        {options.exes_only, tag::exe},
        {options.shims_only, tag::shim},
        {options.patches_only, tag::patch},
        {options.tag_filter_on, static_cast<std::uint16_t>(options.tag_filter)},
        {options.list_700b, tag::layer},
        {options.list_7013, tag::flag},
    };
    bool asked = false;
    for (const auto& [wanted, tag] : listings) {
        if (wanted) {
            options.listed_items = 0;
            printer.list_records_by_tag(tag);
            out.line_end();
            asked = true;
        }
    }
    return asked;
}

} // namespace

std::set<std::uint16_t> application_tags(const sdb::sdb_database& database)
{
    std::set<std::uint16_t> tags = list_tags_in(database, database.database_offset());
    tags.erase(tag::library);
    tags.erase(tag::layer);
    return tags;
}

std::set<std::uint16_t> fix_tags(const sdb::sdb_database& database)
{
    const std::set<std::uint16_t> in_database = list_tags_in(database, database.database_offset());
    std::set<std::uint16_t> tags;
    if (in_database.contains(tag::library)) {
        tags = list_tags_in(database, database.library_offset());
        tags.erase(tag::inexclude);
    }
    if (in_database.contains(tag::layer)) {
        tags.insert(tag::layer);
    }
    return tags;
}

void record_printer::set_record_name(std::span<const record_item> group)
{
    options_.record_name.clear();
    const auto named = std::ranges::find(group, tag::name, &record_item::tag);
    if (named != group.end()) {
        const std::uint32_t reference = database_.word_behind(named->offset);
        uni::utf16_to_text(database_.string_bytes(reference), options_.record_name);
        uni::replace_char(options_.record_name, '"', '\'');
    }
}

void record_printer::print_plain_groups(const record_groups& groups)
{
    if (!options_.section_rules) {
        return;
    }
    out_.text(record_rule);
    out_.character('[');
    out_.text(options_.current_path);
    out_.literal("]\n");
    for (std::size_t group = 0; group < groups.size(); ++group) {
        for (const record_item& item : groups[group]) {
            print_tag_line(out_, database_, options_, item);
        }
        out_.line_end();
    }
    out_.line_end();
}

bool record_printer::print_record(std::uint32_t tag_offset)
{
    if (!collector_.collect(options_, tag_offset) ||
        !has_substance(collector_.groups()[0], collector_.groups().size() == 1)) {
        return false;
    }
    set_record_name(collector_.groups()[0]);
    if (options_.xml) {
        xml_writer_.write_record(collector_.groups());
    } else {
        print_plain_groups(collector_.groups());
    }
    return true;
}

bool record_printer::print_records(std::span<const std::uint32_t> ordinals)
{
    const bool are_lists =
        !ordinals.empty() && sdb::tag_type(database_.tag_at(ordinals.front())) == sdb::type::list;
    bool printed = false;
    for (const std::uint32_t ordinal : ordinals) {
        if (options_.no_results) {
            break;
        }
        if (!are_lists || !collector_.rules_out(ordinal)) {
            printed |= print_record(database_.offset_at(ordinal));
        }
    }
    return printed;
}

namespace {

// A stretch of a long listing, made ahead of its turn.
struct stretch {
    uni::text_buffer text;
    std::uint64_t items = 0; // counted as in sdb_opts::listed_items
    bool has_overflowed = false;
    bool began_in_hexadecimal = false; // sdb_opts::depths_in_hexadecimal before and behind it
    bool ended_in_hexadecimal = false;
    bool printed = false;
};

// Keeps a text up to some length; a longer one is of no use and is dropped.
class bounded_text : public uni::text_buffer {
public:
    // Gives what was written since, and begins anew.
    void hand_over(stretch& made)
    {
        swap(made.text);
        clear();
        made.has_overflowed = std::exchange(overflowed_, false);
    }

private:
    void make_room(std::size_t count) final
    {
        constexpr std::size_t longest = 0x400000;
        if (view().size() + count > longest) {
            overflowed_ = true;
            clear();
        }
        if (capacity() - view().size() < count) {
            grow(count);
        }
    }

    bool overflowed_ = false;
};

// Makes stretches on a thread of its own, with options of its own, since they change as it goes.
class stretch_maker {
public:
    stretch_maker(const sdb::sdb_database& database, const front::sdb_opts& options,
                  std::span<const std::uint32_t> ordinals,
                  const std::atomic<std::uint64_t>& listed_items)
        : options_(options), printer_(text_, database, options_), ordinals_(ordinals),
          listed_items_(listed_items)
    {}

    void make(std::size_t number, stretch& made)
    {
        // At least that many were counted before, which bounds how far it can go astray.
        const std::uint64_t before = listed_items_;
        options_.listed_items = before;
        made.began_in_hexadecimal = options_.depths_in_hexadecimal;
        made.printed = printer_.print_records(stretch_of(ordinals_, number));
        made.ended_in_hexadecimal = options_.depths_in_hexadecimal;
        made.items = options_.listed_items - before;
        text_.hand_over(made);
    }

private:
    front::sdb_opts options_;
    bounded_text text_;
    record_printer printer_;
    std::span<const std::uint32_t> ordinals_;
    const std::atomic<std::uint64_t>& listed_items_;
};

} // namespace

// Has the records printed by several threads, a stretch at a time, and takes the stretches in their
// order. How a record looks depends on those before it in two ways: the limit of the listing's
// items, and the base of depths, which the first line sets. Where a stretch was made on a wrong
// guess about these it is made again, in its place.
bool record_printer::print_stretches(std::span<const std::uint32_t> ordinals, std::size_t threads)
{
    database_.make_shared_indexes();
    bool printed = print_records(stretch_of(ordinals, 0));
    const std::size_t count = (ordinals.size() + stretch_records - 1) / stretch_records;
    const std::uint64_t limit = record_expander::listing_limit(database_);
    std::atomic<std::uint64_t> listed_items = options_.listed_items;
    uni::ordered_work<stretch> work(1, count);
    const bool started = work.start(threads, [&] {
        auto maker = std::make_unique<stretch_maker>(database_, options_, ordinals, listed_items);
        return [maker = std::move(maker)](std::size_t number, stretch& made) {
            maker->make(number, made);
        };
    });
    for (std::size_t number = 1; number < count; ++number) {
        const stretch* const made = started ? &work.next() : nullptr;
        if (!made || options_.listed_items + made->items > limit) {
            work.stop();
            return print_records(ordinals.subspan(number * stretch_records)) || printed;
        }
        if (made->has_overflowed || made->began_in_hexadecimal != options_.depths_in_hexadecimal) {
            printed |= print_records(stretch_of(ordinals, number));
        } else {
            out_.long_text(made->text.view());
            options_.listed_items += made->items;
            options_.depths_in_hexadecimal = made->ended_in_hexadecimal;
            printed |= made->printed;
        }
        listed_items = options_.listed_items;
    }
    return printed;
}

bool record_printer::list_records_by_tag(std::uint16_t tag)
{
    const bool owns_document = options_.print_header && options_.xml;
    if (owns_document) {
        write_xml_prologue(out_, options_);
    }
    options_.print_header = false;
    const std::span<const std::uint32_t> ordinals = database_.ordinals_by_tag(tag);
    const std::size_t threads = uni::ordered_work<int>::useful_threads();
    const bool is_long = ordinals.size() >= fewest_stretches * stretch_records;
    const bool printed = is_long && threads > 1 && !is_search_pending(options_)
                             ? print_stretches(ordinals, threads)
                             : print_records(ordinals);
    if (owns_document) {
        write_xml_closing(out_);
    }
    return printed;
}

namespace {

void say_no_matches(const front::sdb_opts& options)
{
    io::print_notice("no matches found: %s\n", options.current_path.c_str());
}

// Turns the pattern of -patchbytes into a search for the patches that hold it.
bool search_patch_bytes(const sdb::sdb_database& database, front::sdb_opts& options)
{
    sdb::found_tags found;
    if (!sdb::find_patch_bytes(database, found, options.patch_pattern)) {
        return false;
    }
    options.no_results = false;
    options.found_offsets.clear();
    options.find_tagids_list = found;
    options.list_apps = options.list_apps || !options.exes_only;
    return true;
}

// A search that no listing was asked for lists the applications that hold what was found.
void list_search(record_printer& printer, io::output_sink& out, front::sdb_opts& options,
                 const sdb::sdb_database& database)
{
    if (!list_tags(printer, out, options, application_tags(database))) {
        say_no_matches(options);
    }
}

bool make_listings(record_printer& printer, io::output_sink& out,
                   const sdb::sdb_database& database, front::sdb_opts& options)
{
    bool asked = !options.patch_pattern.empty();
    if (options.list_apps) {
        if (!list_tags(printer, out, options, application_tags(database))) {
            out.literal("No Apps found\n");
        }
        asked = true;
    }
    if (options.list_fixes) {
        options.print_header = false;
        if (!list_tags(printer, out, options, fix_tags(database))) {
            out.literal("No fixes found\n");
        }
        asked = true;
    }
    asked |= list_single_tags(printer, out, options);
    if (options.list_guids) {
        list_identifiers(database, out, options);
        asked = true;
    }
    if (options.list_stringtable) {
        // Takes the place of a search: meant.
        list_string_table(database, out);
        asked = true;
    } else if (!asked && is_search_pending(options)) {
        list_search(printer, out, options, database);
        asked = true;
    }
    return asked;
}

void list_matches(io::output_sink& out, io::output_sink& standard_output,
                  const sdb::sdb_database& database, front::sdb_opts& options)
{
    match_results results;
    if (!match_pe_file(results, database, options)) {
        say_no_matches(options);
        return;
    }
    options.listed_items = 0;
    record_printer printer(out, database, options);
    for (const auto& [record, lists] : results) {
        for (const std::uint32_t list : lists) {
            standard_output.literal("match tagid ");
            standard_output.hex(list, 8);
            standard_output.line_end();
        }
        printer.print_record(record);
        standard_output.line_end();
    }
}

} // namespace

bool run_database_report(io::output_sink& out, io::output_sink& standard_output,
                         const sdb::sdb_database& database, front::sdb_opts& options)
{
    if (options.xml) {
        write_xml_prologue(out, options);
        options.print_header = false;
    }
    if (options.match_mode) {
        // The document stays open: meant.
        list_matches(out, standard_output, database, options);
        return true;
    }
    if (!options.patch_pattern.empty() && !search_patch_bytes(database, options)) {
        // The document stays open: meant.
        say_no_matches(options);
        return true;
    }
    record_printer printer(out, database, options);
    const bool asked = make_listings(printer, out, database, options);
    if (options.xml) {
        write_xml_closing(out);
    }
    if (!asked) {
        io::print_notice("Check the options you passed in [either erroneous or a mismatch]...\n");
    }
    return asked;
}

} // namespace report
