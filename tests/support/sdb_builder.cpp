#include "support/sdb_builder.h"

#include <zlib.h>

#include <chrono>
#include <limits>
#include <stdexcept>

#include "uni/guid.h"
#include "uni/utf.h"

namespace test_support {
namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::uint32_t plain_magic = 0x66626473;
constexpr std::uint32_t compressed_magic = 0x6662647a;
constexpr std::uint32_t tag_head = 6; // tag word and size word
constexpr std::uint32_t patch_head = 84;
constexpr std::uint32_t nowhere = std::numeric_limits<std::uint32_t>::max();

[[noreturn]] void misuse(const std::string& what)
{
    throw std::logic_error("sdb_builder: " + what);
}

std::uint32_t size32(std::size_t size)
{
    if (size > std::numeric_limits<std::uint32_t>::max()) {
        misuse("larger than 32 bits can tell");
    }
    return static_cast<std::uint32_t>(size);
}

bytes encoded(std::uint16_t tag, std::uint64_t value, unsigned width)
{
    bytes out;
    append(out, tag, 2);
    append(out, value, width);
    return out;
}

void require_type(std::uint16_t tag, std::uint16_t wanted)
{
    if ((tag & 0xf000U) != wanted) {
        misuse("tag of another type");
    }
}

} // namespace

bytes patch_bytes(const std::vector<patch_op>& operations)
{
    bytes out;
    for (const patch_op& operation : operations) {
        const std::uint32_t size = size32(operation.data.size());
        bytes head(patch_head);
        put(head, {{0, operation.opcode, 4},
                   {4, operation.next_size.value_or(patch_head + size), 4},
                   {8, operation.data_size.value_or(size), 4},
                   {12, operation.address, 4},
                   {16, operation.reserved, 4}});
        put(head, 20, utf16_bytes(operation.module_name));
        append(out, head);
        append(out, operation.data);
    }
    return out;
}

