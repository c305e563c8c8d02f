#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "io/large_vector.h"
#include "sdb/database.h"

namespace form {

// The texts of string references as UTF-8 with their marks. Listings show the same strings again and again, so each
// is converted once and kept, side by side with others, as long as no other string takes its place.
class text_cache {
public:
    explicit text_cache(const sdb::sdb_database& database) : database_(database) {}

    // What is known of a reference. `plain` is that of uni::put_stored_utf16.
    struct entry {
        std::uint32_t reference = 0;
        std::uint32_t position = 0;
        std::uint32_t length = 0;
        bool is_kept = false; // otherwise the text is too long to keep, or there are too many
        bool plain = false;
    };

    // To be called before the look-ups for a record, whose entries stay good until the next call.
    // Forgets everything when it has become too much.
    void begin_record();
    entry look_up(std::uint32_t reference)
    {
        slot& found = slots_[hash(reference) & (slots_.size() - 1)];
        if (found.position == 0 || found.reference != reference) [[unlikely]] {
            return convert(found, reference);
        }
        // Reading the head fetches the text's first bytes, too, long before they are written.
        text_head head;
        std::memcpy(&head, texts_.data() + found.position - sizeof head, sizeof head);
        return {reference, found.position, head.length, true, head.plain};
    }
    // The text of an entry that is kept; empty for a reference that leads nowhere. Good until the
    // next look-up.
    std::string_view text(const entry& kept) const noexcept
    {
        return {texts_.data() + kept.position, kept.length};
    }

private:
    // What is known of a text stands in front of it, so that slots stay small: many more of them fit
    // into the processor's cache (list_applications/xml in bench/listing_benchmark.cpp).
    struct text_head {
        std::uint32_t length;
        bool plain;
    };
    struct slot {
        std::uint32_t reference = 0;
        std::uint32_t position = 0; // of the text in texts_; 0 for none
    };

    static std::size_t hash(std::uint32_t reference) noexcept
    {
        return (reference * std::uint32_t{0x9e3779b1}) >> 12;
    }
    std::size_t slot_count() const;
    std::size_t most_text() const;
    entry convert(slot& place, std::uint32_t reference);

    const sdb::sdb_database& database_;
    io::large_vector<slot> slots_; // by their references' hashes
    io::large_vector<char> texts_;
};

} // namespace form
