// What a patch changes: its replacements with what was matched in their places.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sdb/patch_op.h"
#include "uni/byte_view.h"

namespace model {

// Bytes that were matched in the place of some that are written.
struct matched_part {
    std::uint64_t at = 0; // among those that are written
    uni::byte_view bytes;
};

struct patch_change {
    uni::byte_view module; // UTF-16LE
    std::uint32_t address = 0;
    uni::byte_view after;                    // the bytes that are written
    std::vector<matched_part> before = {};   // none of which meets another; ascending
    std::optional<std::uint32_t> matched_at; // where the match begins that holds the address
    bool is_blind = false;                   // nothing of its module was matched before it
    bool shares_bytes = false; // it is told without its bytes, as operations overlap without end
};

// Calls `act` for each replacement in a patch value, until it answers false; without its matches if they are not
// asked for.
void for_each_change(uni::byte_view value, const std::function<bool(const patch_change&)>& act,
                     bool with_matches = true);

// All bytes that stood where a change writes its own; nothing unless all were matched.
std::vector<std::uint8_t> all_matched(const patch_change& change);

// Whether bytes that are written change what code does: they begin with a jump or a call, no-operations
// aside. Those that spell a text are none.
bool begins_with_branch(uni::byte_view bytes);

// The text that bytes spell, four printable characters of ASCII or more, single or of two bytes; empty for
// any other bytes.
std::string text_spelt(uni::byte_view bytes);

// What a patch value does as a whole; a replacement by no bytes changes nothing.
struct patch_summary {
    std::uint64_t changes = 0;
    bool writes_branch = false;
    bool writes_long_run = false;
    bool writes_blindly = false;
};
inline constexpr std::size_t long_run = 32; // bytes in one replacement
patch_summary summarize_patch(uni::byte_view value);

// The modules that are changed, each once, as a sentence names them, or else that of the first operation.
std::string patched_modules(uni::byte_view value);

} // namespace model
