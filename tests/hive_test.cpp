// Hives: the image, keys, lists and values, patterns, and the query for installed databases.

#include <gtest/gtest.h>

#include <algorithm>

#include "hive/hive_query.h"
#include "support/hive_builder.h"

namespace {

using hive::hive_image;
using hive::key_reader;
using test_support::bytes;
using test_support::hive_builder;
using test_support::hive_key;
using test_support::list_kind;
using test_support::text_value;

hive_image opened(const bytes& image)
{
    hive::hive_bytes hive;
    hive.open(std::make_unique<io::memory_source>(io::byte_vector(image.begin(), image.end())));
    return hive_image(std::move(hive));
}

std::vector<hive::hive_value_record> rows_of(const bytes& image,
                                             const hive::registry_cmd_parameters& parameters)
{
    std::vector<hive::hive_value_record> rows;
    const bool any =
        hive::hive_query(parameters, opened(image), [&rows](hive::hive_value_record&& row) {
            rows.push_back(std::move(row));
        });
    EXPECT_EQ(any, !rows.empty());
    return rows;
}

void put_text(bytes& image, std::size_t offset, std::string_view text)
{
    std::copy(text.begin(), text.end(), image.begin() + static_cast<std::ptrdiff_t>(offset));
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator)
{
    std::string all;
    for (const std::string& text : texts) {
        all.append(all.empty() ? "" : separator).append(text);
    }
    return all;
}

// A hive with subkeys of the root, and what can be read of it once it has been damaged.
struct damaged_hive {
    damaged_hive(list_kind list, std::vector<std::string> names)
    {
        hive_key root{.name = "root", .list = list};
        for (std::string& name : names) {
            root.subkeys.push_back({.name = std::move(name),
                                    .values = {text_value("v", "text")},
                                    .subkeys = {{.name = "below"}}});
        }
        image = builder.build(root);
    }

    std::uint32_t entry(unsigned number, unsigned stride) const
    {
        return builder.cell("list", "") + 8 + number * stride;
    }
    std::uint32_t part(unsigned number) const
    {
        const std::uint32_t at = entry(number, 4);
        return 4096 + image[at] + image[at + 1] * 256u + image[at + 2] * 65536u;
    }
    // The names of the root's subkeys, "failed" when they cannot be enumerated.
    std::string names() const
    {
        const hive_image hive = opened(image);
        std::vector<hive::hive_key_item> items;
        key_reader reader(hive);
        if (!reader.enum_subkeys(hive.root_cell(), items)) {
            return items.empty() ? "failed" : "failed with items";
        }
        std::vector<std::string> all;
        for (const auto& item : items) {
            all.push_back(reader.name_of(item));
        }
        return joined(all, " ");
    }

