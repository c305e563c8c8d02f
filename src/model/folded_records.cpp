#include "model/folded_records.h"

#include <utility>

namespace model {

bool folded_records::is_wanted(std::uint32_t record, std::uint16_t depth)
{
    if (most_bytes_ == 0) {
        return false;
    }
    if (slots_ == nullptr) {
        slots_ = std::make_unique<std::array<slot, slot_count>>();
    }
    slot& noted = (*slots_)[place_of(record, depth)];
    if (noted.kept != nullptr || bytes_ >= most_bytes_) {
        return false;
    }
    if (noted.record == record && noted.depth == depth) {
        return true;
    }
    noted.record = record;
    noted.depth = depth;
    return false;
}

void folded_records::keep(folded_record&& made)
{
    const std::size_t bytes = sizeof made + made.text.size() +
                              made.items.size() * sizeof(record_item) +
                              (made.targets.size() + made.group_sizes.size()) * 4;
    slot& place = (*slots_)[place_of(made.record, made.depth)];
    if (bytes <= most_bytes_ - bytes_ && place.kept == nullptr) {
        place.record = made.record; // another may have been met since
        place.depth = made.depth;
        place.kept = std::make_unique<const folded_record>(std::move(made));
        bytes_ += bytes;
    }
}

} // namespace model
