#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "io/byte_source.h"
#include "ntfs/folder.h"
#include "ntfs/stored_file.h"
#include "ntfs/volume.h"
#include "platform/directories.h"
#include "platform/files.h"

namespace files {

// The bytes of an image, which its volumes read one at a time: who reads holds the mutex.
struct image_bytes {
    std::unique_ptr<io::byte_source> source;
    std::mutex mutex;
};

// The folder of files that were deleted, below the root; it is none of the volume's own. One of that name is
// named with a "./" in front.
inline constexpr std::string_view deleted_folder = "$deleted";

// What a path on a volume leads to.
struct place_on_volume {
    // Files that were deleted stand each in a folder named by the numbers of its record: 1234-5.
    enum class area { living, all_deleted, one_record, deleted_file };

    area in = area::living;
    std::uint64_t reference = 0;    // of its record
    std::uint64_t parent = 0;       // of a living one: that of the folder where it was found
    std::vector<std::string> names; // from the root, as they stand on the volume
    std::string stream;             // behind a colon; empty for the content
};

// An NTFS volume that lies in an image. Several threads may use it. Paths on it are UTF-8; the slash
// parts their names, and the backslash where nothing is found otherwise. Letter case counts as on the
// volume: the name that is spelled so comes first.
class mounted_volume : public std::enable_shared_from_this<mounted_volume> {
public:
    // Mounts the volume that begins at a byte of the image. Null, with what it is in words, for none.
    static std::shared_ptr<mounted_volume> mount(std::shared_ptr<image_bytes> bytes,
                                                 std::uint64_t start, std::uint64_t size,
                                                 std::string& reason);

    // Finds what a path leads to; links are not followed. False, with the reason in words, which is
    // `no_such_file` where there is nothing of that name.
    static constexpr const char* no_such_file = "no such file";
    // Why there is no volume where a table has one.
    static constexpr const char* beyond_image = "lies beyond the end of the image";
    static constexpr const char* damaged = "is a damaged NTFS volume";
    bool find(std::string_view path, place_on_volume& place, std::string& reason);

    // These read what find() found.
    std::unique_ptr<io::byte_source> open(const place_on_volume& place, std::string& reason);
    // False, too, for a file whose record does not tell its size.
    bool read_facts(const place_on_volume& place, platform::file_facts& facts);
    // Appends the names of the streams that a file or folder has beside its content. False if there may
    // be more: its record is damaged, or a name is no text.
    bool list_streams(const place_on_volume& place, std::vector<std::string>& names);
    platform::listing_result list(const place_on_volume& place,
                                  std::vector<platform::directory_entry>& entries);

private:
    friend class volume_file;

    // A folder whose index was read, with the names that its own record has.
    struct known_folder {
        std::uint64_t entry = 0;
        std::vector<ntfs::stored_name> own_names;
        ntfs::folder children;
        ntfs::folder::state state = ntfs::folder::state::whole;

        std::size_t cost() const noexcept { return 1024 + children.cost(); }
    };
    // Where a walk down a path has come to.
    struct step {
        std::uint64_t reference = 0;
        std::string name;
    };

    mounted_volume(std::shared_ptr<image_bytes> bytes, std::unique_ptr<ntfs::ntfs_volume> volume)
        : bytes_(std::move(bytes)), volume_(std::move(volume)), letters_(*volume_)
    {}

    bool find_deleted(const std::vector<std::string_view>& names, place_on_volume& place,
                      std::string& reason);
    void list_deleted(const place_on_volume& place,
                      std::vector<platform::directory_entry>& entries);
    bool find_parted(std::string_view path, std::string_view separators, place_on_volume& place,
                     std::string& reason);
    bool enter(std::vector<step>& steps, std::string_view name, bool is_last,
               place_on_volume& place, std::string& reason);
    ntfs::folder::child look_up(const std::vector<step>& steps, std::string_view name,
                                std::string& reason);
    known_folder* folder_at(const std::vector<step>& steps, std::string& reason);
    known_folder* read_folder(std::uint64_t reference, std::string& reason);
    known_folder* keep(known_folder folder);

    const std::shared_ptr<image_bytes> bytes_;
    const std::unique_ptr<ntfs::ntfs_volume> volume_;
    const ntfs::letter_case letters_;
    std::list<known_folder> folders_; // the one used last first
    std::unordered_map<std::uint64_t, std::list<known_folder>::iterator> by_entry_;
    std::optional<std::vector<std::uint64_t>> deleted_; // references, once they were looked for
    std::size_t kept_ = 0;                              // cost of all of them
    std::uint64_t largest_entry_ = 0;
    std::size_t largest_ = 0; // cost of that one
};

} // namespace files
