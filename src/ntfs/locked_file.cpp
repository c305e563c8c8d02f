#include "ntfs/locked_file.h"

#include <algorithm>
#include <cinttypes>

#include "ntfs/directory.h"

namespace ntfs {

bool locked_file::open(std::string_view volume_text, volume_source source, std::string_view path,
                       const trace_text& trace, const platform::device_opener& open_device)
{
    *this = {};
    volume_ = open_ntfs_volume(volume_text, source, open_device);
    if (!volume_) {
        return false;
    }
    mft_entries_ctx way(*volume_);
    way.trace = trace;
    std::uint64_t inode = 0;
    std::uint64_t parent = 0;
    if (!resolve_file(way, path, inode, parent)) {
        return false;
    }
    mft_entries_ctx context(*volume_);
    context.trace = trace;
    std::vector<record_row> rows;
    list_record_attributes(context, inode, rows);
    bool found = false;
    for (const record_row& row : rows) {
        // A later one replaces an earlier one.
        found = (is_main_content(row) && take(context, row)) || found;
    }
    return found;
}

bool locked_file::take(mft_entries_ctx& context, const record_row& row)
{
    io::byte_vector content;
    if (row.is_resident) {
        if (!read_attribute_data(context, row, content)) {
            return false;
        }
        content_ = std::move(content);
        row_ = {};
        size_ = content_.size();
        return true;
    }
    const std::uint64_t size = readable_size(context.volume, row);
    expanded_unit last;
    std::uint8_t first = 0;
    if (size == 0 || read_value(context.volume, row, 0, {&first, 1}, last) == 0) {
        trace_line(context, "err: no data");
        return false;
    }
    trace_line(context, "info: data size 0x%" PRIx64, size);
    content_ = {};
    row_ = row;
    last_ = std::move(last);
    size_ = size;
    return true;
}

std::uint64_t locked_file::read(std::span<std::uint8_t> out, std::uint64_t offset)
{
    if (offset >= size_) {
        return 0;
    }
    out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), size_ - offset)));
    if (!content_.empty()) {
        std::copy_n(content_.begin() + static_cast<std::ptrdiff_t>(offset), out.size(),
                    out.begin());
        return out.size();
    }
    return read_value(*volume_, row_, offset, out, last_);
}

bool load_locked_file(std::string_view volume_text, volume_source source, std::string_view path,
                      io::byte_vector& bytes, const trace_text& trace,
                      const platform::device_opener& open_device)
{
    locked_file file;
    bytes.clear();
    if (!file.open(volume_text, source, path, trace, open_device)) {
        return false;
    }
    bytes.resize(static_cast<std::size_t>(file.size()));
    bytes.resize(static_cast<std::size_t>(file.read(bytes, 0)));
    return !bytes.empty();
}

} // namespace ntfs
