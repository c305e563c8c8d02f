#pragma once

#include <memory>
#include <span>
#include <string_view>

#include "ntfs/attributes.h"
#include "ntfs/volume.h"
#include "io/large_vector.h"

namespace ntfs {

// The main content of a file, read off its volume itself: so a file is read that the running system
// keeps locked, or that lies in an image which nobody mounted. Clusters are read when their bytes are
// asked for, and the volume stays open until then; what the record itself holds is read at once.
class locked_file {
public:
    // Finds the file at a path of a volume. False if there is no such volume or file, or nothing
    // can be read of it.
    bool open(std::string_view volume_text, volume_source source, std::string_view path,
              const trace_text& trace = {},
              const platform::device_opener& open_device = platform::open_device);

    std::uint64_t size() const noexcept { return size_; }

    // Reads what stands at an offset; gives the bytes read, fewer at the end of the file and where
    // one cannot be read.
    std::uint64_t read(std::span<std::uint8_t> out, std::uint64_t offset);

private:
    bool take(mft_entries_ctx& context, const record_row& row);

    std::unique_ptr<ntfs_volume> volume_;
    record_row row_;           // what is read by the cluster
    expanded_unit last_;       // of that, if it is compressed
    io::byte_vector content_; // or else what was read at once
    std::uint64_t size_ = 0;
};

// Reads the whole of such a file. False, and nothing in `bytes`, where it does not open.
bool load_locked_file(std::string_view volume_text, volume_source source, std::string_view path,
                      io::byte_vector& bytes, const trace_text& trace = {},
                      const platform::device_opener& open_device = platform::open_device);

} // namespace ntfs
