// Hives: the image, keys, lists and values, patterns, and the query for installed databases.

#include <gtest/gtest.h>

#include <numeric>

#include "hive/hive_query.h"
#include "support/hive_builder.h"

namespace {

using hive::hive_image;
using hive::key_reader;
using namespace test_support;
using enum list_kind;

hive_image opened(const bytes& image)
{
    hive::hive_bytes hive;
    hive.open(source_of(image));
    return hive_image(std::move(hive));
}

std::vector<hive::hive_value_record> rows_of(const bytes& image,
                                             const hive::registry_cmd_parameters& parameters,
                                             bool is_damaged = false)
{
    std::vector<hive::hive_value_record> rows;
    const auto keep = [&rows](hive::hive_value_record&& row) { rows.push_back(std::move(row)); };
    const hive::query_outcome outcome = hive::hive_query(parameters, opened(image), keep);
    EXPECT_EQ(outcome.any, !rows.empty());
    EXPECT_EQ(outcome.is_damaged, is_damaged);
    return rows;
}

struct change {
    std::string_view kind, path; // of the cell
    unsigned at;
    std::uint64_t number;
    unsigned width = 4;
};
constexpr std::uint64_t list_of_root = 0xabcdef01; // stands for the reference of that list

// A hive, what is changed in it, and what can then be read.
struct built {
    explicit built(const hive_key& root) : image(builder.build(root)) {}

    void apply(const std::vector<change>& changes)
    {
        const std::uint64_t of_root = hive_builder::reference(builder.cell("list", ""));
        for (const auto& [kind, path, at, number, width] : changes) {
            put(image, builder.cell(kind, path) + at, number == list_of_root ? of_root : number,
                width);
        }
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
        std::string all;
        for (const auto& item : items) {
            all += (all.empty() ? "" : " ") + reader.name_of(item);
        }
        return all;
    }
    std::vector<hive::hive_value_record> rows(bool is_damaged = false) const
    {
        return rows_of(image, {.key = "Software\\?*", .keeps_empty_rows = true}, is_damaged);
    }

