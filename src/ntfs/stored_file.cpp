#include "ntfs/stored_file.h"

#include <algorithm>
#include <functional>

#include "ntfs/folder.h"
#include "ntfs/usable_name.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace ntfs {

namespace {

namespace reparse_kind {
constexpr std::uint32_t mount_point = 0xa0000003;
constexpr std::uint32_t symbolic_link = 0xa000000c;
constexpr std::uint32_t packed_file = 0x80000017;
constexpr std::uint32_t single_instance = 0x80000007;
constexpr std::uint32_t deduplicated = 0x80000013;
constexpr std::uint32_t cloud = 0x9000001a;
constexpr std::uint32_t cloud_mask = 0xffff0fff; // its variants
} // namespace reparse_kind

stored_times times_at(uni::byte_view bytes, std::uint64_t place)
{
    return {bytes.u64(place), bytes.u64(place + 8), bytes.u64(place + 16), bytes.u64(place + 24)};
}

void take_name(stored_file& file, uni::byte_view value)
{
    constexpr std::uint64_t name_place = 66;
    const uni::byte_view stored = value.slice(name_place, value.u8(64) * std::uint64_t{2});
    stored_name name;
    std::u16string usable;
    append_usable(usable, stored);
    name.name = uni::utf8_from_utf16(usable);
    name.parent = value.u64(0);
    name.name_space = value.u8(65);
    name.times = times_at(value, 8);
    file.names.push_back(std::move(name));
}

void take_reparse_point(stored_file& file, uni::byte_view value)
{
    file.reparse_kind = value.u32(0);
    const bool is_symbolic = file.reparse_kind == reparse_kind::symbolic_link;
    if (is_symbolic || file.reparse_kind == reparse_kind::mount_point) {
        const uni::byte_view texts = value.from(is_symbolic ? 20 : 16);
        const bool has_readable = value.u16(14) != 0;
        uni::utf16_to_text(has_readable ? texts.slice(value.u16(12), value.u16(14))
                                        : texts.slice(value.u16(8), value.u16(10)),
                           file.link_text);
    }
}

} // namespace

const record_row* stored_file::stream(std::string_view name) const
{
    const auto found = [&](auto&& is_name) -> const record_row* {
        const auto place = std::ranges::find_if(streams, [&](const record_row& each) {
            return each.is_named == !name.empty() && is_name(each.name, name);
        });
        return place == streams.end() ? nullptr : &*place;
    };
    const record_row* const exact = found(std::equal_to<std::string_view>());
    return exact != nullptr ? exact : found(uni::equal_ignoring_case);
}

namespace {

constexpr std::uint16_t compressed_flag = 1;
constexpr std::uint16_t sparse_flag = 0x8000;

// Leaves only what a stream can have by what its flags say, and tells whether that is all: one that is neither
// sparse nor compressed has no holes, which would read as zeros.
bool check_stream(record_row& stream)
{
    const bool may_have_holes = (stream.flags & (compressed_flag | sparse_flag)) != 0;
    const std::size_t holes =
        may_have_holes
            ? 0
            : std::erase_if(stream.extents, [](const extent& part) { return part.is_sparse; });
    const bool has_clusters =
        std::ranges::any_of(stream.extents, [](const extent& part) { return !part.is_sparse; });
    if (!stream.is_resident && (stream.flags & compressed_flag) != 0 &&
        stream.compressed_size == 0 && has_clusters) {
        stream.has_start = false; // how its clusters are to be read is lost
    }
    return holes == 0;
}

} // namespace

record_state read_stored_file(mft_entries_ctx& context, std::uint64_t reference, stored_file& file)
{
    constexpr std::uint64_t largest_reparse_point = 0x4000;
    file = {};
    std::vector<std::uint8_t> buffer;
    const std::uint64_t entry = entry_of(reference);
    if (!read_file_record(context, entry, buffer) || context.bad) {
        return record_state::unreadable;
    }
    const file_record record(buffer);
    if (record.base_reference() != 0 ||
        (sequence_of(reference) != 0 && sequence_of(reference) != record.sequence())) {
        return record_state::another;
    }
    bool has_information = false;
    std::vector<record_row> rows;
    if (!list_record_attributes(context, entry, rows)) {
        return record_state::unreadable;
    }
    file.entry = entry;
    file.sequence = record.sequence();
    file.is_in_use = record.is_in_use();
    file.is_directory = record.is_directory();
    file.is_whole = !context.incomplete;
    for (record_row& row : rows) {
        const uni::byte_view value(row.value);
        if (row.type == attribute_type::standard_information) {
            has_information = value.contains(0, 36);
            file.times = times_at(value, 0);
            file.attributes = value.u32(32);
        } else if (row.type == attribute_type::file_name) {
            take_name(file, value);
        } else if (row.type == attribute_type::reparse_point) {
            io::byte_vector bytes;
            if (row.real_size <= largest_reparse_point &&
                read_attribute_data(context, row, bytes)) {
                take_reparse_point(file, uni::byte_view(bytes));
            }
        } else if (row.type == attribute_type::data) {
            file.is_whole = check_stream(row) && file.is_whole;
            file.streams.push_back(std::move(row));
        }
    }
    const bool is_reparse_point = (file.attributes & file_attribute::reparse_point) != 0;
    file.is_whole =
        file.is_whole && has_information && is_reparse_point == (file.reparse_kind != 0);
    return record_state::read;
}

stream_state state_of(const stored_file& file, const record_row& stream)
{
    if (!stream.has_start) {
        return stream_state::damaged;
    }
    const bool has_lost_kind =
        file.reparse_kind == 0 && (file.attributes & file_attribute::reparse_point) != 0;
    if (has_lost_kind && !stream.is_named) {
        return stream_state::damaged; // what stands there may be packed, or elsewhere
    }
    if (is_encrypted(stream)) {
        return stream_state::encrypted;
    }
    if (is_compressed_otherwise(stream)) {
        return stream_state::packed;
    }
    if (stream.is_named || file.reparse_kind == 0) {
        return stream_state::readable;
    }
    switch (file.reparse_kind) {
    case reparse_kind::packed_file:
    case reparse_kind::single_instance:
    case reparse_kind::deduplicated:
        return stream_state::packed;
    default:
        break;
    }
    if ((file.reparse_kind & reparse_kind::cloud_mask) == reparse_kind::cloud) {
        // One that was fetched holds its content.
        constexpr std::uint32_t sparse_and_offline = 0x1000;
        return (file.attributes & sparse_and_offline) != 0 ? stream_state::elsewhere
                                                           : stream_state::readable;
    }
    return stands_for_another(file.reparse_kind) ? stream_state::link : stream_state::readable;
}

std::uint64_t stream_size(const record_row& stream)
{
    return stream.is_resident ? stream.value.size() : stream.real_size;
}

std::uint64_t read_stream(ntfs_volume& volume, const record_row& stream, std::uint64_t offset,
                          std::span<std::uint8_t> out, expanded_unit& last)
{
    const std::uint64_t size = stream_size(stream);
    const std::uint64_t left = size - std::min(size, offset);
    out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), left)));
    if (!stream.is_resident) {
        return read_value(volume, stream, offset, out, last);
    }
    std::copy_n(stream.value.begin() + static_cast<std::ptrdiff_t>(std::min(size, offset)),
                out.size(), out.begin());
    return out.size();
}

} // namespace ntfs
