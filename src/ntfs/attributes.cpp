#include "ntfs/attributes.h"

#include <algorithm>
#include <cinttypes>
#include <new>

#include "ntfs/compression.h"
#include "uni/utf.h"

namespace ntfs {

namespace {

// What file systems allow an attribute list to be.
constexpr std::uint64_t largest_list = 0x40000;
constexpr std::uint64_t list_entry_head = 26;

constexpr std::uint16_t compression_mask = 0xff;
constexpr std::uint16_t compressed = 1;

// The value of an attribute list.
std::vector<std::uint8_t> read_list(mft_entries_ctx& context, const attribute& list)
{
    if (list.is_resident()) {
        const std::span<const std::uint8_t> value = list.value().bytes();
        return {value.begin(), value.end()};
    }
    ntfs_volume& volume = context.volume;
    std::vector<byte_run> runs;
    std::vector<extent> extents;
    decode_data_runs(list, runs);
    runs_to_extents(runs, extents);
    const std::uint64_t size = std::min(
        {list.real_size(), largest_list, extent_byte_length(extents, volume.cluster_size, false),
         largest_content(volume) - std::min(largest_content(volume), context.list_bytes)});
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    std::uint32_t flags = 0;
    bytes.resize(static_cast<std::size_t>(read_extents(volume, extents, 0, bytes, flags)));
    context.list_bytes += bytes.size();
    return bytes;
}

struct list_entry {
    std::uint32_t type = 0;
    std::uint64_t record = 0;
    std::uint16_t id = 0;
};

std::vector<list_entry> entries_of(uni::byte_view list)
{
    std::vector<list_entry> entries;
    std::uint64_t position = 0;
    while (list.contains(position, list_entry_head)) {
        const std::uint64_t length = list.u16(position + 4);
        if (length < list_entry_head) {
            break;
        }
        entries.push_back(
            {list.u32(position), entry_of(list.u64(position + 16)), list.u16(position + 24)});
        position += length;
    }
    return entries;
}

// Visits the attributes that a list names outside of the record itself.
void visit_listed(mft_entries_ctx& context, std::uint64_t entry, uni::byte_view list,
                  std::uint64_t longest, std::span<const std::uint32_t> types,
                  const attribute_visitor& visit)
{
    std::vector<std::uint8_t> buffer;
    for (const list_entry& listed : entries_of(list)) {
        const bool is_wanted =
            types.empty() || std::find(types.begin(), types.end(), listed.type) != types.end();
        if (!is_wanted || listed.record == entry) {
            continue;
        }
        trace_line(context, "primary entry %" PRIu64 " pointing to ref entry %" PRIu64, entry,
                   listed.record);
        const auto owner = context.extension_owners.emplace(listed.record, entry).first;
        if (owner->second != entry || !fixup_mft(context, listed.record, buffer) || context.bad) {
            continue;
        }
        attribute_walk walk(file_record(buffer), longest);
        for (attribute found; walk.next(found);) {
            if (found.type() == listed.type && found.id() == listed.id) {
                visit(found);
                break;
            }
        }
    }
    context.bad = false;
}

void set_sizes(record_row& row, const attribute& from)
{
    row.has_start = true;
    row.flags = from.flags();
    row.allocated_size = from.allocated_size();
    row.real_size = from.real_size();
    row.initialized_size = from.initialized_size();
    row.compressed_size = from.compressed_size();
}

// Adds the part of a non-resident value that the attribute tells of.
void add_part(record_row& row, const attribute& part)
{
    if (part.first_vcn() == 0) {
        set_sizes(row, part);
    }
    std::vector<byte_run> runs;
    decode_data_runs(part, runs);
    runs_to_extents(runs, row.extents);
    sort_extents(row.extents);
}

// The row that a part of a value goes on with; null if it begins one.
record_row* row_to_continue(std::vector<record_row>& rows, const record_row& part)
{
    for (record_row& row : rows) {
        if (row.type == part.type && !row.is_resident && row.name == part.name &&
            !(row.has_start && part.has_start)) {
            return &row;
        }
    }
    return nullptr;
}

void add_row(std::vector<record_row>& rows, const attribute& found)
{
    record_row row;
    row.type = found.type();
    row.entry = rows.front().entry;
    row.sequence = rows.front().sequence;
    row.flags = found.flags();
    row.is_resident = found.is_resident();
    row.has_start = found.is_resident() || found.first_vcn() == 0;
    uni::utf16_to_text(found.name(), row.name);
    if (row.is_resident) {
        const std::span<const std::uint8_t> value = found.value().bytes();
        row.value.assign(value.begin(), value.end());
        row.allocated_size = row.real_size = row.initialized_size = value.size();
        rows.push_back(std::move(row));
    } else if (record_row* const begun = row_to_continue(rows, row)) {
        add_part(*begun, found);
    } else {
        add_part(row, found);
        rows.push_back(std::move(row));
    }
}

int rank_of(const record_row& row)
{
    switch (row.type) {
    case row_of_record:
        return 0;
    case attribute_type::standard_information:
        return 1;
    case attribute_type::file_name:
        return 2;
    default:
        return 3;
    }
}

bool read_resident(mft_entries_ctx& context, const record_row& row, uni::byte_vector& stream)
{
    if (row.value.empty()) {
        trace_line(context, "err: no data");
        return false;
    }
    trace_line(context, "info: data size 0x%" PRIx64, std::uint64_t{row.value.size()});
    stream.assign(row.value.begin(), row.value.end());
    return true;
}

// Bytes of a non-resident value: no more than its runs hold, and nothing can be.
std::uint64_t content_size(const ntfs_volume& volume, const record_row& row)
{
    return std::min({std::max(row.real_size, row.initialized_size),
                     extent_byte_length(row.extents, volume.cluster_size, false),
                     largest_content(volume)});
}

void clear_uninitialized(const record_row& row, std::uint64_t offset, std::span<std::uint8_t> bytes)
{
    const std::uint64_t end = std::max(row.initialized_size, offset);
    if (end - offset < bytes.size()) {
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(end - offset), bytes.end(),
                  std::uint8_t{0});
    }
}

bool read_whole(ntfs_volume& volume, const record_row& row, std::uint64_t size,
                uni::byte_vector& stream)
{
    const std::uint64_t cluster = volume.cluster_size;
    // Whole clusters, so that they go straight to their place.
    stream.resize(static_cast<std::size_t>((size + cluster - 1) / cluster * cluster));
    const std::uint64_t got = read_plain(volume, row, 0, stream);
    stream.resize(static_cast<std::size_t>(std::min(got, size)));
    if (row.type == attribute_type::index_allocation) {
        fix_up_index_blocks(stream);
    }
    return !stream.empty();
}

bool read_content(mft_entries_ctx& context, const record_row& row, uni::byte_vector& stream)
{
    ntfs_volume& volume = context.volume;
    const std::uint64_t size = content_size(volume, row);
    if (size == 0) {
        trace_line(context, "err: no data");
        return false;
    }
    trace_line(context, "info: data size 0x%" PRIx64, size);
    if (!(is_plain(row) ? read_whole(volume, row, size, stream)
                        : read_compressed(volume, row.extents, size, stream))) {
        stream.clear();
        return false;
    }
    clear_uninitialized(row, 0, stream);
    return true;
}

} // namespace

