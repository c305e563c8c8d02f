#include "front/filter.h"

#include <algorithm>

#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace front {

namespace {

std::vector<std::string> split_items(std::string_view text)
{
    std::vector<std::string> items;
    for (const char separator : {'|', ','}) {
        if (text.find(separator) != std::string_view::npos) {
            items = uni::split(text, separator, true);
            break;
        }
    }
    if (items.empty()) {
        items.emplace_back(text);
    }
    return items;
}

// Takes every star out of a pattern and tells whether it began or ended with one.
void take_stars(std::u16string& pattern, bool& at_front, bool& at_back)
{
    at_front = pattern.starts_with(u'*');
    at_back = pattern.ends_with(u'*');
    std::erase(pattern, u'*');
}

// Cuts the stream part, behind a colon, off the pattern.
void take_stream_part(filter_entry& entry)
{
    const std::size_t colon = entry.pattern.find(u':');
    if (colon == std::u16string::npos) {
        return;
    }
    entry.has_stream = true;
    entry.stream_pattern = entry.pattern.substr(colon + 1);
    entry.pattern.resize(colon);
    if (entry.stream_pattern == u"*") {
        entry.stream_all = true;
    } else {
        take_stars(entry.stream_pattern, entry.stream_star_front, entry.stream_star_back);
    }
}

filter_entry make_entry(std::string_view item)
{
    filter_entry entry;
    entry.text = entry.pattern = uni::utf16_from_utf8(item);
    take_stream_part(entry);
    if (entry.has_stream && entry.pattern == u"*") {
        entry.match_all = true;
        return entry;
    }
    take_stars(entry.pattern, entry.star_front, entry.star_back);
    entry.is_path = entry.pattern.starts_with(u'\\');
    return entry;
}

} // namespace

bool parse_filter(std::vector<filter_entry>& entries, std::string_view text)
{
    entries.clear();
    for (const std::string& item : split_items(uni::lowered(text))) {
        if (item == "*") {
            filter_entry everything;
            everything.text = u"*";
            everything.match_all = true;
            entries.assign(1, everything);
            break;
        }
        entries.push_back(make_entry(item));
    }
    return !entries.empty();
}

filter_entry parse_signature_filter(std::string_view text)
{
    std::size_t separator = text.find('|');
    if (separator == std::string_view::npos) {
        separator = text.find(',');
    }
    filter_entry entry;
    for (const std::string& byte : uni::split(text.substr(0, separator), ' ', true)) {
        if (const auto value = uni::read_u32_auto("0x" + byte)) {
            entry.signature.push_back(static_cast<std::uint8_t>(*value));
        }
    }
    if (separator != std::string_view::npos) {
        entry.signature_offset = uni::read_u64_auto(text.substr(separator + 1)).value_or(0);
    }
    return entry;
}

} // namespace front
