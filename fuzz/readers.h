#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
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

// A page, which is XML too, or a part of one: of elements and attributes that do nothing, and with no more
// in one another than browsers follow.
inline void require_page(std::string_view text)
{
    struct reader {
        static void XMLCALL begin(void* depth, const XML_Char* name, const XML_Char** attributes)
        {
            static const std::set<std::string_view> known = {
                "html",   "head",   "meta",   "title",    "style",   "body",    "header", "h1",
                "h2",     "h3",     "main",   "section",  "details", "summary", "div",    "p",
                "b",      "em",     "span",   "dl",       "dt",      "dd",      "table",  "thead",
                "tr",     "th",     "td",     "a",        "br",      "form",    "label",  "input",
                "select", "option", "output", "datalist", "svg",     "path",    "text",   "script"};
            require(known.contains(name), "an element that no page has");
            for (; *attributes != nullptr; attributes += 2) {
                const std::string_view attribute = *attributes;
                require(!attribute.starts_with("on") && attribute != "style" &&
                            attribute != "src" && (attribute != "href" || attributes[1][0] == '#'),
                        "an attribute that acts");
            }
            require(++*static_cast<unsigned*>(depth) < 500, "elements that stand too deep");
        }
        static void XMLCALL end(void* depth, const XML_Char*) { --*static_cast<unsigned*>(depth); }
    };
    unsigned depth = 0;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &depth);
    XML_SetElementHandler(parser, reader::begin, reader::end);
    if (XML_Parse(parser, text.data(), static_cast<int>(text.size()), true) == XML_STATUS_ERROR) {
        refuse(std::string("no page: ") + XML_ErrorString(XML_GetErrorCode(parser)));
    }
    XML_ParserFree(parser);
}

// Reads JSON as RFC 8259 has it, and stricter: no name twice in an object, no number but whole ones that
// are not negative, no escape but those that are promised.
class json_reader {
public:
    explicit json_reader(std::string_view text) : left_(text) {}

    // An object that is all there is; gives what stands under `name`, as it is written.
    std::string_view read_object(std::string_view name)
    {
        wanted_ = name;
        value(1);
        require(left_.empty(), "more than one value in a line");
        return found_;
    }

private:
    static constexpr unsigned deepest = 256; // common readers go no further

    bool take(std::string_view word)
    {
        const bool is_there = left_.starts_with(word);
        left_.remove_prefix(is_there ? word.size() : 0);
        return is_there;
    }
    void value(unsigned depth)
    {
        require(depth <= deepest, "JSON that stands too deep");
        if (take("{")) {
            object(depth);
        } else if (take("[")) {
            for (bool is_first = true; !take("]"); is_first = false) {
                require(is_first || take(","), "an array without a comma");
                value(depth + 1);
            }
        } else if (left_.starts_with('"')) {
            string();
        } else if (!take("true") && !take("false") && !take("null")) {
            number();
        }
    }
    void object(unsigned depth)
    {
        std::set<std::string_view> names;
        for (bool is_first = true; !take("}"); is_first = false) {
            require(is_first || take(","), "an object without a comma");
            const std::string_view name = string();
            require(names.insert(name).second, "a name twice in an object");
            require(take(":"), "a name without a value");
            const char* const begin = left_.data();
            value(depth + 1);
            if (depth == 1 && name == wanted_) {
                found_ = {begin, static_cast<std::size_t>(left_.data() - begin)};
            }
        }
    }
    std::string_view string()
    {
        require(take("\""), "no string");
        const std::string_view begin = left_;
        while (!left_.empty() && left_.front() != '"') {
            require(static_cast<unsigned char>(left_.front()) >= 0x20, "a bare control character");
            if (take("\\u")) {
                require(left_.substr(0, 4).find_first_not_of("0123456789abcdef") == left_.npos &&
                            left_.size() >= 4,
                        "no escape");
                left_.remove_prefix(4);
            } else if (take("\\")) {
                require(take("\"") || take("\\"), "another escape");
            } else {
                left_.remove_prefix(1);
            }
        }
        const std::string_view text = begin.substr(0, begin.size() - left_.size());
        require(take("\""), "a string without an end");
        return text;
    }
    void number()
    {
        const std::size_t digits = std::min(left_.find_first_not_of("0123456789"), left_.size());
        require(digits == 1 || (digits > 1 && left_.front() != '0'), "no value");
        left_.remove_prefix(digits);
    }

    std::string_view left_;
    std::string_view wanted_;
    std::string_view found_;
};

// Lines of JSON objects, each with a kind. Where they are those of a whole run, the first and the last say so.
inline void require_json_lines(std::string_view text, bool is_whole_run)
{
    require(text.empty() || text.ends_with('\n'), "a line without an end");
    std::string_view kind;
    for (bool is_first = true; !text.empty(); is_first = false) {
        const std::size_t end = text.find('\n');
        kind = json_reader(text.substr(0, end)).read_object("kind");
        require(!kind.empty(), "a line without a kind");
        require((is_first && is_whole_run) == (kind == "\"run\""), "a run in the wrong place");
        text.remove_prefix(end + 1);
        require((text.empty() && is_whole_run) == (kind == "\"end\""), "an end in the wrong place");
    }
}

// Lines of JSON objects, each with a moment.
inline void require_events(std::string_view text)
{
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        require(!json_reader(text.substr(0, end)).read_object("datetime").empty(),
                "an event without a moment");
        text.remove_prefix(end + 1);
    }
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
