#include "pe/version_resource.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "uni/numbers.h"
#include "uni/text.h"
#include "uni/text_buffer.h"
#include "uni/utf.h"

namespace pe {

namespace {

constexpr std::uint64_t key_place = 6;
constexpr std::uint64_t fixed_block_size = 52;
constexpr std::uint64_t longest_root_key = 500; // characters
constexpr std::uint64_t shortest_root = 8;
constexpr std::uint64_t shortest_rest = 9;
constexpr std::uint64_t largest_number = 8; // bytes
constexpr std::uint64_t table_key_digits = 8;
constexpr std::uint16_t text_type = 1;
constexpr std::string_view root_key = "VS_VERSION_INFO";
constexpr std::string_view string_info_key = "StringFileInfo";
constexpr std::string_view var_info_key = "VarFileInfo";
// Header, key and padding of the blocks whose keys have a known length.
constexpr std::uint64_t string_info_head = 36;
constexpr std::uint64_t string_table_head = 24;
constexpr std::uint64_t var_info_head = 32;

// For an even x this is the usual rounding up to 4.
constexpr std::uint64_t aligned(std::uint64_t x)
{
    return x + x % 4;
}

struct word_row {
    std::uint32_t number;
    std::string_view word;
};

constexpr word_row os_words[] = {
    {1, "win16"},
    {2, "pm16"},
    {3, "pm32"},
    {4, "win32"},
    {0x10000, "dos"},
    {0x10001, "dos, win16"},
    {0x10004, "dos, win32"},
    {0x20000, "os2/16"},
    {0x20002, "os2/16, pm16"},
    {0x30000, "os2/32"},
    {0x30003, "os2/32, pm32"},
    {0x40000, "nt"},
    {0x40004, "nt, win32"},
};
constexpr std::uint32_t driver_type = 3;
constexpr std::uint32_t font_type = 4;
constexpr word_row type_words[] = {
    {1, "app"},          {2, "dll"}, {driver_type, "driver"},
    {font_type, "font"}, {5, "vxd"}, {7, "statc_lib"},
};
constexpr word_row driver_words[] = {
    {1, "printer"},
    {2, "keyboard"},
    {3, "language"},
    {4, "display"},
    {5, "mouse"},
    {6, "network"},
    {7, "system"},
    {8, "installable"},
    {9, "sound"},
    {10, "comm"},
    {12, "versioned printer"},
};
constexpr word_row font_words[] = {{1, "font_raster"}, {2, "font_vector"}, {3, "font_truetype"}};

template <std::size_t size>
std::string_view word_for(const word_row (&rows)[size], std::uint32_t number,
                          std::string_view otherwise)
{
    const auto row = std::ranges::find(rows, number, &word_row::number);
    return row == std::end(rows) ? otherwise : row->word;
}

std::string_view subtype_word(std::uint32_t type, std::uint32_t subtype)
{
    if (type == driver_type) {
        return word_for(driver_words, subtype, "none");
    }
    return type == font_type ? word_for(font_words, subtype, "none") : "";
}

// The separator and the closing "none" hang on the first flag alone, so that flags of 2 give
// "2 [pre_releasenone]": readers of earlier reports look for these words.
std::string flags_text(std::uint32_t flags)
{
    static constexpr std::string_view words[] = {"debug",         "pre_release",   "patched",
                                                 "private_build", "info_inferred", "special_build"};
    const bool is_debug = (flags & 1) != 0;
    std::string text = std::to_string(flags) + " [";
    for (unsigned bit = 0; bit < std::size(words); ++bit) {
        if (((flags >> bit) & 1) != 0) {
            text.append(is_debug && bit != 0 ? ", " : "").append(words[bit]);
        }
    }
    return text.append(is_debug ? "]" : "none]");
}

// The words of a version from the highest down.
std::string version_text(std::uint64_t version, int words)
{
    uni::text_buffer text;
    for (int word = words - 1; word >= 0; --word) {
        text.decimal((version >> (16 * word)) & 0xffff);
        if (word != 0) {
            text.character('.');
        }
    }
    return std::string(text.view());
}

std::string hex_number(std::uint64_t number)
{
    uni::text_buffer text;
    text.literal("0x");
    text.hex_min(number, 1);
    return std::string(text.view());
}

void add_entry(version_map& result, version_value&& entry)
{
    std::string key = uni::lowered(entry.name);
    result.try_emplace(std::move(key), std::move(entry));
}

// The fixed block, as far as its bytes exist.
class fixed_block {
public:
    fixed_block(version_map& result, uni::byte_view bytes, std::uint64_t position)
        : result_(result), bytes_(bytes.from(position)), position_(position)
    {}

