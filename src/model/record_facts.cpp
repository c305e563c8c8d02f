#include "model/record_facts.h"

#include <string_view>

#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace model {

namespace {

namespace tag = sdb::tag;

// Whether two stored texts are the same, ASCII case aside, as far as names of files go.
bool is_same_name(uni::byte_view a, uni::byte_view b)
{
    constexpr std::uint64_t longest = 512; // bytes
    const auto lowered = [](std::uint16_t unit) {
        return unit >= 'A' && unit <= 'Z' ? unit + ('a' - 'A') : unit;
    };
    for (std::uint64_t at = 0; at < longest; at += 2) {
        const std::uint16_t unit = a.u16(at);
        if (lowered(unit) != lowered(b.u16(at))) {
            return false;
        }
        if (unit == 0) {
            break;
        }
    }
    return true;
}

} // namespace

std::uint32_t child_of(const sdb::sdb_database& database, std::uint32_t list, std::uint16_t tag)
{
    const auto head = database.ordinal_of(list);
    if (!head) {
        return 0;
    }
    const auto child = database.children().find_child(
        *head, [&](sdb::tag_ordinal one) { return database.tag_at(one) == tag; });
    return child ? database.offset_at(*child) : 0;
}

std::string text_at(const sdb::sdb_database& database, std::uint32_t offset, std::size_t longest)
{
    std::string text;
    const std::uint16_t type = sdb::tag_type(database.tag_from(offset));
    if (type == sdb::type::stringref) {
        const uni::byte_view stored = database.string_bytes(database.word_behind(offset));
        uni::utf16_to_text(uni::beginning_of(stored, longest), text);
    } else if (type == sdb::type::string) {
        uni::utf16_to_text(uni::beginning_of(database.payload_at(offset), longest), text);
    }
    return text;
}

std::string text_in(const sdb::sdb_database& database, std::uint32_t list, std::uint16_t tag,
                    std::size_t longest)
{
    const std::uint32_t child = child_of(database, list, tag);
    return child == 0 ? std::string() : text_at(database, child, longest);
}

std::string name_of_list(const sdb::sdb_database& database, std::uint32_t list, std::size_t longest)
{
    std::string name = text_in(database, list, tag::name, longest);
    if (name.empty()) {
        name = sdb::tag_name(database.tag_from(list)) + " at 0x";
        char digits[16];
        name.append(digits, uni::put_hex(digits, list, 8));
    }
    return name;
}

std::string stem_of(std::string_view path)
{
    std::string name = uni::lowered(path.substr(path.find_last_of("\\/") + 1));
    constexpr std::string_view extensions[] = {".exe", ".dll", ".sys", ".com", ".scr", ".ocx"};
    for (const std::string_view extension : extensions) {
        if (name.size() > extension.size() && name.ends_with(extension)) {
            name.resize(name.size() - extension.size());
            break;
        }
    }
    return name;
}

bool means_the_program(const sdb::sdb_database& database, std::uint32_t file, std::uint32_t own)
{
    if (file == 0 || (own != 0 && database.word_behind(file) == database.word_behind(own))) {
        return true;
    }
    const uni::byte_view stored = database.string_bytes(database.word_behind(file));
    if (stored.u16(0) == '*' && stored.u16(2) == 0) {
        return true;
    }
    return own != 0 && is_same_name(stored, database.string_bytes(database.word_behind(own)));
}

bool is_definition(const sdb::sdb_database& database, std::uint32_t list)
{
    const std::uint16_t own = database.tag_from(list);
    return own == tag::shim || own == tag::patch || own == tag::flag || own == tag::kshim ||
           (own == tag::layer && child_of(database, list, tag::layer_tagid) == 0);
}

bool is_matching_list(std::uint16_t tag)
{
    return tag == tag::matching_file || tag == tag::matching_reg || tag == tag::matching_text ||
           tag == tag::matching_device || tag == tag::matching_info_block;
}

bool is_test(std::uint16_t tag)
{
    return is_matching_list(tag) || tag == tag::pick_one || tag == tag::match_plugin ||
           tag == tag::contains_file || tag == tag::contains_hwid;
}

bool is_test_of_system(std::uint16_t tag)
{
    switch (tag) {
    case tag::os_platform:
    case tag::os_sku:
    case tag::vista_sku:
    case tag::os_service_pack:
    case tag::os_version_value:
    case tag::runtime_platform:
    case tag::source_os:
    case tag::source_os_lte:
    case tag::source_os_gte:
        return true;
    default:
        return false;
    }
}

bool is_fact_of_program(std::uint16_t tag)
{
    switch (tag) {
    case tag::size:
    case tag::checksum:
    case tag::pe_checksum:
    case tag::module_type:
    case tag::linker_version:
    case tag::link_date:
    case tag::from_link_date:
    case tag::upto_link_date:
    case tag::file_version:
    case tag::bin_file_version:
    case tag::from_bin_file_version:
    case tag::upto_bin_file_version:
    case tag::product_version:
    case tag::bin_product_version:
    case tag::from_bin_product_version:
    case tag::upto_bin_product_version:
    case tag::verfileos:
    case tag::verfiletype:
    case tag::company_name:
    case tag::product_name:
    case tag::file_description:
    case tag::internal_name:
    case tag::original_filename:
    case tag::legal_copyright:
    case tag::langid:
    case tag::ver_language:
        return true;
    default:
        return false;
    }
}

} // namespace model
