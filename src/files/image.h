#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "files/mounted_volume.h"
#include "ntfs/disk_layout.h"
#include "platform/files.h"

namespace files {

// A file or a block device that holds a volume, or a disk with partitions. Several threads may use it.
class image {
public:
    enum class contents {
        volume, // an NTFS volume
        disk,
        other, // which reason() tells in words
    };

    // What does not open holds nothing, for a reason.
    static std::shared_ptr<image> open(const std::string& path);

    contents holds() const noexcept { return holds_; }
    const std::string& reason() const noexcept { return reason_; }
    // Of a disk. Those of whose table only a copy is sound, or which is damaged, say so.
    const ntfs::disk_table& table() const noexcept { return table_; }
    // What it consists of, so that it can be told apart from what a run writes.
    const std::vector<platform::file_id>& ids() const noexcept { return ids_; }

    // The volume in a partition, or for 0 the one that is the whole. Null, with the reason in words, if
    // that is none that can be read.
    std::shared_ptr<mounted_volume> volume(unsigned partition, std::string& reason);

private:
    struct mounting {
        std::shared_ptr<mounted_volume> volume;
        std::string reason;
    };

    std::shared_ptr<image_bytes> bytes_;
    std::vector<platform::file_id> ids_;
    contents holds_ = contents::other;
    std::string reason_;
    ntfs::disk_table table_;
    std::mutex mutex_;
    std::map<unsigned, mounting> mounted_;
};

} // namespace files
