#pragma once

#include <string_view>
#include <vector>

#include "front/sdb_opts.h"
#include "report/record.h"
#include "report/text_cache.h"
#include "sdb/database.h"
#include "io/large_vector.h"
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

// Writes records as nested elements, one after the other.
class xml_record_writer {
public:
    xml_record_writer(uni::text_buffer& out, const sdb::sdb_database& database,
                      const front::sdb_opts& options);

    // Writes one record. An element stays open when the next group stands deeper or when it has a
    // child element of its own.
    void write_record(const record_groups& groups);

private:
    struct attribute_openings;
    // An element that is open, under the name it was opened with.
    struct open_element {
        std::uint16_t depth;
        std::uint16_t tag;
        std::string_view name; // empty for the tag's own
    };
    // A tag of the record with the text that it refers to, if it is a string reference.
    struct entry {
        record_item item;
        text_cache::entry text;
    };
    using entries = std::span<const entry>;

    static const attribute_openings& openings();
    void collect_entries(const record_groups& groups);
    void write_group(entries group, bool has_nested);
    void close_down_to(std::uint16_t depth);
    void write_name(std::uint16_t tag, std::string_view name);
    void write_attributes(entries group);
    void open_attribute(std::uint16_t tag);
    void write_general(const entry& scalar);
    void write_matching(const entry& scalar);
    void write_apphelp(const entry& scalar);
    void write_application(entries scalars);
    void write_pair(std::uint16_t tag, std::string_view value);
    std::string_view write_value(uni::text_buffer& out, const entry& scalar, bool& plain);
    std::string_view write_reference(uni::text_buffer& out, const entry& scalar, bool& plain);
    std::string_view protect_reference(uni::text_buffer& out, const entry& scalar,
                                       std::string_view text);
    // The value as write_value writes it; good until the next call.
    std::string_view value_aside(const entry& scalar);
    void write_cdata_child(const entry& scalar);
    void write_children(entries scalars);

    uni::text_buffer& out_;
    const sdb::sdb_database& database_;
    const front::sdb_opts& options_;
    const attribute_openings& openings_;
    std::vector<open_element> open_;
    // The record in work, all its strings looked up before the first is written: the look-ups go
    // all over the image, and so the processor can wait for many of them at a time.
    text_cache texts_;
    io::large_vector<entry> entries_;
    io::large_vector<entry*> references_;
    bool record_has_children_ = false; // child elements, that is
    // State of the group in work.
    std::vector<const entry*> cdata_children_;
    uni::text_buffer aside_;
    bool has_tag_children_ = false;
    bool self_closed_ = true;
};

} // namespace report
