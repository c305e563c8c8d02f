#include "report/listings.h"

#include <string_view>
#include <vector>

#include "report/tag_line.h"
#include "report/tag_text.h"
#include "report/xml_framing.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/notice.h"

namespace report {

namespace {

namespace tag = sdb::tag;

constexpr std::string_view record_rule = "-------------------- ";

// Lists records tag by tag, each tag's followed by an empty line; `nothing_found` stands in for a
// listing without any.
void list_tags(record_collector& collector, uni::output_sink& out, front::sdb_opts& options,
               const std::set<std::uint16_t>& tags, std::string_view nothing_found)
{
    bool found = false;
    options.listed_items = 0;
    for (const std::uint16_t tag : tags) {
        if (list_records_by_tag(collector, out, options, tag)) {
            out.line_end();
            found = true;
        }
    }
    if (!found) {
        out.text(nothing_found);
        out.line_end();
    }
}

struct single_listing {
    bool wanted;
    std::uint16_t tag;
};

// The listings of one tag each, in the order in which they come.
std::vector<single_listing> single_listings(const front::sdb_opts& options)
{
    return {
        {options.exes_only, tag::exe},
        {options.shims_only, tag::shim},
        {options.patches_only, tag::patch},
        {options.tag_filter_on, static_cast<std::uint16_t>(options.tag_filter)},
        {options.list_700b, tag::layer},
        {options.list_7013, tag::flag},
    };
}

bool list_single_tags(record_collector& collector, uni::output_sink& out, front::sdb_opts& options)
{
    bool asked = false;
    for (const single_listing& listing : single_listings(options)) {
        if (listing.wanted) {
            options.listed_items = 0;
            list_records_by_tag(collector, out, options, listing.tag);
            out.line_end();
            asked = true;
        }
    }
    return asked;
}

void set_record_name(const sdb::sdb_database& database, front::sdb_opts& options,
                     std::span<const record_item> group)
{
    options.record_name.clear();
    for (const record_item& item : group) {
        if (item.tag == tag::name) {
            options.record_name = tag_text(database, item.offset, options, false, true);
            return;
        }
    }
}

void print_plain_record(const record_collector& collector, uni::output_sink& out,
                        front::sdb_opts& options)
{
    if (!options.section_rules) {
        return;
    }
    out.text(record_rule);
    out.character('[');
    out.text(options.current_path);
    out.text("]\n");
    const record_groups& groups = collector.groups();
    for (std::size_t group = 0; group < groups.size(); ++group) {
        for (const record_item& item : groups[group]) {
            print_tag_line(out, collector.database(), options, item);
        }
        out.line_end();
    }
    out.line_end();
}

void print_xml_record(const record_collector& collector, uni::output_sink& out,
                      front::sdb_opts& options)
{
    const record_groups& groups = collector.groups();
    xml_record_writer writer(out, collector.database(), options);
    for (std::size_t group = 0; group < groups.size(); ++group) {
        const bool has_nested = group + 1 < groups.size() &&
                                groups[group + 1].front().depth > groups[group].front().depth;
        writer.write_group(groups[group], has_nested);
    }
    writer.close_all();
}

} // namespace

std::set<std::uint16_t> application_tags(const sdb::sdb_database& database)
{
    std::set<std::uint16_t> tags;
    std::vector<sdb::sdb_child_record> children;
    database.child_records(children, database.database_offset());
    for (const sdb::sdb_child_record& child : children) {
        if (child.is_list && child.tag != tag::library && child.tag != tag::layer) {
            tags.insert(child.tag);
        }
    }
    return tags;
}

std::set<std::uint16_t> fix_tags(const sdb::sdb_database& database)
{
    std::set<std::uint16_t> tags;
    std::vector<sdb::sdb_child_record> children;
    database.child_records(children, database.database_offset());
    bool has_library = false;
    for (const sdb::sdb_child_record& child : children) {
        has_library = has_library || child.tag == tag::library;
        if (child.tag == tag::layer) {
            tags.insert(child.tag);
        }
    }
    if (has_library) {
        database.child_records(children, database.library_offset());
        for (const sdb::sdb_child_record& child : children) {
            if (child.is_list && child.tag != tag::inexclude) {
                tags.insert(child.tag);
            }
        }
    }
    return tags;
}

bool print_record(record_collector& collector, uni::output_sink& out, front::sdb_opts& options,
                  std::uint32_t tag_offset)
{
    if (!collector.collect(options, tag_offset) || !has_substance(collector.groups())) {
        return false;
    }
    set_record_name(collector.database(), options, collector.groups()[0]);
    if (options.xml) {
        print_xml_record(collector, out, options);
    } else {
        print_plain_record(collector, out, options);
    }
    return true;
}

bool list_records_by_tag(record_collector& collector, uni::output_sink& out,
                         front::sdb_opts& options, std::uint16_t tag)
{
    const bool owns_document = options.print_header && options.xml;
    if (owns_document) {
        write_xml_prologue(out, options);
    }
    options.print_header = false;
    const sdb::sdb_database& database = collector.database();
    bool printed = false;
    for (const std::uint32_t ordinal : database.ordinals_by_tag(tag)) {
        if (options.no_results) {
            break;
        }
        printed |= print_record(collector, out, options, database.offset_at(ordinal));
    }
    if (owns_document) {
        write_xml_closing(out);
    }
    return printed;
}

bool run_database_report(uni::output_sink& out, const sdb::sdb_database& database,
                         front::sdb_opts& options)
{
    record_collector collector(database);
    bool asked = false;
    if (options.xml) {
        write_xml_prologue(out, options);
        options.print_header = false;
    }
    if (options.list_apps) {
        list_tags(collector, out, options, application_tags(database), "No Apps found");
        asked = true;
    }
    if (options.list_fixes) {
        options.print_header = false;
        list_tags(collector, out, options, fix_tags(database), "No fixes found");
        asked = true;
    }
    asked |= list_single_tags(collector, out, options);
    if (options.xml) {
        write_xml_closing(out);
    }
    if (!asked) {
        uni::print_notice("Check the options you passed in [either erroneous or a mismatch]...\n");
    }
    return asked;
}

} // namespace report
