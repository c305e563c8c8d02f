#include "report/tag_line.h"

#include "report/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace report {

namespace {

constexpr std::size_t tag_name_columns = 30;
constexpr std::size_t type_name_columns = 10;
constexpr std::string_view no_list_size = "     ";

void write_padded_name(uni::text_buffer& out, std::uint16_t tag)
{
    const std::string_view known = sdb::known_tag_name(tag);
    if (known.empty()) {
        out.left(sdb::tag_name(tag), tag_name_columns);
    } else {
        out.left(known, tag_name_columns);
    }
}

// The first depth of a stream is decimal, all others hexadecimal: meant.
void write_depth(uni::text_buffer& out, front::sdb_opts& options, std::uint16_t depth)
{
    if (depth != 0) {
        if (options.depths_in_hexadecimal) {
            out.hex_min(depth, 1);
        } else {
            out.decimal(depth);
        }
        out.text(options.csv_separator);
    }
    options.depths_in_hexadecimal = true;
}

void write_patch_lines(uni::text_buffer& out, const sdb::sdb_tag_item& item)
{
    std::size_t operations = 0;
    sdb::for_each_patch_op(item.value, [&](const sdb::patch_op&, std::uint64_t) {
        if (operations++ != 0) {
            out.line_end();
        }
        return true;
    });
    out.line_end();
}

} // namespace

void print_tag_line(uni::text_buffer& out, const sdb::sdb_database& database,
                    front::sdb_opts& options, const record_item& item)
{
    if (!options.section_rules) {
        return;
    }
    const std::string_view separator = options.csv_separator;
    write_depth(out, options, item.depth);
    out.hex_min(item.offset, 6);
    out.text(separator);
    out.hex(item.tag, 4);
    out.text(separator);
    if (is_list(item)) {
        out.hex_min(database.word_behind(item.offset), 5);
    } else {
        out.text(no_list_size);
    }
    out.text(separator);
    write_padded_name(out, item.tag);
    out.text(separator);
    out.left(sdb::known_type_name(sdb::tag_type(item.tag)), type_name_columns);
    if (item.tag == sdb::tag::patch_bits) {
        out.line_end();
        write_patch_lines(out, database.item_at(item.ordinal));
        return;
    }
    if (!is_list(item)) {
        out.text(separator);
        write_tag_text(out, database, item.tag, item.offset, options);
    }
    out.line_end();
}

void print_tag_element(uni::text_buffer& out, const sdb::sdb_database& database,
                       const front::sdb_opts& options, const record_item& item)
{
    const sdb::sdb_tag_item decoded = database.item_at(item.ordinal);
    out.blanks(item.depth);
    out.character('<');
    write_tag_name(out, item.tag);
    if (is_list(item)) {
        out.text(">\n");
        return;
    }
    if (item.tag != sdb::tag::patch_bits) {
        out.character(' ');
        out.text(sdb::known_type_name(sdb::tag_type(item.tag)));
        out.text("=\"");
        out.text(tag_text(database, item.offset, options, false, true));
        out.text("\" />\n");
        return;
    }
    out.text(">\n");
    sdb::for_each_patch_op(decoded.value, [&](const sdb::patch_op& op, std::uint64_t) {
        out.blanks(item.depth + 1u);
        write_patch_element(out, op);
        out.line_end();
        return true;
    });
    out.blanks(item.depth);
    out.text("</");
    write_tag_name(out, item.tag);
    out.text(">\n");
}

} // namespace report