std::uint64_t filetime(int year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                       unsigned second)
{
    constexpr std::uint64_t days_from_1601_to_1970 = 134'774;
    const std::chrono::sys_days date =
        std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    const auto days =
        days_from_1601_to_1970 + static_cast<std::uint64_t>(date.time_since_epoch().count());
    return (days * 86'400 + hour * 3600 + minute * 60 + second) * 10'000'000;
}

std::uint64_t index_key(std::string_view text)
{
    std::uint64_t key = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        const char c = i < text.size() ? text[i] : '\0';
        key = key << 8 | static_cast<std::uint8_t>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
    return key;
}

bytes utf16_bytes(std::string_view text)
{
    const std::u16string units = uni::utf16_from_utf8(text);
    if (units.empty() != text.empty()) {
        misuse("malformed UTF-8");
    }
    bytes out;
    append(out, std::u16string_view(units));
    return out;
}

bytes guid_bytes(std::string_view text)
{
    const auto guid = uni::guid_from_text(text).value();
    return {guid.begin(), guid.end()};
}

bytes compress(std::span<const std::uint8_t> image, int level)
{
    constexpr std::size_t head = 20; // version words, magic and eight reserved bytes
    const auto size = static_cast<uLong>(image.size());
    uLongf packed_size = compressBound(size);
    bytes out(image.begin(), image.begin() + 8);
    append(out, compressed_magic, 4);
    out.resize(head + packed_size);
    if (compress2(out.data() + head, &packed_size, image.data(), size, level) != Z_OK) {
        misuse("compression failed");
    }
    out.resize(head + packed_size);
    return out;
}

node sdb_builder::number(std::uint16_t tag, std::uint64_t value, unsigned width)
{
    require_type(tag, width == 0   ? type::null_
                      : width == 1 ? type::byte_
                      : width == 2 ? type::word
                      : width == 4 ? type::dword
                                   : type::qword);
    return raw(encoded(tag, value, width));
}

node sdb_builder::string_ref(std::uint16_t tag, std::uint32_t reference)
{
    require_type(tag, type::stringref);
    return raw(encoded(tag, reference, 4));
}

node sdb_builder::text_units(std::uint16_t tag, std::u16string_view units)
{
    bytes stored;
    append(stored, units);
    return string_ref(tag, add_to_table(stored));
}

node sdb_builder::list(std::uint16_t tag, const std::vector<node>& children)
{
    require_type(tag, type::list);
    const node made = raw(encoded(tag, 0, 4));
    records_.back().children = children;
    records_.back().is_list = true;
    return made;
}

node sdb_builder::list_with_size(std::uint16_t tag, std::uint32_t size,
                                 const std::vector<node>& children)
{
    const node forged = list(tag, children);
    records_.back().forged_size = size;
    return forged;
}

node sdb_builder::string(std::uint16_t tag, std::string_view utf8)
{
    require_type(tag, type::string);
    bytes units = utf16_bytes(utf8);
    append(units, 0, 2);
    return with_size(tag, size32(units.size()), units);
}

node sdb_builder::binary(std::uint16_t tag, const bytes& value)
{
    require_type(tag, type::binary_);
    bytes out = encoded(tag, size32(value.size()), 4);
    append(out, value);
    append(out, 0, value.size() % 2);
    return raw(out);
}

node sdb_builder::index_bits(const std::vector<index_entry>& entries)
{
    bytes out = encoded(tag::index_bits, entries.size() * 12, 4);
    for (const index_entry& entry : entries) {
        append(out, entry.key, 8);
        fixups_.push_back({size32(records_.size()), size32(out.size()), entry.where});
        append(out, 0, 4);
    }
    return raw(out);
}

node sdb_builder::reference(std::uint16_t tag, const target& where)
{
    fixups_.push_back({size32(records_.size()), 2, where});
    return dword(tag, 0);
}

node sdb_builder::label(std::string_view name, node tag)
{
    if (!labels_.emplace(name, tag.id).second) {
        misuse("label given twice: " + std::string(name));
    }
    return tag;
}

node sdb_builder::raw(const bytes& data)
{
    size_of_records_ += data.size();
    records_.push_back({data});
    return {size32(records_.size() - 1)};
}

node sdb_builder::with_size(std::uint16_t tag, std::uint32_t size, const bytes& data)
{
    bytes out = encoded(tag, size, 4);
    append(out, data);
    return raw(out);
}

sdb_builder& sdb_builder::index(std::uint16_t over, std::uint16_t key, std::uint32_t flags,
                                const std::vector<index_entry>& entries)
{
    indexes_.push_back(list(tag::index, {word(tag::index_tag, over), word(tag::index_key, key),
                                         dword(tag::index_flags, flags), index_bits(entries)}));
    return *this;
}

std::uint32_t sdb_builder::add_to_table(const bytes& units)
{
    bytes item = encoded(tag::stringtable_item, units.size() + 2, 4);
    append(item, units);
    append(item, 0, 2);
    return table_bytes(item);
}

std::uint32_t sdb_builder::table_text(std::string_view utf8)
{
    auto found = table_references_.find(utf8);
    if (found == table_references_.end()) {
        const std::uint32_t reference = add_to_table(utf16_bytes(utf8));
        found = table_references_.emplace(utf8, reference).first;
    }
    return found->second;
}

std::uint32_t sdb_builder::table_bytes(const bytes& data)
{
    const auto reference = size32(tag_head + table_.size());
    append(table_, data);
    return reference;
}

std::uint64_t sdb_builder::size_so_far() const noexcept
{
    return 12 + size_of_records_ + (indexes_.empty() ? 0 : tag_head) +
           (has_database_ ? tag_head : 0) + (has_string_table_ ? tag_head + table_.size() : 0);
}

bytes sdb_builder::build()
{
    bytes image;
    image.reserve(size_so_far());
    places_.assign(records_.size(), nowhere);
    put(image, {{0, major_, 4}, {4, minor_, 4}, {8, plain_magic, 4}});
    indexes_offset_ = indexes_.empty() ? 0 : write_root(image, tag::indexes, indexes_);
    write_trees(image, lead_);
    database_offset_ = has_database_ ? write_root(image, tag::database, database_) : 0;
    string_table_offset_ = has_string_table_ ? size32(image.size()) : 0;
    if (has_string_table_) {
        append(image,
               encoded(tag::stringtable, forged_table_size_.value_or(size32(table_.size())), 4));
        append(image, table_);
    }
    write_trees(image, trail_);
    for (const fixup& it : fixups_) {
        if (places_[it.owner] != nowhere) {
            put(image, std::uint64_t{places_[it.owner]} + it.position, offset_of(it.where), 4);
        }
    }
    return image;
}

std::uint32_t sdb_builder::write_root(bytes& image, std::uint16_t tag,
                                      const std::vector<node>& roots)
{
    const auto start = size32(image.size());
    append(image, encoded(tag, 0, 4));
    write_trees(image, roots);
    put(image, start + 2, size32(image.size()) - start - tag_head, 4);
    return start;
}

// Not recursive, since tests nest lists deeper than a stack goes.
void sdb_builder::write_trees(bytes& image, const std::vector<node>& roots)
{
    std::vector<std::pair<node, std::size_t>> open; // and the next child
    const auto start = [&](node tag) {
        const record& it = records_.at(tag.id);
        if (std::exchange(places_[tag.id], size32(image.size())) != nowhere) {
            misuse("a node stands twice");
        }
        append(image, it.contents);
        if (it.is_list) {
            open.emplace_back(tag, 0);
        }
    };
    for (const node root : roots) {
        start(root);
        while (!open.empty()) {
            const auto [tag, next] = open.back();
            const record& it = records_[tag.id];
            if (next < it.children.size()) {
                ++open.back().second;
                start(it.children[next]);
                continue;
            }
            const std::uint32_t place = places_[tag.id];
            const std::uint32_t size = size32(image.size()) - place - tag_head;
            put(image, place + 2, it.forged_size.value_or(size), 4);
            open.pop_back();
        }
    }
}

std::uint32_t sdb_builder::offset_of(const target& tag) const
{
    if (const auto* const offset = std::get_if<std::uint32_t>(&tag)) {
        return *offset;
    }
    const auto* const label = std::get_if<std::string>(&tag);
    const std::uint32_t id = label ? labels_.at(*label) : std::get<node>(tag).id;
    if (id >= places_.size() || places_[id] == nowhere) {
        misuse("a reference to a tag that stands nowhere");
    }
    return places_[id];
}

} // namespace test_support
