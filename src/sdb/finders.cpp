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
    tags.erase(std::unique(tags.begin(), tags.end()), tags.end());
}

// The references of the strings whose text holds `wanted`, which is not empty.
std::vector<std::uint32_t> references_with(const searchable_strings& strings,
                                           std::string_view wanted)
{
    std::vector<std::uint32_t> references;
    const std::string_view text(strings.text.data(), strings.text.size());
    std::size_t hit = text.find(wanted);
    while (hit != std::string_view::npos) {
        const auto behind =
            std::ranges::upper_bound(strings.starts, static_cast<std::uint32_t>(hit));
        references.push_back(
            strings.references[static_cast<std::size_t>(behind - strings.starts.begin()) - 1]);
        hit = behind == strings.starts.end() ? std::string_view::npos : text.find(wanted, *behind);
    }
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
    const searchable_strings& strings = database.string_offsets();
    const std::string wanted = uni::lowered(pattern);
    const std::vector<std::uint32_t> references =
        wanted.empty() ? strings.references : references_with(strings, wanted);
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
    for (const std::uint32_t ordinal : database.ordinals_by_tag(tag::patch_bits)) {
        const std::uint32_t offset = database.offset_at(ordinal);
        if (value_holds(database.payload_at(offset), pattern)) {
            result.push_back(offset);
        }
    }
    return !result.empty();
}

} // namespace sdb
