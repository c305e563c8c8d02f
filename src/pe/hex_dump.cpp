#include "pe/hex_dump.h"

namespace pe {

namespace {

constexpr std::uint64_t largest_dump = 0x1000000;
constexpr std::uint64_t bytes_a_line = 16;

// In groups of four digits, two of them unless the number needs more.
void write_place(uni::text_buffer& out, std::uint64_t place)
{
    if (place >> 32 != 0) {
        out.hex(place >> 48, 4);
        out.character(' ');
        out.hex(place >> 32, 4);
        out.character(' ');
    }
    out.hex(place >> 16, 4);
    out.character(' ');
    out.hex(place, 4);
    out.literal(":  ");
}

void write_line(uni::text_buffer& out, uni::byte_view line)
{
    for (std::uint64_t i = 0; i < bytes_a_line; ++i) {
        if (i < line.size()) {
            out.hex(line.u8(i), 2);
            out.character(' ');
        } else {
            out.blanks(3);
        }
        out.blanks(i == 7 ? 1 : 0);
    }
    for (const std::uint8_t byte : line.bytes()) {
        out.character(byte < 32 || byte >= 127 ? '.' : static_cast<char>(byte));
    }
    out.line_end();
}

} // namespace

void hex_dump(uni::byte_view bytes, uni::text_buffer& out, std::uint64_t base)
{
    if (bytes.size() > largest_dump) {
        out.literal("size to big to output: size 0x");
        out.hex_min(bytes.size(), 1);
        out.line_end();
        return;
    }
    for (std::uint64_t at = 0; at < bytes.size(); at += bytes_a_line) {
        write_place(out, base + at);
        write_line(out, bytes.slice(at, bytes_a_line));
    }
}

} // namespace pe
