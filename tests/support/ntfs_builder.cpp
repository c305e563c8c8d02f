#include "support/ntfs_builder.h"

#include <algorithm>

namespace test_support {

namespace {

constexpr std::size_t record_size = 1024;
constexpr std::size_t index_block_size = 4096;

// Of the first file that a record was used for.
constexpr std::uint64_t reference_to(std::uint64_t entry)
{
    return entry | std::uint64_t{1} << 48;
}

// What resident and other attributes begin with; the name stands at `name_place`.
bytes attribute_head(std::uint32_t type, bool resident, std::u16string_view name,
                     std::uint64_t name_place, std::uint16_t id)
{
    bytes out(name_place);
    put(out, {{0, type, 4}, {8, resident ? 0u : 1u, 1}, {9, name.size(), 1}});
    put(out, {{10, name_place, 2}, {14, id, 2}});
    append(out, name);
    align(out, 8);
    return out;
}

// A node of an index from its header on: an entry for each child, then the end mark.
bytes index_node(const std::vector<std::uint64_t>& children, std::uint64_t first_entry)
{
    bytes out;
    std::uint64_t at = first_entry;
    for (const std::uint64_t child : children) { // of 88 bytes, with a key of 68
        put(out, {{at, reference_to(child), 8}, {at + 8, 88, 2}, {at + 10, 68, 2}});
        at += 88;
    }
    put(out, {{at + 8, 16, 2}, {at + 12, 2, 4}, {0, first_entry, 4}, {4, at + 16, 4}});
    return out;
}

// Puts check values into a record or block and keeps what was there in its update sequence.
void protect(bytes& record)
{
    constexpr std::uint16_t check = 0x1234;
    const std::size_t updates = record.size() / 512 + 1;
    const std::size_t place = record[4];
    put(record, {{6, updates, 2}, {place, check, 2}});
    for (std::size_t i = 1; i < updates; ++i) {
        put(record, place + i * 2, record[i * 512 - 2] | record[i * 512 - 1] << 8, 2);
        put(record, i * 512 - 2, check, 2);
    }
}

} // namespace

bytes resident_attribute(std::uint32_t type, const bytes& value, std::u16string_view name,
                         std::uint16_t id)
{
    bytes out = attribute_head(type, true, name, 24, id);
    put(out, {{16, value.size(), 4}, {20, out.size(), 2}});
    append(out, value);
    align(out, 8);
    put(out, 4, out.size(), 4);
    return out;
}

bytes non_resident_attribute(std::uint32_t type, const non_resident& value,
                             std::u16string_view name, std::uint16_t id)
{
    bytes out = attribute_head(type, false, name, 72, id);
    put(out, {{12, value.flags, 2},
              {16, value.first_vcn, 8},
              {32, out.size(), 2},
              {40, value.real_size, 8},
              {48, value.real_size, 8},
              {56, std::min(value.initialized_size, value.real_size), 8},
              {64, value.compressed_size, 8}});
    append(out, value.runs);
    align(out, 8);
    put(out, 4, out.size(), 4);
    return out;
}

bytes file_name(std::uint64_t parent, std::u16string_view name, std::uint8_t name_space,
                std::uint16_t id)
{
    bytes value;
    put(value, {{0, reference_to(parent), 8}, {64, name.size(), 1}, {65, name_space, 1}});
    append(value, name);
    return resident_attribute(0x30, value, {}, id);
}

bytes index_root(const std::vector<std::uint64_t>& children, std::uint16_t id)
{
    bytes value;
    put(value, {{0, 0x30, 4}, {8, index_block_size, 8}});
    append(value, index_node(children, 16));
    return resident_attribute(0x90, value, u"$I30", id);
}

bytes index_block(const std::vector<std::uint64_t>& children)
{
    bytes out;
    put(out, 0, "INDX(");
    put(out, 24, index_node(children, 40));
    out.resize(index_block_size);
    protect(out);
    return out;
}

bytes attribute_list(const std::vector<list_item>& items)
{
    bytes out;
    for (const list_item& item : items) {
        const std::size_t at = out.size();
        put(out, {{at, item.type, 4}, {at + 4, 32, 2}});
        put(out, {{at + 16, item.record, 8}, {at + 24, item.id, 8}});
    }
    return out;
}

ntfs_builder::ntfs_builder()
{
    put(boot_, 3, "NTFS    ");
    put(boot_, {{11, 512, 2}, {13, ntfs_cluster / 512, 1}, {40, 1024, 8}});
    put(boot_, {{48, ntfs_mft_cluster, 8}, {64, 0xf6, 1}, {510, 0xaa55, 2}});
    record(0, {non_resident_attribute(
                  0x80, {{0x11, ntfs_records, ntfs_mft_cluster, 0}, ntfs_records * record_size})});
}

void ntfs_builder::record(std::uint64_t entry, const std::vector<bytes>& attributes,
                          std::uint16_t flags, std::uint64_t base)
{
    bytes out(56);
    put(out, 0, "FILE0");
    put(out, {{16, 1, 2}, {20, 56, 2}, {22, flags, 2}, {28, record_size, 4}, {44, entry, 4}});
    put(out, 32, base == 0 ? 0 : reference_to(base), 8);
    for (const bytes& attribute : attributes) {
        append(out, attribute);
    }
    append(out, 0xffffffff, 4);
    put(out, 24, out.size(), 4);
    out.resize(record_size);
    protect(out);
    places_[place_of_record(entry)] = out;
}

void ntfs_builder::clusters(std::uint64_t lcn, const bytes& contents)
{
    places_[lcn * ntfs_cluster] = contents;
}

bytes ntfs_builder::image() const
{
    bytes out = boot_;
    out.resize(512 * 1024);
    for (const auto& [place, contents] : places_) {
        put(out, place, contents);
    }
    return out;
}

ntfs_builder windows_volume(const std::vector<bytes>& hive)
{
    ntfs_builder volume;
    volume.record(5, {file_name(5, u"."), index_root({5, 40, 41})}, directory_flags);
    volume.record(40, {file_name(5, u"Windows"), index_root({42})}, directory_flags);
    volume.record(41, {file_name(5, u"A long name", 1), file_name(5, u"ALONGN~1", 2)});
    volume.record(42, {file_name(40, u"System32", 3), index_root({43})}, directory_flags);
    volume.record(43,
                  {file_name(42, u"Config"), resident_attribute(0x90, {}, u"$SII"),
                   non_resident_attribute(0xa0, {{0x11, 4, 120, 0x11, 4, 20, 0}, 8192}, u"$I30")},
                  directory_flags);
    bytes junk = index_block({46});
    junk[0] = 'X';
    volume.clusters(120, junk);
    volume.clusters(140, index_block({45, 44})); // out of order
    std::vector<bytes> attributes = {file_name(42, u"System", 1), file_name(43, u"SOFTWARE", 0)};
    attributes.insert(attributes.end(), hive.begin(), hive.end());
    volume.record(44, attributes);
    volume.record(45, {file_name(41, u"software"), file_name(43, u"Elsewhere")});
    volume.record(46, {file_name(43, u"not listed")});
    return volume;
}

} // namespace test_support
