#include "support/sdb_builder.h"

#include <zlib.h>

#include <chrono>
#include <limits>
#include <stdexcept>

#include "sdb/tags.h"

namespace test_support {
namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::uint32_t plain_magic = 0x66626473;
constexpr std::uint32_t compressed_magic = 0x6662647a;
constexpr std::uint32_t tag_head = 6; // tag word and size word
constexpr std::uint32_t module_name_bytes = 64;
constexpr std::uint32_t patch_head = 84;
constexpr std::uint32_t nowhere = std::numeric_limits<std::uint32_t>::max();

[[noreturn]] void misuse(const std::string& what)
{
    throw std::logic_error("sdb_builder: " + what);
}

void put(bytes& out, std::uint64_t value, unsigned width)
{
    for (unsigned i = 0; i < width; ++i) {
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
}

void put16(bytes& out, std::uint16_t value)
{
    put(out, value, 2);
}
void put32(bytes& out, std::uint32_t value)
{
    put(out, value, 4);
}
void put64(bytes& out, std::uint64_t value)
{
    put(out, value, 8);
}

void put_bytes(bytes& out, std::span<const std::uint8_t> data)
{
    out.insert(out.end(), data.begin(), data.end());
}

void set32(bytes& out, std::size_t position, std::uint32_t value)
{
    for (unsigned i = 0; i < 4; ++i) {
        out[position + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

std::uint32_t size32(std::size_t size)
{
    if (size > std::numeric_limits<std::uint32_t>::max()) {
        misuse("larger than 32 bits can tell");
    }
    return static_cast<std::uint32_t>(size);
}

// Code point at `position`, which moves behind it.
char32_t next_code_point(std::string_view text, std::size_t& position)
{
    const auto first = static_cast<std::uint8_t>(text[position++]);
    if (first < 0x80) {
        return first;
    }
    const unsigned more = first >= 0xf0 ? 3 : first >= 0xe0 ? 2 : 1;
    if (first < 0xc2 || first > 0xf4 || text.size() - position < more) {
        misuse("malformed UTF-8");
    }
    char32_t code = first & (0x3fU >> more);
    for (unsigned i = 0; i < more; ++i) {
        const auto next = static_cast<std::uint8_t>(text[position++]);
        if ((next & 0xc0U) != 0x80) {
            misuse("malformed UTF-8");
        }
        code = (code << 6) | (next & 0x3fU);
    }
    return code;
}

void put_utf16(bytes& out, std::string_view text)
{
    for (std::size_t position = 0; position < text.size();) {
        const char32_t code = next_code_point(text, position);
        if (code < 0x10000) {
            put(out, code, 2);
        } else {
            put(out, 0xd800 + ((code - 0x10000) >> 10), 2);
            put(out, 0xdc00 + ((code - 0x10000) & 0x3ff), 2);
        }
    }
}

bytes terminated_units(std::u16string_view units)
{
    bytes out;
    for (const char16_t unit : units) {
        put16(out, unit);
    }
    put16(out, 0);
    return out;
}

void require_type(std::uint16_t tag, std::uint16_t wanted)
{
    if ((tag & 0xf000U) != wanted) {
        misuse("tag of another type");
    }
}

std::uint8_t hex_digit(char c)
{
    if (c >= '0' && c <= '9') {
        return static_cast<std::uint8_t>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<std::uint8_t>(c - 'a' + 10);
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<std::uint8_t>(c - 'A' + 10);
    }
    misuse("malformed GUID");
}

void put_patch_op(bytes& out, const patch_op& operation)
{
    const std::uint32_t data_size = size32(operation.data.size());
    put32(out, operation.opcode);
    put32(out, operation.next_size.value_or(patch_head + data_size));
    put32(out, operation.data_size.value_or(data_size));
    put32(out, operation.address);
    put32(out, operation.reserved);
    bytes name = utf16_bytes(operation.module_name);
    if (name.size() > module_name_bytes) {
        misuse("module name of more than 32 units");
    }
    name.resize(module_name_bytes);
    put_bytes(out, name);
    put_bytes(out, operation.data);
}

} // namespace

// ---- values --------------------------------------------------------------------------------

patch_op match_op(std::string_view module_name, std::uint32_t address, bytes data)
{
    return {4, std::string(module_name), address, std::move(data)};
}

patch_op replace_op(std::string_view module_name, std::uint32_t address, bytes data)
{
    return {2, std::string(module_name), address, std::move(data)};
}

bytes patch_bytes(const std::vector<patch_op>& operations)
{
    bytes out;
    for (const patch_op& operation : operations) {
        put_patch_op(out, operation);
    }
    return out;
}

std::uint64_t version_quad(std::uint16_t a, std::uint16_t b, std::uint16_t c, std::uint16_t d)
{
    return std::uint64_t{a} << 48 | std::uint64_t{b} << 32 | std::uint64_t{c} << 16 | d;
}

std::uint32_t unix_time(int year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                        unsigned second)
{
    using std::chrono::sys_days;
    const sys_days date =
        std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    const auto days = static_cast<std::uint32_t>(date.time_since_epoch().count());
    return days * 86'400 + hour * 3600 + minute * 60 + second;
}

std::uint64_t filetime(int year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                       unsigned second)
{
    constexpr std::uint64_t seconds_from_1601_to_1970 = 11644473600;
    const std::uint64_t seconds = unix_time(year, month, day, hour, minute, second);
    return (seconds + seconds_from_1601_to_1970) * 10'000'000;
}

std::uint64_t index_key(std::string_view text)
{
    std::uint64_t key = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        const char c = i < text.size() ? text[i] : '\0';
        const char capital = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        key = key << 8 | static_cast<std::uint8_t>(capital);
    }
    return key;
}

bytes utf16_bytes(std::string_view text)
{
    bytes out;
    put_utf16(out, text);
    return out;
}

bytes guid_bytes(std::string_view text)
{
    // The first three groups are numbers and stored little-endian, the rest are bytes.
    constexpr std::size_t digits_of_byte[16] = {6,  4,  2,  0,  11, 9,  16, 14,
                                                19, 21, 24, 26, 28, 30, 32, 34};
    if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' ||
        text[23] != '-') {
        misuse("malformed GUID");
    }
    bytes out;
    for (const std::size_t digits : digits_of_byte) {
        out.push_back(
            static_cast<std::uint8_t>(hex_digit(text[digits]) << 4 | hex_digit(text[digits + 1])));
    }
    return out;
}

bytes compress(std::span<const std::uint8_t> image, int level)
{
    if (image.size() < 12) {
        misuse("no header to compress");
    }
    uLongf packed_size = compressBound(static_cast<uLong>(image.size()));
    bytes packed(packed_size);
    if (compress2(packed.data(), &packed_size, image.data(), static_cast<uLong>(image.size()),
                  level) != Z_OK) {
        misuse("compression failed");
    }
    packed.resize(packed_size);
    bytes out(image.begin(), image.begin() + 8);
    put32(out, compressed_magic);
    put64(out, 0);
    put_bytes(out, packed);
    return out;
}

// ---- tags ----------------------------------------------------------------------------------

sdb_builder& sdb_builder::version(std::uint32_t major, std::uint32_t minor)
{
    major_ = major;
    minor_ = minor;
    return *this;
}

node sdb_builder::add_record(record what)
{
    const auto id = size32(records_.size());
    records_.push_back(what);
    return {id};
}

node sdb_builder::begin_leaf(std::uint16_t tag)
{
    record leaf;
    leaf.tag = tag;
    leaf.first = size32(arena_.size());
    put16(arena_, tag);
    return add_record(leaf);
}

node sdb_builder::end_leaf(node leaf)
{
    record& it = records_[leaf.id];
    it.count = size32(arena_.size() - it.first);
    return leaf;
}

node sdb_builder::null(std::uint16_t tag)
{
    require_type(tag, type::null_);
    return end_leaf(begin_leaf(tag));
}

node sdb_builder::byte(std::uint16_t tag, std::uint8_t value)
{
    require_type(tag, type::byte_);
    const node leaf = begin_leaf(tag);
    put(arena_, value, 1);
    return end_leaf(leaf);
}

node sdb_builder::word(std::uint16_t tag, std::uint16_t value)
{
    require_type(tag, type::word);
    const node leaf = begin_leaf(tag);
    put16(arena_, value);
    return end_leaf(leaf);
}

node sdb_builder::dword(std::uint16_t tag, std::uint32_t value)
{
    require_type(tag, type::dword);
    const node leaf = begin_leaf(tag);
    put32(arena_, value);
    return end_leaf(leaf);
}

node sdb_builder::qword(std::uint16_t tag, std::uint64_t value)
{
    require_type(tag, type::qword);
    const node leaf = begin_leaf(tag);
    put64(arena_, value);
    return end_leaf(leaf);
}

node sdb_builder::text(std::uint16_t tag, std::string_view utf8)
{
    return string_ref(tag, table_text(utf8));
}

node sdb_builder::text_units(std::uint16_t tag, std::u16string_view units)
{
    return string_ref(tag, add_to_table(terminated_units(units)));
}

node sdb_builder::string_ref(std::uint16_t tag, std::uint32_t reference)
{
    require_type(tag, type::stringref);
    const node leaf = begin_leaf(tag);
    put32(arena_, reference);
    return end_leaf(leaf);
}

node sdb_builder::list(std::uint16_t tag, std::initializer_list<node> children)
{
    return list(tag, std::span<const node>(children.begin(), children.size()));
}

node sdb_builder::list(std::uint16_t tag, std::span<const node> children)
{
    require_type(tag, type::list);
    record it;
    it.tag = tag;
    it.is_list = true;
    it.first = size32(children_.size());
    it.count = size32(children.size());
    children_.insert(children_.end(), children.begin(), children.end());
    list_head_bytes_ += tag_head;
    return add_record(it);
}

node sdb_builder::list_with_size(std::uint16_t tag, std::uint32_t size,
                                 std::initializer_list<node> children)
{
    const node forged = list(tag, children);
    records_[forged.id].size_is_forged = true;
    records_[forged.id].forged_size = size;
    return forged;
}

node sdb_builder::string(std::uint16_t tag, std::string_view utf8)
{
    require_type(tag, type::string);
    bytes units = utf16_bytes(utf8);
    put16(units, 0);
    return with_size(tag, size32(units.size()), units);
}

node sdb_builder::string_units(std::uint16_t tag, std::u16string_view units)
{
    require_type(tag, type::string);
    const bytes stored = terminated_units(units);
    return with_size(tag, size32(stored.size()), stored);
}

node sdb_builder::binary(std::uint16_t tag, std::span<const std::uint8_t> value)
{
    require_type(tag, type::binary_);
    const node leaf = with_size(tag, size32(value.size()), value);
    if (value.size() % 2 != 0) {
        put(arena_, 0, 1);
    }
    return end_leaf(leaf);
}

node sdb_builder::binary(std::uint16_t tag, std::initializer_list<std::uint8_t> value)
{
    return binary(tag, std::span<const std::uint8_t>(value.begin(), value.size()));
}

node sdb_builder::guid(std::uint16_t tag, std::string_view text)
{
    return binary(tag, guid_bytes(text));
}

node sdb_builder::patch_bits(const std::vector<patch_op>& operations)
{
    return binary(tag::patch_bits, patch_bytes(operations));
}

node sdb_builder::index_bits(const std::vector<index_entry>& entries)
{
    const node leaf = begin_leaf(tag::index_bits);
    put32(arena_, size32(entries.size() * 12));
    for (const index_entry& entry : entries) {
        put64(arena_, entry.key);
        put_target(leaf, entry.where);
    }
    return end_leaf(leaf);
}

node sdb_builder::reference(std::uint16_t tag, const target& where)
{
    require_type(tag, type::dword);
    const node leaf = begin_leaf(tag);
    put_target(leaf, where);
    return end_leaf(leaf);
}

void sdb_builder::put_target(node leaf, const target& where)
{
    if (where.kind_ == target::kind::offset) {
        put32(arena_, where.number_);
        return;
    }
    const bool is_label = where.kind_ == target::kind::label;
    const std::uint32_t known_by = is_label ? label_id(where.label_) : where.number_;
    const std::uint32_t position = size32(arena_.size() - records_[leaf.id].first);
    fixups_.push_back({leaf.id, position, known_by, is_label});
    put32(arena_, 0);
}

std::uint32_t sdb_builder::label_id(std::string_view name)
{
    const auto found = label_ids_.find(name);
    if (found != label_ids_.end()) {
        return found->second;
    }
    const auto id = size32(label_nodes_.size());
    label_ids_.emplace(name, id);
    label_nodes_.push_back(nowhere);
    return id;
}

node sdb_builder::label(std::string_view name, node tag)
{
    std::uint32_t& labelled = label_nodes_[label_id(name)];
    if (labelled != nowhere) {
        misuse("label given twice: " + std::string(name));
    }
    labelled = tag.id;
    return tag;
}

node sdb_builder::raw(std::span<const std::uint8_t> data)
{
    record leaf;
    leaf.first = size32(arena_.size());
    put_bytes(arena_, data);
    return end_leaf(add_record(leaf));
}

node sdb_builder::raw(std::initializer_list<std::uint8_t> data)
{
    return raw(std::span<const std::uint8_t>(data.begin(), data.size()));
}

node sdb_builder::with_size(std::uint16_t tag, std::uint32_t size,
                            std::span<const std::uint8_t> data)
{
    const node leaf = begin_leaf(tag);
    put32(arena_, size);
    put_bytes(arena_, data);
    return end_leaf(leaf);
}

node sdb_builder::with_size(std::uint16_t tag, std::uint32_t size,
                            std::initializer_list<std::uint8_t> data)
{
    return with_size(tag, size, std::span<const std::uint8_t>(data.begin(), data.size()));
}

// ---- roots and string table ----------------------------------------------------------------

sdb_builder& sdb_builder::add(node tag)
{
    database_.push_back(tag);
    return *this;
}

sdb_builder& sdb_builder::add(std::initializer_list<node> tags)
{
    database_.insert(database_.end(), tags.begin(), tags.end());
    return *this;
}

sdb_builder& sdb_builder::lead(node tag)
{
    lead_.push_back(tag);
    return *this;
}

sdb_builder& sdb_builder::trail(node tag)
{
    trail_.push_back(tag);
    return *this;
}

sdb_builder& sdb_builder::index(std::uint16_t over, std::uint16_t key, std::uint32_t flags,
                                const std::vector<index_entry>& entries)
{
    indexes_.push_back(list(tag::index, {
                                            word(tag::index_tag, over),
                                            word(tag::index_key, key),
                                            dword(tag::index_flags, flags),
                                            index_bits(entries),
                                        }));
    return *this;
}

sdb_builder& sdb_builder::without_database()
{
    has_database_ = false;
    return *this;
}

sdb_builder& sdb_builder::without_string_table()
{
    has_string_table_ = false;
    return *this;
}

sdb_builder& sdb_builder::string_table_size(std::uint32_t size)
{
    table_size_is_forged_ = true;
    forged_table_size_ = size;
    return *this;
}

std::uint32_t sdb_builder::add_to_table(std::span<const std::uint8_t> units)
{
    const auto reference = size32(tag_head + table_.size());
    put16(table_, tag::stringtable_item);
    put32(table_, size32(units.size()));
    put_bytes(table_, units);
    ++string_count_;
    return reference;
}

std::uint32_t sdb_builder::table_text(std::string_view utf8)
{
    const auto found = table_references_.find(utf8);
    if (found != table_references_.end()) {
        return found->second;
    }
    bytes units = utf16_bytes(utf8);
    put16(units, 0);
    const std::uint32_t reference = add_to_table(units);
    table_references_.emplace(utf8, reference);
    return reference;
}

std::uint32_t sdb_builder::table_bytes(std::span<const std::uint8_t> data)
{
    const auto reference = size32(tag_head + table_.size());
    put_bytes(table_, data);
    return reference;
}

std::uint64_t sdb_builder::size_so_far() const noexcept
{
    std::uint64_t size = 12 + arena_.size() + list_head_bytes_;
    size += indexes_.empty() ? 0 : tag_head;
    size += has_database_ ? tag_head : 0;
    size += has_string_table_ ? tag_head + table_.size() : 0;
    return size;
}

// ---- writing -------------------------------------------------------------------------------

bytes sdb_builder::build()
{
    bytes image;
    image.reserve(size_so_far());
    places_.assign(records_.size(), nowhere);
    open_lists_.clear();
    put32(image, major_);
    put32(image, minor_);
    put32(image, plain_magic);

    indexes_offset_ = indexes_.empty() ? 0 : size32(image.size());
    if (!indexes_.empty()) {
        put16(image, tag::indexes);
        put32(image, 0);
        write_roots(image, indexes_);
        set32(image, indexes_offset_ + 2, size32(image.size()) - indexes_offset_ - tag_head);
    }
    write_roots(image, lead_);
    database_offset_ = has_database_ ? size32(image.size()) : 0;
    if (has_database_) {
        put16(image, tag::database);
        put32(image, 0);
        write_roots(image, database_);
        set32(image, database_offset_ + 2, size32(image.size()) - database_offset_ - tag_head);
    }
    string_table_offset_ = has_string_table_ ? size32(image.size()) : 0;
    if (has_string_table_) {
        write_string_table(image);
    }
    write_roots(image, trail_);
    resolve_references(image);
    return image;
}

void sdb_builder::write_roots(bytes& image, const std::vector<node>& roots)
{
    for (const node root : roots) {
        write_tree(image, root);
    }
}

// Not recursive, since tests nest lists deeper than a stack goes.
void sdb_builder::write_tree(bytes& image, node root)
{
    write_start(image, root.id);
    while (!open_lists_.empty()) {
        open_list& top = open_lists_.back();
        const record& it = records_[top.id];
        if (top.next < it.count) {
            write_start(image, children_[it.first + top.next++].id);
            continue;
        }
        const std::uint32_t start = places_[top.id];
        const std::uint32_t size = size32(image.size()) - start - tag_head;
        set32(image, start + 2, it.size_is_forged ? it.forged_size : size);
        open_lists_.pop_back();
    }
}

void sdb_builder::write_start(bytes& image, std::uint32_t id)
{
    const record& it = records_.at(id);
    if (places_[id] != nowhere) {
        misuse("a node stands twice");
    }
    places_[id] = size32(image.size());
    if (it.is_list) {
        put16(image, it.tag);
        put32(image, 0);
        open_lists_.push_back({id, 0});
    } else {
        put_bytes(image, std::span<const std::uint8_t>(arena_).subspan(it.first, it.count));
    }
}

void sdb_builder::write_string_table(bytes& image)
{
    put16(image, tag::stringtable);
    put32(image, table_size_is_forged_ ? forged_table_size_ : size32(table_.size()));
    put_bytes(image, table_);
}

void sdb_builder::resolve_references(bytes& image) const
{
    for (const fixup& it : fixups_) {
        if (places_[it.owner] == nowhere) {
            continue;
        }
        const std::uint32_t led_to = it.target_is_label ? label_nodes_[it.target] : it.target;
        set32(image, std::size_t{places_[it.owner]} + it.position, place_of(led_to));
    }
}

std::uint32_t sdb_builder::place_of(std::uint32_t id) const
{
    if (id >= places_.size() || places_[id] == nowhere) {
        misuse("a reference to a tag that stands nowhere");
    }
    return places_[id];
}

std::uint32_t sdb_builder::offset_of(const target& tag) const
{
    switch (tag.kind_) {
    case target::kind::offset:
        return tag.number_;
    case target::kind::node:
        return place_of(tag.number_);
    case target::kind::label:
        break;
    }
    const auto found = label_ids_.find(tag.label_);
    if (found == label_ids_.end()) {
        misuse("unknown label: " + tag.label_);
    }
    return place_of(label_nodes_[found->second]);
}

} // namespace test_support
