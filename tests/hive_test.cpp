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
using test_support::put;
using test_support::text_value;

hive_image opened(const bytes& image)
{
    hive::hive_bytes hive;
    hive.open(std::make_unique<io::memory_source>(io::byte_vector(image.begin(), image.end())));
    return hive_image(std::move(hive));
}

std::vector<hive::hive_value_record> rows_of(const bytes& image,
                                             const hive::registry_cmd_parameters& parameters,
                                             bool is_damaged = false)
{
    std::vector<hive::hive_value_record> rows;
    const hive::query_outcome outcome =
        hive::hive_query(parameters, opened(image), [&rows](hive::hive_value_record&& row) {
            rows.push_back(std::move(row));
        });
    EXPECT_EQ(outcome.any, !rows.empty());
    EXPECT_EQ(outcome.is_damaged, is_damaged);
    return rows;
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

    std::uint32_t part(unsigned number) const
    {
        const std::uint32_t at = builder.cell("list", "") + 8 + number * 4;
        return 4096 + uni::byte_view(image).u32(at);
    }
    std::uint32_t count_of_root() const
    {
        return uni::byte_view(image).u32(builder.cell("nk", "") + 24);
    }
    // The names of the root's subkeys, "failed" when they cannot be enumerated.
    std::string names() const
    {
        const hive_image hive = opened(image);
        std::vector<hive::hive_key_item> items;
        key_reader reader(hive);
        const bool done = reader.enum_subkeys(hive.root_cell(), items);
        EXPECT_EQ(reader.is_damaged(), items.size() != count_of_root());
        if (!done) {
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
    EXPECT_EQ(opened(good).hive_bins_base(), 4096u);
    EXPECT_FALSE(opened({good.begin(), good.begin() + 4495}).is_open());
    EXPECT_TRUE(opened({good.begin(), good.begin() + 4496}).is_open());

    bytes image = good;
    put(image, 4, 7, 4); // sequence numbers and checksum
    put(image, 508, 7, 4);
    EXPECT_TRUE(opened(image).is_open());
    put(image, 0, "ferg");
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
        put(image, 0, "regf");
        put(image, 36, 0x20, 4);
        put(image, 512, one.mark);
        if (one.bin != 0) {
            put(image, one.bin, "hbin");
            put(image, one.bin + 4, one.distance, 4);
        }
        const hive_image hive = opened(image);
        EXPECT_EQ(hive.is_open(), one.base != 0);
        EXPECT_EQ(hive.hive_bins_base(), one.base);
        EXPECT_EQ(hive.root_cell(), one.base == 0 ? 0 : one.base + 0x20);
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

TEST(HiveKeys, AreListedInTheOrderOfEveryKindOfList)
{
    for (const list_kind list :
         {list_kind::lf, list_kind::lh, list_kind::li, list_kind::ri_lh, list_kind::ri_li}) {
        const damaged_hive hive(list, {"b", "a", "d", "c", "e"});
        EXPECT_EQ(hive.names(), "b a d c e");
    }
    EXPECT_EQ(damaged_hive(list_kind::lh, {}).names(), "");
}

// What ends a damaged list differs from kind to kind. Of "ri" lists the parts are a b and c d.
TEST(HiveKeys, DamagedListsGiveWhatTheirKindLets)
{
    using enum list_kind;
    using place = std::uint32_t (*)(const damaged_hive&);
    constexpr place key = [](const damaged_hive& h) { return h.builder.cell("nk", "b"); };
    constexpr place root = [](const damaged_hive& h) { return h.builder.cell("nk", ""); };
    constexpr place list = [](const damaged_hive& h) { return h.builder.cell("list", ""); };
    constexpr place below = [](const damaged_hive& h) { return h.builder.cell("list", "b"); };
    constexpr place part = [](const damaged_hive& h) { return h.part(0); };
    constexpr place later_part = [](const damaged_hive& h) { return h.part(1); };
    struct change {
        place cell;
        unsigned at;
        std::uint32_t number;
        unsigned width = 4;
    };
    constexpr std::uint32_t itself = 0xabcdef01; // the reference of the list
    struct {
        const char* what;
        std::vector<change> changes;
        std::vector<std::pair<list_kind, const char*>> names;
    } const cases[] = {
        {"no parent",
         {{key, 20, 0}},
         {{lf, "a c d"}, {lh, "a c d"}, {li, "a"}, {ri_lh, "a c d"}, {ri_li, "a c d"}}},
        {"no time", {{key, 8, 0}, {key, 12, 0}}, {{lf, "a c d"}}},
        {"long name", {{key, 76, 0xffff, 2}}, {{li, "a"}}},
        {"bad security", {{key, 48, 0x40}}, {{lf, "a"}, {li, "a"}, {ri_lh, "a c d"}}},
        {"no security", {{key, 48, 0}}, {{li, "a b c d"}}},
        {"bad list below",
         {{below, 4, 0x7878, 2}},
         {{lh, "a b c d"}, {li, "a"}, {ri_lh, "a b c d"}}},
        {"lost list below", {{key, 32, 0x7fffffff}}, {{li, "a"}, {ri_li, "a c d"}}},
        {"great count, agreed on, but the cell holds no more",
         {{root, 24, 60'000}, {list, 6, 60'000, 2}},
         {{lf, "a b c d"}, {li, "a b c d"}}},
        {"wrong count", {{root, 24, 5}}, {{lf, "failed"}, {li, "failed"}, {ri_lh, "a b c d"}}},
        {"unknown kind", {{list, 4, 0x7878, 2}}, {{lh, ""}}},
        {"lost list", {{root, 32, 0xfffffff0}}, {{lh, "failed"}}},
        {"zero entry", {{part, 16, 0}}, {{ri_lh, "a c d"}}},
        {"zero entries", {{part, 16, 0}, {later_part, 8, 0}}, {{ri_lh, "a"}}},
        {"one bad child twice", {{part, 12, 0x40}, {later_part, 8, 0x40}}, {{ri_li, "a"}}},
        {"lost part", {{list, 8, 0x7ffffff0}}, {{ri_lh, "c d"}}},
        {"the part is the list of parts itself", {{list, 8, itself}}, {{ri_li, "c d"}}},
        {"great part", {{part, 6, 60'000, 2}}, {{ri_lh, "a b c d"}, {ri_li, "failed"}}},
    };
    for (const auto& one : cases) {
        for (const auto& [kind, names] : one.names) {
            damaged_hive hive(kind, {"a", "b", "c", "d"});
            for (const change& each : one.changes) {
                const std::uint32_t number =
                    each.number == itself ? hive_builder::reference(list(hive)) : each.number;
                put(hive.image, each.cell(hive) + each.at, number, each.width);
            }
            EXPECT_EQ(hive.names(), names) << one.what << " " << static_cast<int>(kind);
        }
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
        put(image, cell + 6, static_cast<std::uint16_t>(one.stored.size()), 2);
        put(image, cell + 24, one.stored);
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

    std::vector<hive::hive_value_record> rows(bool is_damaged = false) const
    {
        return rows_of(image, {.key = "Software\\?*", .keeps_empty_rows = true}, is_damaged);
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
    struct {
        const char* what;
        std::string_view kind; // of the cell: of the value "a", its data, the key or its values
        unsigned at;
        std::uint64_t number;
        std::size_t rows;
        std::size_t bytes; // of the first row
        bool is_empty_row = false;
        unsigned width = 4;
    } const cases[] = {
        {"inline of five bytes", "vk", 8, 0x80000005, 2, 0},
        {"data outside", "vk", 12, 0x7ffffff0, 1, 6},
        {"data at a negative offset", "vk", 12, 0xfffff000, 1, 6},
        {"a data cell beyond the end", "data", 0, 0xffff0000, 1, 6},
        {"a size without its masked bits", "vk", 8, 0x40000002, 2, 2},
        {"a size of 16 MiB", "vk", 8, 0x01000000, 2, 0},
        {"another mark", "vk", 4, 0x766b, 1, 6, false, 2},
        {"a cell of 4096 bytes", "vk", 0, 0u - 4096, 2, 10},
        {"a cell of 4097 bytes", "vk", 0, 0u - 4097, 1, 6},
        {"a name beyond the end", "vk", 6, 0xffff, 1, 6, false, 2},
        {"a list of 2^31 values", "nk", 40, 1u << 31, 2, 10},
        {"no values", "nk", 40, 0, 0, 0},
        {"a list without values", "values", 4, 0xffffffff7ffffff0, 1, 0, true, 8},
        {"a list outside", "nk", 44, 0x7ffffff0, 1, 0, true},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        value_hive hive({text_value("a", "long"), text_value("b", "it")});
        const bool is_of_value = one.kind == "vk" || one.kind == "data";
        const std::uint32_t cell = hive.builder.cell(one.kind, is_of_value ? "k\\a" : "k");
        put(hive.image, cell + one.at, one.number, one.width);
        const std::string_view what = one.what;
        const bool is_sound = what == "no values" || what == "a cell of 4096 bytes";
        const auto rows = hive.rows(!is_sound);
        ASSERT_EQ(rows.size(), one.rows);
        EXPECT_EQ(rows.empty() ? 0 : rows[0].data.size(), one.bytes);
        if (one.is_empty_row) {
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
    const std::uint32_t list = 4096 + uni::byte_view(hive.image).u32(head + 8);
    put(hive.image, list + 4, 0x7ffffff0, 4);
    const auto rows = hive.rows(true);
    ASSERT_EQ(rows.size(), 1u);
    // The two that are left hold no more than their cells do.
    EXPECT_EQ(rows[0].data.front(), 2);
    EXPECT_GE(rows[0].data.size(), 40'000u - 16'344);
    EXPECT_LT(rows[0].data.size(), 40'000u);
    put(hive.image, head + 8, 0x7ffffff0, 4); // then it is no big value
    EXPECT_FALSE(hive.rows(true)[0].is_big);
}

TEST(HivePatterns, AreCutIntoSegments)
{
    for (const auto& [text, segments] : {std::pair{"HKLM\\Software\\A\\\\B", "Software|A|B"},
                                         {"HKLM/SYSTEM/Select", "SYSTEM|Select"},
                                         {"hkcr\\hklm\\a/b\\/\\c", "a/b|c"},
                                         {"Software\\HKLM", "Software|HKLM"},
                                         {"HKCU", "HKCU"},
                                         {"HKLM\\hkcr\\", ""},
                                         {"", ""}}) {
        hive::key_path path;
        const bool names_a_hive = hive::parse_key_path(text, path);
        EXPECT_EQ(names_a_hive, !path.empty());
        EXPECT_EQ(joined(path, "|"), segments);
    }
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
    put(image, current + 8, 0x80000001, 4); // one byte: what stands behind it is none
    put(image, current + 12, 0x55555502, 4);
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
        put(image, part + 8 + i * 8, hive_builder::reference(builder.cell("nk", path)), 4);
    }
    for (std::uint32_t i = 0; i < 1'500; ++i) { // one within the other
        const std::uint32_t inner = part + i * 8;
        put(image, list + 8 + i * 4, hive_builder::reference(inner), 4);
        put(image, inner, 0u - (8 + (entries - i) * 8), 4);
        put(image, inner + 4, "lh\xff\xff");
    }
    put(image, builder.cell("nk", path) + 40, entries, 4);
    const std::uint32_t values = builder.cell("values", path);
    put(image, values, 0u - 4 - entries * 4, 4);
    std::uint64_t data = 0;
    for (const auto& row : rows_of(image, hive::query_installed_databases(), true)) {
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
        put(image, builder.cell("nk", path + databases[i].name) + 76, 0xffff, 2);
    }
    const std::uint32_t value = builder.cell("vk", path + "k0\\other");
    put(image, value + 6, 4'000, 2);
    for (unsigned i = 1; i <= entries; ++i) {
        put(image, builder.cell("values", path + "k0") + 4 * i, hive_builder::reference(value), 4);
    }
    std::uint64_t names = 0;
    std::size_t sound = 0;
    for (const auto& row : rows_of(image, hive::query_installed_databases(), true)) {
        names += row.value_name.size() + row.path_segments->back().size();
        sound += row.path_segments->back() == "sound" ? 1 : 0;
    }
    EXPECT_LE(names, 8 * image.size());
    EXPECT_EQ(sound, 4u);
}

} // namespace
