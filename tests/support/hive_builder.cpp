#include "support/hive_builder.h"

#include <algorithm>
#include <array>
#include <span>

#include "uni/byte_view.h"

namespace test_support {

namespace {

constexpr std::size_t page = 4096;
constexpr std::size_t segment_size = 16344;

bytes words(std::string_view mark, std::initializer_list<std::uint32_t> numbers)
{
    bytes out;
    append(out, mark);
    for (const std::uint32_t number : numbers) {
        append(out, number, 4);
    }
    return out;
}

bytes stored_name(const std::string& name)
{
    const bool plain = std::all_of(name.begin(), name.end(), [](char c) { return c > 0; });
    return plain ? bytes(name.begin(), name.end()) : utf16_bytes(name);
}

std::uint32_t name_hash(const std::string& name)
{
    std::uint32_t hash = 0;
    for (const char c : name) {
        hash = hash * 37 + static_cast<std::uint8_t>(c >= 'a' && c <= 'z' ? c - 32 : c);
    }
    return hash;
}

std::string below(const std::string& path, const std::string& name)
{
    return path.empty() ? name : path + "\\" + name;
}

} // namespace

hive_value text_value(std::string name, std::string_view text)
{
    hive_value value{std::move(name), 1, utf16_bytes(text)};
    append(value.data, 0, 2);
    return value;
}

hive_value number_value(std::string name, std::uint64_t number, unsigned width)
{
    hive_value value{std::move(name), width == 4 ? 4u : 11u, {}};
    append(value.data, number, width);
    return value;
}

hive_key software_hive(std::vector<hive_key> databases, list_kind list)
{
    hive_key key{.name = "InstalledSDB", .subkeys = std::move(databases), .list = list};
    for (const char* const name : {"AppCompatFlags", "CurrentVersion", "Windows NT", "Microsoft"}) {
        key = {.name = name, .subkeys = {std::move(key)}};
    }
    return {.name = "root", .subkeys = {{.name = "Classes"}, std::move(key)}};
}

hive_key installed_database(std::string name, std::string_view path, std::string_view description,
                            std::uint64_t install_time, std::uint32_t type)
{
    return {.name = std::move(name),
            .values = {text_value("DatabasePath", path), dword_value("DatabaseType", type),
                       text_value("DatabaseDescription", description),
                       number_value("DatabaseInstallTimeStamp", install_time, 8)}};
}

std::uint32_t hive_builder::cell(std::string_view kind, std::string_view path) const
{
    return cells_.at(std::string(kind) + ":" + std::string(path));
}

void hive_builder::close_bin()
{
    if (const std::size_t rest = bin_end_ - image_.size(); rest != 0) {
        append(image_, rest, 4);
        image_.resize(bin_end_);
    }
}

std::uint32_t hive_builder::add_cell(const bytes& contents)
{
    constexpr std::size_t bin_head = 32;
    const std::size_t size = (contents.size() + 4 + 7) / 8 * 8;
    if (image_.size() + size > bin_end_) {
        close_bin();
        const std::size_t begin = image_.size();
        const std::size_t bin = (bin_head + size + page - 1) / page * page;
        append(image_, words("hbin", {reference(begin), static_cast<std::uint32_t>(bin)}));
        image_.resize(begin + bin_head);
        bin_end_ = begin + bin;
    }
    const std::size_t begin = image_.size();
    append(image_, 0 - size, 4);
    append(image_, contents);
    image_.resize(begin + size);
    return static_cast<std::uint32_t>(begin);
}

std::uint32_t hive_builder::add_data(const bytes& data)
{
    if (data.size() <= segment_size) {
        return add_cell(data);
    }
    bytes list;
    std::uint16_t count = 0;
    for (std::size_t at = 0; at < data.size(); at += segment_size, ++count) {
        const auto piece = std::span(data).subspan(at, std::min(segment_size, data.size() - at));
        append(list, reference(add_cell({piece.begin(), piece.end()})), 4);
    }
    bytes head = {'d', 'b'};
    append(head, count, 2);
    append(head, reference(add_cell(list)), 4);
    return add_cell(head);
}

std::uint32_t hive_builder::add_value(const hive_value& value, const std::string& path)
{
    const bytes name = stored_name(value.name);
    const bool is_utf16 = name.size() != value.name.size();
    bytes cell = {'v', 'k'};
    put(cell, {{2, name.size(), 2}, {12, value.type, 4}, {16, is_utf16 ? 0u : 1u, 4}});
    if (value.data.size() <= 4) {
        put(cell, 4, 0x80000000 + value.data.size(), 4);
        put(cell, 8, value.data);
    } else {
        const std::uint32_t data = cells_["data:" + path] = add_data(value.data);
        put(cell, {{4, value.data.size(), 4}, {8, reference(data), 4}});
    }
    append(cell, name);
    return cells_["vk:" + path] = add_cell(cell);
}

std::uint32_t hive_builder::add_plain_list(std::string_view mark, const hive_key& key,
                                           std::size_t first,
                                           const std::vector<std::uint32_t>& cells)
{
    bytes list;
    append(list, mark);
    append(list, cells.size(), 2);
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string& name = key.subkeys[first + i].name;
        append(list, reference(cells[i]), 4);
        if (mark == "lh") {
            append(list, name_hash(name), 4);
        } else if (mark == "lf") {
            append(list, (name + std::string(4, '\0')).substr(0, 4));
        }
    }
    return add_cell(list);
}

