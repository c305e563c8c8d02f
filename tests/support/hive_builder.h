#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/sdb_builder.h"

// Registry hives for tests, laid out from a tree of keys. Other programs read them too: bins, sizes,
// counts, hashes of "lh" lists and the checksum are what they should be. Damage is done afterwards:
//
//     hive_builder builder;
//     bytes image = builder.build(software_hive({installed_database("{a}", "C:\\a.sdb", "", 1)}));
//     put(image, builder.cell("list", installed_path) + 8, 0, 4);
namespace test_support {

struct hive_value {
    std::string name; // UTF-8; stored as bytes, or as UTF-16 when it is not ASCII
    std::uint32_t type = 0;
    bytes data; // up to four bytes stand in the value, above 16344 in segments
};

enum class list_kind { lf, lh, li, ri_lh, ri_li }; // "ri" lists have parts of two keys each

struct hive_key {
    std::string name;
    std::vector<hive_value> values = {};
    std::vector<hive_key> subkeys = {};
    list_kind list = list_kind::lh;
    std::uint64_t last_write = 132'000'000'000'000'000; // FILETIME ticks
};

hive_value text_value(std::string name, std::string_view text);                  // REG_SZ
hive_value number_value(std::string name, std::uint64_t number, unsigned width); // 4 or 8 bytes
inline hive_value dword_value(std::string name, std::uint32_t number)
{
    return number_value(std::move(name), number, 4);
}

// The path of the installed databases below the root key, its keys parted by backslashes.
inline constexpr std::string_view installed_path =
    "Microsoft\\Windows NT\\CurrentVersion\\AppCompatFlags\\InstalledSDB";

// A root key with installed databases at their place.
hive_key software_hive(std::vector<hive_key> databases, list_kind list = list_kind::lh);

// Its key with the usual four values.
hive_key installed_database(std::string name, std::string_view path, std::string_view description,
                            std::uint64_t install_time, std::uint32_t type = 0x10000);

class hive_builder {
public:
    // `name` is the one of the base block.
    bytes build(const hive_key& root, std::string_view name = "SOFTWARE");

    // The offset in the image of what belongs to a key ("nk", "list", "part0" and so on, "values") or,
    // by a path that ends with its name, to a value ("vk", "data").
    std::uint32_t cell(std::string_view kind, std::string_view path) const;

    static std::uint32_t reference(std::size_t offset)
    {
        return static_cast<std::uint32_t>(offset - 4096);
    }

private:
    std::uint32_t add_cell(const bytes& contents);
    void close_bin();
    std::uint32_t add_key(const hive_key& key, const std::string& path, std::uint32_t parent);
    std::uint32_t add_value(const hive_value& value, const std::string& path);
    std::uint32_t add_data(const bytes& data);
    std::uint32_t add_list(const hive_key& key, const std::string& path,
                           const std::vector<std::uint32_t>& cells);
    std::uint32_t add_plain_list(std::string_view mark, const hive_key& key, std::size_t first,
                                 const std::vector<std::uint32_t>& cells);

    bytes image_;
    std::size_t bin_end_ = 0;
    std::uint32_t security_ = 0;
    std::map<std::string, std::uint32_t, std::less<>> cells_;
};

} // namespace test_support
