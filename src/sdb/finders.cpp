#include "sdb/finders.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "sdb/patch_op.h"
#include "sdb/tags.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace sdb {

namespace {

void sort_unique(found_tags& tags)
{
    std::ranges::sort(tags);
    tags.erase(std::unique(tags.begin(), tags.end()), tags.end());
}

// Looks for text in stored UTF-16LE text, ASCII letters in either case.
class stored_text_search {
public:
    // `wanted` is lower-cased UTF-8 text, not empty.
    explicit stored_text_search(std::string_view wanted) : wanted_(wanted)
    {
        // From the commonest on, as names of programs have them.
        constexpr std::string_view common = "eaoitnsrl. cmudpxghfbvykw0123456789_-j";
        is_ascii_ = std::ranges::all_of(wanted, [](char c) { return is_ascii(c); });
        const auto rarity = [&](char c) { return common.find(c); };
        const auto rarest = std::ranges::max_element(wanted, {}, rarity);
        rare_place_ = static_cast<std::size_t>(rarest - wanted.begin());
        rare_ = static_cast<std::uint8_t>(*rarest);
        case_bit_ = *rarest >= 'a' && *rarest <= 'z' ? 'a' - 'A' : 0;
    }

    bool is_in(uni::byte_view stored)
    {
        return is_ascii_ ? is_in_units(stored) : is_in_text(stored);
    }

private:
    static bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }

    // Goes through the bytes for one that may be the rarest character's, whole blocks at a time.
    bool is_in_units(uni::byte_view stored) const
    {
        constexpr std::size_t block = 32;
        const auto bytes = stored.bytes();
        std::size_t place = 0;
        for (; bytes.size() - place >= block; place += block) {
            std::uint8_t any = 0;
            for (std::size_t i = 0; i < block; ++i) {
                any = static_cast<std::uint8_t>(any | (may_be_rare(bytes[place + i]) ? 1 : 0));
            }
            if (any != 0 && is_near(stored, place, place + block)) {
                return true;
            }
        }
        return is_near(stored, place, bytes.size());
    }

    bool may_be_rare(std::uint8_t byte) const { return (byte | case_bit_) == rare_; }

    // Whether the text stands so that its rarest character is among these bytes.
    bool is_near(uni::byte_view stored, std::size_t first, std::size_t end) const
    {
        for (std::size_t place = first; place < end; place += 2) {
            if (may_be_rare(stored.u8(place)) && place >= 2 * rare_place_ &&
                stands_at(stored, place - 2 * rare_place_)) {
                return true;
            }
        }
        return false;
    }

    bool stands_at(uni::byte_view stored, std::size_t place) const
    {
        if (!stored.contains(place, 2 * wanted_.size())) {
            return false;
        }
        for (std::size_t i = 0; i < wanted_.size(); ++i) {
            const std::uint16_t unit = stored.u16(place + 2 * i);
            if (unit >= 0x80 || uni::lower_ascii(static_cast<char>(unit)) != wanted_[i]) {
                return false;
            }
        }
        return !ends_before(stored, place);
    }

    // Stored text ends at its first zero unit.
    static bool ends_before(uni::byte_view stored, std::size_t place)
    {
        for (std::size_t i = 0; i < place; i += 2) {
            if (stored.u16(i) == 0) {
                return true;
            }
        }
        return false;
    }

    bool is_in_text(uni::byte_view stored)
    {
        text_.resize(uni::stored_text_room(stored.size()));
        const char* const end = uni::put_stored_utf16(text_.data(), stored);
        text_.resize(static_cast<std::size_t>(end - text_.data()));
        std::ranges::transform(text_, text_.begin(), uni::lower_ascii);
        return text_.find(wanted_) != std::string::npos;
    }

    std::string wanted_;
    std::string text_; // of the string in work
    std::size_t rare_place_ = 0;
    std::uint8_t rare_ = 0;
    std::uint8_t case_bit_ = 0;
    bool is_ascii_ = false;
};

// The references of the strings whose text holds `wanted`, which is not empty.
std::vector<std::uint32_t> references_with(const sdb_database& database, std::string_view wanted)
{
    std::vector<std::uint32_t> references;
    stored_text_search search(wanted);
    std::ranges::copy_if(database.string_offsets(), std::back_inserter(references),
                         [&](std::uint32_t reference) {
                             return search.is_in(database.searchable_bytes(reference));
                         });
    return references;
}

bool value_holds(uni::byte_view value, std::span<const std::uint8_t> pattern)
{
    bool found = false;
    for_each_patch_op(value, [&](const patch_op& op, std::uint64_t) {
        const auto data = op.data.bytes();
        found = std::search(data.begin(), data.end(), pattern.begin(), pattern.end()) != data.end();
        return !found;
    });
    return found;
}

} // namespace

bool find_strings(const sdb_database& database, found_tags& result, std::string_view pattern)
{
    const std::string wanted = uni::lowered(pattern);
    const std::vector<std::uint32_t> references =
        wanted.empty() ? database.string_offsets() : references_with(database, wanted);
    const std::vector<std::uint32_t> referrers = database.string_referrers(references);
    result.insert(result.end(), referrers.begin(), referrers.end());
    sort_unique(result);
    return !result.empty();
}

bool find_guid(const sdb_database& database, found_tags& result, std::string_view guid)
{
    result.clear();
    const std::string wanted = uni::lowered(guid);
    for (const guid_item& item : database.guid_items()) {
        if (item.text() == wanted) {
            result.push_back(database.offset_at(item.ordinal));
        }
    }
    sort_unique(result);
    return !result.empty();
}

bool find_patch_bytes(const sdb_database& database, found_tags& result,
                      std::span<const std::uint8_t> pattern)
{
    result.clear();
    if (pattern.empty()) {
        return false;
    }
    for (const tag_ordinal ordinal : database.ordinals_by_tag(tag::patch_bits)) {
        const std::uint32_t offset = database.offset_at(ordinal);
        if (value_holds(database.payload_at(offset), pattern)) {
            result.push_back(offset);
        }
    }
    return !result.empty();
}

} // namespace sdb
