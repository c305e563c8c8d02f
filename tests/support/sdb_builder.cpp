#include "support/sdb_builder.h"

#include <zlib.h>

#include <chrono>
#include <cwchar>
#include <limits>
#include <locale>
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

std::uint32_t size32(std::size_t size)
{
    if (size > std::numeric_limits<std::uint32_t>::max()) {
        misuse("larger than 32 bits can tell");
    }
    return static_cast<std::uint32_t>(size);
}

bytes terminated(bytes units)
{
    append(units, 0, 2);
    return units;
}

void require_type(std::uint16_t tag, std::uint16_t wanted)
{
    if ((tag & 0xf000U) != wanted) {
        misuse("tag of another type");
    }
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
        const std::uint32_t data_size = size32(operation.data.size());
        for (const std::uint32_t word :
             {operation.opcode, operation.next_size.value_or(patch_head + data_size),
              operation.data_size.value_or(data_size), operation.address, operation.reserved}) {
            append(out, word, 4);
        }
        bytes name = utf16_bytes(operation.module_name);
        if (name.size() > module_name_bytes) {
            misuse("module name of more than 32 units");
        }
        name.resize(module_name_bytes);
        append(out, name);
        append(out, operation.data);
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
    const std::chrono::sys_days date =
        std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    const auto days = static_cast<std::uint32_t>(date.time_since_epoch().count());
    return days * 86'400 + hour * 3600 + minute * 60 + second;
}

std::uint64_t filetime(int year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                       unsigned second)
{
    constexpr std::uint64_t seconds_from_1601_to_1970 = 11644473600;
    return (seconds_from_1601_to_1970 + unix_time(year, month, day, hour, minute, second)) *
           10'000'000;
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
    using converter = std::codecvt<char16_t, char8_t, std::mbstate_t>;
    const std::u8string from(text.begin(), text.end());
    std::u16string units(from.size(), u'\0');
    std::mbstate_t state{};
    const char8_t* read = nullptr;
    char16_t* end = nullptr;
    if (std::use_facet<converter>(std::locale::classic())
            .in(state, from.data(), from.data() + from.size(), read, units.data(),
                units.data() + units.size(), end) != converter::ok) {
        misuse("malformed UTF-8");
    }
    bytes out;
    append(out, std::u16string_view(units.data(), end));
    return out;
}

bytes guid_bytes(std::string_view text)
{
    // The first three groups are numbers and stored little-endian, the rest are bytes.
    constexpr std::size_t digits_of_byte[16] = {6,  4,  2,  0,  11, 9,  16, 14,
                                                19, 21, 24, 26, 28, 30, 32, 34};
    if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' ||
        text[23] != '-' ||
        text.find_first_not_of("0123456789abcdefABCDEF-") != std::string_view::npos) {
        misuse("malformed GUID");
    }
    bytes out;
    for (const std::size_t digits : digits_of_byte) {
        append(out, std::stoul(std::string(text.substr(digits, 2)), nullptr, 16), 1);
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
    append(out, compressed_magic, 4);
    append(out, 0, 8);
    append(out, packed);
    return out;
}

// ---- tags ----------------------------------------------------------------------------------

node sdb_builder::begin_leaf(std::uint16_t tag)
{
    const node leaf = raw({});
    append(arena_, tag, 2);
    return leaf;
}

node sdb_builder::end_leaf(node leaf)
{
    record& it = records_[leaf.id];
    it.count = size32(arena_.size() - it.first);
    return leaf;
}

node sdb_builder::leaf_of(std::uint16_t tag, std::uint64_t value, unsigned width)
{
    const node leaf = begin_leaf(tag);
    append(arena_, value, width);
    return end_leaf(leaf);
}

node sdb_builder::number(std::uint16_t tag, std::uint64_t value, unsigned width)
{
    require_type(tag, width == 0   ? type::null_
                      : width == 1 ? type::byte_
                      : width == 2 ? type::word
                      : width == 4 ? type::dword
                                   : type::qword);
    return leaf_of(tag, value, width);
}

node sdb_builder::string_ref(std::uint16_t tag, std::uint32_t reference)
{
    require_type(tag, type::stringref);
    return leaf_of(tag, reference, 4);
}

node sdb_builder::text(std::uint16_t tag, std::string_view utf8)
{
    return string_ref(tag, table_text(utf8));
}

node sdb_builder::text_units(std::uint16_t tag, std::u16string_view units)
{
    bytes stored;
    append(stored, units);
    return string_ref(tag, add_to_table(terminated(stored)));
}

node sdb_builder::patch_bits(const std::vector<patch_op>& operations)
{
    return binary(tag::patch_bits, patch_bytes(operations));
}

node sdb_builder::list(std::uint16_t tag, const std::vector<node>& children)
{
    require_type(tag, type::list);
    const node made{size32(records_.size())};
    records_.push_back({size32(children_.size()), size32(children.size()), tag, true});
    children_.insert(children_.end(), children.begin(), children.end());
    list_head_bytes_ += tag_head;
    return made;
}

node sdb_builder::list_with_size(std::uint16_t tag, std::uint32_t size,
                                 const std::vector<node>& children)
{
    const node forged = list(tag, children);
    forged_sizes_[forged.id] = size;
    return forged;
}