    hive_builder builder;
    bytes image;
};

TEST(HiveImage, IsToldByItsMarksAlone)
{
    const bytes good = hive_builder().build({.name = "root"});
    EXPECT_FALSE(hive_image().is_open());
    EXPECT_TRUE(opened(good).is_open());
    EXPECT_EQ(opened(good).hive_name(), "SOFTWARE");
    EXPECT_EQ(opened(good).hive_bins_base(), 4096u);
    EXPECT_FALSE(opened({good.begin(), good.begin() + 4495}).is_open());
    EXPECT_TRUE(opened({good.begin(), good.begin() + 4496}).is_open());

    bytes image = good;
    hive_builder::put(image, 4, 7); // sequence numbers and checksum
    hive_builder::put(image, 508, 7);
    EXPECT_TRUE(opened(image).is_open());
    put_text(image, 0, "ferg");
    EXPECT_FALSE(opened(image).is_open());
}

TEST(HiveImage, FindsWhereTheBinsBegin)
{
    struct {
        const char* what;
        std::string_view mark; // at 512
        std::size_t bin;
        std::uint32_t distance;
        std::uint64_t base; // 0 for no hive
    } const cases[] = {
        {"no bin", "", 0, 0, 0},
        {"the inner place", "", 560, 9, 4096},
        {"at a sector", "", 1024, 0, 1024},
        {"up to three bytes behind a sector", "", 1027, 0, 1027},
        {"four bytes behind a sector", "", 1028, 0, 0},
        {"not the first bin", "", 1024, 4096, 4096},
        {"too little behind it", "", 4608, 0, 4096},
        {"at eight bytes, in a new log", "HvLE", 1048, 0, 4096},
        {"at eight bytes, in an old log", "DIRT", 1048, 0, 0},
        {"at a sector, in an old log", "DIRT", 1024, 0, 4096},
        {"where a part that is searched ends", "", 0x100003, 0, 0x100003},
        {"in the last sector", "", 0x180000 - 512, 4096, 4096},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        bytes image(one.bin < 8192 ? 8192 : 0x180000);
        put_text(image, 0, "regf");
        hive_builder::put(image, 36, 0x20);
        put_text(image, 512, one.mark);
        if (one.bin != 0) {
            put_text(image, one.bin, "hbin");
            hive_builder::put(image, one.bin + 4, one.distance);
        }
        const hive_image hive = opened(image);
        EXPECT_EQ(hive.is_open(), one.base != 0);
        EXPECT_EQ(hive.hive_bins_base(), one.base);
        EXPECT_EQ(hive.root_cell(), one.base == 0 ? 0 : one.base + 0x20);
        EXPECT_EQ(hive.is_log(), one.base != 0 && !one.mark.empty());
        EXPECT_EQ(hive.is_new_log(), one.base != 0 && one.mark == "HvLE");
    }
}

TEST(HiveImage, GivesCellsThatExist)
{
    const hive_image hive = opened(hive_builder().build({.name = "root"}));
    EXPECT_EQ(hive.cell_at(hive.size() - 4, 9).size(), 4u);
    EXPECT_TRUE(hive.cell_at(hive.size(), 1).empty());
    EXPECT_TRUE(hive.cell_at(0x80000000, 1).empty());
    EXPECT_TRUE(hive.cell_at(hive.offset_of(0xfffffff0), 1).empty());
}

TEST(HiveImage, IsNamedByItsBaseBlockOrBySubkeysOfItsRoot)
{
    struct {
        std::string_view stored;
        std::vector<std::string> subkeys;
        const char* name;
    } const cases[] = {
        {"Root\\System32\\Config\\SOFTWARE", {}, "SOFTWARE"},
        {"", {"Microsoft", "CLASSES"}, "Software"},
        {"", {"sam", "Classes", "select"}, "System"},
        {"", {"Vendor"}, ""},
    };
    for (const auto& one : cases) {
        hive_key root{.name = "root"};
        for (const std::string& name : one.subkeys) {
            root.subkeys.push_back({.name = name});
        }
        const hive_image hive = opened(hive_builder().build(root, one.stored));
        std::string name;
        EXPECT_TRUE(key_reader(hive).open(name));
        EXPECT_EQ(name, one.name);
    }
    std::string name;
    EXPECT_FALSE(key_reader(hive_image()).open(name));
}

TEST(HiveKeys, AreListedInTheOrderOfEveryKindOfList)
{
    for (const list_kind list :
         {list_kind::lf, list_kind::lh, list_kind::li, list_kind::ri_lh, list_kind::ri_li}) {
        const damaged_hive hive(list, {"b", "a", "d", "c", "e"});
        EXPECT_EQ(hive.names(), "b a d c e");
    }
    EXPECT_EQ(damaged_hive(list_kind::lh, {}).names(), "");
}

// What ends a damaged list differs from kind to kind.
TEST(HiveKeys, DamagedListsGiveWhatTheirKindLets)
{
    using damage = void (*)(damaged_hive&);
    constexpr auto no_parent = [](damaged_hive& h) {
        hive_builder::put(h.image, h.builder.cell("nk", "b") + 20, 0);
    };
    constexpr auto no_time = [](damaged_hive& h) {
        hive_builder::put(h.image, h.builder.cell("nk", "b") + 8, 0);
        hive_builder::put(h.image, h.builder.cell("nk", "b") + 12, 0);
    };
    constexpr auto bad_security = [](damaged_hive& h) {
        hive_builder::put(h.image, h.builder.cell("nk", "b") + 48, 0x40);
    };
    constexpr auto no_security = [](damaged_hive& h) {
        hive_builder::put(h.image, h.builder.cell("nk", "b") + 48, 0);
    };
    constexpr auto bad_list_below = [](damaged_hive& h) {
        put_text(h.image, h.builder.cell("list", "b") + 4, "xx");
    };
    constexpr auto lost_list_below = [](damaged_hive& h) {
        hive_builder::put(h.image, h.builder.cell("nk", "b") + 32, 0x7fffffff);
    };
    constexpr auto long_name = [](damaged_hive& h) {
        hive_builder::put_short(h.image, h.builder.cell("nk", "b") + 76, 0xffff);
    };
    constexpr auto wrong_count = [](damaged_hive& h) {
        hive_builder::put(h.image, h.builder.cell("nk", "") + 24, 4);
    };
    constexpr auto great_count = [](damaged_hive& h) { // agreed on, but the cell holds no more
        hive_builder::put(h.image, h.builder.cell("nk", "") + 24, 60'000);
        hive_builder::put_short(h.image, h.builder.cell("list", "") + 6, 60'000);
    };
    constexpr auto unknown_kind = [](damaged_hive& h) {
        put_text(h.image, h.builder.cell("list", "") + 4, "xx");
    };
    constexpr auto lost_list = [](damaged_hive& h) {
        hive_builder::put(h.image, h.builder.cell("nk", "") + 32, 0xfffffff0);
    };
    constexpr auto zero_entry = [](damaged_hive& h) {
        hive_builder::put(h.image, h.part(0) + 16, 0);
    };
    constexpr auto zero_entries = [](damaged_hive& h) {
        hive_builder::put(h.image, h.part(0) + 16, 0);
        hive_builder::put(h.image, h.part(1) + 8, 0);
    };
    constexpr auto one_bad_child_twice = [](damaged_hive& h) {
        hive_builder::put(h.image, h.part(0) + 12, 0x40);
        hive_builder::put(h.image, h.part(1) + 8, 0x40);
    };
    constexpr auto lost_part = [](damaged_hive& h) {
        hive_builder::put(h.image, h.entry(0, 4), 0x7ffffff0);
    };
    constexpr auto circle = [](damaged_hive& h) { // the part is the list of parts itself
        hive_builder::put(h.image, h.entry(0, 4),
                          hive_builder::reference(h.builder.cell("list", "")));
    };
    constexpr auto great_part = [](damaged_hive& h) {
        hive_builder::put_short(h.image, h.part(0) + 6, 60'000);
    };
    struct {
        const char* what;
        list_kind list;
        damage harm;
        const char* names;
    } const cases[] = {
        {"no parent", list_kind::lf, no_parent, "a c d"},
        {"no parent", list_kind::lh, no_parent, "a c d"},
        {"no parent", list_kind::li, no_parent, "a"},
        {"no parent", list_kind::ri_lh, no_parent, "a c d"}, // parts a b and c d
        {"no parent", list_kind::ri_li, no_parent, "a c d"},
        {"no time", list_kind::lf, no_time, "a c d"},
        {"long name", list_kind::li, long_name, "a"},
        {"bad security", list_kind::lf, bad_security, "a"},
        {"bad security", list_kind::li, bad_security, "a"},
        {"bad security", list_kind::ri_lh, bad_security, "a c d"},
        {"no security", list_kind::li, no_security, "a b c d"},
        {"bad list below", list_kind::lh, bad_list_below, "a b c d"},
        {"bad list below", list_kind::li, bad_list_below, "a"},
        {"bad list below", list_kind::ri_lh, bad_list_below, "a b c d"},
        {"lost list below", list_kind::li, lost_list_below, "a"},
        {"lost list below", list_kind::ri_li, lost_list_below, "a c d"},
        {"great count", list_kind::lf, great_count, "a b c d"},
        {"great count", list_kind::li, great_count, "a b c d"},
        {"unknown kind", list_kind::lh, unknown_kind, ""},
        {"lost list", list_kind::lh, lost_list, "failed"},
        {"zero entry", list_kind::ri_lh, zero_entry, "a c d"},
        {"zero entries", list_kind::ri_lh, zero_entries, "a"},
        {"one bad child twice", list_kind::ri_li, one_bad_child_twice, "a"},
        {"lost part", list_kind::ri_lh, lost_part, "c d"},
        {"circle", list_kind::ri_li, circle, "c d"},
        {"great part", list_kind::ri_lh, great_part, "a b c d"},
        {"great part", list_kind::ri_li, great_part, "failed"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(std::string(one.what) + ", list kind " +
                     std::to_string(static_cast<int>(one.list)));
        damaged_hive hive(one.list, {"a", "b", "c", "d"});
        one.harm(hive);
        EXPECT_EQ(hive.names(), one.names);
    }
    for (const auto& [list, names] :
         {std::pair{list_kind::lf, "failed"}, std::pair{list_kind::li, "failed"},
          std::pair{list_kind::ri_lh, "a b c"}}) {
        damaged_hive hive(list, {"a", "b", "c"});
        wrong_count(hive); // parts have counts of their own
        EXPECT_EQ(hive.names(), names);
    }
}

TEST(HiveKeys, AreFoundWithoutRegardToCase)
{
    const bytes image = hive_builder().build(
        {.name = "root", .subkeys = {{.name = "One"}, {.name = "oNE"}, {.name = "T\xc4"}}});
    const hive_image hive = opened(image);
    key_reader reader(hive);
    std::vector<hive::hive_key_item> items;
    ASSERT_TRUE(reader.enum_subkeys(hive.root_cell(), items));
    EXPECT_EQ(reader.find_subkey(hive.root_cell(), "ONE"), items[0].cell);
    EXPECT_EQ(reader.find_subkey(hive.root_cell(), "t\xc4"), items[2].cell);
    EXPECT_EQ(reader.find_subkey(hive.root_cell(), "t\xe4"), std::nullopt);
    EXPECT_EQ(reader.find_subkey(hive.root_cell(), ""), std::nullopt);
}

TEST(HiveValues, NamesAreToldByTheirSecondByte)
{
    using std::string_view_literals::operator""sv;
    struct {
        std::string_view stored;
        std::string_view name;
    } const cases[] = {
        {""sv, ""sv},
        {"x"sv, "x"sv},
        {"\0"sv, "\0"sv},
        {"name"sv, "name"sv},
        {"n\xe4me"sv, "n\xe4me"sv},
        {"a\0b\0"sv, "ab"sv},
        {"a\0\x16\x04"sv, "a\xd0\x96"sv},
        {"a\0\0\0"sv, "a"sv},
        {"a\0\0\0b\0"sv, "a"sv},                 // two bytes more are let go
        {"a\0\0\0b\0c\0"sv, "aa\0\0\0b\0c\0"sv}, // more show as they are
        {"\0\0b\0"sv, "\0\0b\0"sv},
        {"a\0\x3d\xd8"sv, "a\xef\xbf\xbd"sv},
    };
    for (const auto& one : cases) {
        hive_builder builder;
        bytes image =
            builder.build({.name = "root", .values = {text_value("0123456789abcdef", "text")}});
        const std::uint32_t cell = builder.cell("vk", "0123456789abcdef");
        hive_builder::put_short(image, cell + 6, static_cast<std::uint16_t>(one.stored.size()));
        put_text(image, cell + 24, one.stored);
        const hive_image hive = opened(image);
        std::vector<std::string> names;
        EXPECT_TRUE(
            hive::value_reader(hive).enum_values(hive.root_cell(), [&names](const auto& item) {
                names.push_back(item.name);
                return true;
            }));
        EXPECT_EQ(names, std::vector<std::string>{std::string(one.name)});
    }
}

// A hive with values of its root key, and the rows that a query for all of them gives.
struct value_hive {
    explicit value_hive(std::vector<test_support::hive_value> values)
        : image(builder.build({.name = "root", .subkeys = {{.name = "k", .values = values}}}))
    {}

    std::vector<hive::hive_value_record> rows(const char* key = "Software\\?*") const
    {
        return rows_of(image, {.key = key, .keeps_empty_rows = true});
    }
    std::uint32_t value(const char* name) const
    {
        return builder.cell("vk", std::string("k\\") + name);
    }

    hive_builder builder;
    bytes image;
};

TEST(HiveValues, GiveTheirBytes)
{
    bytes large(20'480);
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<std::uint8_t>(i * 7);
    }
    const bytes plain(16'344, 5);
    const bytes three = {1, 2, 3};
    value_hive hive({{"large", 3, large},
                     {"plain", 3, plain},
                     {"three", 3, three},
                     {"none", 0, {}},
                     test_support::dword_value("dword", 0x80000001)});
    const auto rows = hive.rows();
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_EQ(rows[0].data, large);
    EXPECT_TRUE(rows[0].is_big);
    EXPECT_EQ(rows[1].data, plain);
    EXPECT_FALSE(rows[1].is_big);
    EXPECT_EQ(rows[2].data, three);
    EXPECT_EQ(rows[2].value_cell, hive.value("three"));
    EXPECT_TRUE(rows[3].data.empty());
    EXPECT_EQ(rows[4].data, (bytes{1, 0, 0, 0x80}));
    EXPECT_EQ(rows[4].value_type, 4);
    EXPECT_EQ(rows[4].path_segments->back(), "k");
    EXPECT_EQ(rows[4].last_write, hive_key().last_write);

    EXPECT_EQ(rows_of(hive.image, {.key = "Software\\?*"}).size(), 4u);
}

TEST(HiveValues, DamageTakesDataOrRows)
{
    constexpr unsigned size = 8;
    constexpr unsigned data = 12;
    struct {
        const char* what;
        void (*harm)(value_hive&);
        std::size_t rows;
        std::size_t bytes; // of the first row
    } const cases[] = {
        {"inline of five bytes",
         [](value_hive& h) { hive_builder::put(h.image, h.value("a") + size, 0x80000005); }, 2, 0},
        {"data outside",
         [](value_hive& h) { hive_builder::put(h.image, h.value("a") + data, 0x7ffffff0); }, 1, 6},
        {"data at a negative offset",
         [](value_hive& h) { hive_builder::put(h.image, h.value("a") + data, 0xfffff000); }, 1, 6},
        {"a data cell beyond the end",
         [](value_hive& h) {
             hive_builder::put(h.image, h.builder.cell("data", "k\\a"), 0xffff0000);
         },
         1, 6},
        {"a size without its masked bits",
         [](value_hive& h) { hive_builder::put(h.image, h.value("a") + size, 0x40000002); }, 2, 2},
        {"a size of 16 MiB",
         [](value_hive& h) { hive_builder::put(h.image, h.value("a") + size, 0x01000000); }, 2, 0},
        {"another mark", [](value_hive& h) { put_text(h.image, h.value("a") + 4, "kv"); }, 1, 6},
        {"a cell of 4096 bytes",
         [](value_hive& h) { hive_builder::put(h.image, h.value("a"), 0u - 4096); }, 2, 10},
        {"a cell of 4097 bytes",
         [](value_hive& h) { hive_builder::put(h.image, h.value("a"), 0u - 4097); }, 1, 6},
        {"a name beyond the end",
         [](value_hive& h) { hive_builder::put_short(h.image, h.value("a") + 6, 0xffff); }, 1, 6},
        {"a list of 2^31 values",
         [](value_hive& h) {
             hive_builder::put(h.image, h.builder.cell("nk", "k") + 40, 1u << 31);
         },
         2, 10},
        {"no values",
         [](value_hive& h) { hive_builder::put(h.image, h.builder.cell("nk", "k") + 40, 0); }, 0,
         0},
        {"a list without values",
         [](value_hive& h) {
             hive_builder::put(h.image, h.builder.cell("values", "k") + 4, 0x7ffffff0);
             hive_builder::put(h.image, h.builder.cell("values", "k") + 8, 0xffffffff);
         },
         1, 0},
        {"a list outside",
         [](value_hive& h) {
             hive_builder::put(h.image, h.builder.cell("nk", "k") + 44, 0x7ffffff0);
         },
         1, 0},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        value_hive hive({text_value("a", "long"), text_value("b", "it")});
        one.harm(hive);
        const auto rows = hive.rows();
        ASSERT_EQ(rows.size(), one.rows);
        EXPECT_EQ(rows.empty() ? 0 : rows[0].data.size(), one.bytes);
        const bool is_empty_row =
            std::string_view(one.what).starts_with("a list ") && one.bytes == 0;
        if (is_empty_row) {
            EXPECT_EQ(rows[0].value_type, hive::hive_value_record::no_value);
            EXPECT_EQ(rows[0].value_name, "");
            EXPECT_EQ(rows[0].value_cell, 0u);
        }
    }
}

TEST(HiveValues, SegmentsThatAreLostAreLeftOut)
{
    bytes large(40'000, 1);
    std::fill(large.begin() + 16'344, large.end(), std::uint8_t{2});
    value_hive hive({{"a", 3, large}});
    const std::uint32_t head = hive.builder.cell("data", "k\\a");
    const std::uint32_t list =
        4096 + hive.image[head + 8] + hive.image[head + 9] * 256u + hive.image[head + 10] * 65536u;
    hive_builder::put(hive.image, list + 4, 0x7ffffff0);
    const auto rows = hive.rows();
    ASSERT_EQ(rows.size(), 1u);
    // The two that are left hold no more than their cells do.
    EXPECT_EQ(rows[0].data.front(), 2);
    EXPECT_GE(rows[0].data.size(), 40'000u - 16'344);
    EXPECT_LT(rows[0].data.size(), 40'000u);
    hive_builder::put(hive.image, head + 8, 0x7ffffff0); // then it is no big value
    EXPECT_FALSE(hive.rows()[0].is_big);
}

TEST(HivePatterns, AreCutIntoSegments)
{
    struct {
        const char* text;
        hive::hive_kind kind;
        const char* root;
        const char* segments;
    } const cases[] = {
        {"HKLM\\Software\\A\\\\B", hive::hive_kind::software, "Software\\A\\B", "Software|A|B"},
        {"HKLM/SYSTEM/Select", hive::hive_kind::system, "SYSTEM\\Select", "SYSTEM|Select"},
        {"hkcr\\hklm\\a/b\\/\\c", hive::hive_kind::other, "a/b\\c", "a/b|c"},
        {"MyNtUser\\x", hive::hive_kind::user, "ntuser.dat\\x", "MyNtUser|x"},
        {"HKCU", hive::hive_kind::user, "ntuser.dat", "HKCU"},
        {"usrclass.dat\\x", hive::hive_kind::user_classes, "usrclass.dat\\x", "usrclass.dat|x"},
    };
    for (const auto& one : cases) {
        hive::parsed_key_path path;
        EXPECT_TRUE(hive::parse_key_path(one.text, path));
        EXPECT_EQ(path.kind, one.kind);
        EXPECT_EQ(path.root_name, one.root);
        EXPECT_EQ(joined(path.segments, "|"), one.segments);
    }
    hive::parsed_key_path path;
    EXPECT_FALSE(hive::parse_key_path("HKLM\\hkcr\\", path));
    EXPECT_FALSE(hive::parse_key_path("", path));
}

// The tree that the patterns below are asked of: a value "v" in each key, which holds its name.
hive_key tree(std::string name, std::vector<hive_key> subkeys)
{
    hive_key key{.name = name, .subkeys = std::move(subkeys)};
    key.values = {text_value("v", name)};
    return key;
}

TEST(HivePatterns, GiveRowsFromTheirDepthOn)
{
    hive_key select{.name = "Select",
                    .values = {test_support::dword_value("current", 9),
                               test_support::dword_value("Current", 2)}};
    hive_builder builder;
    bytes image = builder.build(
        tree("root", {tree("a", {tree("x", {tree("deep", {tree("deeper", {})})}), tree("y", {})}),
                      tree("b", {tree("?*", {tree("deep", {})}), {.name = "empty"}}), select,
                      tree("ControlSet001", {}), tree("ControlSet002", {tree("two", {})})}));
    const std::uint32_t current = builder.cell("vk", "Select\\Current");
    hive_builder::put(image, current + 8, 0x80000001); // one byte: what stands behind it is none
    hive_builder::put(image, current + 12, 0x55555502);
    struct {
        const char* pattern;
        std::uint32_t level;
        const char* rows; // paths and names of values
    } const cases[] = {
        {"system\\a", 0, "a:v"},
        {"system\\A\\X", 0, "A\\X:v"},
        {"system\\a", 1, "a:v a\\x:v a\\y:v"},
        {"system\\a\\?*", 0, "a\\x:v a\\y:v"},
        {"system\\a\\?*", 1, "a\\x:v a\\y:v a\\x\\deep:v"},
        {"system\\?*\\?*\\DEEP", 0, "a\\x\\deep:v b\\?*\\deep:v"},
        {"system\\b\\?*", 0, "b\\?*:v"}, // a name that a hive holds is no wildcard
        {"system\\a\\v", 0, "a:v"},      // the last segment is a value's name
        {"system\\a\\?*\\V", 0, "a\\x:v a\\y:v"},
        {"system\\a\\nothing", 0, ""},
        {"system\\nothing\\v", 0, ""},
        {"system\\a\\y\\?*", 0, ""}, // there is no value of that name
        {"system\\currentcontrolset\\two", 0, "ControlSet002\\two:v"},
        {"system\\CurrentControlSet\\?*", 0, "ControlSet002\\two:v"},
    };
    for (const auto& one : cases) {
        std::vector<std::string> texts;
        for (const auto& row : rows_of(image, {.key = one.pattern, .level = one.level})) {
            const std::vector<std::string> below(row.path_segments->begin() + 1,
                                                 row.path_segments->end());
            texts.push_back(joined(below, "\\") + ":" + row.value_name);
        }
        EXPECT_EQ(joined(texts, " "), one.rows) << one.pattern;
    }
}

TEST(HivePatterns, WithoutAControlSetInUseFindNothing)
{
    for (const hive_key& select :
         {hive_key{.name = "Select", .values = {test_support::dword_value("current", 1)}},
          hive_key{.name = "Select", .values = {test_support::dword_value("Current", 7)}},
          hive_key{.name = "Select", .values = {test_support::qword_value("Current", 1)}}}) {
        const bytes image = hive_builder().build(tree("root", {select, tree("ControlSet001", {})}));
        EXPECT_TRUE(rows_of(image, {.key = "system\\CurrentControlSet\\v"}).empty());
    }
}

// A list whose parts all hold as many entries as a count can say, each the same key, whose values
// all lead to the same data.
TEST(HiveQuery, SharedListsAndDataComeToAnEnd)
{
    constexpr std::uint32_t entries = 65'535;
    std::vector<hive_key> databases(3'000,
                                    test_support::installed_database("{a}", "C:\\a.sdb", "", 1));
    databases.back().values[0].data = bytes(300'000, 'x');
    hive_builder builder;
    bytes image = builder.build(test_support::software_hive(databases, list_kind::ri_lh));
    const std::string path = std::string(test_support::installed_path) + "\\{a}";
    const std::uint32_t list = builder.cell("list", test_support::installed_path);
    const auto part = static_cast<std::uint32_t>(image.size());
    image.resize(part + 8 + entries * 8);
    for (std::uint32_t i = 0; i < entries; ++i) {
        hive_builder::put(image, part + 8 + i * 8,
                          hive_builder::reference(builder.cell("nk", path)));
    }
    for (std::uint32_t i = 0; i < 1'500; ++i) { // one within the other
        const std::uint32_t inner = part + i * 8;
        hive_builder::put(image, list + 8 + i * 4, hive_builder::reference(inner));
        hive_builder::put(image, inner, 0u - (8 + (entries - i) * 8));
        put_text(image, inner + 4, "lh\xff\xff");
    }
    hive_builder::put(image, builder.cell("nk", path) + 40, entries);
    const std::uint32_t values = builder.cell("values", path);
    hive_builder::put(image, values, 0u - 4 - entries * 4);
    std::uint64_t data = 0;
    for (const auto& row : rows_of(image, hive::query_installed_databases())) {
        data += row.data.size();
    }
    EXPECT_GT(data, 0u);
    EXPECT_LE(data, 2 * image.size() + 16 * 1024 * 1024);
}

// Names that lie over what stands behind them: no more is given than a few times the hive.
TEST(HiveQuery, LongNamesAreNotGivenAgainAndAgain)
{
    constexpr unsigned entries = 20'000;
    std::vector<hive_key> databases(2'000);
    for (std::size_t i = 0; i < databases.size(); ++i) {
        databases[i] = test_support::installed_database("k" + std::to_string(i), "", "", 1);
    }
    databases[0].values.assign(entries, test_support::dword_value("other", 1));
    databases.push_back(test_support::installed_database("sound", "C:\\a.sdb", "about", 1));
    hive_builder builder;
    bytes image = builder.build(test_support::software_hive(databases));
    image.resize(image.size() + 0x10000, 'x');
    const std::string path = std::string(test_support::installed_path) + "\\";
    for (std::size_t i = 1; i + 1 < databases.size(); ++i) {
        hive_builder::put_short(image, builder.cell("nk", path + databases[i].name) + 76, 0xffff);
    }
    const std::uint32_t value = builder.cell("vk", path + "k0\\other");
    hive_builder::put_short(image, value + 6, 4'000);
    for (unsigned i = 1; i <= entries; ++i) {
        hive_builder::put(image, builder.cell("values", path + "k0") + 4 * i,
                          hive_builder::reference(value));
    }
    std::uint64_t names = 0;
    std::size_t sound = 0;
    for (const auto& row : rows_of(image, hive::query_installed_databases())) {
        names += row.value_name.size() + row.path_segments->back().size();
        sound += row.path_segments->back() == "sound" ? 1 : 0;
    }
    EXPECT_LE(names, 8 * image.size());
    EXPECT_EQ(sound, 4u);
}

} // namespace
