#include "ntfs/attributes.h"

#include <algorithm>
#include <cinttypes>
#include <map>
#include <unordered_map>
#include <utility>

#include "uni/utf.h"

namespace ntfs {

namespace {

// What file systems allow an attribute list to be.
constexpr std::uint64_t largest_list = 0x40000;
constexpr std::uint64_t most_list_bytes = 0x10000000; // read of lists in one look-up
constexpr std::uint64_t list_entry_head = 26;

constexpr std::uint16_t compression_mask = 0xff;
constexpr std::uint16_t compressed = 1;

// The value of an attribute list, as far as it can be read.
std::vector<std::uint8_t> read_list(mft_entries_ctx& context, const attribute& list)
{
    if (list.is_resident()) {
        const std::span<const std::uint8_t> value = list.value().bytes();
        context.incomplete |= value.empty();
        return {value.begin(), value.end()};
    }
    ntfs_volume& volume = context.volume;
    std::vector<byte_run> runs;
    std::vector<extent> extents;
    decode_data_runs(list, runs);
    runs_to_extents(runs, extents);
    const std::uint64_t size =
        list.real_size() == 0 ? largest_list : std::min(list.real_size(), largest_list);
    std::vector<std::uint8_t> bytes;
    // Where a run cannot be read, the next one goes on; it counts nevertheless.
    for (const extent& part : extents) {
        const std::size_t done = bytes.size();
        const std::uint64_t length =
            std::min({size - done, extent_byte_length({part}, volume.cluster_size, false),
                      most_list_bytes - context.list_bytes});
        if (length == 0) {
            break;
        }
        context.list_bytes += length;
        bytes.resize(done + static_cast<std::size_t>(length));
        if (!part.is_sparse) {
            const std::span<std::uint8_t> piece = std::span(bytes).subspan(done);
            bytes.resize(done + static_cast<std::size_t>(read_clusters(volume, part.lcn, piece)));
        }
    }
    context.incomplete |= bytes.size() < list.real_size() || bytes.empty();
    return bytes;
}

// The attributes that a list names in one record, by type and id.
struct listed_record {
    std::uint64_t record = 0;
    std::vector<std::pair<std::uint32_t, std::uint16_t>> attributes;
};

// What a list names outside of the record itself, in the order of the first mention of each record.
// `is_whole` tells whether its entries end where it does.
std::vector<listed_record> records_of(uni::byte_view list, std::uint64_t entry,
                                      std::span<const std::uint32_t> types, bool& is_whole)
{
    std::vector<listed_record> records;
    std::unordered_map<std::uint64_t, std::size_t> places;
    std::uint64_t position = 0;
    while (list.contains(position, list_entry_head)) {
        const std::uint64_t length = list.u16(position + 4);
        if (length < list_entry_head) {
            is_whole = false;
            return records;
        }
        const std::uint32_t type = list.u32(position);
        const std::uint64_t record = entry_of(list.u64(position + 16));
        const bool is_wanted =
            types.empty() || std::find(types.begin(), types.end(), type) != types.end();
        if (is_wanted && record != entry) {
            const auto [place, is_new] = places.try_emplace(record, records.size());
            if (is_new) {
                records.push_back({record, {}});
            }
            records[place->second].attributes.emplace_back(type, list.u16(position + 24));
        }
        position += length;
    }
    // What is left is less than an entry has.
    is_whole = position >= list.size();
    return records;
}

// Whether a record holds the attributes of which its list says so, given those that it has, ascending.
bool holds_own(uni::byte_view list, std::uint64_t entry,
               const std::vector<std::pair<std::uint32_t, std::uint16_t>>& own)
{
    for (std::uint64_t at = 0; list.contains(at, list_entry_head) && list.u16(at + 4) != 0;
         at += list.u16(at + 4)) {
        const bool is_here = entry_of(list.u64(at + 16)) == entry;
        if (is_here && !std::binary_search(own.begin(), own.end(),
                                           std::pair(list.u32(at), list.u16(at + 24)))) {
            return false;
        }
    }
    return true;
}

// Reads a record that extends `entry`. False if it cannot be read or extends another.
bool read_extension(mft_entries_ctx& context, std::uint64_t entry, std::uint64_t record,
                    std::vector<std::uint8_t>& buffer)
{
    constexpr std::uint64_t nobody = ~std::uint64_t{0};
    const auto [owner, is_new] = context.extension_owners.try_emplace(record, entry);
    if (!is_new && owner->second != entry) {
        return false;
    }
    if (!read_file_record(context, record, buffer) || context.bad) {
        owner->second = nobody;
        return false;
    }
    const std::uint64_t base = file_record(buffer).base_reference();
    if (base != 0) {
        owner->second = entry_of(base);
    } else {
        context.incomplete = true; // it is another file, or has lost whom it extends
    }
    return owner->second == entry;
}

// Visits the attributes that a list names outside of the record itself.
void visit_listed(mft_entries_ctx& context, std::uint64_t entry, uni::byte_view list,
                  std::uint64_t longest, std::span<const std::uint32_t> types,
                  const attribute_visitor& visit)
{
    std::vector<std::uint8_t> buffer;
    bool is_whole = true;
    for (listed_record& listed : records_of(list, entry, types, is_whole)) {
        auto& wanted = listed.attributes;
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            trace_line(context, "primary entry %" PRIu64 " pointing to ref entry %" PRIu64, entry,
                       listed.record);
        }
        if (!read_extension(context, entry, listed.record, buffer)) {
            context.incomplete = true;
            continue;
        }
        context.incomplete |= context.torn;
        std::sort(wanted.begin(), wanted.end());
        std::vector<bool> is_met(wanted.size());
        attribute_walk walk(file_record(buffer), longest);
        for (attribute found; walk.next(found);) {
            const std::pair key(found.type(), found.id());
            const auto place = std::lower_bound(wanted.begin(), wanted.end(), key);
            if (place != wanted.end() && *place == key &&
                !is_met[static_cast<std::size_t>(place - wanted.begin())]) {
                is_met[static_cast<std::size_t>(place - wanted.begin())] = true;
                visit(found);
            }
        }
        context.incomplete |= std::find(is_met.begin(), is_met.end(), false) != is_met.end();
    }
    context.incomplete |= !is_whole;
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
}

// Whether a resident attribute tells of another value than it holds: one that leaves it, or, where it is as long
// as if it had clusters, none.
bool has_lost_value(const attribute& found)
{
    constexpr std::uint64_t least_with_clusters = 64;
    const std::uint32_t told = found.bytes().u32(16);
    return told != 0 ? found.value().empty()
                     : !found.is_named() && found.bytes().size() >= least_with_clusters;
}

// Makes rows of attributes as they are met.
class row_collection {
public:
    explicit row_collection(std::vector<record_row>& rows) : rows_(rows) {}

