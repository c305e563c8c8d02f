#include "model/payload.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "model/packed_bytes.h"
#include "uni/text.h"

namespace model {

namespace {

constexpr std::uint64_t long_base64 = 64;

std::vector<std::string> entries_of(const knowledge& known, name_list list)
{
    std::vector<std::string> texts;
    for (const auto& [entry, note] : known.entries(list)) {
        texts.push_back(entry);
    }
    return texts;
}

// The head of a program: "MZ", and where its word at 0x3c leads, "PE" and two zeros.
payload find_program(uni::byte_view bytes)
{
    for (std::uint64_t at = 0; at + 0x40 <= bytes.size(); ++at) {
        if (bytes.u8(at) == 'M' && bytes.u8(at + 1) == 'Z') {
            const std::uint64_t head = at + bytes.u32(at + 0x3c);
            if (bytes.contains(head, 4) && bytes.u32(head) == 0x4550) {
                return {payload_kind::program, at, 0};
            }
        }
    }
    return {};
}

bool is_base64(std::uint16_t unit)
{
    return (unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z') ||
           (unit >= '0' && unit <= '9') || unit == '+' || unit == '/';
}

// Whether there are capitals, small letters and digits or signs between two places, some of which are no
// hexadecimal digits, as nearly all of 64 random ones have.
bool has_all_kinds(uni::byte_view bytes, std::uint64_t at, std::uint64_t end, std::uint64_t width)
{
    bool has_capital = false;
    bool has_small = false;
    bool has_other = false;
    for (; at < end; at += width) {
        const std::uint8_t one = bytes.u8(at);
        has_capital = has_capital || (one >= 'A' && one <= 'Z');
        has_small = has_small || (one >= 'g' && one <= 'z');
        has_other = has_other || (one >= '+' && one < 'A');
    }
    return has_capital && has_small && has_other;
}

// A run of characters of that width that decodes: padded to a multiple of four. Long lines may follow one
// another.
payload find_base64(uni::byte_view bytes, std::uint64_t width)
{
    constexpr std::uint64_t long_line = 32; // shorter ones are words
    const auto unit_at = [&](std::uint64_t at) -> std::uint16_t {
        const bool is_there = at + width <= bytes.size();
        return !is_there ? std::uint16_t{0} : width == 2 ? bytes.u16(at) : bytes.u8(at);
    };
    for (std::uint64_t at = 0; at + long_base64 * width <= bytes.size();) {
        std::uint64_t end = at;
        std::uint64_t count = 0;
        std::uint64_t breaks = 0; // units that end lines
        for (std::uint64_t line = at;; line = end) {
            while (is_base64(unit_at(end))) {
                end += width;
            }
            count += (end - line) / width;
            const std::uint64_t after =
                end + (unit_at(end) == '\r' && unit_at(end + width) == '\n' ? 2 : 1) * width;
            const bool ends_line = unit_at(end) == '\r' || unit_at(end) == '\n';
            if (!ends_line || (end - line) / width < long_line || !is_base64(unit_at(after))) {
                break;
            }
            breaks += (after - end) / width;
            end = after;
        }
        std::uint64_t padded = end;
        while (padded < end + 2 * width && unit_at(padded) == '=') {
            padded += width;
        }
        const std::uint64_t length = (padded - at) / width - breaks;
        // As much of it as decodes; an identifier or a number is no data.
        const std::uint64_t decodes = length - length % 4;
        if (count >= long_base64 && decodes >= long_base64 &&
            has_all_kinds(bytes, at, end, width)) {
            return {payload_kind::base64, at, decodes};
        }
        at = std::max(end, padded) + width;
    }
    return {};
}

payload find_packed(uni::byte_view bytes)
{
    const std::optional<byte_run> run = find_packed_run(bytes);
    return run ? payload{payload_kind::packed, run->at, run->length} : payload();
}

// Whether stored text is none: it holds halves of surrogate pairs alone.
bool has_lone_surrogates(uni::byte_view stored)
{
    for (std::uint64_t at = 0; at + 2 <= stored.size(); at += 2) {
        const std::uint16_t unit = stored.u16(at);
        if (unit >= 0xd800 && unit < 0xdc00) {
            const std::uint16_t next = stored.u16(at + 2);
            if (next < 0xdc00 || next > 0xdfff) {
                return true;
            }
            at += 2;
        } else if (unit >= 0xdc00 && unit < 0xe000) {
            return true;
        }
    }
    return false;
}

} // namespace

payload_search::payload_search(const knowledge& known)
    : marks_(entries_of(known, name_list::script_mark)), scripts_(marks_)
{}

// Where the longest mark begins that ends in front of a place.
std::uint64_t payload_search::begin_of_mark(uni::byte_view bytes, std::uint64_t end) const
{
    std::uint64_t first = end;
    for (const std::string& mark : marks_) {
        std::uint64_t at = end;
        std::size_t left = mark.size();
        while (at > 0 && left > 0) {
            const std::uint8_t byte = bytes.u8(--at);
            if (byte != 0 && uni::lower_ascii(static_cast<char>(byte)) != mark[--left]) {
                ++left;
                break;
            }
        }
        first = left == 0 ? std::min(first, at) : first;
    }
    return first;
}

// Zeros are passed over, so that characters of two bytes are found as those of one.
payload payload_search::find_script(uni::byte_view bytes) const
{
    // What follows a mark in a path or a name of a file, and no blank before it ends.
    const auto goes_on_as_name = [bytes](std::uint64_t at, std::uint8_t last) {
        while (bytes.contains(at, 1) && bytes.u8(at) == 0) {
            ++at;
        }
        const auto next = bytes.contains(at, 1) ? static_cast<char>(bytes.u8(at)) : '\0';
        // An option of a command has a letter behind its sign.
        const bool is_no_option = (last == '-' || last == '/') && !uni::is_letter_or_digit(next);
        return is_no_option || next == '_' || next == '\\' || next == '/';
    };
    uni::text_set::state state = uni::text_set::start;
    std::uint64_t at = 0;
    for (const std::uint8_t byte : bytes.bytes()) {
        ++at;
        if (byte != 0) {
            state = scripts_.next(state, uni::lower_ascii(static_cast<char>(byte)));
            if (scripts_.is_found(state) && !goes_on_as_name(at, byte)) {
                return {payload_kind::script, begin_of_mark(bytes, at), 0};
            }
        }
    }
    return {};
}

payload payload_search::in_binary(uni::byte_view bytes) const
{
    payload found = find_program(bytes);
    if (found.kind == payload_kind::none) {
        found = find_script(bytes);
    }
    if (found.kind == payload_kind::none) {
        found = find_base64(bytes, 1);
    }
    return found.kind == payload_kind::none ? find_packed(bytes) : found;
}

payload payload_search::in_text(uni::byte_view stored) const
{
    payload found = find_program(stored);
    if (found.kind == payload_kind::none) {
        found = find_script(stored);
    }
    if (found.kind == payload_kind::none) {
        found = find_base64(stored, 2);
    }
    const bool may_be_packed = found.kind == payload_kind::none && has_lone_surrogates(stored);
    return may_be_packed ? find_packed(stored) : found;
}

} // namespace model
