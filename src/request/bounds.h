#pragma once

#include <cstddef>
#include <cstdint>

#include "sdb/inflate.h"

namespace request {

// What one database may cost, whoever made it. No honest one comes near: a listing of the largest takes
// 5 to 16 times their size.
struct bounds {
    // Of what is inflated.
    std::uint64_t inflated_bytes = sdb::most_inflated;

    // Of the records of one listing. Beyond the items that one record or all of them may have, no further
    // references are followed.
    std::size_t followed_records = 32; // one through the other, the record itself not counted
    std::uint64_t record_items = 100'000;
    std::uint64_t listing_items = 1'000'000;
    std::uint64_t listing_items_of_a_tag = 64; // for each tag of the database

    // Of the text of one database's listings, which is looked at behind each record. A record may go on
    // beyond it for `last_record_text`, and to the end of a value.
    std::uint64_t text_times_image = 64;
    std::uint64_t text_bytes = 0x4000000;
    std::uint64_t last_record_text = 0x100000;

    // Of what is kept of the records that others refer to, so that it need not be made again; for each
    // thread. The text is the same without.
    std::size_t folded_bytes = 0x400000;

    // Of the tags that a match looks at, each once for every record that it stands in.
    std::uint64_t matched_items = 2'000'000;
    std::uint64_t matched_items_of_a_tag = 4;

    // Who works: at most that many threads, or for 0 as many as the machine keeps busy, each on an entry
    // of a list or, of a long listing, on that many records at a time. What they write is the same.
    std::size_t threads = 0;
    std::size_t records_of_a_thread = 128;

    std::uint64_t most_text(std::uint64_t image_size) const noexcept
    {
        return text_times_image * image_size + text_bytes;
    }
};

} // namespace request
