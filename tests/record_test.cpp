#include "model/record.h"

#include <gtest/gtest.h>

#include "model/record_collector.h"
#include "sdb/tags.h"
#include "support/record_checks.h"
#include "support/reports.h"
#include "uni/utf.h"

namespace {

namespace tag = sdb::tag;
using test_support::node;
using records = std::vector<std::string>;

// Builds a database, with the nodes that records are made of.
struct record : testing::Test, test_support::sdb_builder {
    node name(std::string_view text) { return this->text(tag::name, text); }
    node fix(std::string_view called)
    {
        return label(called, list(tag::shim, {name(called), dword(tag::flags, 1)}));
    }
    node shim_ref(const test_support::target& to)
    {
        return list(tag::shim_ref, {reference(tag::shim_tagid, to)});
    }
    records listed(std::uint16_t tag, const request::search_request& wanted = {});
};

// A record as one line with " | " between its groups; of an item "2:name=a.exe", or "2:exe" for what
// is no string reference.
std::string brief(const sdb::sdb_database& database, const model::record_groups& groups)
{
    std::string text;
    for (std::size_t group = 0; group < groups.size(); ++group) {
        for (const model::record_item& item : groups[group]) {
            text += text.empty() ? "" : &item == groups[group].data() ? " | " : " ";
            text += std::to_string(item.depth) + ":" + sdb::tag_name(item.tag);
            if (sdb::tag_type(item.tag) == sdb::type::stringref) {
                std::string value;
                uni::utf16_to_text(database.string_bytes(database.word_behind(item.offset)), value);
                text += "=" + value;
            }
        }
    }
    return text;
}

// The records with that tag that a listing shows.
records record::listed(std::uint16_t tag, const request::search_request& wanted)
{
    const test_support::loaded_database loaded(build());
    const sdb::sdb_database& database = loaded.database;
    EXPECT_EQ(test_support::difference_of_short_ways(database, {}), "");
    model::search everything(database, {});
    model::search search(database, wanted);
    model::listing_budget budget(database);
    model::record_collector collector(database);
    records found;
    for (const sdb::tag_ordinal ordinal : database.ordinals_by_tag(tag)) {
        const std::uint32_t offset = database.offset_at(ordinal);
        const model::record_groups& groups = collector.groups();
        const bool passes = collector.collect(everything, budget, offset) && search.passes(groups);
        // The quick look turns down nothing that passes.
        EXPECT_EQ(collector.collect(search, budget, offset), passes);
        if (passes && has_substance(groups[0], groups.size() == 1)) {
            found.push_back(brief(database, groups));
        }
    }
    return found;
}

TEST_F(record, sub_records_come_in_reverse_each_with_what_it_refers_to)
{
    const node nested = list(
        tag::shim, {name("f2"), list(tag::inexclude, {null(tag::include)}), dword(tag::flags, 1)});
    add(list(tag::library, {fix("f1"), nested}));
    add(list(tag::exe,
             {name("a.exe"), shim_ref("f1"), list(tag::matching_file, {name("m")}),
              list(tag::patch_ref, {list(tag::data, {reference(tag::patch_tagid, nested)}),
                                    name("r2"), reference(tag::tagid, "f1")}),
              dword(tag::os_platform, 1)}));
    EXPECT_EQ(listed(tag::exe),
              (records{"1:exe 2:name=a.exe 2:os_platform | 2:matching_file 3:name=m | "
                       "2:patch_ref 3:name=r2 3:tagid | 3:data 4:patch_tagid | "
                       "3:shim 4:name=f1 4:flags | "
                       "4:shim 5:name=f2 5:flags | 5:inexclude 6:include | "
                       "2:shim_ref 3:shim_tagid | 3:shim 4:name=f1 4:flags"}));
}

TEST_F(record, references_count_in_reference_lists_and_when_they_lead_to_a_list)
{
    using test_support::target;
    const node empty = list(tag::shim, {});
    add({fix("fix"), empty});
    add(list(tag::exe,
             {name("x"), list(tag::data, {reference(tag::shim_tagid, "fix")}), shim_ref(empty),
              shim_ref(target::at(0)), shim_ref(target::at(13)), shim_ref(target::at(~0u))}));
    const std::string leads_nowhere = " | 2:shim_ref 3:shim_tagid";
    EXPECT_EQ(listed(tag::exe), (records{"1:exe 2:name=x | 2:data 3:shim_tagid" + leads_nowhere +
                                         leads_nowhere + leads_nowhere + leads_nowhere}));
}

TEST_F(record, a_scalar_behind_a_list_goes_to_the_last_group_less_deep)
{
    add(list(tag::exe,
             {list(tag::matching_file,
                   {list(tag::data, {name("d")}), name("m1"), text(tag::module, "m2")}),
              name("e1"), list(tag::matching_reg, {null(tag::general)}), // too small to keep it
              list(tag::data, {name("d2")}), text(tag::module, "e2")}));
    EXPECT_EQ(
        listed(tag::exe),
        (records{"1:exe 2:name=e1 2:module=e2 | 2:matching_file 3:name=m1 3:module=m2 3:general | "
                 "3:data 4:name=d | 2:data 3:name=d2 | 2:matching_reg"}));
}

TEST_F(record, circles_are_followed_once)
{
    const auto looping = [&](std::string_view called, std::string_view to) {
        return label(called, list(tag::shim, {name(called), shim_ref(to)}));
    };
    add({looping("self", "self"), looping("a", "b"), looping("b", "a")});
    add(list(tag::exe, {name("x"), shim_ref("a"), shim_ref("a")}));
    EXPECT_EQ(listed(tag::shim),
              (records{"1:shim 2:name=self | 2:shim_ref 3:shim_tagid",
                       "1:shim 2:name=a | 2:shim_ref 3:shim_tagid | 3:shim 4:name=b | "
                       "4:shim_ref 5:shim_tagid",
                       "1:shim 2:name=b | 2:shim_ref 3:shim_tagid | 3:shim 4:name=a | "
                       "4:shim_ref 5:shim_tagid"}));
    const std::string to_a = " | 2:shim_ref 3:shim_tagid | 3:shim 4:name=a | "
                             "4:shim_ref 5:shim_tagid | 5:shim 6:name=b | 6:shim_ref 7:shim_tagid";
    EXPECT_EQ(listed(tag::exe), (records{"1:exe 2:name=x" + to_a + to_a}));
}

TEST_F(record, a_list_that_stayed_open_takes_its_sibling_without_what_stands_in_it)
{
    add({list(tag::exe, {name("x"), binary(tag::file_bits, {1}), binary(tag::file_bits, {2})}),
         fix("s")});
    EXPECT_EQ(listed(tag::exe),
              (records{"1:exe 2:name=x 2:file_bits 2:file_bits | 2:shim | 2:stringtable"}));
    EXPECT_EQ(listed(tag::shim), (records{"1:shim 2:name=s 2:flags"}));
}

TEST_F(record, only_records_of_substance_are_listed)
{
    add({fix("fix"), list(tag::app, {name("n"), name("n"), reference(tag::tagid, "fix")}),
         list(tag::app, {}), list(tag::app, {name("n")}),
         list(tag::app, {name("n"), null(tag::general)}), list(tag::app, {list(tag::data, {})}),
         list(tag::app, {shim_ref("fix")}), list(tag::inexclude, {}),
         list(tag::inexclude, {null(tag::include)})});
    EXPECT_EQ(listed(tag::app),
              (records{"1:app 2:name=n 2:general", "1:app | 2:data",
                       "1:app | 2:shim_ref 3:shim_tagid | 3:shim 4:name=fix 4:flags"}));
    EXPECT_EQ(listed(tag::inexclude), (records{"1:inexclude 2:include"}));
    EXPECT_EQ(listed(tag::shim_ref), records());
}

TEST_F(record, what_was_found_selects_records_through_their_references)
{
    const node bits = binary(tag::patch_bits, {});
    const node patch = list(tag::patch, {name("p"), bits});
    add({patch, fix("fix"), list(tag::exe, {name("y"), shim_ref("fix")}),
         list(tag::exe, {name("x"), shim_ref(patch)})});
    build();
    const std::uint32_t wanted = offset_of(bits);
    EXPECT_EQ(
        listed(tag::exe, {{}, "", {5, wanted, 0xffffffff}}),
        (records{"1:exe 2:name=x | 2:shim_ref 3:shim_tagid | 3:patch 4:name=p 4:patch_bits"}));
    EXPECT_EQ(listed(tag::exe, {{}, "", {wanted + 1}}), records());
    EXPECT_EQ(listed(tag::exe, {{"zz"}, "", {}}), records());
}

} // namespace