    void add(const attribute& found);
    void finish();

private:
    record_row* row_to_continue(const attribute& part, bool has_start);

    std::vector<record_row>& rows_;
    // The first non-resident one of a type and a name, by these as they are stored. No later one
    // goes on: it began because both have a start.
    std::map<std::pair<std::uint32_t, std::vector<std::uint8_t>>, std::size_t> first_;
};

// The row that a part of a value goes on with; null if it begins one.
record_row* row_collection::row_to_continue(const attribute& part, bool has_start)
{
    const std::span<const std::uint8_t> name = part.name().bytes();
    std::vector<std::uint8_t> stored(name.begin(), name.end());
    stored.push_back(part.is_named() ? 1 : 0);
    const auto [place, is_new] = first_.try_emplace({part.type(), std::move(stored)}, rows_.size());
    record_row* const begun = is_new ? nullptr : &rows_[place->second];
    return begun != nullptr && !(begun->has_start && has_start) ? begun : nullptr;
}

void row_collection::add(const attribute& found)
{
    const bool has_start = found.is_resident() || found.first_vcn() == 0;
    record_row* const begun = found.is_resident() ? nullptr : row_to_continue(found, has_start);
    if (begun != nullptr) {
        add_part(*begun, found);
        return;
    }
    record_row row;
    row.type = found.type();
    row.entry = rows_.front().entry;
    row.sequence = rows_.front().sequence;
    row.flags = found.flags();
    row.is_named = found.is_named();
    row.is_resident = found.is_resident();
    row.has_start = has_start;
    uni::utf16_to_text(found.name(), row.name);
    if (row.is_resident) {
        const std::span<const std::uint8_t> value = found.value().bytes();
        row.is_damaged = has_lost_value(found);
        row.value.assign(value.begin(), value.end());
        row.allocated_size = row.real_size = row.initialized_size = value.size();
    } else {
        add_part(row, found);
    }
    rows_.push_back(std::move(row));
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

void row_collection::finish()
{
    for (record_row& row : rows_) {
        sort_extents(row.extents);
    }
    std::stable_sort(rows_.begin(), rows_.end(), [](const record_row& a, const record_row& b) {
        return rank_of(a) < rank_of(b);
    });
}

bool read_resident(mft_entries_ctx& context, const record_row& row, io::byte_vector& stream)
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

bool read_content(mft_entries_ctx& context, const record_row& row, io::byte_vector& stream)
{
    const std::uint64_t cluster = context.volume.cluster_size;
    const std::uint64_t size = content_size(context.volume, row);
    if (size == 0) {
        trace_line(context, "err: no data");
        return false;
    }
    trace_line(context, "info: data size 0x%" PRIx64, size);
    // Whole clusters, so that they go straight to their place.
    stream.resize(static_cast<std::size_t>((size + cluster - 1) / cluster * cluster));
    expanded_unit last;
    const std::uint64_t got = read_value(context.volume, row, 0, stream, last);
    stream.resize(static_cast<std::size_t>(std::min(got, size)));
    if (row.type == attribute_type::index_allocation) {
        fix_up_index_blocks(stream);
    }
    return !stream.empty();
}

} // namespace

void visit_attributes(mft_entries_ctx& context, std::uint64_t entry, const file_record& record,
                      std::uint64_t longest, std::span<const std::uint32_t> types,
                      const attribute_visitor& visit)
{
    std::vector<std::uint8_t> list;
    std::vector<std::pair<std::uint32_t, std::uint16_t>> own;
    context.incomplete = false;
    attribute_walk walk(record, longest);
    for (attribute found; walk.next(found);) {
        own.emplace_back(found.type(), found.id());
        if (found.type() == attribute_type::attribute_list && list.empty()) {
            list = read_list(context, found);
        }
        visit(found);
    }
    std::sort(own.begin(), own.end());
    context.incomplete |= walk.is_damaged() || !holds_own(uni::byte_view(list), entry, own);
    visit_listed(context, entry, uni::byte_view(list), longest, types, visit);
}

bool list_record_attributes(mft_entries_ctx& context, std::uint64_t entry,
                            std::vector<record_row>& rows)
{
    rows.clear();
    std::vector<std::uint8_t> buffer;
    if (!read_file_record(context, entry, buffer)) {
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
    itself.flags = record.flags();
    row_collection collection(rows);
    const bool is_torn = context.torn;
    visit_attributes(context, entry, record, context.volume.record_size, {},
                     [&collection](const attribute& found) { collection.add(found); });
    context.incomplete |= is_torn || std::ranges::any_of(rows, &record_row::is_damaged);
    collection.finish();
    return true;
}

bool is_main_content(const record_row& row)
{
    return row.type == attribute_type::data && !row.is_named;
}

bool is_compressed_otherwise(const record_row& row)
{
    return (row.flags & compression_mask & ~compressed) != 0;
}

std::uint64_t readable_size(const ntfs_volume& volume, const record_row& row)
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

std::uint64_t read_value(ntfs_volume& volume, const record_row& row, std::uint64_t offset,
                         std::span<std::uint8_t> out, expanded_unit& last)
{
    const bool is_compressed =
        (row.flags & compression_mask) == compressed && row.compressed_size != 0;
    const std::uint64_t got = is_compressed
                                  ? read_compressed(volume, row.extents, offset, out, last)
                                  : read_extents(volume, row.extents, offset, out);
    clear_uninitialized(row, offset, out.first(static_cast<std::size_t>(got)));
    return got;
}

bool read_attribute_data(mft_entries_ctx& context, const record_row& row, io::byte_vector& stream)
{
    stream.clear();
    return row.is_resident ? read_resident(context, row, stream)
                           : read_content(context, row, stream);
}

} // namespace ntfs