    void decode()
    {
        const std::uint32_t type = bytes_.u32(36);
        add("Version", 4, 4, [](std::uint64_t n) { return version_text(n, 2); });
        add("FileVersion", 8, 8, [](std::uint64_t n) { return version_text(n, 4); });
        add("ProductVersion", 16, 8, [](std::uint64_t n) { return version_text(n, 4); });
        add("FileFlags", 28, 4, [](std::uint64_t n) { return flags_text(low(n)); });
        add("FileOS", 32, 4, [](std::uint64_t n) { return word_for(os_words, low(n), "unk"); });
        add("FileType", 36, 4, [](std::uint64_t n) { return word_for(type_words, low(n), "unk"); });
        add("FileSubtype", 40, 4, [type](std::uint64_t n) { return subtype_word(type, low(n)); });
        add("FileDate", 44, 8, hex_number);
    }

private:
    static std::uint32_t low(std::uint64_t number) { return static_cast<std::uint32_t>(number); }

    template <typename wording>
    void add(std::string_view key, std::uint64_t place, std::uint64_t size, wording&& word)
    {
        if (!bytes_.contains(place, size)) {
            return;
        }
        version_value entry;
        entry.name = key;
        entry.number = bytes_.u32(place);
        if (size == 8) { // the more significant half comes first
            entry.number = entry.number << 32 | bytes_.u32(place + 4);
        }
        entry.text = word(entry.number);
        entry.offset = position_;
        entry.size = size;
        add_entry(result_, std::move(entry));
    }

    version_map& result_;
    uni::byte_view bytes_;
    std::uint64_t position_;
};

// One block as its own header tells it.
struct version_block {
    std::uint64_t length = 0;
    std::uint64_t value_length = 0; // as stored
    std::string key;
    std::string text;
    std::uint64_t number = 0;
    std::uint64_t value_offset = 0; // inside the resource
    std::uint64_t value_size = 0;   // bytes
};

// Reads the value of the block whose bytes are given; places count from them.
void read_value(version_block& block, uni::byte_view bytes, bool is_text, std::uint64_t key_end)
{
    std::uint64_t place = key_end;
    // All zeros count as padding, so a number that begins with some loses them and may not fit any
    // more; reports have always left such a value out.
    while (place < bytes.size() && bytes.u16(place) == 0) {
        place += 2;
    }
    place = aligned(place);
    const std::uint64_t size = block.value_length * (is_text ? 2 : 1);
    if (!bytes.contains(place, size)) {
        return;
    }
    block.value_offset = place;
    block.value_size = size;
    if (is_text) {
        uni::utf16_to_text(bytes.slice(place, size), block.text);
    } else if (size <= largest_number) {
        block.number = bytes.slice(place, size).u64(0);
        block.text = hex_number(block.number);
    }
}

// Reads the block at `position`; gives the bytes to the next one, 0 for no block.
std::uint64_t read_version_block(version_block& block, uni::byte_view resource,
                                 std::uint64_t position)
{
    block = {};
    block.length = resource.u16(position);
    if (block.length == 0) {
        return 0;
    }
    block.value_length = resource.u16(position + 2);
    const bool is_text = resource.u16(position + 4) == text_type;
    const uni::byte_view bytes = resource.slice(position, block.length);
    const uni::byte_view rest = bytes.from(key_place);
    const std::uint64_t key_bytes = uni::utf16_to_text(rest, block.key);
    const bool key_has_end = key_bytes != 0 && rest.u16(key_bytes - 2) == 0;
    if (bytes.size() < block.length && !key_has_end) {
        return 0; // only a part of its name is left
    }
    if (block.value_length != 0) {
        // An empty key still has its zero unit.
        const std::uint64_t key_end = key_place + std::max<std::uint64_t>(key_bytes, 2);
        read_value(block, bytes, is_text, key_end);
        block.value_offset += block.value_size != 0 ? position : 0;
    }
    return aligned(block.length);
}

// The walk over the blocks behind the root's value. It does not descend: it steps over the heads of
// the blocks that have children, so that these come next.
class block_walk {
public:
    block_walk(version_map& result, uni::byte_view resource, std::uint64_t position)
        : result_(result), resource_(resource), position_(position)
    {}

