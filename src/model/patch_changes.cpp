#include "model/patch_changes.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "uni/text.h"
#include "uni/utf.h"

namespace model {

namespace {

constexpr std::uint32_t match_bit = 4;
constexpr std::uint32_t replace_bit = 2;

// The matches of one module: by their addresses, parts of which none meets another, each with the address at which
// its match begins.
struct matched_piece {
    uni::byte_view bytes;
    std::uint32_t match;
};
using matched_bytes = std::map<std::uint64_t, matched_piece>;

// The first piece that ends behind an address.
matched_bytes::const_iterator first_behind(const matched_bytes& matches, std::uint64_t address)
{
    auto piece = matches.upper_bound(address);
    if (piece != matches.begin()) {
        const auto last = std::prev(piece);
        piece = last->first + last->second.bytes.size() > address ? last : piece;
    }
    return piece;
}

// Adds what no earlier match holds.
void add_match(matched_bytes& matches, std::uint32_t address, uni::byte_view bytes)
{
    const std::uint64_t end = std::uint64_t{address} + bytes.size();
    std::uint64_t from = address;
    for (auto piece = first_behind(matches, from); from < end; ++piece) {
        const bool is_last = piece == matches.end() || piece->first >= end;
        const std::uint64_t up_to = is_last ? end : piece->first;
        if (up_to > from) {
            matches[from] = {bytes.slice(from - address, up_to - from), address};
        }
        if (is_last) {
            return;
        }
        from = piece->first + piece->second.bytes.size();
    }
}

bool is_printable(std::uint16_t unit)
{
    return unit >= 0x20 && unit < 0x7f;
}

void look_up(patch_change& change, const matched_bytes& matches)
{
    const std::uint64_t end = std::uint64_t{change.address} + change.after.size();
    for (auto piece = first_behind(matches, change.address);
         piece != matches.end() && piece->first < end; ++piece) {
        const std::uint64_t from = std::max<std::uint64_t>(piece->first, change.address);
        const uni::byte_view bytes = piece->second.bytes;
        change.before.push_back(
            {from - change.address, bytes.slice(from - piece->first, end - from)});
        if (from == change.address) {
            change.matched_at = piece->second.match;
        }
    }
}

} // namespace

void for_each_change(uni::byte_view value, const std::function<bool(const patch_change&)>& act,
                     bool with_matches)
{
    std::map<std::string, matched_bytes> matches; // by module
    bool was_any_bare = false;                    // matches that are not kept
    sdb::patch_shares shares(value);
    sdb::for_each_patch_op(value, [&](const sdb::patch_op& op, std::uint64_t position) {
        const bool is_bare = shares.take(op, position);
        std::string module;
        uni::utf16_to_text(op.module_name, module);
        uni::lower_text(module);
        if ((op.opcode & match_bit) != 0) {
            was_any_bare = was_any_bare || is_bare;
            if (!is_bare) {
                matched_bytes& of_module = matches[std::move(module)];
                if (with_matches) {
                    add_match(of_module, op.address, op.data);
                }
            }
            return true;
        }
        if ((op.opcode & replace_bit) == 0) {
            return true;
        }
        patch_change change;
        change.module = op.module_name;
        change.address = op.address;
        change.after = op.data;
        change.shares_bytes = is_bare;
        const auto of_module = matches.find(module);
        change.is_blind = of_module == matches.end() && !was_any_bare;
        if (with_matches && of_module != matches.end() && !is_bare) {
            look_up(change, of_module->second);
        }
        return act(change);
    });
}

std::vector<std::uint8_t> all_matched(const patch_change& change)
{
    std::vector<std::uint8_t> bytes;
    for (const matched_part& part : change.before) {
        if (part.at == bytes.size()) {
            bytes.insert(bytes.end(), part.bytes.bytes().begin(), part.bytes.bytes().end());
        }
    }
    if (bytes.size() != change.after.size()) {
        bytes.clear();
    }
    return bytes;
}

std::string text_spelt(uni::byte_view bytes)
{
    constexpr std::size_t shortest = 4;
    const auto spells = [&](std::uint64_t width) {
        if (bytes.size() % width != 0 || bytes.size() / width < shortest) {
            return std::string();
        }
        std::string text;
        for (std::uint64_t at = 0; at < bytes.size(); at += width) {
            const std::uint16_t unit = width == 2 ? bytes.u16(at) : bytes.u8(at);
            // Texts end with a zero, or more of them.
            if (unit != 0 ? !is_printable(unit) || text.size() * width != at
                          : text.size() < shortest) {
                return std::string();
            }
            if (unit != 0) {
                text += static_cast<char>(unit);
            }
        }
        return text;
    };
    const std::string wide = spells(2);
    return wide.empty() ? spells(1) : wide;
}

bool begins_with_branch(uni::byte_view bytes)
{
    constexpr std::uint8_t no_operation = 0x90;
    std::uint64_t at = 0;
    while (bytes.contains(at, 1) && bytes.u8(at) == no_operation) {
        ++at;
    }
    if (!bytes.contains(at, 1) || !text_spelt(bytes).empty()) {
        return false;
    }
    // Registers of the longer mode have a byte in front.
    const bool has_prefix = bytes.u8(at) >= 0x40 && bytes.u8(at) <= 0x4f && bytes.contains(at, 3);
    at += has_prefix ? 1 : 0;
    const std::uint8_t first = bytes.u8(at);
    const std::uint8_t second = bytes.u8(at + 1);
    const bool has_second = bytes.contains(at, 2);
    if (first == 0xeb || first == 0xe8 || first == 0xe9 || first == 0xea || first == 0x9a ||
        (first >= 0x70 && first <= 0x7f)) {
        return true; // short and near ones, conditional ones
    }
    if (has_second && first == 0x0f && second >= 0x80 && second <= 0x8f) {
        return true; // near conditional ones
    }
    if (has_second && first == 0xff) {
        const unsigned operation = (second >> 3) & 7;
        return operation >= 2 && operation <= 5; // through a register or memory
    }
    if (first == 0x68 && bytes.u8(at + 5) == 0xc3) {
        return true; // an address is pushed and returned to
    }
    if (first >= 0xb8 && first <= 0xbf) {
        const std::uint64_t behind = at + (has_prefix && (bytes.u8(at - 1) & 8) != 0 ? 9 : 5);
        return bytes.contains(behind, 2) && bytes.u8(behind) == 0xff; // loaded and jumped to
    }
    return false;
}

patch_summary summarize_patch(uni::byte_view value)
{
    patch_summary made;
    const auto take = [&](const patch_change& change) {
        if (change.after.size() == 0) {
            return true;
        }
        ++made.changes;
        made.writes_blindly = made.writes_blindly || change.is_blind;
        made.writes_long_run = made.writes_long_run || change.after.size() >= long_run;
        made.writes_branch =
            made.writes_branch || (!change.shares_bytes && begins_with_branch(change.after));
        return true;
    };
    for_each_change(value, take, false);
    return made;
}

std::string patched_modules(uni::byte_view value)
{
    constexpr std::size_t most = 8;
    std::vector<std::string> modules;
    bool has_more = false;
    const auto take = [&](const patch_change& change) {
        std::string module;
        uni::utf16_to_text(change.module, module);
        if (change.after.size() != 0 && std::ranges::find(modules, module) == modules.end()) {
            has_more = modules.size() == most;
            if (!has_more) {
                modules.push_back(std::move(module));
            }
        }
        return !has_more;
    };
    for_each_change(value, take, false);
    sdb::patch_op first;
    if (modules.empty() && sdb::decode_patch_op(first, value, 0)) {
        uni::utf16_to_text(first.module_name, modules.emplace_back());
    }
    std::string words;
    for (std::size_t i = 0; i < modules.size(); ++i) {
        const bool is_last = i + 1 == modules.size() && !has_more;
        words += i == 0 ? "" : is_last ? " and " : ", ";
        words += modules[i];
    }
    return has_more ? words + " and more" : words;
}

} // namespace model
