#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/record.h"

namespace model {

// A followed record with all that it leads to, as it stands at one depth, and the text that was made of
// it. Where its groups are the same again, so is the text.
struct folded_record {
    std::uint32_t record = 0;
    std::uint16_t depth = 0;
    std::uint16_t height = 0;   // references in it, one through the other, wherever they lead
    std::uint16_t nested = 0;   // of its lists, one in the other, where a form counts them
    std::uint64_t gathered = 0; // items that it counts for
    std::vector<std::uint32_t>
        targets;                    // of its references; where one of them is open it is another
    std::vector<record_item> items; // of its groups
    std::vector<std::uint32_t> group_sizes;
    std::string text;
};

// Followed records that were met again and again, so that they need be neither gathered nor said once
// more: most of a long listing is the same few. They are kept up to a size, and stay where they are.
class folded_records {
public:
    explicit folded_records(std::size_t most_bytes) : most_bytes_(most_bytes) {}

    // The record of that offset at that depth; null where it is not kept.
    const folded_record* find(std::uint32_t record, std::uint16_t depth) const noexcept
    {
        if (slots_ == nullptr) {
            return nullptr;
        }
        const slot& found = (*slots_)[place_of(record, depth)];
        return found.record == record && found.depth == depth ? found.kept.get() : nullptr;
    }
    // Notes that one was met that is not kept. True for one that was met before, and for which there is
    // room.
    bool is_wanted(std::uint32_t record, std::uint16_t depth);
    void keep(folded_record&& made);

private:
    struct slot {
        std::uint32_t record = 0;
        std::uint16_t depth = 0;
        std::unique_ptr<const folded_record> kept;
    };
    static constexpr std::size_t slot_count = 8192;

    static std::size_t place_of(std::uint32_t record, std::uint16_t depth) noexcept
    {
        return ((record + depth) * std::uint32_t{0x9e3779b1} >> 16) % slot_count;
    }

    std::unique_ptr<std::array<slot, slot_count>> slots_; // made for the first one
    std::size_t most_bytes_;
    std::size_t bytes_ = 0;
};

} // namespace model
