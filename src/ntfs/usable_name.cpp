#include "ntfs/usable_name.h"

#include <cstdint>

namespace ntfs {

namespace {

constexpr char16_t no_character = 0xfffd;

bool is_high(char16_t unit)
{
    return unit >= 0xd800 && unit <= 0xdbff;
}

bool is_low(char16_t unit)
{
    return unit >= 0xdc00 && unit <= 0xdfff;
}

void append_marked(std::u16string& to, char16_t unit)
{
    to.push_back(no_character);
    for (int shift = 12; shift >= 0; shift -= 4) {
        to.push_back(u"0123456789abcdef"[(unit >> shift) & 0xf]);
    }
}

// A path leads nowhere by a single point, and up by two.
bool leads_elsewhere(uni::byte_view stored)
{
    return stored.u16(0) == u'.' &&
           (stored.size() == 2 || (stored.size() == 4 && stored.u16(2) == u'.'));
}

} // namespace

bool append_usable(std::u16string& to, uni::byte_view stored)
{
    bool is_marked = leads_elsewhere(stored);
    for (std::uint64_t at = 0; at + 2 <= stored.size(); at += 2) {
        const char16_t unit = stored.u16(at);
        const bool has_partner = (is_high(unit) && is_low(stored.u16(at + 2))) ||
                                 (is_low(unit) && at != 0 && is_high(stored.u16(at - 2)));
        const bool is_unusable = unit == 0 || unit == u'/' ||
                                 ((is_high(unit) || is_low(unit)) && !has_partner) ||
                                 (at == 0 && leads_elsewhere(stored));
        if (is_unusable) {
            append_marked(to, unit);
            is_marked = true;
        } else {
            to.push_back(unit);
        }
    }
    return is_marked;
}

} // namespace ntfs
