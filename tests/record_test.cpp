#include "model/record.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "model/record_collector.h"
#include "sdb/tags.h"
#include "support/reports.h"
#include "uni/utf.h"

namespace {

namespace tag = sdb::tag;
using test_support::node;
using records = std::vector<std::string>;

// A builder with the nodes that records are made of.
struct record_builder : test_support::sdb_builder {
    node name(std::string_view text) { return this->text(tag::name, text); }
    node fix(std::string_view called)
    {
        return label(called, list(tag::shim, {name(called), dword(tag::flags, 1)}));
    }
    node shim_ref(const test_support::target& to)
    {
        return list(tag::shim_ref, {reference(tag::shim_tagid, to)});
    }
};

// "2:name=a.exe", or "2:exe" for what is no string reference.
std::string brief(const sdb::sdb_database& database, const model::record_item& item)
{
    std::string text = std::to_string(item.depth) + ":" + sdb::tag_name(item.tag);
    if (sdb::tag_type(item.tag) == sdb::type::stringref) {
        std::string value;
        uni::utf16_to_text(database.string_bytes(database.word_behind(item.offset)), value);
        text += "=" + value;
    }
    return text;
}

std::string brief(const sdb::sdb_database& database, const model::record_groups& groups)
{
    std::string text;
    for (std::size_t group = 0; group < groups.size(); ++group) {
        for (const model::record_item& item : groups[group]) {
            text += text.empty() ? "" : &item == groups[group].data() ? " | " : " ";
            text += brief(database, item);
        }
    }
    return text;
}

// The records with that tag that a listing shows, each as one line with " | " between its groups.
records listed(record_builder& b, std::uint16_t tag, const request::search_request& wanted = {})
{
    const test_support::loaded_database loaded(b.build());
    const sdb::sdb_database& database = loaded.database;
    model::search everything(database, {});
    model::search search(database, wanted);
    model::listing_budget budget(database);
    model::record_collector collector(database);
    records found;
    for (const sdb::tag_ordinal ordinal : database.ordinals_by_tag(tag)) {
        const std::uint32_t offset = database.offset_at(ordinal);
        const model::record_groups& groups = collector.groups();
        const bool holds_something = collector.collect(everything, budget, offset);
        const bool passes = holds_something && search.passes(groups);
        // The short way to the first group gives the same.
        EXPECT_EQ(collector.collect_first_group(budget, offset), holds_something);
        if (holds_something && collector.collect(everything, budget, offset)) {
            EXPECT_TRUE(std::ranges::equal(groups[0], collector.first_group(), {},
                                           &model::record_item::offset,
                                           &model::record_item::offset));
            EXPECT_EQ(collector.has_one_group(), groups.size() == 1);
        }
        // The quick look turns down nothing that passes.
        EXPECT_EQ(collector.collect(search, budget, offset), passes);
        if (passes && has_substance(groups[0], groups.size() == 1)) {
            found.push_back(brief(database, groups));
        }
    }
    return found;
}

TEST(record, sub_records_come_in_reverse_each_with_what_it_refers_to)
{
    record_builder b;
    const node nested =
        b.list(tag::shim, {b.name("f2"), b.list(tag::inexclude, {b.null(tag::include)}),
                           b.dword(tag::flags, 1)});
    b.add(b.list(tag::library, {b.fix("f1"), nested}));
    b.add(
        b.list(tag::exe,
               {b.name("a.exe"), b.shim_ref("f1"), b.list(tag::matching_file, {b.name("m")}),
                b.list(tag::patch_ref, {b.list(tag::data, {b.reference(tag::patch_tagid, nested)}),
                                        b.name("r2"), b.reference(tag::tagid, "f1")}),
                b.dword(tag::os_platform, 1)}));
    EXPECT_EQ(listed(b, tag::exe),
              (records{"1:exe 2:name=a.exe 2:os_platform | 2:matching_file 3:name=m | "
                       "2:patch_ref 3:name=r2 3:tagid | 3:data 4:patch_tagid | "
                       "3:shim 4:name=f1 4:flags | "
                       "4:shim 5:name=f2 5:flags | 5:inexclude 6:include | "
                       "2:shim_ref 3:shim_tagid | 3:shim 4:name=f1 4:flags"}));
}

TEST(record, followed_records_are_followed_in_turn)
{
    record_builder b;
    const node layer =
        b.list(tag::layer, {b.name("L"), b.shim_ref("fix"), b.list(tag::data, {b.name("d")}),
                            b.dword(tag::flags, 1)});
    b.add({b.fix("fix"), layer});
    b.add(b.list(tag::exe,
                 {b.name("a.exe"), b.list(tag::layer, {b.reference(tag::layer_tagid, layer)})}));
    EXPECT_EQ(listed(b, tag::exe),
              (records{"1:exe 2:name=a.exe | 2:layer 3:layer_tagid | 3:layer 4:name=L 4:flags | "
                       "4:data 5:name=d | 4:shim_ref 5:shim_tagid | 5:shim 6:name=fix 6:flags"}));
}

TEST(record, references_count_in_reference_lists_and_when_they_lead_to_a_list)
{
    using test_support::target;
    record_builder b;
    const node empty = b.list(tag::shim, {});
    b.add({b.fix("fix"), empty});
    b.add(b.list(tag::exe, {b.name("x"), b.list(tag::data, {b.reference(tag::shim_tagid, "fix")}),
                            b.shim_ref(empty), b.shim_ref(target::at(0)),
                            b.shim_ref(target::at(13)), b.shim_ref(target::at(~0u))}));
    const std::string leads_nowhere = " | 2:shim_ref 3:shim_tagid";
    EXPECT_EQ(listed(b, tag::exe), (records{"1:exe 2:name=x | 2:data 3:shim_tagid" + leads_nowhere +
                                            leads_nowhere + leads_nowhere + leads_nowhere}));
}

TEST(record, a_scalar_behind_a_list_goes_to_the_last_group_less_deep)
{
    record_builder b;
    b.add(b.list(
        tag::exe,
        {b.list(tag::matching_file,
                {b.list(tag::data, {b.name("d")}), b.name("m1"), b.text(tag::module, "m2")}),
         b.name("e1"), b.list(tag::matching_reg, {b.null(tag::general)}), // too small to keep it
         b.list(tag::data, {b.name("d2")}), b.text(tag::module, "e2")}));
    EXPECT_EQ(
        listed(b, tag::exe),
        (records{"1:exe 2:name=e1 2:module=e2 | 2:matching_file 3:name=m1 3:module=m2 3:general | "
                 "3:data 4:name=d | 2:data 3:name=d2 | 2:matching_reg"}));
}

TEST(record, circles_are_followed_once)
{
    record_builder b;
    const auto looping = [&](std::string_view name, std::string_view to) {
        return b.label(name, b.list(tag::shim, {b.name(name), b.shim_ref(to)}));
    };
    b.add({looping("self", "self"), looping("a", "b"), looping("b", "a")});
    b.add(b.list(tag::exe, {b.name("x"), b.shim_ref("a"), b.shim_ref("a")}));
    EXPECT_EQ(listed(b, tag::shim),
              (records{"1:shim 2:name=self | 2:shim_ref 3:shim_tagid",
                       "1:shim 2:name=a | 2:shim_ref 3:shim_tagid | 3:shim 4:name=b | "
                       "4:shim_ref 5:shim_tagid",
                       "1:shim 2:name=b | 2:shim_ref 3:shim_tagid | 3:shim 4:name=a | "
                       "4:shim_ref 5:shim_tagid"}));
    const std::string to_a = " | 2:shim_ref 3:shim_tagid | 3:shim 4:name=a | "
                             "4:shim_ref 5:shim_tagid | 5:shim 6:name=b | 6:shim_ref 7:shim_tagid";
    EXPECT_EQ(listed(b, tag::exe), (records{"1:exe 2:name=x" + to_a + to_a}));
}

TEST(record, a_list_that_stayed_open_takes_its_sibling_without_what_stands_in_it)
{
    record_builder b;
    b.add({b.list(tag::exe,
                  {b.name("x"), b.binary(tag::file_bits, {1}), b.binary(tag::file_bits, {2})}),
           b.fix("s")});
    EXPECT_EQ(listed(b, tag::exe),
              (records{"1:exe 2:name=x 2:file_bits 2:file_bits | 2:shim | 2:stringtable"}));
    EXPECT_EQ(listed(b, tag::shim), (records{"1:shim 2:name=s 2:flags"}));
}

TEST(record, only_records_of_substance_are_listed)
{
    record_builder b;
    b.add({b.fix("fix"),
           b.list(tag::app, {b.name("n"), b.name("n"), b.reference(tag::tagid, "fix")}),
           b.list(tag::app, {}), b.list(tag::app, {b.name("n")}),
           b.list(tag::app, {b.name("n"), b.null(tag::general)}),
           b.list(tag::app, {b.list(tag::data, {})}), b.list(tag::app, {b.shim_ref("fix")}),
           b.list(tag::inexclude, {}), b.list(tag::inexclude, {b.null(tag::include)})});
    EXPECT_EQ(listed(b, tag::app),
              (records{"1:app 2:name=n 2:general", "1:app | 2:data",
                       "1:app | 2:shim_ref 3:shim_tagid | 3:shim 4:name=fix 4:flags"}));
    EXPECT_EQ(listed(b, tag::inexclude), (records{"1:inexclude 2:include"}));
    EXPECT_EQ(listed(b, tag::shim_ref), records());
}

TEST(record, what_was_found_selects_records_through_their_references)
{
    record_builder b;
    const node bits = b.binary(tag::patch_bits, {});
    const node patch = b.list(tag::patch, {b.name("p"), bits});
    b.add({patch, b.fix("fix"), b.list(tag::exe, {b.name("y"), b.shim_ref("fix")}),
           b.list(tag::exe, {b.name("x"), b.shim_ref(patch)})});
    b.build();
    const std::uint32_t wanted = b.offset_of(bits);
    EXPECT_EQ(
        listed(b, tag::exe, {{}, "", {5, wanted, 0xffffffff}}),
        (records{"1:exe 2:name=x | 2:shim_ref 3:shim_tagid | 3:patch 4:name=p 4:patch_bits"}));
    EXPECT_EQ(listed(b, tag::exe, {{}, "", {wanted + 1}}), records());
    EXPECT_EQ(listed(b, tag::exe, {{"zz"}, "", {}}), records());
}

} // namespace
