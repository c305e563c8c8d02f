// What is hidden in bytes that should be the data of a fix.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/knowledge.h"
#include "uni/byte_view.h"
#include "uni/text_set.h"

namespace model {

enum class payload_kind : std::uint8_t { none, program, script, base64, packed };

struct payload {
    payload_kind kind = payload_kind::none;
    std::uint64_t at = 0;     // from the first byte
    std::uint64_t length = 0; // of base64, in characters
};

// Looks for one thing that is hidden, in time that grows with the bytes alone.
class payload_search {
public:
    explicit payload_search(const knowledge& known);

    // In a binary: a program, a script in one byte or two a character, base64 in one byte, or what is packed.
    payload in_binary(uni::byte_view bytes) const;
    // In a stored text: the same but for the last, which only counts where the text is none.
    payload in_text(uni::byte_view stored) const;

private:
    payload find_script(uni::byte_view bytes) const;

    std::uint64_t begin_of_mark(uni::byte_view bytes, std::uint64_t end) const;

    std::vector<std::string> marks_; // lower-case
    uni::text_set scripts_;
};

} // namespace model
