#include "files/image.h"

#include <algorithm>
#include <utility>

#include "files/part_files.h"
#include "files/volume_words.h"
#include "ntfs/raw_disk_io.h"

namespace files {

namespace {

// The bytes of an image as they are, for whoever reads tables.
class whole_image : public io::byte_source {
public:
    explicit whole_image(std::shared_ptr<image_bytes> bytes) : bytes_(std::move(bytes)) {}

    std::uint64_t size() const noexcept override { return bytes_->source->size(); }
    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        const std::scoped_lock lock(bytes_->mutex);
        return bytes_->source->read(out, offset);
    }

private:
    const std::shared_ptr<image_bytes> bytes_;
};

} // namespace

std::shared_ptr<image> image::open(const std::string& path)
{
    auto opened = std::make_shared<image>();
    opened->bytes_ = std::make_shared<image_bytes>();
    image_source found = open_image(path);
    for (const std::string& part : found.paths) {
        if (const auto id = platform::identify_file(part)) {
            opened->ids_.push_back(*id);
        }
    }
    opened->reason_ = std::move(found.reason);
    opened->bytes_->source = std::move(found.bytes);
    if (!opened->bytes_->source) {
        return opened;
    }
    ntfs::RAW_DISK_IO disk(std::make_unique<whole_image>(opened->bytes_));
    opened->table_ = ntfs::read_partitions(disk);
    std::erase_if(opened->table_.partitions,
                  [](const ntfs::disk_partition& each) { return each.number == 0; });
    if (opened->table_.state != ntfs::table_state::none && !opened->table_.partitions.empty()) {
        opened->holds_ = contents::disk;
    } else if (opened->volume(0, opened->reason_)) {
        opened->holds_ = contents::volume;
    }
    return opened;
}

std::shared_ptr<mounted_volume> image::volume(unsigned partition, std::string& reason)
{
    const std::scoped_lock lock(mutex_);
    const auto known = mounted_.find(partition);
    if (known != mounted_.end()) {
        reason = known->second.reason;
        return known->second.volume;
    }
    ntfs::disk_partition where{.size = bytes_->source->size()};
    if (partition != 0) {
        const auto found =
            std::ranges::find(table_.partitions, partition, &ntfs::disk_partition::number);
        if (found == table_.partitions.end()) {
            reason = mounted_volume::no_such_file;
            return nullptr;
        }
        where = *found;
    }
    mounting made;
    made.volume = mounted_volume::mount(bytes_, where.start, where.size, made.reason);
    const std::string kind = ntfs::partition_type_name(where.kind);
    if (made.reason == no_ntfs_volume && where.kind != 0 && kind != "unk" && kind != "gpt") {
        made.reason += "; by the partition table: " + kind;
    }
    reason = made.reason;
    return mounted_.emplace(partition, std::move(made)).first->second.volume;
}

} // namespace files
