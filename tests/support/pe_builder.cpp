#include "support/pe_builder.h"

#include <algorithm>

namespace test_support {

namespace {

// Writes a directory or leaf and gives its place, with the mark of a directory.
std::uint32_t write_node(bytes& out, const resource_node& node, std::uint32_t virtual_address)
{
    align(out, 4);
    const auto place = static_cast<std::uint32_t>(out.size());
    if (node.entries.empty()) {
        put(out, {{place, virtual_address + place + 16, 4}, {place + 4, node.data.size(), 8}});
        put(out, place + 16, node.data);
        return place;
    }
    const auto named = static_cast<std::size_t>(std::ranges::count_if(
        node.entries, [](const resource_node& entry) { return !entry.name.empty(); }));
    put(out, {{place + 12, named, 2}, {place + 14, node.entries.size() - named, 2}});
    out.resize(place + 16 + node.entries.size() * 8);
    for (std::size_t i = 0; i < node.entries.size(); ++i) {
        const resource_node& entry = node.entries[i];
        std::uint32_t name = entry.id;
        if (!entry.name.empty()) {
            name = static_cast<std::uint32_t>(out.size()) | 0x80000000;
            append(out, entry.name.size(), 2);
            append(out, entry.name);
        }
        put(out, place + 16 + i * 8, name, 4);
        put(out, place + 20 + i * 8, write_node(out, entry, virtual_address), 4);
    }
    return place | 0x80000000;
}

bytes block_of(std::u16string_view key, std::size_t value_length, unsigned type, const bytes& value,
               const std::vector<bytes>& children)
{
    bytes out;
    put(out, {{2, value_length, 2}, {4, type, 2}});
    append(out, key);
    append(out, 0, 2);
    if (!value.empty() || !children.empty()) {
        align(out, 4);
    }
    append(out, value);
    for (const bytes& child : children) {
        align(out, 4);
        append(out, child);
    }
    put(out, 0, out.size(), 2);
    return out;
}

} // namespace

bytes pe_plan::build() const
{
    const std::size_t header = pe_offset + 24;
    bytes out;
    put(out, 0, "MZ");
    put(out, pe_offset, "PE");
    put(out, {{60, pe_offset, 4},
              {pe_offset + 6u, sections.size(), 2},
              {pe_offset + 8u, time_stamp, 4},
              {pe_offset + 20u, optional_size, 2},
              {header, is_64 ? 0x20bu : 0x10bu, 2},
              {header + 16, entry_rva, 4},
              {header + (is_64 ? 24 : 28), image_base, is_64 ? 8u : 4u},
              {header + 40, 0x30006, 4}, // version of the system
              {header + 44, image_version[0], 2},
              {header + 46, image_version[1], 2},
              {header + 64, checksum, 4}});
    std::size_t row = header + (is_64 ? 240 : 224);
    for (const pe_section_plan& section : sections) {
        put(out, row, std::string_view(section.name));
        put(out, {{row + 8, section.virtual_size, 4},
                  {row + 12, section.virtual_address, 4},
                  {row + 16, section.raw_size, 4},
                  {row + 20, section.raw_offset, 4}});
        if (!section.contents.empty()) {
            put(out, section.raw_offset, section.contents);
        }
        row += 40;
    }
    out.resize(file_size); // which may cut it short
    return out;
}

resource_node lone_resource(std::uint32_t type, bytes data)
{
    resource_node leaf{.id = 0x409, .data = std::move(data)};
    resource_node name{.id = 1, .entries = {std::move(leaf)}};
    return {.entries = {{.id = type, .entries = {std::move(name)}}}};
}

bytes version_block(std::u16string_view key, const bytes& value, const std::vector<bytes>& children)
{
    return block_of(key, value.size(), 0, value, children);
}

bytes version_text(std::u16string_view key, std::u16string_view text)
{
    bytes value;
    append(value, text);
    append(value, 0, 2);
    return block_of(key, text.size() + 1, 1, value, {});
}

bytes fixed_version(std::uint32_t flags, std::uint32_t os, std::uint32_t type,
                    std::uint32_t subtype)
{
    bytes out;
    for (const std::uint32_t word : {0xfeef04bdu, 0x10002u, 0x10002u, 0x3ffffu, 0x40005u, 0x60007u,
                                     0x3fu, flags, os, type, subtype, 0x1d00000u, 0x2345u}) {
        append(out, word, 4);
    }
    return out;
}

pe_plan pe_with_resources(const resource_node& root)
{
    constexpr std::uint32_t place = 1024;
    constexpr std::uint32_t address = 0x5000;
    bytes tree;
    write_node(tree, root, address);
    const auto size = static_cast<std::uint32_t>(tree.size());
    pe_plan plan;
    plan.sections = {{".rsrc", place, size, address, size, tree}};
    plan.file_size = place + tree.size();
    return plan;
}

bytes sample_program(bool is_64)
{
    const bytes english =
        version_block(u"040904b0", {},
                      {version_text(u"CompanyName", u"Acme, Inc."),
                       version_text(u"FileDescription", u"Caf\u00e9 \u8a08"),
                       version_text(u"InternalName", u"tool"),
                       version_text(u"LegalCopyright", u"\u00a9 Acme\r\nAll of it"),
                       version_text(u"OriginalFilename", u"Tool.exe"),
                       version_text(u"ProductName", u"Tools"), version_text(u"Comments", u"")});
    const bytes german = version_block(
        u"040704E4", {},
        {version_text(u"CompanyName", u"Akme GmbH"), version_text(u"ProductName", u"Werkzeug")});
    const bytes resource = version_block(
        u"VS_VERSION_INFO", fixed_version(3, 0x40004, 1, 0),
        {version_block(u"StringFileInfo", {}, {english, german}),
         version_block(u"VarFileInfo", {},
                       {version_block(u"Translation", {9, 4, 0xb0, 4, 7, 4, 0xe4, 4}, {})})});
    pe_plan plan = pe_with_resources(lone_resource(16, resource));
    plan.is_64 = is_64;
    return plan.build();
}

} // namespace test_support
