#include "form/text_cache.h"

#include <algorithm>
#include <bit>

#include "uni/marks.h"
#include "uni/utf.h"

namespace form {

// About a slot for each string of common length, within what a run may reasonably take.
std::size_t text_cache::slot_count() const
{
    constexpr std::uint64_t image_bytes_of_a_string = 64;
    constexpr std::uint64_t fewest = 256;
    constexpr std::uint64_t most = std::uint64_t{1} << 18;
    const std::uint64_t strings = database_.image().size() / image_bytes_of_a_string;
    return static_cast<std::size_t>(std::bit_ceil(std::clamp(strings, fewest, most)));
}

std::size_t text_cache::most_text() const
{
    constexpr std::size_t always_allowed = 0x10000;
    return std::max(static_cast<std::size_t>(database_.image().size() / 2), always_allowed);
}

void text_cache::begin_record()
{
    if (slots_.empty() || texts_.size() > most_text()) {
        slots_.assign(slot_count(), slot());
        texts_.clear();
    }
}

text_cache::entry text_cache::convert(slot& place, std::uint32_t reference)
{
    constexpr std::uint64_t longest_kept = 1024;
    const uni::byte_view stored = database_.string_bytes(reference);
    entry found;
    found.reference = reference;
    if (stored.size() > longest_kept || texts_.size() > most_text()) {
        return found;
    }
    const std::size_t start = texts_.size() + sizeof(text_head);
    texts_.resize(start + uni::stored_text_room(stored.size()));
    char* const end = uni::put_stored_utf16(texts_.data() + start, stored, found.plain);
    texts_.resize(static_cast<std::size_t>(end - texts_.data()));
    const std::string_view text(texts_.data() + start, texts_.size() - start);
    if (!found.plain && uni::needs_marks(text)) [[unlikely]] {
        const std::string marked = uni::marked(text);
        texts_.resize(start + marked.size());
        std::ranges::copy(marked, texts_.data() + start);
    }
    found.position = static_cast<std::uint32_t>(start);
    found.length = static_cast<std::uint32_t>(texts_.size() - start);
    found.is_kept = true;
    const text_head head{found.length, found.plain};
    std::memcpy(texts_.data() + start - sizeof head, &head, sizeof head);
    place = {reference, found.position};
    return found;
}

} // namespace form
