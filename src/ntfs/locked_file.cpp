#include "ntfs/locked_file.h"

#include "ntfs/attributes.h"
#include "ntfs/directory.h"

namespace ntfs {

bool load_locked_file(std::string_view volume_text, volume_source source, std::string_view path,
                      uni::byte_vector& bytes, const trace_text& trace,
                      const platform::device_opener& open_device)
{
    bytes.clear();
    const std::unique_ptr<ntfs_volume> volume = open_ntfs_volume(volume_text, source, open_device);
    if (!volume) {
        return false;
    }
    mft_entries_ctx context(*volume);
    context.trace = trace;
    std::uint64_t inode = 0;
    std::uint64_t parent = 0;
    std::vector<record_row> rows;
    if (!resolve_file(context, path, inode, parent)) {
        return false;
    }
    mft_entries_ctx file(*volume);
    file.trace = trace;
    if (!list_record_attributes(file, inode, rows)) {
        return false;
    }
    for (const record_row& row : rows) {
        uni::byte_vector content;
        // A later one replaces an earlier one.
        if (is_main_content(row) && read_attribute_data(file, row, content)) {
            bytes = std::move(content);
        }
    }
    return !bytes.empty();
}

} // namespace ntfs
