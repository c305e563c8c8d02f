#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/differences.h"
#include "model/known_records.h"
#include "model/record_facts.h"
#include "support/database_text.h"
#include "support/reports.h"
#include "support/sample_database.h"

namespace {

using test_support::bytes;
using test_support::loaded_database;

bytes changed_sample(const std::vector<std::pair<std::string, std::string>>& changes)
{
    const bytes stored = test_support::example("sample.txt");
    std::string text(stored.begin(), stored.end());
    for (const auto& [from, to] : changes) {
        const std::size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        text.replace(at, from.size(), to);
    }
    return test_support::database_from_text(text);
}

// What is told, in a line each: "changed exe ledger.exe", "+company_name".
class noted : public model::difference_listener {
public:
    noted(const sdb::sdb_database& before, const sdb::sdb_database& after)
        : before_(before), after_(after)
    {}
    bool record(const model::record_change& one) override
    {
        lines.push_back(word(one) + name(one));
        return true;
    }
    bool fact(const model::record_change& one) override
    {
        const bool is_after = one.after != 0;
        lines.push_back(
            "  " + word(one) +
            sdb::tag_name(is_after ? after_.tag_from(one.after) : before_.tag_from(one.before)));
        return true;
    }
    bool reached(const model::record_change&, bool is_reached_before,
                 bool is_reached_after) override
    {
        lines.push_back(!is_reached_after   ? "  -index"
                        : is_reached_before ? "  ~index"
                                            : "  +index");
        return true;
    }
    bool astray(std::uint64_t before, std::uint64_t after) override
    {
        lines.push_back("astray " + std::to_string(before) + " -> " + std::to_string(after));
        return true;
    }
    bool stands(const model::record_change&, const model::record_place& before,
                const model::record_place& after) override
    {
        const auto words = [](const model::record_place& place) {
            return (place.around == 0 ? "none" : sdb::tag_name(place.around)) +
                   std::string(place.before_last, '\'');
        };
        lines.push_back("  " + words(before) + " -> " + words(after));
        return true;
    }
    std::vector<std::string> lines;

private:
    static std::string word(const model::record_change& one)
    {
        constexpr const char* words[] = {"+", "-", "~"};
        return words[static_cast<std::size_t>(one.kind)];
    }
    std::string name(const model::record_change& one) const
    {
        return one.after != 0 ? model::name_of_list(after_, one.after)
                              : model::name_of_list(before_, one.before);
    }
    const sdb::sdb_database& before_;
    const sdb::sdb_database& after_;
};

std::vector<std::string> differences(const bytes& before, const bytes& after,
                                     model::difference_counts* counts = nullptr)
{
    const loaded_database a(before);
    const loaded_database b(after);
    noted listener(a.database, b.database);
    const auto made = model::compare_databases(a.database, b.database, listener);
    if (counts != nullptr) {
        *counts = made;
    }
    return listener.lines;
}

TEST(differences, are_what_records_say_and_not_where_they_stand)
{
    using lines = std::vector<std::string>;
    const bytes sample = test_support::sample_database();
    model::difference_counts counts;
    EXPECT_EQ(differences(sample, sample, &counts), lines{});
    EXPECT_EQ(counts.changed + counts.added + counts.removed, 0u);
    EXPECT_GT(counts.unchanged, 20u);
    struct {
        std::vector<std::pair<std::string, std::string>> changes;
        lines expected;
    } const rows[] = {
        // What is put in front moves every offset and every string.
        {{{"    inexclude\n      include\n      module = shellext.dll",
           "    flag\n      name = AFirst\n    inexclude\n      include\n      module = "
           "shellext.dll"}},
         {"+AFirst"}},
        {{{"time = 2026-03-14 09:26:53", "time = 2026-03-15 09:26:53"}},
         {"~Tarnwick Font Preview Pack", "  ~time"}},
        {{{"company_name = Quellmark Records\n      product_name = Quellmark Ledger",
           "product_name = Quellmark Ledger\n      company_name = Quellmark Records"}},
         {}}, // in another order
        {{{"product_name = Quellmark Ledger", "product_name = Ledger"}},
         {"~ledger.exe", "  ~product_name"}},
        {{{"replace 0x00012f42 recordsvc.exe = eb", "replace 0x00012f42 recordsvc.exe = 90"}},
         {"~RecordServiceHotfix", "  ~patch_bits"}},
        // The same under another identifier, and another under the same.
        {{{"exe_id = 96f0a3de", "exe_id = 96f0a3df"}}, {"~ledger.exe", "  ~exe_id"}},
        {{{"name = planview.exe", "name = planviews.exe"}}, {"~planviews.exe", "  ~name"}},
        {{{"      name = PinOldVersion\n      shim_tagid = @pin_old_version",
           "      name = PinOldVersion\n      shim_tagid = @redirect_old_paths"}},
         {"~OlderRelease", "  ~shim_tagid"}},
        // Of what lets modules in and keeps them out the first counts.
        {{{"        include\n        module = setupui.dll\n      inexclude\n        module = "
           "verhlp.dll",
           "        module = verhlp.dll\n      inexclude\n        include\n        module = "
           "setupui.dll"}},
         {"~PinOldVersion", "  ~module", "  -include", "  ~module", "  +include"}},
        {{{"    inexclude\n      include\n      module = shellext.dll\n    inexclude\n      module "
           "= *",
           "    flags = 1\n    inexclude\n      module = *\n    inexclude\n      include\n      "
           "module = shellext.dll"}},
         {"~library at 0x000000d2", "  +flags", "~inexclude at 0x000000de", "  ~module",
          "  -include", "~inexclude at 0x000000ea", "  ~module", "  +include"}},
        // The system finds a record by an index.
        {{{"      ledger.exe = @ledger\n", ""}}, {"~ledger.exe", "  -index"}},
        {{{"      ledger.exe = @ledger\n", "      other.exe = @ledger\n"}},
         {"~ledger.exe", "  ~index"}},
        // Or finds something else.
        {{{"      ledger.exe = @ledger\n", "      ledger.exe = @ledger\n      lost.exe = @lost\n"},
          {"    matching_file\n", "    matching_file @lost\n"}},
         {"astray 0 -> 1"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.changes.front().second);
        EXPECT_EQ(differences(sample, changed_sample(row.changes)), row.expected);
    }
}

TEST(differences, are_told_of_texts_that_are_not_there)
{
    const auto with_reference = [](std::uint8_t high) {
        bytes image = test_support::sample_database();
        const loaded_database loaded(image);
        sdb::tag_ordinal one;
        while (loaded.database.tag_at(one) != sdb::tag::product_name) {
            ++one;
        }
        image[loaded.database.offset_at(one) + 5] = high;
        return image;
    };
    using lines = std::vector<std::string>;
    EXPECT_EQ(differences(with_reference(0x7e), with_reference(0x7e)), lines{});
    EXPECT_EQ(differences(with_reference(0x7e), with_reference(0x7f)),
              (lines{"~recordsvc.exe", "  ~product_name"}));
}

// Where nobody looks for it, a record does nothing.
TEST(differences, are_told_of_records_that_stand_in_another_list)
{
    using lines = std::vector<std::string>;
    const std::string shim = "shim\nname = S\ndllfile = a.dll\n";
    const std::string exe = "exe\nname = a.exe\n";
    // Lines at the depth given by the digit in front of each record.
    const auto text = [](const std::vector<std::pair<int, std::string>>& lists) {
        std::string made;
        for (const auto& [depth, list] : lists) {
            bool is_first = true;
            for (std::size_t at = 0; at < list.size(); is_first = false) {
                const std::size_t end = list.find('\n', at) + 1;
                made +=
                    std::string((static_cast<std::size_t>(depth) + (is_first ? 0 : 1)) * 2, ' ') +
                    list.substr(at, end - at);
                at = end;
            }
        }
        return test_support::database_from_text(made);
    };
    const bytes usual = text({{0, "database\n"}, {1, "library\n"}, {2, shim}, {1, exe}});
    struct {
        bytes after;
        lines expected;
    } const rows[] = {
        {text({{0, "database\n"}, {1, exe}, {1, "library\n"}, {2, shim}}), {}},
        {text({{0, "database\n"}, {1, "library\n"}, {2, shim}, {2, exe}}),
         {"~a.exe", "  database -> library"}},
        {text({{0, "database\n"}, {1, "library\n"}, {1, shim}, {1, exe}}),
         {"~S", "  library -> database"}},
        {text({{0, "database\n"}, {1, "library\n"}, {2, shim}, {0, exe}}),
         {"~a.exe", "  database -> none"}},
        {text({{0, "database\n"}, {1, exe}, {0, "database\n"}, {1, "library\n"}, {2, shim}}),
         {"+database at 0x0000000c", "~a.exe", "  database -> database'"}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(differences(usual, row.after), row.expected);
    }
    // Of two that are alike the one in the same place is the same.
    const bytes twice = text({{0, "database\n"}, {1, "library\n"}, {2, exe}, {1, exe}});
    EXPECT_EQ(differences(twice, text({{0, "database\n"}, {1, exe}, {1, "library\n"}, {2, exe}})),
              lines{});
}

// Lists of one name are told apart by what they say, and by where they stand among the like.
TEST(differences, are_told_of_references_to_namesakes)
{
    using lines = std::vector<std::string>;
    // Two of a name in the library, or one, and what refers to the one that is marked.
    const auto namesakes = [](const std::string& kind, const std::string& first,
                              const std::string& second, const std::string& used) {
        return "database\n  library\n    " + kind + " @a\n      name = F\n      flags = " + first +
               (second.empty() ? ""
                               : "\n    " + kind + " @b\n      name = F\n      flags = " + second) +
               "\n  exe\n    name = a.exe\n    " + kind + "_ref\n      name = F\n      " + kind +
               "_tagid = @" + used + "\n";
    };
    const auto deep = [](const std::string& used) {
        return "database\n  library\n    shim @a\n      name = X\n      dllfile = a.dll\n"
               "    shim @b\n      name = X\n      dllfile = b.dll\n"
               "    layer @l\n      name = L\n      shim_ref\n        shim_tagid = @a\n"
               "    layer @m\n      name = L\n      shim_ref\n        shim_tagid = @b\n"
               "  exe\n    name = a.exe\n    layer\n      name = L\n      layer_tagid = @" +
               used + "\n";
    };
    // Two chains of layers of the same names, at the ends of which is one of two shims of one name.
    const auto chains = [](const std::string& first, const std::string& second) {
        std::string text =
            "database\n  library\n    shim @a\n      name = X\n      dllfile = a.dll\n"
            "    shim @b\n      name = X\n      dllfile = b.dll\n";
        for (const char* const number : {"1", "2"}) {
            std::string to = *number == '1' ? first : second;
            std::string by = "shim";
            for (const char* const name : {"P", "O", "N", "M", "L"}) {
                text += std::string("    layer @") + name + number + "\n      name = " + name +
                        "\n      " + (by == "shim" ? "shim_ref" : by) + "\n        " + by +
                        "_tagid = @" + to + "\n";
                to = std::string(name) + number;
                by = "layer";
            }
        }
        return text +
               "  exe\n    name = a.exe\n    layer\n      name = L\n      layer_tagid = @L1\n";
    };
    // Two layers of one name in that order, each of which says two things.
    using twin = std::pair<std::string, std::string>;
    const auto twins = [](const twin& first, const twin& second) {
        std::string text = "database\n  library\n";
        for (const twin& one : {first, second}) {
            text += "    layer\n      name = L\n      flags = " + one.first +
                    "\n      inexclude\n        module = " + one.second + "\n";
        }
        return text;
    };
    // Two layers of one name that refer to one of two shims of one name.
    const auto users = [](const std::string& module, const std::string& first,
                          const std::string& second) {
        std::string text = "database\n  library\n    shim\n      name = X\n      dllfile = b.dll\n"
                           "    shim @a\n      name = X\n      dllfile = " +
                           module + "\n";
        for (const std::string& one : {first, second}) {
            text += "    layer\n      name = L\n      shim_ref\n        shim_tagid = @a\n"
                    "      inexclude\n        module = " +
                    one + "\n";
        }
        return text;
    };
    struct {
        std::string before;
        std::string after;
        lines expected;
    } const rows[] = {
        {users("a.dll", "x.dll", "y.dll"), users("c.dll", "y.dll", "x.dll"), {"~X", "  ~dllfile"}},
        {chains("a", "b"), chains("a", "b"), {}},
        {chains("a", "b"), chains("b", "a"), {"~a.exe", "  ~layer_tagid"}},
        {namesakes("shim", "1", "2", "a"),
         namesakes("shim", "1", "2", "b"),
         {"~a.exe", "  ~shim_tagid"}},
        {namesakes("quirk", "1", "2", "a"),
         namesakes("quirk", "1", "2", "b"),
         {"~a.exe", "  ~quirk_tagid"}},
        {deep("l"), deep("m"), {"~a.exe", "  ~layer_tagid"}},
        // Another of the name is no change of what refers to the first, nor is a change of that.
        {namesakes("shim", "1", "", "a"), namesakes("shim", "1", "2", "a"), {"+F"}},
        {namesakes("shim", "1", "2", "a"), namesakes("shim", "3", "2", "a"), {"~F", "  ~flags"}},
        {namesakes("shim", "1", "2", "a"), namesakes("shim", "2", "1", "b"), {}},
        // One change to either of two that were put in another order.
        {twins({"1", "x.dll"}, {"2", "y.dll"}),
         twins({"2", "y.dll"}, {"3", "x.dll"}),
         {"~L", "  ~flags"}},
        {twins({"1", "x.dll"}, {"2", "y.dll"}),
         twins({"2", "z.dll"}, {"1", "x.dll"}),
         {"~L", "  ~module"}},
        // What leads to no tag has nothing but its number.
        {"database\n  exe\n    name = a.exe\n    shim_ref\n      shim_tagid = 70000\n",
         "database\n  exe\n    name = a.exe\n    shim_ref\n      shim_tagid = 80000\n",
         {"~a.exe", "  ~shim_tagid"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.after);
        EXPECT_EQ(differences(test_support::database_from_text(row.before),
                              test_support::database_from_text(row.after)),
                  row.expected);
    }
}

TEST(known_records, are_those_that_say_the_same_with_all_they_refer_to)
{
    const loaded_database sample(test_support::sample_database());
    model::known_records known;
    known.add(sample.database);
    known.settle();
    const auto left = [&](const bytes& image) {
        const loaded_database other(image);
        const model::known_filter filter(known, other.database);
        std::vector<std::string> names;
        for (const auto& list : other.database.children().lists()) {
            const std::uint32_t offset = other.database.offset_at(list.ordinal);
            if ((list.tag == sdb::tag::exe || list.tag == sdb::tag::shim) &&
                !filter.holds(offset)) {
                names.push_back((filter.redefines(offset) ? "!" : "") +
                                model::name_of_list(other.database, offset));
            }
        }
        return names;
    };
    using names = std::vector<std::string>;
    EXPECT_EQ(left(test_support::sample_database()), names{});
    EXPECT_EQ(left(changed_sample({{"size = 417792", "size = 417793"}})), names{"recordsvc.exe"});
    // A definition that became another makes others of all that refer to it.
    EXPECT_EQ(left(changed_sample({{"dllfile = fixpath.dll", "dllfile = other.dll"}})),
              (names{"!RedirectOldPaths", "drawplan.exe", "Чертёж.exe", "plotspool.exe"}));
}

} // namespace
