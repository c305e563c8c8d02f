// The files that paths lead to: those of this machine, and those in the images of volumes and disks. A
// regular file or a block device in the middle of a path that holds an NTFS volume counts as the root
// folder of it, and one that holds a disk as a folder of its partitions by number:
//
//     vol.img/Windows/AppPatch/sysmain.sdb
//     disk.img/2/Windows/System32/config/SOFTWARE
//     disk.img/2/Users/tool.exe:stream
//
// What is there as an ordinary file is that first. Nothing in an image is ever followed out of it.
#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "files/image.h"
#include "io/byte_source.h"
#include "platform/directories.h"
#include "platform/files.h"

namespace files {

enum class place_kind {
    nothing,
    file,
    folder,
    volume, // the root of one in an image
    disk,   // an image with partitions
};

// Paths are UTF-8. Several threads may use it.
class file_tree {
public:
    // Null, with the reason in words, for what does not open.
    std::unique_ptr<io::byte_source> open(const std::string& path, std::string& reason);
    std::unique_ptr<io::byte_source> open(const std::string& path)
    {
        std::string reason;
        return open(path, reason);
    }

    // As platform/files.h and platform/directories.h have them, through images too.
    bool read_facts(const std::string& path, platform::file_facts& facts);
    bool is_missing(const std::string& path);
    bool lies_below(const std::string& path, const std::string& folder);
    platform::listing_result list(const std::string& folder,
                                  std::vector<platform::directory_entry>& entries);
    std::string walkable_path(const std::string& path);
    // Appends the paths of the streams that a file or folder in an image has beside its content. False
    // if there may be more.
    bool list_streams(const std::string& path, std::vector<std::string>& paths);

    // The files of this machine that hold what is at a path.
    std::vector<platform::file_id> identify(const std::string& path);

    // What is at a path; for a file that is no folder, `reason` tells why not, in words.
    place_kind kind_of(const std::string& path, std::string& reason);
    // Whether a folder is there, a volume and a disk among them, in whatever spelling.
    bool is_folder(const std::string& path);
    // The roots of the volumes in images that a path leads to, or into.
    std::vector<std::string> volumes_at(const std::string& path);
    // Whether a disk is known by the copy of its partition table alone.
    bool reads_copy_of_table(const std::string& disk);
    // Whether a path leads into an image, which need not hold it.
    bool is_in_image(const std::string& path) { return locate(path).of != nullptr; }

private:
    struct known_image {
        std::string path; // as it was typed
        std::shared_ptr<image> of;
    };
    // Where a path leads.
    struct location {
        std::shared_ptr<image> of; // null for a path outside of images
        std::string path;          // of the image
        std::string rest;          // of the path, behind that
    };
    // A location on a volume.
    struct found_place {
        std::shared_ptr<mounted_volume> volume;
        std::string root; // the path of the volume
        place_on_volume place;
    };

    location locate(const std::string& path);
    location locate_known(const std::string& path);
    std::shared_ptr<image> image_at(const std::string& path);
    bool find(const location& where, found_place& found, std::string& reason);
    platform::listing_result list_in(const location& where,
                                     std::vector<platform::directory_entry>& entries);

    std::mutex mutex_;
    std::list<known_image> images_; // the one used last first
};

} // namespace files