node sdb_builder::string(std::uint16_t tag, std::string_view utf8)
{
    require_type(tag, type::string);
    const bytes units = terminated(utf16_bytes(utf8));
    return with_size(tag, size32(units.size()), units);
}

node sdb_builder::binary(std::uint16_t tag, const bytes& value)
{
    require_type(tag, type::binary_);
    const node leaf = with_size(tag, size32(value.size()), value);
    append(arena_, 0, value.size() % 2);
    return end_leaf(leaf);
}

node sdb_builder::index_bits(const std::vector<index_entry>& entries)
{
    const node leaf = begin_leaf(tag::index_bits);
    append(arena_, size32(entries.size() * 12), 4);
    for (const index_entry& entry : entries) {
        append(arena_, entry.key, 8);
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
    fixups_.push_back({leaf.id, size32(arena_.size() - records_[leaf.id].first), where});
    append(arena_, 0, 4);
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
    const node leaf{size32(records_.size())};
    records_.push_back({.first = size32(arena_.size())});
    append(arena_, data);
    return end_leaf(leaf);
}

node sdb_builder::with_size(std::uint16_t tag, std::uint32_t size, const bytes& data)
{
    const node leaf = begin_leaf(tag);
    append(arena_, size, 4);
    append(arena_, data);
    return end_leaf(leaf);
}

// ---- roots and string table ----------------------------------------------------------------

sdb_builder& sdb_builder::index(std::uint16_t over, std::uint16_t key, std::uint32_t flags,
                                const std::vector<index_entry>& entries)
{
    indexes_.push_back(list(tag::index, {word(tag::index_tag, over), word(tag::index_key, key),
                                         dword(tag::index_flags, flags), index_bits(entries)}));
    return *this;
}

std::uint32_t sdb_builder::add_to_table(const bytes& units)
{
    bytes item;
    append(item, tag::stringtable_item, 2);
    append(item, size32(units.size()), 4);
    append(item, units);
    return table_bytes(item);
}

std::uint32_t sdb_builder::table_text(std::string_view utf8)
{
    const auto found = table_references_.find(utf8);
    return found != table_references_.end()
               ? found->second
               : table_references_.emplace(utf8, add_to_table(terminated(utf16_bytes(utf8))))
                     .first->second;
}

std::uint32_t sdb_builder::table_bytes(const bytes& data)
{
    const auto reference = size32(tag_head + table_.size());
    append(table_, data);
    return reference;
}

std::uint64_t sdb_builder::size_so_far() const noexcept
{
    return 12 + arena_.size() + list_head_bytes_ + (indexes_.empty() ? 0 : tag_head) +
           (has_database_ ? tag_head : 0) + (has_string_table_ ? tag_head + table_.size() : 0);
}

// ---- writing -------------------------------------------------------------------------------

bytes sdb_builder::build()
{
    bytes image;
    image.reserve(size_so_far());
    places_.assign(records_.size(), nowhere);
    for (const std::uint32_t word : {major_, minor_, plain_magic}) {
        append(image, word, 4);
    }
    indexes_offset_ = indexes_.empty() ? 0 : write_root(image, tag::indexes, indexes_);
    write_trees(image, lead_);
    database_offset_ = has_database_ ? write_root(image, tag::database, database_) : 0;
    string_table_offset_ = has_string_table_ ? size32(image.size()) : 0;
    if (has_string_table_) {
        append(image, tag::stringtable, 2);
        append(image, forged_table_size_.value_or(size32(table_.size())), 4);
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

// Writes a list of roots and answers where it begins.
std::uint32_t sdb_builder::write_root(bytes& image, std::uint16_t tag,
                                      const std::vector<node>& roots)
{
    const auto start = size32(image.size());
    append(image, tag, 2);
    append(image, 0, 4);
    write_trees(image, roots);
    put(image, start + 2, size32(image.size()) - start - tag_head, 4);
    return start;
}

// Not recursive, since tests nest lists deeper than a stack goes.
void sdb_builder::write_trees(bytes& image, const std::vector<node>& roots)
{
    for (const node root : roots) {
        write_start(image, root.id);
        while (!open_lists_.empty()) {
            open_list& top = open_lists_.back();
            const record& it = records_[top.id];
            if (top.next < it.count) {
                write_start(image, children_[it.first + top.next++].id);
                continue;
            }
            const std::uint32_t start = places_[top.id];
            const auto forged = forged_sizes_.find(top.id);
            put(image, start + 2,
                forged != forged_sizes_.end() ? forged->second
                                              : size32(image.size()) - start - tag_head,
                4);
            open_lists_.pop_back();
        }
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
        append(image, it.tag, 2);
        append(image, 0, 4);
        open_lists_.push_back({id, 0});
    } else {
        append(image, std::span<const std::uint8_t>(arena_).subspan(it.first, it.count));
    }
}

std::uint32_t sdb_builder::offset_of(const target& tag) const
{
    std::uint32_t id = tag.number_;
    if (tag.kind_ == target::kind::offset) {
        return id;
    }
    if (tag.kind_ == target::kind::label) {
        const auto found = labels_.find(tag.label_);
        if (found == labels_.end()) {
            misuse("unknown label: " + tag.label_);
        }
        id = found->second;
    }
    if (id >= places_.size() || places_[id] == nowhere) {
        misuse("a reference to a tag that stands nowhere");
    }
    return places_[id];
}

} // namespace test_support
