#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include <csv.h>
#include <expat.h>

// What every output must be, whatever it was made from. What is not ends the program.
namespace fuzz {

[[noreturn]] inline void refuse(const std::string& why)
{
    std::fprintf(stderr, "%s\n", why.c_str());
    std::abort();
}

inline void require(bool holds, const char* what)
{
    if (!holds) {
        refuse(what);
    }
}

// An XML document.
inline void require_document(std::string_view text)
{
    XML_Parser parser = XML_ParserCreate(nullptr);
    if (XML_Parse(parser, text.data(), static_cast<int>(text.size()), true) == XML_STATUS_ERROR) {
        refuse(std::string("no XML: ") + XML_ErrorString(XML_GetErrorCode(parser)));
    }
    XML_ParserFree(parser);
}

// Rows of fields, all of one length.
inline void require_rows(std::string_view text, char separator)
{
    struct counter {
        std::size_t fields = 0;
        std::size_t length = 0;
    } counted;
    csv_parser parser{};
    const auto on_field = [](void*, std::size_t, void* to) { ++static_cast<counter*>(to)->fields; };
    const auto on_row = [](int, void* to) {
        auto& row = *static_cast<counter*>(to);
        require(row.length == 0 || row.fields == row.length, "two rows of two lengths");
        row.length = row.fields;
        row.fields = 0;
    };
    require(csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI) == 0, "no reader of rows");
    csv_set_delim(&parser, static_cast<unsigned char>(separator));
    require(csv_parse(&parser, text.data(), text.size(), on_field, on_row, &counted) == text.size(),
            "no rows of fields");
    require(csv_fini(&parser, on_field, on_row, &counted) == 0, "rows that end inside a field");
    csv_free(&parser);
}

// UTF-8 without a control character but TAB and the line end, nor one that turns the reading order.
// Errors of a run may be followed by CR as well, where results have both.
inline void require_text(std::string_view text, bool may_have_cr = false)
{
    for (std::size_t at = 0; at < text.size();) {
        const auto lead = static_cast<unsigned char>(text[at]);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
        require(lead < 0x80 || (lead >= 0xc2 && lead < 0xf5), "a byte that begins no character");
        require(length <= text.size() - at, "half a character");
        char32_t character = length == 1 ? lead : lead & (0x7fu >> length);
        for (std::size_t i = 1; i < length; ++i) {
            const auto next = static_cast<unsigned char>(text[at + i]);
            require((next & 0xc0) == 0x80, "a broken character");
            character = character << 6 | (next & 0x3f);
        }
        require(character >= 0x20 || character == '\n' || character == '\t' ||
                    (character == '\r' && may_have_cr),
                "a control character");
        require(character < 0x7f || character > 0x9f, "a control character");
        require(character < 0xd800 || character > 0xdfff, "half of a pair");
        require(character != 0x200e && character != 0x200f && character != 0x61c &&
                    (character < 0x202a || character > 0x202e) &&
                    (character < 0x2066 || character > 0x2069),
                "a character that turns the order");
        at += length;
    }
}

} // namespace fuzz
