#include "support/database_text.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "sdb/tags.h"

namespace test_support {
namespace {

namespace type = sdb::type;

std::uint16_t tag_called(const std::string& name)
{
    static const std::map<std::string, std::uint16_t> tags = {
#define SDB_TAG(number, name) {#name, number},
#include "sdb/tag_list.inc"
    };
    return tags.at(name);
}

std::uint64_t number_of(std::uint16_t tag, const std::string& text)
{
    unsigned v[6] = {};
    if (std::sscanf(text.c_str(), "%u-%u-%u %u:%u:%u", v, v + 1, v + 2, v + 3, v + 4, v + 5) == 6) {
        const int year = static_cast<int>(v[0]);
        const std::uint64_t time = filetime(year, v[1], v[2], v[3], v[4], v[5]);
        return tag >= type::qword ? time : unix_time(time);
    }
    if (std::sscanf(text.c_str(), "%u.%u.%u.%u", v, v + 1, v + 2, v + 3) == 4) {
        return std::uint64_t{v[0] << 16 | v[1]} << 32 | v[2] << 16 | v[3];
    }
    return text > "a" ? tag_called(text) : std::stoull(text, nullptr, 0);
}

std::uint32_t dword_of(const std::string& text)
{
    return static_cast<std::uint32_t>(number_of(type::dword, text));
}

bytes binary_of(const std::string& text)
{
    if (text.size() == 36 && text[8] == '-') {
        return guid_bytes(text);
    }
    bytes out;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (word.starts_with("u\"")) {
            append(out, utf16_bytes(word.substr(2, word.size() - 3)));
        } else if (word.starts_with('"')) {
            append(out, std::string_view(word).substr(1, word.size() - 2));
        } else {
            out.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
        }
    }
    return out;
}

struct line {
    std::size_t indent;
    std::string name, label, value;
};

patch_op operation_of(const line& it)
{
    std::istringstream words(it.name);
    std::string kind, address, module;
    words >> kind >> address >> module;
    const auto make = kind == "match" ? match_op : replace_op;
    return make(module, dword_of(address), binary_of(it.value));
}

index_entry entry_of(const line& it)
{
    const bool is_number = it.name.starts_with("0x");
    return {is_number ? std::stoull(it.name, nullptr, 0) : index_key(it.name), it.value.substr(1)};
}

class text_reader {
public:
    bytes image(const std::string& text)
    try {
        static const std::regex form("( *)([^ #][^@=]*?)(?: @(\\w+))?");
        constexpr std::string_view parts = " = ";
        std::istringstream rows(text);
        for (std::string row; std::getline(rows, row);) {
            const std::size_t at = std::min(row.find(parts), row.size());
            const std::string head = row.substr(0, at); // a value may be too long for the other
            if (std::smatch part; std::regex_match(head, part, form)) {
                const std::size_t behind = std::min(at + parts.size(), row.size());
                lines_.push_back({part.str(1).size(), part[2], part[3], row.substr(behind)});
            }
        }
        b_.without_database(); // which is a tag like any other here
        while (next_ < lines_.size()) {
            b_.lead(tag_of(lines_[next_++]));
        }
        return b_.build();
    } catch (const std::exception& error) {
        const line at = next_ > 0 ? lines_[next_ - 1] : line();
        throw std::logic_error(at.name + " = " + at.value + ": " + error.what());
    }

private:
    template <typename maker>
    auto below(const line& parent, maker make)
    {
        std::vector<decltype(make(parent))> made;
        while (next_ < lines_.size() && lines_[next_].indent > parent.indent) {
            made.push_back(make(lines_[next_++]));
        }
        return made;
    }

    node tag_of(const line& it)
    {
        const node made = unlabelled(it, tag_called(it.name));
        return it.label.empty() ? made : b_.label(it.label, made);
    }

    node unlabelled(const line& it, std::uint16_t tag)
    {
        switch (tag & 0xf000) {
        case type::null_:
            return b_.null(tag);
        case type::word:
            return b_.word(tag, static_cast<std::uint16_t>(dword_of(it.value)));
        case type::dword:
            return it.value.starts_with('@') ? b_.reference(tag, it.value.substr(1))
                                             : b_.dword(tag, dword_of(it.value));
        case type::qword:
            return b_.qword(tag, number_of(tag, it.value));
        case type::stringref:
            return b_.text(tag, it.value);
        case type::list:
            return b_.list(tag, below(it, [&](const line& child) { return tag_of(child); }));
        default:
            return tag == sdb::tag::patch_bits   ? b_.patch_bits(below(it, operation_of))
                   : tag == sdb::tag::index_bits ? b_.index_bits(below(it, entry_of))
                                                 : b_.binary(tag, binary_of(it.value));
        }
    }

    sdb_builder b_;
    std::vector<line> lines_;
    std::size_t next_ = 0;
};

} // namespace

bytes database_from_text(const std::string& text)
{
    return text_reader().image(text);
}

} // namespace test_support