std::uint32_t hive_builder::add_list(const hive_key& key, const std::string& path,
                                     const std::vector<std::uint32_t>& cells)
{
    static constexpr auto marks = std::to_array<std::string_view>({"lf", "lh", "li", "lh", "li"});
    constexpr std::size_t part_size = 2;
    const std::string_view mark = marks[static_cast<std::size_t>(key.list)];
    if (key.list != list_kind::ri_lh && key.list != list_kind::ri_li) {
        return add_plain_list(mark, key, 0, cells);
    }
    bytes parts;
    std::uint16_t count = 0;
    for (std::size_t at = 0; at < cells.size(); at += part_size, ++count) {
        const auto part = std::span(cells).subspan(at, std::min(part_size, cells.size() - at));
        const std::uint32_t cell = add_plain_list(mark, key, at, {part.begin(), part.end()});
        cells_["part" + std::to_string(count) + ":" + path] = cell;
        append(parts, reference(cell), 4);
    }
    bytes list = {'r', 'i'};
    append(list, count, 2);
    append(list, parts);
    return add_cell(list);
}

std::uint32_t hive_builder::add_key(const hive_key& key, const std::string& path,
                                    std::uint32_t parent)
{
    constexpr std::uint32_t none = 0xffffffff;
    bytes head = {'n', 'k'};
    append(head, path.empty() ? 0x2c : 0x20, 2);
    append(head, key.last_write, 8);
    append(head, words("", {0, parent, 0, 0, none, none, 0, none, security_, none}));
    head.resize(72);
    append(head, key.name.size(), 4);
    append(head, key.name);
    const std::uint32_t cell = cells_["nk:" + path] = add_cell(head);

    bytes values;
    for (const hive_value& value : key.values) {
        append(values, reference(add_value(value, below(path, value.name))), 4);
    }
    if (!values.empty()) {
        put(image_, cell + 40, key.values.size(), 4);
        const std::uint32_t list = cells_["values:" + path] = add_cell(values);
        put(image_, cell + 44, reference(list), 4);
    }
    std::vector<std::uint32_t> subkeys;
    for (const hive_key& subkey : key.subkeys) {
        subkeys.push_back(add_key(subkey, below(path, subkey.name), reference(cell)));
    }
    if (!subkeys.empty()) {
        put(image_, cell + 24, subkeys.size(), 4);
        const std::uint32_t list = cells_["list:" + path] = add_list(key, path, subkeys);
        put(image_, cell + 32, reference(list), 4);
    }
    return cell;
}

bytes hive_builder::build(const hive_key& root, std::string_view name)
{
    constexpr std::size_t checksum_at = 508;
    *this = {};
    image_ = words("regf", {1, 1, 0, 0x1d4f54c, 1, 5, 0, 1, 0, 0, 1});
    append(image_, utf16_bytes(name));
    image_.resize(page);
    bin_end_ = image_.size();
    security_ = reference(
        add_cell(words(std::string_view("sk\0\0", 4), {32, 32, 1, 20, 0x80040001, 0, 0, 0, 0})));
    const std::uint32_t root_cell = add_key(root, "", 1);
    close_bin();
    put(image_, 36, reference(root_cell), 4);
    put(image_, 40, image_.size() - page, 4);
    std::uint32_t checksum = 0;
    for (std::size_t at = 0; at < checksum_at; at += 4) {
        checksum ^= uni::byte_view(image_).u32(at);
    }
    put(image_, checksum_at, checksum, 4);
    return image_;
}

} // namespace test_support
