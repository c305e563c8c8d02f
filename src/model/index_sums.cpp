#include "model/index_sums.h"

#include <algorithm>
#include <array>
#include <bit>

namespace model {

index_sums::index_sums(const sdb::sdb_database& database, const content_key& key)
{
    for (const sdb::sdb_index_record& index : database.indexes()) {
        const std::uint64_t kind = std::uint64_t{index.index_tag} << 48 |
                                   std::uint64_t{index.index_key} << 32 | index.index_flags;
        for (const auto& entry : index.entries) {
            const auto bytes = std::bit_cast<std::array<std::uint8_t, 16>>(
                std::array<std::uint64_t, 2>{kind, entry.key});
            entries_.emplace_back(entry.tag_offset, keyed_digest(key, 0, uni::byte_view(bytes)));
        }
    }
    std::ranges::stable_sort(entries_, {}, &entry_digest::first);
}

content_digest index_sums::of(std::uint32_t offset) const
{
    content_digest sum;
    auto one = std::ranges::lower_bound(entries_, offset, {}, &entry_digest::first);
    for (; one != entries_.end() && one->first == offset; ++one) {
        sum += one->second;
    }
    return sum;
}

index_sums::others index_sums::beside(const std::vector<std::uint32_t>& offsets) const
{
    others found;
    auto next = offsets.begin();
    for (const entry_digest& one : entries_) {
        next = std::find_if(next, offsets.end(),
                            [&](std::uint32_t offset) { return offset >= one.first; });
        if (next == offsets.end() || *next != one.first) {
            ++found.count;
            found.sum += one.second;
        }
    }
    return found;
}

} // namespace model
