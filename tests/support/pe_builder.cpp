#include "support/pe_builder.h"

#include <algorithm>

namespace test_support {

namespace {

template <typename number>
void put(bytes& out, std::size_t at, number value)
{
    if (out.size() < at + sizeof(number)) {
        return; // a file cut short
    }
    for (std::size_t i = 0; i < sizeof(number); ++i) {
        out[at + i] = static_cast<std::uint8_t>(std::uint64_t{value} >> (8 * i));
    }
}

template <typename number>
void append(bytes& out, number value)
{
    out.resize(out.size() + sizeof(number));
    put(out, out.size() - sizeof(number), value);
}

void append_units(bytes& out, std::u16string_view text)
{
    for (const char16_t unit : text) {
        append(out, static_cast<std::uint16_t>(unit));
    }
}

void align(bytes& out)
{
    out.resize((out.size() + 3) / 4 * 4);
}

void put_bytes(bytes& out, std::size_t at, const bytes& contents)
{
    for (std::size_t i = 0; i < contents.size(); ++i) {
        put(out, at + i, contents[i]);
    }
}

// Writes a directory or leaf and gives its place, with the mark of a directory.
std::uint32_t write_node(bytes& out, const resource_node& node, std::uint32_t virtual_address)
{
    align(out);
    const auto place = static_cast<std::uint32_t>(out.size());
    if (node.entries.empty()) {
        append(out, virtual_address + place + 16);
        append(out, static_cast<std::uint32_t>(node.data.size()));
        out.resize(out.size() + 8);
        out.insert(out.end(), node.data.begin(), node.data.end());
        return place;
    }
    const auto named = std::ranges::count_if(
        node.entries, [](const resource_node& entry) { return !entry.name.empty(); });
    out.resize(out.size() + 16 + node.entries.size() * 8);
    put(out, place + 12, static_cast<std::uint16_t>(named));
    put(out, place + 14,
        static_cast<std::uint16_t>(node.entries.size() - static_cast<std::size_t>(named)));
    for (std::size_t i = 0; i < node.entries.size(); ++i) {
        const resource_node& entry = node.entries[i];
        std::uint32_t name = entry.id;
        if (!entry.name.empty()) {
            name = static_cast<std::uint32_t>(out.size()) | 0x80000000;
            append(out, static_cast<std::uint16_t>(entry.name.size()));
            append_units(out, entry.name);
        }
        put(out, place + 16 + i * 8, name);
        put(out, place + 20 + i * 8, write_node(out, entry, virtual_address));
    }
    return place | 0x80000000;
}

bytes block_of(std::u16string_view key, std::uint16_t value_length, std::uint16_t type,
               const bytes& value, const std::vector<bytes>& children)
{
    bytes out;
    append(out, std::uint16_t{0});
    append(out, value_length);
    append(out, type);
    append_units(out, key);
    append(out, std::uint16_t{0});
    if (!value.empty() || !children.empty()) {
        align(out);
    }
    out.insert(out.end(), value.begin(), value.end());
    for (const bytes& child : children) {
        align(out);
        out.insert(out.end(), child.begin(), child.end());
    }
    put(out, 0, static_cast<std::uint16_t>(out.size()));
    return out;
}

} // namespace

bytes pe_plan::build() const
{
    bytes out(file_size);
    put(out, 0, std::uint16_t{0x5a4d});
    put(out, 60, pe_offset);
    put(out, pe_offset, std::uint32_t{0x4550});
    put(out, pe_offset + 6, static_cast<std::uint16_t>(sections.size()));
    put(out, pe_offset + 8, time_stamp);
    put(out, pe_offset + 20, optional_size);
    const std::size_t header = pe_offset + 24;
    put(out, header, static_cast<std::uint16_t>(is_64 ? 0x20b : 0x10b));
    put(out, header + 16, entry_rva);
    if (is_64) {
        put(out, header + 24, image_base);
    } else {
        put(out, header + 28, static_cast<std::uint32_t>(image_base));
    }
    for (std::size_t i = 0; i < 2; ++i) {
        put(out, header + 40 + i * 2, os_version[i]);
        put(out, header + 44 + i * 2, image_version[i]);
        put(out, header + (is_64 ? 112 : 96) + 4 * 8 + i * 4, certificate[i]);
        put(out, header + (is_64 ? 112 : 96) + 11 * 8 + i * 4, bound_import[i]);
    }
    put(out, header + 64, checksum);
    std::size_t row = header + (is_64 ? 240 : 224);
    for (const pe_section_plan& section : sections) {
        put_bytes(out, row, bytes(section.name.begin(), section.name.end()));
        put(out, row + 8, section.virtual_size);
        put(out, row + 12, section.virtual_address);
        put(out, row + 16, section.raw_size);
        put(out, row + 20, section.raw_offset);
        put_bytes(out, section.raw_offset, section.contents);
        row += 40;
    }
    return out;
}

bytes resource_tree(const resource_node& root, std::uint32_t virtual_address)
{
    bytes out;
    write_node(out, root, virtual_address);
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
    return block_of(key, static_cast<std::uint16_t>(value.size()), 0, value, children);
}

bytes version_text(std::u16string_view key, std::u16string_view text)
{
    bytes value;
    append_units(value, text);
    append(value, std::uint16_t{0});
    return block_of(key, static_cast<std::uint16_t>(text.size() + 1), 1, value, {});
}

bytes fixed_version(std::uint32_t flags, std::uint32_t os, std::uint32_t type,
                    std::uint32_t subtype)
{
    bytes out;
    for (const std::uint32_t word : {0xfeef04bdu, 0x10002u, 0x10002u, 0x3ffffu, 0x40005u, 0x60007u,
                                     0x3fu, flags, os, type, subtype, 0x1d00000u, 0x2345u}) {
        append(out, word);
    }
    return out;
}

pe_plan pe_with_resources(const resource_node& root)
{
    constexpr std::uint32_t place = 1024;
    constexpr std::uint32_t address = 0x5000;
    const bytes tree = resource_tree(root, address);
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