    hive_builder builder;
    bytes image;
};

hive_key with_subkeys(list_kind list, const std::vector<std::string>& names)
{
    hive_key root{.name = "root", .list = list};
    for (const std::string& name : names) {
        root.subkeys.push_back(
            {.name = name, .values = {text_value("v", "text")}, .subkeys = {{.name = "below"}}});
    }
    return root;
}

hive_key with_values(std::vector<hive_value> values)
{
    return {.name = "root", .subkeys = {{.name = "k", .values = std::move(values)}}};
}

TEST(HiveImage, IsToldByItsMarksAlone)
{
    bytes image = hive_builder().build({.name = "root"});
    EXPECT_FALSE(hive_image().is_open());
    EXPECT_EQ(opened(image).hive_bins_base(), 4096u);
    EXPECT_FALSE(opened({image.begin(), image.begin() + 4495}).is_open());
    EXPECT_TRUE(opened({image.begin(), image.begin() + 4496}).is_open());
    put(image, {{4, 7, 4}, {508, 7, 4}}); // sequence numbers and checksum
    EXPECT_TRUE(opened(image).is_open());
    put(image, 0, "ferg");
    EXPECT_FALSE(opened(image).is_open());
}

TEST(HiveImage, FindsWhereTheBinsBegin)
{
    struct {
        const char* what;
        std::string_view mark;             // at 512
        std::uint64_t bin, distance, base; // 0 for no hive
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
            put(image, {{one.bin, 0x6e696268, 4}, {one.bin + 4, one.distance, 4}}); // "hbin"
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
    for (const std::uint64_t place :
         {hive.size(), std::uint64_t{0x80000000}, hive.offset_of(0xfffffff0)}) {
        EXPECT_TRUE(hive.cell_at(place, 1).empty()) << place;
    }
}

TEST(HiveKeys, AreListedInTheOrderOfEveryKindOfList)
{
    for (const list_kind list : {lf, lh, li, ri_lh, ri_li}) {
        EXPECT_EQ(built(with_subkeys(list, {"b", "a", "d", "c", "e"})).names(), "b a d c e");
    }
    EXPECT_EQ(built({.name = "root"}).names(), "");
}

// What ends a damaged list differs from kind to kind. Of "ri" lists the pieces are a b and c d.
TEST(HiveKeys, DamagedListsGiveWhatTheirKindLets)
{
    struct {
        const char* what;
        std::vector<change> changes;
        std::vector<std::pair<list_kind, const char*>> names;
    } const cases[] = {
        {"no parent",
         {{"nk", "b", 20, 0}},
         {{lf, "a c d"}, {lh, "a c d"}, {li, "a"}, {ri_lh, "a c d"}, {ri_li, "a c d"}}},
        {"no time", {{"nk", "b", 8, 0}, {"nk", "b", 12, 0}}, {{lf, "a c d"}}},
        {"long name", {{"nk", "b", 76, 0xffff, 2}}, {{li, "a"}}},
        {"bad security", {{"nk", "b", 48, 0x40}}, {{lf, "a"}, {li, "a"}, {ri_lh, "a c d"}}},
        {"no security", {{"nk", "b", 48, 0}}, {{li, "a b c d"}}},
        {"bad list below",
         {{"list", "b", 4, 0x7878, 2}},
         {{lh, "a b c d"}, {li, "a"}, {ri_lh, "a b c d"}}},
        {"lost list below", {{"nk", "b", 32, 0x7fffffff}}, {{li, "a"}, {ri_li, "a c d"}}},
        {"great count, agreed on, but the cell holds no more",
         {{"nk", "", 24, 60'000}, {"list", "", 6, 60'000, 2}},
         {{lf, "a b c d"}, {li, "a b c d"}}},
        {"wrong count", {{"nk", "", 24, 5}}, {{lf, "failed"}, {li, "failed"}, {ri_lh, "a b c d"}}},
        {"unknown kind", {{"list", "", 4, 0x7878, 2}}, {{lh, ""}}},
        {"lost list", {{"nk", "", 32, 0xfffffff0}}, {{lh, "failed"}}},
        {"zero entry", {{"part0", "", 16, 0}}, {{ri_lh, "a c d"}}},
        {"zero entries", {{"part0", "", 16, 0}, {"part1", "", 8, 0}}, {{ri_lh, "a"}}},
        {"one bad child twice", {{"part0", "", 12, 0x40}, {"part1", "", 8, 0x40}}, {{ri_li, "a"}}},
        {"lost part", {{"list", "", 8, 0x7ffffff0}}, {{ri_lh, "c d"}}},
        {"the part is the list of parts itself", {{"list", "", 8, list_of_root}}, {{ri_li, "c d"}}},
        {"great part", {{"part0", "", 6, 60'000, 2}}, {{ri_lh, "a b c d"}, {ri_li, "failed"}}},
    };
    for (const auto& one : cases) {
        for (const auto& [kind, names] : one.names) {
            built hive(with_subkeys(kind, {"a", "b", "c", "d"}));
            hive.apply(one.changes);
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
    for (const auto& [name, found] : {std::pair("ONE", std::optional(items[0].cell)),
                                      {"t\xc4", items[2].cell},
                                      {"t\xe4", {}},
                                      {"", {}}}) {
        EXPECT_EQ(reader.find_subkey(hive.root_cell(), name), found) << name;
    }
}

TEST(HiveValues, NamesAreToldByTheirSecondByte)
{
    using std::string_view_literals::operator""sv;
    constexpr std::pair<std::string_view, std::string_view> cases[] = {
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
    for (const auto& [stored, name] : cases) {
        built hive(with_values({text_value("0123456789abcdef", "text")}));
        const std::uint32_t cell = hive.builder.cell("vk", "k\\0123456789abcdef");
        put(hive.image, cell + 6, stored.size(), 2);
        put(hive.image, cell + 24, stored);
        const auto rows = hive.rows();
        ASSERT_EQ(rows.size(), 1u);
        EXPECT_EQ(rows[0].value_name, name);
    }
}

TEST(HiveValues, GiveTheirBytes)
{
    bytes large(20'480);
    std::iota(large.begin(), large.end(), std::uint8_t{0});
    const std::vector<hive_value> values = {{"large", 3, large},
                                            {"plain", 3, bytes(16'344, 5)},
                                            {"three", 3, {1, 2, 3}},
                                            {"none", 0, {}},
                                            {"dword", 4, {1, 0, 0, 0x80}}};
    const built hive(with_values(values));
    const auto rows = hive.rows();
    ASSERT_EQ(rows.size(), values.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i].data, values[i].data);
        EXPECT_EQ(rows[i].value_type, values[i].type);
        EXPECT_EQ(rows[i].is_big, i == 0);
        EXPECT_EQ(rows[i].value_cell, hive.builder.cell("vk", "k\\" + values[i].name));
        EXPECT_EQ(rows[i].path_segments->back(), "k");
        EXPECT_EQ(rows[i].last_write, hive_key().last_write);
    }
    EXPECT_EQ(rows_of(hive.image, {.key = "Software\\?*"}).size(), 4u);
}

TEST(HiveValues, DamageTakesDataOrRows)
{
    struct {
        const char* what;
        change harm;
        std::size_t rows, bytes; // of the first row
        bool is_empty_row = false;
    } const cases[] = {
        {"inline of five bytes", {"vk", "k\\a", 8, 0x80000005}, 2, 0},
        {"data outside", {"vk", "k\\a", 12, 0x7ffffff0}, 1, 6},
        {"data at a negative offset", {"vk", "k\\a", 12, 0xfffff000}, 1, 6},
        {"a data cell beyond the end", {"data", "k\\a", 0, 0xffff0000}, 1, 6},
        {"a size without its masked bits", {"vk", "k\\a", 8, 0x40000002}, 2, 2},
        {"a size of 16 MiB", {"vk", "k\\a", 8, 0x01000000}, 2, 0},
        {"another mark", {"vk", "k\\a", 4, 0x766b, 2}, 1, 6},
        {"a cell of 4096 bytes", {"vk", "k\\a", 0, 0u - 4096}, 2, 10},
        {"a cell of 4097 bytes", {"vk", "k\\a", 0, 0u - 4097}, 1, 6},
        {"a name beyond the end", {"vk", "k\\a", 6, 0xffff, 2}, 1, 6},
        {"a list of 2^31 values", {"nk", "k", 40, 1u << 31}, 2, 10},
        {"no values", {"nk", "k", 40, 0}, 0, 0},
        {"a list without values", {"values", "k", 4, 0xffffffff7ffffff0, 8}, 1, 0, true},
        {"a list outside", {"nk", "k", 44, 0x7ffffff0}, 1, 0, true},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        built hive(with_values({text_value("a", "long"), text_value("b", "it")}));
        hive.apply({one.harm});
        const std::string_view what = one.what;
        const bool is_sound = what == "no values" || what == "a cell of 4096 bytes";
        const auto rows = hive.rows(!is_sound);
        ASSERT_EQ(rows.size(), one.rows);
        EXPECT_EQ(rows.empty() ? 0 : rows[0].data.size(), one.bytes);
        if (one.is_empty_row) {
            EXPECT_EQ(rows[0].value_type, hive::hive_value_record::no_value);
            EXPECT_EQ(rows[0].value_name + std::to_string(rows[0].value_cell), "0");
        }
    }
}

TEST(HiveValues, SegmentsThatAreLostAreLeftOut)
{
    bytes large(40'000, 1);
    std::fill(large.begin() + 16'344, large.end(), std::uint8_t{2});
    built hive(with_values({{"a", 3, large}}));
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
    const std::pair<const char*, hive::key_path> cases[] = {
        {"HKLM\\Software\\A\\\\B", {"Software", "A", "B"}},
        {"HKLM/SYSTEM/Select", {"SYSTEM", "Select"}},
        {"hkcr\\hklm\\a/b\\/\\c", {"a/b", "c"}},
        {"Software\\HKLM", {"Software", "HKLM"}},
        {"HKCU", {"HKCU"}},
        {"HKLM\\hkcr\\", {}},
        {"", {}},
    };
    for (const auto& [text, segments] : cases) {
        hive::key_path path;
        EXPECT_EQ(hive::parse_key_path(text, path), !segments.empty());
        EXPECT_EQ(path, segments);
    }
}

// The tree that the patterns below are asked of: a value "v" in each key, which holds its name.
hive_key tree(std::string name, std::vector<hive_key> subkeys)
{
    return {.name = name, .values = {text_value("v", name)}, .subkeys = std::move(subkeys)};
}

TEST(HivePatterns, GiveRowsFromTheirDepthOn)
{
    hive_key select{.name = "Select",
                    .values = {dword_value("current", 9), dword_value("Current", 2)}};
    built hive(
        tree("root", {tree("a", {tree("x", {tree("deep", {tree("deeper", {})})}), tree("y", {})}),
                      tree("b", {tree("?*", {tree("deep", {})}), {.name = "empty"}}), select,
                      tree("ControlSet001", {}), tree("ControlSet002", {tree("two", {})})}));
    // One byte: what stands behind it is none.
    hive.apply({{"vk", "Select\\Current", 8, 0x5555550280000001, 8}});
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
        std::string found;
        for (const auto& row : rows_of(hive.image, {.key = one.pattern, .level = one.level})) {
            for (std::size_t i = 1; i < row.path_segments->size(); ++i) {
                found += (i > 1 ? "\\" : found.empty() ? "" : " ") + row.path_segments->at(i);
            }
            found += ":" + row.value_name;
        }
        EXPECT_EQ(found, one.rows) << one.pattern;
    }
}

TEST(HivePatterns, WithoutAControlSetInUseFindNothing)
{
    for (const auto& value :
         {dword_value("current", 1), dword_value("Current", 7), number_value("Current", 1, 8)}) {
        const bytes image = hive_builder().build(
            tree("root", {{.name = "Select", .values = {value}}, tree("ControlSet001", {})}));
        EXPECT_TRUE(rows_of(image, {.key = "system\\CurrentControlSet\\v"}).empty());
    }
}

// A list whose parts all hold as many entries as a count can say, each the same key, whose values
// all lead to the same data.
TEST(HiveQuery, SharedListsAndDataComeToAnEnd)
{
    constexpr std::uint32_t entries = 65'535;
    std::vector<hive_key> databases(3'000, installed_database("{a}", "C:\\a.sdb", "", 1));
    databases.back().values[0].data = bytes(300'000, 'x');
    hive_builder builder;
    bytes image = builder.build(software_hive(databases, ri_lh));
    const std::string path = std::string(installed_path) + "\\{a}";
    const std::uint32_t list = builder.cell("list", installed_path);
    const auto part = static_cast<std::uint32_t>(image.size());
    for (std::uint32_t i = 0; i < entries; ++i) {
        put(image, part + 8 + i * 8, hive_builder::reference(builder.cell("nk", path)), 4);
    }
    for (std::uint32_t i = 0; i < 1'500; ++i) { // one within the other
        const std::uint32_t inner = part + i * 8;
        put(image, list + 8 + i * 4, hive_builder::reference(inner), 4);
        put(image, {{inner, 0u - (8 + (entries - i) * 8), 4}, {inner + 4, 0xffff686c, 4}}); // lh
    }
    put(image, builder.cell("nk", path) + 40, entries, 4);
    put(image, builder.cell("values", path), 0u - 4 - entries * 4, 4);
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
        databases[i] = installed_database("k" + std::to_string(i), "", "", 1);
    }
    databases[0].values.assign(entries, dword_value("other", 1));
    databases.push_back(installed_database("sound", "C:\\a.sdb", "about", 1));
    hive_builder builder;
    bytes image = builder.build(software_hive(databases));
    image.resize(image.size() + 0x10000, 'x');
    const std::string path = std::string(installed_path) + "\\";
    for (std::size_t i = 1; i + 1 < databases.size(); ++i) {
        put(image, builder.cell("nk", path + databases[i].name) + 76, 0xffff, 2);
    }
    const std::uint32_t value = builder.cell("vk", path + "k0\\other");
    put(image, value + 6, 4'000, 2);
    for (std::uint32_t at = builder.cell("values", path + "k0") + 4, i = 0; i < entries; ++i) {
        put(image, at + 4 * i, hive_builder::reference(value), 4);
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
