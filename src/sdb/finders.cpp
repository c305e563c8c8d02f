#include "sdb/finders.h"

#include <algorithm>
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
    tags.erase(std::ranges::unique(tags).begin(), tags.end());
}

// The text of a stored string in lower case, in a buffer that is used again.
std::string_view lowered_text(std::string& buffer, uni::byte_view stored)
{
    buffer.resize(std::max(buffer.size(), uni::stored_text_room(stored.size())));
    char* const end = uni::put_stored_utf16(buffer.data(), stored);
    for (char* c = buffer.data(); c != end; ++c) {
        *c = uni::lower_ascii(*c);
    }
    return {buffer.data(), static_cast<std::size_t>(end - buffer.data())};
}

bool value_holds(uni::byte_view value, std::span<const std::uint8_t> pattern)
{
    bool found = false;
    for_each_patch_op(value, [&](const patch_op& op, std::uint64_t) {
        found = !std::ranges::search(op.data.bytes(), pattern).empty();
        return !found;
    });
    return found;
}

} // namespace

bool find_strings(const sdb_database& database, found_tags& result, std::string_view pattern)
{
    const std::string wanted = uni::lowered(pattern);
    std::string buffer;
    for (const searchable_string& string : database.searchable_strings()) {
        if (lowered_text(buffer, string.stored).find(wanted) != std::string_view::npos) {
            const std::vector<std::uint32_t> referrers =
                database.string_referrers(string.reference);
            result.insert(result.end(), referrers.begin(), referrers.end());
        }
    }
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
    for (const std::uint32_t ordinal : database.ordinals_by_tag(tag::patch_bits)) {
        const std::uint32_t offset = database.offset_at(ordinal);
        if (value_holds(database.payload_at(offset), pattern)) {
            result.push_back(offset);
        }
    }
    return !result.empty();
}

} // namespace sdb
