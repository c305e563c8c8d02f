#pragma once

#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

#include "support/sdb_builder.h"

// NTFS volumes for tests, laid out record by record:
//
//     ntfs_builder volume;
//     volume.record(5, {file_name(5, u"."), index_root({64})}, directory_flags);
//     memory_disk disk{.bytes = volume.image()};
//
// Clusters have 1024 bytes, as records do. $MFT begins at cluster 4 and holds 96 records; contents
// go to clusters from 128 on.
namespace test_support {

inline constexpr std::uint64_t ntfs_cluster = 1024, ntfs_mft_cluster = 4, ntfs_records = 96;
inline constexpr std::uint16_t file_flags = 1, directory_flags = 3;

struct non_resident {
    bytes runs; // as stored, with the zero that ends them
    std::uint64_t real_size = 0, initialized_size = ~std::uint64_t{0}; // the real size
    std::uint64_t first_vcn = 0;
    std::uint16_t flags = 0;
    std::uint64_t compressed_size = 0;
};

bytes resident_attribute(std::uint32_t type, const bytes& value, std::u16string_view name = {},
                         std::uint16_t id = 0);
bytes non_resident_attribute(std::uint32_t type, const non_resident& value,
                             std::u16string_view name = {}, std::uint16_t id = 0);

// A file name attribute; name spaces as on disk.
bytes file_name(std::uint64_t parent, std::u16string_view name, std::uint8_t name_space = 1,
                std::uint16_t id = 0);

// Their entries refer to these records in this order.
bytes index_root(const std::vector<std::uint64_t>& children, std::uint16_t id = 0);
bytes index_block(const std::vector<std::uint64_t>& children);

struct list_item {
    std::uint32_t type;
    std::uint64_t record;
    std::uint16_t id;
};
bytes attribute_list(const std::vector<list_item>& items);

class ntfs_builder {
public:
    ntfs_builder();

    // Puts a record in its place; all others are zeros.
    void record(std::uint64_t entry, const std::vector<bytes>& attributes,
                std::uint16_t flags = file_flags, std::uint64_t base = 0);
    // Puts contents on the volume from a cluster on.
    void clusters(std::uint64_t lcn, const bytes& contents);
    bytes image() const;

private:
    bytes boot_;
    std::map<std::uint64_t, bytes> places_; // by offset
};

// A Windows tree with what a hive would have: `hive` are the attributes of its record, 44, behind its
// names. The directories are 5, 40, 42 and 43, the last with an index in clusters 120 and 140.
ntfs_builder windows_volume(const std::vector<bytes>& hive);
inline constexpr const char* hive_path = "\\windows\\system32\\config\\software";

// The offset of a record in the image.
constexpr std::uint64_t place_of_record(std::uint64_t entry)
{
    return (ntfs_mft_cluster + entry) * ntfs_cluster;
}

} // namespace test_support
