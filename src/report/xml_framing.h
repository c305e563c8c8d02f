#pragma once

#include <string_view>
#include <vector>

#include "front/sdb_opts.h"
#include "report/record.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

// The XML form of the listings: one <shimdb> document for each database, in which a list tag is an
// element, its scalars are attributes, and what cannot be an attribute is a child element.
//
// Only text of string references is protected: one with "<", ">" or "&" becomes a child element
// around CDATA, its attribute holding the word "CDATA"; a double quote becomes a single one. All
// other values are written as they are, but in matching files, where they are escaped.
namespace report {

// Opens the document; behind it the header lines of the options, if there are any.
void write_xml_prologue(uni::text_buffer& out, const front::sdb_opts& options);
void write_xml_closing(uni::text_buffer& out);

// Writes one record, group by group, as nested elements.
class xml_record_writer {
public:
    xml_record_writer(uni::text_buffer& out, const sdb::sdb_database& database,
                      const front::sdb_opts& options)
        : out_(out), database_(database), options_(options)
    {}

    // Writes a group; the element stays open when the next group stands deeper or when it has a
    // child element of its own.
    void write_group(std::span<const record_item> group, bool has_nested);
    // Closes what is still open.
    void close_all() { close_down_to(0); }

private:
    // An element that is open, under the name it was opened with.
    struct open_element {
        std::uint16_t depth;
        std::uint16_t tag;
        std::string_view name; // empty for the tag's own
    };

    void close_down_to(std::uint16_t depth);
    void write_name(std::uint16_t tag, std::string_view name);
    void write_head(std::span<const record_item> group);
    void write_attributes(std::span<const record_item> group);
    void write_general(const record_item& item);
    void write_matching(const record_item& item);
    void write_apphelp(const record_item& item);
    void write_application(std::span<const record_item> scalars);
    void write_pair(std::uint16_t tag, std::string_view value);
    void write_value(uni::text_buffer& out, const record_item& item);
    void write_reference_value(uni::text_buffer& out, const record_item& item,
                               uni::byte_view stored);
    // The value as write_value writes it; good until the next call.
    std::string_view value_aside(const record_item& item);
    void write_cdata_child(const record_item& item);
    void write_children(std::span<const record_item> scalars);

    uni::text_buffer& out_;
    const sdb::sdb_database& database_;
    const front::sdb_opts& options_;
    std::vector<open_element> open_;
    // State of the group in work.
    std::vector<const record_item*> cdata_children_;
    uni::text_buffer aside_;
    bool has_tag_children_ = false;
    bool self_closed_ = true;
};

} // namespace report
