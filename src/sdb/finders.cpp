#include "sdb/finders.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "sdb/patch_op.h"
#include "sdb/tags.h"
#include "uni/text.h"
#include "uni/text_set.h"
#include "uni/utf.h"

namespace sdb {

namespace {

void sort_unique(found_tags& tags)
{
    std::ranges::sort(tags);
    tags.erase(std::unique(tags.begin(), tags.end()), tags.end());
}

bool is_ascii(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Looks for one ASCII text in stored UTF-16LE text, ASCII letters in either case: the usual search, over
// the stored units as they stand.
class ascii_search {
public:
    // `wanted` is lower-cased, not empty.
    explicit ascii_search(std::string_view wanted) : wanted_(wanted)
    {
        // From the commonest on, as names of programs have them.
        constexpr std::string_view common = "eaoitnsrl. cmudpxghfbvykw0123456789_-j";
        const auto rarity = [&](char c) { return common.find(c); };
        const auto rarest = std::ranges::max_element(wanted, {}, rarity);
        rare_place_ = static_cast<std::size_t>(rarest - wanted.begin());
        rare_ = static_cast<std::uint8_t>(*rarest);
        case_bit_ = *rarest >= 'a' && *rarest <= 'z' ? 'a' - 'A' : 0;
    }

    // Stored text ends at its first zero unit: if one stands before the first place, then before all.
    bool is_in(uni::byte_view stored) const
    {
        const std::optional<std::size_t> place = first_place(stored);
        return place && !ends_before(stored, *place);
    }

private:
    // Goes through the bytes for one that may be the rarest character's, whole blocks at a time.
    std::optional<std::size_t> first_place(uni::byte_view stored) const
    {
        constexpr std::size_t block = 32;
        const auto bytes = stored.bytes();
        std::size_t at = 0;
        for (; bytes.size() - at >= block; at += block) {
            std::uint8_t any = 0;
            for (std::size_t i = 0; i < block; ++i) {
                any = static_cast<std::uint8_t>(any | (may_be_rare(bytes[at + i]) ? 1 : 0));
            }
            if (any != 0) {
                if (const auto found = place_near(stored, at, at + block)) {
                    return found;
                }
            }
        }
        return place_near(stored, at, bytes.size());
    }

    bool may_be_rare(std::uint8_t byte) const { return (byte | case_bit_) == rare_; }

    // Where the text stands so that its rarest character is among these bytes.
    std::optional<std::size_t> place_near(uni::byte_view stored, std::size_t first,
                                          std::size_t end) const
    {
        for (std::size_t at = first; at < end; at += 2) {
            if (may_be_rare(stored.u8(at)) && at >= 2 * rare_place_ &&
                stands_at(stored, at - 2 * rare_place_)) {
                return at - 2 * rare_place_;
            }
        }
        return std::nullopt;
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
        return true;
    }

    static bool ends_before(uni::byte_view stored, std::size_t place)
    {
        for (std::size_t i = 0; i < place; i += 2) {
            if (stored.u16(i) == 0) {
                return true;
            }
        }
        return false;
    }

    std::string wanted_;
    std::size_t rare_place_ = 0;
    std::uint8_t rare_ = 0;
    std::uint8_t case_bit_ = 0;
};

// The same for several texts, or one beyond ASCII.
class set_search {
public:
    explicit set_search(std::vector<std::string> wanted) : wanted_(std::move(wanted)) {}

    bool is_in(uni::byte_view stored)
    {
        text_.resize(uni::stored_text_room(stored.size()));
        const char* const end = uni::put_stored_utf16(text_.data(), stored);
        text_.resize(static_cast<std::size_t>(end - text_.data()));
        std::ranges::transform(text_, text_.begin(), uni::lower_ascii);
        return wanted_.stands_in(text_);
    }

private:
    uni::text_set wanted_;
    std::string text_; // of the string in work
};

std::vector<std::uint32_t> references_where(const sdb_database& database, auto search)
{
    std::vector<std::uint32_t> references;
    std::ranges::copy_if(database.string_offsets(), std::back_inserter(references),
                         [&](std::uint32_t reference) {
                             return search.is_in(database.searchable_bytes(reference));
                         });
    return references;
}

// The references of the strings whose text holds one of these.
std::vector<std::uint32_t> references_with(const sdb_database& database,
                                           std::span<const std::string> wanted)
{
    std::vector<std::string> lowered;
    std::ranges::transform(wanted, std::back_inserter(lowered),
                           [](const std::string& text) { return uni::lowered(text); });
    if (lowered.size() == 1 && !lowered[0].empty() && is_ascii(lowered[0])) {
        return references_where(database, ascii_search(lowered[0]));
    }
    return references_where(database, set_search(std::move(lowered)));
}

// Operations begin ever further on in their value, so that the first place of the pattern behind
// where one's data begin is looked for from the one before it on.
bool value_holds(uni::byte_view value, std::span<const std::uint8_t> pattern)
{
    const auto bytes = value.bytes();
    auto place = bytes.begin();
    bool is_place = false;
    bool found = false;
    for_each_patch_op(value, [&](const patch_op& op, std::uint64_t position) {
        const auto data = bytes.begin() + static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(
                                              position + patch_op_head, bytes.size()));
        if (!is_place || place < data) {
            place = std::search(std::max(place, data), bytes.end(), pattern.begin(), pattern.end());
            is_place = true;
        }
        const auto data_end = data + static_cast<std::ptrdiff_t>(op.data.size());
        found = place < data_end && static_cast<std::size_t>(data_end - place) >= pattern.size();
        return !found && place != bytes.end();
    });
    return found;
}

} // namespace

bool find_strings(const sdb_database& database, found_tags& result,
                  std::span<const std::string> wanted)
{
    result = database.string_referrers(references_with(database, wanted));
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
    for (const tag_ordinal ordinal : database.children().patches()) {
        const std::uint32_t offset = database.offset_at(ordinal);
        if (value_holds(database.payload_at(offset), pattern)) {
            result.push_back(offset);
        }
    }
    return !result.empty();
}

} // namespace sdb
