#include "ntfs/locked_file.h"

#include <algorithm>
#include <cinttypes>
#include <utility>
#include <vector>

#include "ntfs/attributes.h"
#include "ntfs/directory.h"

namespace ntfs {

namespace {

struct content {
    io::byte_vector bytes; // of what the record itself holds, or else:
    record_row row;
    expanded_unit last; // of that, if it is compressed
    std::uint64_t size = 0;
};

class content_in_clusters : public io::byte_source {
public:
    content_in_clusters(std::unique_ptr<ntfs_volume> volume, content what)
        : volume_(std::move(volume)), content_(std::move(what))
    {}

    std::uint64_t size() const noexcept override { return content_.size; }

    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        const std::uint64_t left = content_.size - std::min(content_.size, offset);
        out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), left)));
        const auto got = static_cast<std::size_t>(
            read_value(*volume_, content_.row, offset, out, content_.last));
        has_failed_ |= got < out.size();
        return got;
    }
    bool has_failed() const noexcept override { return has_failed_; }

private:
    std::unique_ptr<ntfs_volume> volume_;
    content content_;
    bool has_failed_ = false;
};

bool take_content(mft_entries_ctx& context, const record_row& row, content& found)
{
    content here;
    if (row.is_resident) {
        if (!read_attribute_data(context, row, here.bytes)) {
            return false;
        }
    } else {
        here.size = readable_size(context.volume, row);
        std::uint8_t first = 0;
        if (here.size == 0 || read_value(context.volume, row, 0, {&first, 1}, here.last) == 0) {
            trace_line(context, "err: no data");
            return false;
        }
        trace_line(context, "info: data size 0x%" PRIx64, here.size);
        here.row = row;
    }
    found = std::move(here);
    return true;
}

} // namespace

std::unique_ptr<io::byte_source> open_locked_file(std::unique_ptr<ntfs_volume> volume,
                                                  std::string_view path, const trace_text& trace)
{
    if (!volume) {
        return nullptr;
    }
    mft_entries_ctx way(*volume);
    way.trace = trace;
    std::uint64_t inode = 0;
    std::uint64_t parent = 0;
    if (!resolve_file(way, path, inode, parent)) {
        return nullptr;
    }
    mft_entries_ctx context(*volume);
    context.trace = trace;
    std::vector<record_row> rows;
    list_record_attributes(context, inode, rows);
    content found;
    bool any = false;
    for (const record_row& row : rows) {
        // A later one replaces an earlier one.
        any = (is_main_content(row) && take_content(context, row, found)) || any;
    }
    if (!any) {
        return nullptr;
    }
    if (!found.bytes.empty()) {
        return std::make_unique<io::memory_source>(std::move(found.bytes));
    }
    return std::make_unique<content_in_clusters>(std::move(volume), std::move(found));
}

} // namespace ntfs