void visit_attributes(mft_entries_ctx& context, std::uint64_t entry, const file_record& record,
                      std::uint64_t longest, std::span<const std::uint32_t> types,
                      const attribute_visitor& visit)
{
    std::vector<std::uint8_t> list;
    attribute_walk walk(record, longest);
    for (attribute found; walk.next(found);) {
        if (found.type() == attribute_type::attribute_list && list.empty()) {
            list = read_list(context, found);
        }
        visit(found);
    }
    visit_listed(context, entry, uni::byte_view(list), longest, types, visit);
}

bool list_record_attributes(mft_entries_ctx& context, std::uint64_t entry,
                            std::vector<record_row>& rows)
{
    rows.clear();
    std::vector<std::uint8_t> buffer;
    if (!fixup_mft(context, entry, buffer)) {
        trace_line(context, "err: mftfixup %" PRIx64, entry);
        return false;
    }
    if (context.bad) {
        trace_line(context, "err: recd bad %" PRIx64, entry);
        return false;
    }
    const file_record record(buffer);
    record_row& itself = rows.emplace_back();
    itself.type = row_of_record;
    itself.entry = entry;
    itself.sequence = record.sequence();
    visit_attributes(context, entry, record, context.volume.record_size, {},
                     [&rows](const attribute& found) { add_row(rows, found); });
    std::stable_sort(rows.begin(), rows.end(), [](const record_row& a, const record_row& b) {
        return rank_of(a) < rank_of(b);
    });
    return true;
}

bool is_main_content(const record_row& row)
{
    return row.type == attribute_type::data && row.name.empty();
}

bool is_plain(const record_row& row)
{
    const bool is_compressed =
        (row.flags & compression_mask) == compressed && row.compressed_size != 0;
    return !row.is_resident && !is_compressed;
}

// Up to the first cluster that is missing or lies beyond the volume.
std::uint64_t plain_size(const ntfs_volume& volume, const record_row& row)
{
    const std::uint64_t cluster = volume.cluster_size;
    const auto end = static_cast<std::uint64_t>(volume.reader->total_size());
    const std::uint64_t size = content_size(volume, row);
    std::uint64_t found = 0;
    while (found < size) {
        const extent* const part = find_extent(row.extents, found / cluster);
        if (part == nullptr) {
            break;
        }
        const std::uint64_t first = part->lcn + found / cluster - part->vcn;
        const std::uint64_t length = (part->vcn + part->length) * cluster - found;
        const std::uint64_t start = std::min(first, end / cluster + 1) * cluster;
        const std::uint64_t readable =
            part->is_sparse ? length : std::min(length, end - std::min(end, start));
        found += readable;
        if (readable != length) {
            break;
        }
    }
    return std::min(found, size);
}

std::uint64_t read_plain(ntfs_volume& volume, const record_row& row, std::uint64_t offset,
                         std::span<std::uint8_t> out)
{
    std::uint32_t flags = 0;
    const std::uint64_t got = read_extents(volume, row.extents, offset, out, flags);
    clear_uninitialized(row, offset, out.first(static_cast<std::size_t>(got)));
    return got;
}

bool read_attribute_data(mft_entries_ctx& context, const record_row& row, uni::byte_vector& stream)
{
    stream.clear();
    try {
        return row.is_resident ? read_resident(context, row, stream)
                               : read_content(context, row, stream);
    } catch (const std::bad_alloc&) {
        stream = {};
        return false;
    }
}

} // namespace ntfs