    void run()
    {
        while (left() >= shortest_rest) {
            const std::uint64_t step = read_version_block(block_, resource_, position_);
            if (step == 0 || !take_block(step)) {
                return;
            }
        }
    }

private:
    std::uint64_t left() const
    {
        return position_ < resource_.size() ? resource_.size() - position_ : 0;
    }

    bool take_block(std::uint64_t step)
    {
        if (block_.key == string_info_key) {
            return enter_string_info();
        }
        if (block_.key == var_info_key) {
            if (block_.length > left()) {
                return false;
            }
            prefix_ = var_info_key;
            tables_end_ = 0;
            position_ += block_.value_length + var_info_head;
            return true;
        }
        const bool is_behind_table = position_ >= table_end_ && position_ < tables_end_;
        if (is_behind_table) {
            return enter_table();
        }
        add(prefix_.empty() ? block_.key : prefix_ + "_" + block_.key);
        position_ += step;
        return true;
    }

    bool enter_string_info()
    {
        if (block_.length > left()) {
            return false;
        }
        add(block_.key);
        tables_end_ = position_ + block_.length;
        position_ += block_.value_length + string_info_head;
        return read_version_block(block_, resource_, position_) != 0 && enter_table();
    }

    bool enter_table()
    {
        if (block_.length > left()) {
            return false;
        }
        // What stands where the eight digits of its key should.
        std::string key;
        uni::utf16_to_text(resource_.slice(position_ + key_place, table_key_digits * 2), key);
        language_ = uni::read_u32_auto("0x" + key.substr(0, 4)).value_or(0);
        prefix_ = std::string(string_info_key) + "_" + key;
        add(prefix_);
        uni::lower_text(prefix_);
        table_end_ = position_ + block_.length;
        position_ += block_.value_length + string_table_head;
        return true;
    }

    void add(std::string key)
    {
        version_value entry;
        entry.name = std::move(key);
        entry.text = block_.text;
        entry.number = block_.number;
        entry.language = language_;
        entry.offset = block_.value_offset;
        entry.size = block_.value_size;
        add_entry(result_, std::move(entry));
    }

    version_map& result_;
    uni::byte_view resource_;
    std::uint64_t position_;
    version_block block_;
    std::string prefix_;
    std::uint64_t language_ = 0;
    std::uint64_t tables_end_ = 0; // of the StringFileInfo block
    std::uint64_t table_end_ = 0;
};

} // namespace

bool is_version_resource(uni::byte_view head)
{
    std::string key;
    uni::utf16_to_text(head.slice(key_place, longest_root_key * 2), key);
    return head.u16(0) >= shortest_root && head.u16(2) != 0 &&
           uni::equal_ignoring_case(key, root_key);
}

bool decode_version_resource(version_map& result, uni::byte_view bytes)
{
    if (!is_version_resource(bytes)) {
        return !result.empty();
    }
    constexpr std::uint64_t value = aligned(key_place + (root_key.size() + 1) * 2);
    const std::uint64_t value_length = bytes.u16(2);
    if (value_length == fixed_block_size) {
        fixed_block(result, bytes, value).decode();
    }
    const bool is_text = bytes.u16(4) == text_type && value_length != fixed_block_size;
    block_walk(result, bytes, aligned(value + value_length * (is_text ? 2 : 1))).run();
    return !result.empty();
}

} // namespace pe
