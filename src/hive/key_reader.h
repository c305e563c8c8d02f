// Keys of a hive; what cells hold stands in cells.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "hive/allowance.h"
#include "hive/hive_image.h"
#include "hive/value_reader.h"
#include "uni/byte_view.h"

namespace hive {

// A hive may have very many of these, so that they do not hold what key_reader can tell of them.
struct hive_key_item {
    std::uint32_t cell = 0; // offset in the image
    std::uint16_t name_length = 0;
};

// Reads one hive for one query. The subkeys of a key are read once and kept.
//
// Time and memory are bounded, for cells of a hostile hive may lie over each other and be listed
// again and again. Everything has a price, about the bytes that it takes in the image. No sound hive
// comes near the bounds; what is refused counts as unreadable and takes nothing else along:
//
//   entries of subkey lists   an image for a list, eight for all
//   keys that they list       the same; keys with a name that no registry would take by themselves
//
// Values have bounds of their own: see value_reader. Whatever is refused, and whatever a sound hive
// could not hold, is noted. The image must outlive the reader.
class key_reader {
public:
    explicit key_reader(const hive_image& image);

    const hive_image& image() const noexcept { return image_; }
    value_reader& values() noexcept { return values_; }

    // The subkeys in the order of the list, each cell once. False, and `items` empty, if the key or
    // its list cannot be read, the list's count is not the key's, or an "li" part of an "ri" list
    // cannot be read. How much of a damaged list is given depends on its kind: see take_entries.
    bool enum_subkeys(std::uint64_t key, std::vector<hive_key_item>& items);

    // The same, kept by the reader; empty on failure.
    const std::vector<hive_key_item>& subkeys_of(std::uint64_t key);

    std::string name_of(const hive_key_item& item) const;

    // The cell of the first subkey of that name, ASCII case aside.
    std::optional<std::uint64_t> find_subkey(std::uint64_t key, std::string_view name);

    // The name of the root's subkey that is the control set in use.
    std::optional<std::string> resolve_current_control_set();

    std::uint64_t last_write_of(std::uint64_t key) const;

    // Whether less was given than a sound hive would have held.
    bool is_damaged() const noexcept { return is_damaged_ || values_.is_damaged(); }

private:
    struct subkey_list {
        std::uint16_t kind = 0;
        std::uint16_t count = 0;
        std::uint64_t stride = 4;
        uni::byte_view entries;
    };
    enum class list_end { reached, entry_unreadable };
    using reference_set = std::unordered_set<std::uint32_t>;
    struct known_subkeys {
        std::vector<hive_key_item> items;
        std::vector<std::uint32_t> by_name; // their numbers; made when a name is first asked for
    };

    uni::byte_view stored_name(const hive_key_item& item) const;
    bool take_key(std::uint64_t name_length) noexcept;
    std::optional<subkey_list> list_at(std::uint32_t reference) const;
    bool has_sound_security(uni::byte_view key) const;
    bool has_sound_list(uni::byte_view key) const;
    list_end take_entries(const subkey_list& list, bool is_part, reference_set& seen,
                          std::vector<hive_key_item>& items);
    bool take_parts(const subkey_list& list, reference_set& seen,
                    std::vector<hive_key_item>& items);
    bool take_subkeys(uni::byte_view key, std::vector<hive_key_item>& items);
    known_subkeys& known(std::uint64_t key);

    const hive_image& image_;
    allowance entries_;
    allowance keys_;
    allowance long_keys_;
    value_reader values_;
    bool is_damaged_ = false;
    std::unordered_map<std::uint64_t, known_subkeys> known_;
};

} // namespace hive
