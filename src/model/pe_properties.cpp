#include "model/pe_properties.h"

#include <algorithm>
#include <initializer_list>

#include "pe/pe_file.h"
#include "pe/version_resource.h"
#include "sdb/tags.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/text_buffer.h"

namespace model {

namespace {

namespace tag = sdb::tag;

using tag_set = std::initializer_list<std::uint16_t>;

constexpr std::string_view version_type = "VERSION";
// What claims to be larger is read up to here, which is many times what the lengths in it can tell.
constexpr std::uint64_t largest_version_resource = 0x100000;

void file_under(pe_list& list, const tag_set& tags, pe_property property)
{
    for (const std::uint16_t tag : tags) {
        property.tag = tag;
        list.push_back(property);
    }
}

void add_number(pe_list& list, const char* name, std::uint64_t number, const tag_set& tags)
{
    pe_property property;
    property.name = name;
    property.number = number;
    file_under(list, tags, std::move(property));
}

void add_text(pe_list& list, const char* name, std::string text, std::uint64_t number,
              std::uint16_t tag)
{
    pe_property property;
    property.name = name;
    property.text = std::move(text);
    property.number = number;
    file_under(list, {tag}, std::move(property));
}

void add_header_properties(pe_list& list, const pe::PE_FILE_UTIL& file, const std::string& path)
{
    constexpr std::uint64_t win32 = 3;
    add_text(list, "ModuleType", "Win32", win32, tag::module_type);
    std::string directory;
    std::string name;
    if (uni::split_path(path, directory, name)) {
        add_text(list, "Filename", uni::lowered(name), 0, tag::name);
    }
    const uni::byte_view header = file.optional_header32();
    add_number(list, "CompileTimestamp", file.file_header().u32(4),
               {tag::link_date, tag::upto_link_date, tag::from_link_date});
    add_number(list, "FileSize", file.size(), {tag::size});
    // The image version, since databases match the linker version by it.
    add_number(list, "LinkerVersion", std::uint64_t{header.u16(44)} << 16 | header.u16(46),
               {tag::linker_version});
    add_number(list, "PECheckSum", header.u32(64), {tag::pe_checksum, tag::checksum});
    add_number(list, "OSMajorVersion", header.u16(40),
               {tag::prevosmajorver, tag::from_osmaxversiontested});
    add_number(list, "OSMinorVersion", header.u16(42),
               {tag::prevosminorver, tag::upto_osmaxversiontested});
}

// Takes an entry out of the map.
bool take_entry(pe::version_map& map, const char* key, pe::version_value& entry)
{
    auto node = map.extract(key);
    if (node.empty()) {
        return false;
    }
    entry = std::move(node.mapped());
    return true;
}

void add_fixed_values(pe_list& list, pe::version_map& map)
{
    struct fixed_row {
        const char* key;
        tag_set tags;
    };
    static const fixed_row rows[] = {
        {"fileos", {tag::verfileos}},
        {"filetype", {tag::verfiletype}},
        {"fileversion",
         {tag::file_version, tag::bin_file_version, tag::upto_bin_file_version,
          tag::from_bin_file_version}},
        {"productversion",
         {tag::product_version, tag::bin_product_version, tag::upto_bin_product_version,
          tag::from_bin_product_version}},
    };
    pe::version_value entry;
    for (const fixed_row& row : rows) {
        if (take_entry(map, row.key, entry)) {
            pe_property property;
            property.name = row.key;
            property.text = std::move(entry.text);
            property.number = entry.number;
            file_under(list, row.tags, std::move(property));
        }
    }
}

// Only one that stands outside of VarFileInfo has this key; the others have that of their block.
void add_translation(pe_list& list, pe::version_map& map)
{
    constexpr const char* key = "translation";
    pe::version_value entry;
    if (!take_entry(map, key, entry)) {
        return;
    }
    uni::text_buffer text;
    text.literal("0x");
    text.hex(entry.number, 4);
    pe_property property;
    property.name = key;
    property.text = text.view();
    property.number = entry.number & 0xffff;
    property.sub_tag = static_cast<std::uint16_t>(entry.number);
    file_under(list, {tag::langid, tag::ver_language}, std::move(property));
}

void add_strings(pe_list& list, const pe::version_map& map)
{
    struct word_row {
        std::string_view word;
        std::uint16_t tag;
    };
    static constexpr word_row rows[] = {
        {"company", tag::company_name},
        {"description", tag::file_description},
        {"internalname", tag::internal_name},
        {"copyright", tag::legal_copyright},
        {"originalfilename", tag::original_filename},
        {"productname", tag::product_name},
    };
    for (const auto& [key, entry] : map) {
        if (key.find("stringfile_info") != std::string::npos) {
            continue;
        }
        const auto holds_word = [&key = key](const word_row& row) {
            return key.find(row.word) != std::string::npos;
        };
        const auto row = std::find_if(std::begin(rows), std::end(rows), holds_word);
        if (row != std::end(rows)) {
            pe_property property;
            property.name = key;
            property.text = entry.text;
            property.number = entry.number;
            property.sub_tag = static_cast<std::uint16_t>(entry.language);
            file_under(list, {row->tag}, std::move(property));
        }
    }
}

bool is_version(pe::PE_FILE_UTIL& file, const pe::pe_resource& resource)
{
    return file.resource_name(resource).find(version_type) != std::string::npos &&
           file.contains(resource.offset, resource.size) &&
           pe::is_version_resource(file.peek(
               resource.offset, std::min<std::uint64_t>(resource.size, pe::version_head)));
}

// The bytes of the first version resource; empty if there is none. Any resource may have the word in
// its name: themes do in front of it.
io::byte_vector read_version_resource(pe::PE_FILE_UTIL& file)
{
    io::byte_vector bytes;
    for (const pe::pe_resource& resource : file.resources()) {
        if (is_version(file, resource)) {
            file.read_into(bytes, std::min<std::uint64_t>(resource.size, largest_version_resource),
                           resource.offset);
            break;
        }
    }
    return bytes;
}

} // namespace

const pe_property* find_property(const pe_list& list, std::uint16_t tag)
{
    const auto found = std::ranges::lower_bound(list, tag, {}, &pe_property::tag);
    return found == list.end() || found->tag != tag ? nullptr : &*found;
}

pe_outcome read_pe_stats(pe_list& list, std::unique_ptr<io::byte_source> source,
                         const std::string& path, std::unique_ptr<io::byte_source>* read_from)
{
    pe::PE_FILE_UTIL file(std::move(source));
    list.clear();
    if (!file.valid()) {
        return file.has_failed() ? pe_outcome::unreadable : pe_outcome::no_program;
    }
    add_header_properties(list, file, path);
    const io::byte_vector bytes = read_version_resource(file);
    pe::version_map map;
    if (pe::decode_version_resource(map, uni::byte_view(bytes))) {
        add_fixed_values(list, map);
        add_translation(list, map);
        add_strings(list, map);
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const pe_property& a, const pe_property& b) { return a.tag < b.tag; });
    if (file.has_failed()) {
        list.clear();
        return pe_outcome::unreadable;
    }
    const bool has_changed = file.has_changed();
    if (read_from != nullptr) {
        *read_from = file.take_source();
    }
    return has_changed ? pe_outcome::changed : pe_outcome::gathered;
}

} // namespace model
