#include "model/suspect_texts.h"

#include <algorithm>
#include <array>
#include <initializer_list>

#include "uni/guid.h"
#include "uni/text.h"

namespace model {

namespace {

// "KB" with a number behind it, as articles about updates are called.
bool names_article(std::string_view lower)
{
    for (std::size_t at = lower.find("kb"); at != std::string_view::npos;
         at = lower.find("kb", at + 1)) {
        const std::size_t digits =
            at + 2 < lower.size() && (lower[at + 2] == ' ' || lower[at + 2] == '-') ? at + 3
                                                                                    : at + 2;
        const bool begins = at == 0 || !uni::is_letter_or_digit(lower[at - 1]);
        constexpr std::size_t fewest_digits = 3;
        const std::size_t end =
            std::min(lower.find_first_not_of("0123456789", digits), lower.size());
        if (begins && digits < lower.size() && end - digits >= fewest_digits) {
            return true;
        }
    }
    return false;
}

} // namespace

bool poses_as_update(const knowledge& known, std::string_view name)
{
    const std::string lower = uni::lowered(name);
    return names_article(lower) || known.begins_word(name_list::update_word, lower);
}

std::string_view without_number(std::string_view name)
{
    std::string_view rest = name;
    if (rest.ends_with(')')) {
        rest.remove_suffix(1);
    }
    const std::size_t before = rest.find_last_not_of("0123456789");
    if (before == std::string_view::npos || before + 1 == rest.size()) {
        return name;
    }
    rest = rest.substr(0, before + 1);
    return uni::trimmed(rest.substr(0, rest.find_last_not_of("(_ ") + 1));
}

bool is_bare_guid(std::string_view name)
{
    std::string text(name);
    uni::remove_char(text, '{');
    uni::remove_char(text, '}');
    return text.size() == uni::guid_text_length &&
           text.find_first_not_of("0123456789abcdefABCDEF-") == std::string::npos;
}

namespace {

constexpr std::string_view digits_of_hexadecimal = "0123456789abcdef0123456789abcdef"; // and on

// Whether all differ from those in front of them by the same, if that is not too much for an order.
template <typename number, std::size_t count>
bool are_in_order(const std::array<number, count>& all, unsigned modulus,
                  std::initializer_list<unsigned> steps)
{
    return std::ranges::any_of(steps, [&](unsigned step) {
        return std::ranges::adjacent_find(all, [&](unsigned a, unsigned b) {
                   return (a + step) % modulus != b;
               }) == all.end();
    });
}

} // namespace

bool has_pattern(std::string_view guid)
{
    std::string text(guid);
    uni::remove_char(text, '-');
    std::array<unsigned, uni::guid_size * 2> digits{};
    std::array<unsigned, uni::guid_size> bytes{};
    for (std::size_t i = 0; i < std::min(text.size(), digits.size()); ++i) {
        digits[i] = static_cast<unsigned>(digits_of_hexadecimal.find(text[i]));
        bytes[i / 2] = bytes[i / 2] * 16 + digits[i];
    }
    // As they are stored, three of the groups have their lowest byte in front.
    std::array<unsigned, uni::guid_size> stored = bytes;
    std::reverse(stored.begin(), stored.begin() + 4);
    std::reverse(stored.begin() + 4, stored.begin() + 6);
    std::reverse(stored.begin() + 6, stored.begin() + 8);
    const std::initializer_list<unsigned> byte_steps = {1, 0xff, 0x11, 0xef};
    if (are_in_order(digits, 16, {1, 15}) || are_in_order(bytes, 256, byte_steps) ||
        are_in_order(stored, 256, byte_steps)) {
        return true;
    }
    std::string distinct = text;
    std::ranges::sort(distinct);
    distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
    constexpr std::string_view words[] = {"deadbeef", "cafebabe", "feedface", "baadf00d",
                                          "deadc0de", "badc0ffe", "8badf00d"};
    if (distinct.size() <= 2 || std::ranges::any_of(words, [&](std::string_view word) {
            return text.find(word) != std::string::npos;
        })) {
        return true;
    }
    return std::ranges::all_of(uni::split(guid, '-', false), [&](const std::string& group) {
        return digits_of_hexadecimal.find(group) != std::string_view::npos ||
               group.find_first_not_of(group.front()) == std::string::npos;
    });
}

std::string host_of(std::string_view address)
{
    const std::string lower = uni::lowered(uni::trimmed(address));
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (lower.starts_with(scheme)) {
            std::string host = lower.substr(scheme.size());
            host = host.substr(0, host.find_first_of("/?#\\"));
            host = host.substr(host.find('@') + 1); // whole if there is none
            return host.starts_with('[') ? host : host.substr(0, host.find(':'));
        }
    }
    return {};
}

bool is_known_host(const knowledge& known, std::string_view host)
{
    for (;;) {
        if (known.holds(name_list::known_host, host)) {
            return true;
        }
        const std::size_t dot = host.find('.');
        if (dot == std::string_view::npos) {
            return false;
        }
        host.remove_prefix(dot + 1);
    }
}

bool is_path_or_address(std::string_view text)
{
    return text.find(":\\") != std::string_view::npos ||
           text.find("\\\\") != std::string_view::npos ||
           text.find("://") != std::string_view::npos || std::ranges::count(text, '%') >= 2;
}

} // namespace model
