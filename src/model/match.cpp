#include "model/match.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/file_keys.h"
#include "model/record_expander.h"
#include "model/record_facts.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace model {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::string_view any_name = "*";
// Of the lists that are looked at, as many are kept.
constexpr std::size_t most_looked_at = 100'000;

enum class bound { exact, upper, lower };

constexpr bound bound_of(std::uint16_t tag)
{
    switch (tag) {
    case tag::upto_link_date:
    case tag::upto_bin_product_version:
    case tag::upto_bin_file_version:
    case tag::upto_packageid_version:
    case tag::upto_osmaxversiontested:
    case tag::quirk_enabled_version_lt:
        return bound::upper;
    case tag::from_link_date:
    case tag::from_bin_product_version:
    case tag::from_bin_file_version:
    case tag::from_packageid_version:
    case tag::from_osmaxversiontested:
        return bound::lower;
    default:
        return bound::exact;
    }
}

constexpr bool is_numeric(std::uint16_t tag)
{
    return sdb::tag_type(tag) >= type::byte_ && sdb::tag_type(tag) <= type::qword;
}

// A language stands without its prefix beside a database's.
std::string_view text_to_match(const pe_property& property)
{
    const bool is_language = property.tag == tag::langid || property.tag == tag::ver_language;
    return is_language ? std::string_view(property.text).substr(2) : property.text;
}

// Whether what the file has under a tag agrees with what the database wants there.
bool property_agrees(const pe_property& found, std::string_view wanted_text,
                     std::uint64_t wanted_number)
{
    const std::string_view text = text_to_match(found);
    if (found.number != 0 && found.number == wanted_number) {
        return true;
    }
    // A number of 0 has a text on the database's side alone.
    if (text == wanted_text ||
        (is_numeric(found.tag) && text.empty() && found.number == wanted_number)) {
        return true;
    }
    switch (bound_of(found.tag)) {
    case bound::upper:
        return found.number <= wanted_number;
    case bound::lower:
        return found.number >= wanted_number;
    case bound::exact:
        return false;
    }
    return false;
}

class matcher {
public:
    matcher(const sdb::sdb_database& database, const pe_list& file, const std::string& path,
            const tag_texts& texts, const request::bounds& bounds)
        : database_(database), file_(file), texts_(texts), keys_(path),
          longest_key_(std::max({keys_.full.size(), keys_.name.size(), any_name.size()})),
          budget_(database, bounds)
    {
        // Records that stand in one another are expanded again and again.
        budget_.limit = bounds.matched_items + bounds.matched_items_of_a_tag * database.tag_count();
        text_left_ = bounds.most_text(database.image().size());
    }

    // False if records that hold others were left out, since there is no end of them.
    bool run(match_results& results, looked_at_lists* looked_at)
    {
        keeps_lists_ = looked_at != nullptr;
        record_expander expander(database_);
        bool is_complete = true;
        for (const sdb::tag_ordinal record : records_by_size()) {
            if (budget_.is_used_up()) {
                is_complete = false;
                break;
            }
            if (expander.expand(database_.offset_at(record), false, budget_)) {
                walk_record(expander.own_items());
            }
        }
        results = name_is_known_ ? std::move(by_name_) : std::move(by_path_);
        for (auto& [record, lists] : results) {
            std::ranges::sort(lists);
            lists.erase(std::unique(lists.begin(), lists.end()), lists.end());
        }
        if (looked_at != nullptr) {
            *looked_at = std::move(name_is_known_ ? seen_by_name_ : seen_by_path_);
            looked_at->by_path = !name_is_known_;
            std::ranges::sort(looked_at->lists);
            looked_at->lists.erase(std::unique(looked_at->lists.begin(), looked_at->lists.end()),
                                   looked_at->lists.end());
        }
        return is_complete && text_left_ != 0;
    }

    // Calls `act` with the file name of each list, and what stands in it. False as for run().
    bool name_all(const list_name_taker& act)
    {
        longest_key_ = longest_name_of_file;
        record_expander expander(database_);
        for (const sdb::tag_ordinal record : records_that_test()) {
            if (budget_.is_used_up() || text_left_ == 0) {
                return false;
            }
            if (!expander.expand(database_.offset_at(record), false, budget_)) {
                continue;
            }
            const item_span items = expander.own_items();
            for_each_list(items, [&](std::uint32_t list, item_span members) {
                act(file_name(), {items.front().offset, list}, members.empty());
                return true;
            });
        }
        return text_left_ != 0;
    }

    void compare(const looked_at_lists& wanted, comparison_listener& listener)
    {
        record_expander expander(database_);
        listing_budget budget(database_);
        for (std::span<const looked_at_list> left = wanted.lists; !left.empty();) {
            const std::uint32_t record = left.front().record;
            const auto end = std::ranges::find_if(
                left, [&](const looked_at_list& one) { return one.record != record; });
            const auto count = static_cast<std::size_t>(end - left.begin());
            if (!expander.expand(record, false, budget) ||
                !compare_record(expander.own_items(), left.first(count), listener)) {
                return;
            }
            left = left.subspan(count);
        }
    }

private:
    using item_span = std::span<const record_item>;

    // The records that may hold a list for the file, the smallest first: what is made to use up the
    // limit comes last.
    std::vector<sdb::tag_ordinal> records_by_size() const
    {
        const sdb::tag_table& relation = database_.children();
        std::vector<sdb::tag_ordinal> records = relation.lists_around(tag::matching_file);
        const std::vector<sdb::tag_ordinal> names = possible_names();
        std::erase_if(records, [&](sdb::tag_ordinal record) {
            const auto name = std::ranges::upper_bound(names, record);
            return !claims_more(record) && (name == names.end() || *name >= relation.end(record));
        });
        std::ranges::stable_sort(
            records, {}, [&](sdb::tag_ordinal record) { return relation.end(record) - record; });
        return records;
    }

    // The records that hold matching-file lists. What holds a choice of them is no record itself.
    std::vector<sdb::tag_ordinal> records_that_test() const
    {
        const sdb::tag_table& relation = database_.children();
        std::vector<sdb::tag_ordinal> records = relation.lists_around(tag::matching_file);
        for (const std::uint16_t holder :
             {tag::pick_one, tag::match_plugin, tag::contains_file, tag::contains_hwid}) {
            if (!database_.ordinals_by_tag(holder).empty()) {
                const std::vector<sdb::tag_ordinal> more = relation.lists_around(holder);
                records.insert(records.end(), more.begin(), more.end());
            }
        }
        std::erase_if(records,
                      [this](sdb::tag_ordinal one) { return is_test(database_.tag_at(one)); });
        std::ranges::sort(records);
        records.erase(std::unique(records.begin(), records.end()), records.end());
        return records;
    }

    void walk_record(item_span items)
    {
        for_each_list(items, [&](std::uint32_t list, item_span members) {
            look_at_list({items.front().offset, list}, members);
            return true;
        });
    }

    // Calls `act` with the offset of each matching-file list of a record and what stands in it, until it
    // answers false; answers what it did.
    bool for_each_list(item_span items, auto&& act)
    {
        stored_name_ = {};
        stored_name_at_ = 0;
        for (std::size_t i = 1; i < items.size() && text_left_ != 0;) {
            const record_item& item = items[i++];
            if (item.tag == tag::name && is_empty_text(stored_name_)) {
                stored_name_ = stored_text(item.offset);
                stored_name_at_ = item.offset;
            } else if (item.tag == tag::matching_file) {
                const std::uint64_t end = std::uint64_t{item.offset} + sdb::tag_header +
                                          database_.list_size_from(item.offset);
                const std::size_t first = i;
                while (i < items.size() && items[i].offset < end) {
                    ++i;
                }
                members_ = items.subspan(first, i - first);
                text_sources_.clear();
                if (!act(item.offset, members_)) {
                    return false;
                }
            }
        }
        return true;
    }

    // Those of a record's lists that are wanted, in the order in which they stand.
    bool compare_record(item_span items, std::span<const looked_at_list> wanted,
                        comparison_listener& listener)
    {
        const looked_at_list itself{items.front().offset, items.front().offset};
        if (wanted.front() == itself && !compare_own_facts(itself, items, listener)) {
            return false;
        }
        return for_each_list(items, [&](std::uint32_t list, item_span members) {
            const looked_at_list one{items.front().offset, list};
            return !std::ranges::binary_search(wanted, one) || compare_list(one, members, listener);
        });
    }

    // What the record itself asks for, outside its lists.
    bool compare_own_facts(const looked_at_list& itself, item_span items,
                           comparison_listener& listener)
    {
        std::vector<record_item> facts;
        for (std::uint64_t inside = 0; const record_item& item : items.subspan(1)) {
            if (item.offset < inside) {
                continue;
            }
            if (sdb::tag_type(item.tag) == type::list) {
                inside = std::uint64_t{item.offset} + sdb::tag_header +
                         database_.list_size_from(item.offset);
            } else if (is_fact_of_program(item.tag)) {
                facts.push_back(item);
            }
        }
        members_ = facts;
        text_sources_.clear();
        stored_name_ = {};
        const bool goes_on = compare_list(itself, members_, listener);
        members_ = {};
        return goes_on;
    }

    bool compare_list(const looked_at_list& list, item_span members, comparison_listener& listener)
    {
        bool goes_on = listener.begin_list(list);
        bool is_caught = true;
        bool has_unknown = false;
        bool has_no = false;
        for (const std::uint32_t member : order_of(members)) {
            if (!goes_on) {
                break;
            }
            const std::uint16_t tag = members[member].tag;
            const pe_property* const found = find_property(file_, tag);
            std::uint32_t text_from = members[member].offset;
            const agreement agrees = found == nullptr ? agreement::unknown
                                     : member_agrees(member, *found, &text_from) ? agreement::yes
                                                                                 : agreement::no;
            has_no |= agrees == agreement::no;
            is_caught &= has_unknown || agrees != agreement::no;
            has_unknown |= agrees == agreement::unknown;
            const std::uint32_t own = members[member].offset;
            goes_on =
                listener.property({own, tag, found, agrees, text_from == own ? 0 : text_from});
        }
        listener.end_list(is_caught, has_no        ? agreement::no
                                     : has_unknown ? agreement::unknown
                                                   : agreement::yes);
        return goes_on;
    }

    // Properties are compared by ascending tag, equal tags as they stand.
    static std::vector<std::uint32_t> order_of(item_span members)
    {
        std::vector<std::uint32_t> order(members.size());
        std::iota(order.begin(), order.end(), 0u);
        std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return members[a].tag < members[b].tag;
        });
        return order;
    }

    void keep(looked_at_lists& kept, const looked_at_list& list) const
    {
        if (!keeps_lists_) {
            return;
        }
        if (kept.lists.size() < most_looked_at) {
            kept.lists.push_back(list);
        } else {
            kept.are_all = false;
        }
    }

    void look_at_list(const looked_at_list& seen, item_span members)
    {
        const std::uint32_t record = seen.record;
        const std::string key = file_name();
        const bool is_name = uni::equal_ignoring_case(key, keys_.name);
        name_is_known_ = name_is_known_ || is_name;
        if (members.empty() || (!is_name && !uni::equal_ignoring_case(key, keys_.full))) {
            return;
        }
        keep(is_name ? seen_by_name_ : seen_by_path_, seen);
        const std::vector<std::uint32_t> order = order_of(members);
        if (members_agree(order)) {
            const std::uint32_t first = members[order.front()].offset;
            std::uint32_t list = 0;
            const bool found = database_.find_enclosing_list(list, first, false);
            // A name may be the path too, and then counts as a name.
            (is_name ? by_name_ : by_path_)[record].push_back(found ? list : first);
        }
    }

    bool members_agree(const std::vector<std::uint32_t>& order)
    {
        for (const std::uint32_t member : order) {
            const pe_property* found = find_property(file_, members_[member].tag);
            if (found == nullptr) {
                return true; // whatever comes behind
            }
            if (!member_agrees(member, *found)) {
                return false;
            }
        }
        return true;
    }

    // The tag whose text is compared goes to `text_from`.
    bool member_agrees(std::uint32_t member, const pe_property& found,
                       std::uint32_t* text_from = nullptr)
    {
        const std::size_t longest = std::max(found.text.size(), any_name.size());
        std::string text = text_of(member, longest, text_from);
        if (text == any_name) {
            text = name(longest);
            if (text_from != nullptr) {
                *text_from = stored_name_at_;
            }
        }
        return property_agrees(found, text, number_of(members_[member]));
    }

    // The names, ascending, without which no list in a record can have one of the keys for its file
    // name: a quick look that spares most records the rest.
    std::vector<sdb::tag_ordinal> possible_names() const
    {
        std::vector<sdb::tag_ordinal> names;
        sdb::tag_ordinal ordinal;
        for (const std::uint32_t offset : database_.children().offsets()) {
            if (database_.tag_from(offset) == tag::name) {
                const uni::byte_view stored = stored_text(offset);
                // A name without a text may take that of another property.
                if (is_empty_text(stored) || may_be_key(stored)) {
                    names.push_back(ordinal);
                }
            }
            ++ordinal;
        }
        return names;
    }

    bool claims_more(sdb::tag_ordinal record) const
    {
        const sdb::tag_ordinal end = database_.children().end(record);
        const std::uint64_t claimed_end = std::uint64_t{database_.offset_at(record)} +
                                          database_.word_behind(database_.offset_at(record)) +
                                          sdb::tag_header;
        return end.number() != database_.tag_count() && database_.offset_at(end) < claimed_end;
    }

    static bool is_empty_text(uni::byte_view stored)
    {
        return stored.size() < 2 || stored.u16(0) == 0;
    }

    bool may_be_key(uni::byte_view stored) const
    {
        return begins_like(stored, keys_.name) || begins_like(stored, keys_.full);
    }
    // Whether the first two characters are the same, if they can be compared this simply.
    static bool begins_like(uni::byte_view stored, std::string_view key)
    {
        constexpr std::uint16_t first_beyond_ascii = 0x80;
        for (std::size_t i = 0; i < 2 && i < key.size(); ++i) {
            const std::uint16_t unit = stored.u16(i * 2);
            const auto wanted = static_cast<unsigned char>(key[i]);
            if (unit >= first_beyond_ascii || wanted >= first_beyond_ascii) {
                return true;
            }
            if (uni::lower_ascii(static_cast<char>(unit)) != key[i]) {
                return false;
            }
        }
        return true;
    }

    // The name of the record in work, as texts of tags are given.
    std::string name(std::size_t longest)
    {
        std::string text;
        uni::utf16_to_text(uni::beginning_of(stored_name_, longest), text);
        charge(text.size());
        return text;
    }

    // The file name of the list in work, to be compared with a key: the text of its last name that is
    // none of "" and "*", else that of the record.
    std::string file_name()
    {
        std::string record_name = name(longest_key_);
        for (std::size_t i = members_.size(); i > 0; --i) {
            if (members_[i - 1].tag != tag::name) {
                continue;
            }
            const bool has_own = has_text(members_[i - 1]);
            std::string own = text_of(i - 1, longest_key_);
            // What a member takes over from one that stood for the record's name is that name.
            if (own == any_name && !has_own && !record_name.empty() && record_name != any_name) {
                return record_name;
            }
            if (!own.empty() && own != any_name) {
                return own;
            }
        }
        return record_name;
    }

    // The text of a member: its own, else that of the last member before it that has one, "*" for
    // the record's name.
    std::string text_of(std::size_t member, std::size_t longest, std::uint32_t* text_from = nullptr)
    {
        if (std::optional<std::string> own = rendered(members_[member], longest)) {
            return *std::move(own);
        }
        if (text_sources_.empty()) {
            std::uint32_t source = no_source;
            for (std::uint32_t i = 0; i < members_.size(); ++i) {
                source = has_text(members_[i]) ? i : source;
                text_sources_.push_back(source);
            }
        }
        const std::uint32_t source = text_sources_[member];
        if (text_from != nullptr) {
            *text_from = source == no_source ? 0 : members_[source].offset;
        }
        return source == no_source ? std::string()
                                   : rendered(members_[source], longest).value_or("");
    }

    std::optional<std::string> rendered(const record_item& item, std::size_t longest)
    {
        std::optional<std::string> text = texts_(item.offset, longest);
        charge(text ? text->size() : 0);
        return text;
    }

    void charge(std::size_t text) { text_left_ -= std::min<std::uint64_t>(text_left_, text); }

    bool has_text(const record_item& item) const
    {
        return sdb::tag_type(item.tag) == type::stringref
                   ? !stored_text(item.offset).empty() // without the pains of making it
                   : texts_(item.offset, 0).has_value();
    }

    // The value of a tag as a number; 1 for the presence of one without a value.
    std::uint64_t number_of(const record_item& item) const
    {
        if (sdb::tag_type(item.tag) == type::null_) {
            return 1;
        }
        return is_numeric(item.tag) ? database_.item_from(item.offset).value.u64(0) : 0;
    }

    // The text in the string table that the tag at an offset refers to.
    uni::byte_view stored_text(std::uint32_t offset) const
    {
        return database_.string_bytes(database_.word_behind(offset));
    }

    const sdb::sdb_database& database_;
    const pe_list& file_;
    const tag_texts& texts_;
    file_keys keys_;
    std::size_t longest_key_;
    // Of the record in work, and the tag that has it.
    uni::byte_view stored_name_;
    std::uint32_t stored_name_at_ = 0;
    // The list in work, and for each member the one whose text it has, once that is asked for.
    static constexpr std::uint32_t no_source = 0xffffffff;
    item_span members_;
    std::vector<std::uint32_t> text_sources_;
    listing_budget budget_;
    std::uint64_t text_left_; // that may be made to be compared
    bool name_is_known_ = false;
    bool keeps_lists_ = false;
    looked_at_lists seen_by_name_;
    looked_at_lists seen_by_path_;
    match_results by_name_;
    match_results by_path_;
};

} // namespace

bool match_program(match_results& results, const sdb::sdb_database& database, const pe_list& file,
                   const std::string& path, const tag_texts& texts, const request::bounds& bounds,
                   looked_at_lists* looked_at)
{
    results.clear();
    return matcher(database, file, path, texts, bounds).run(results, looked_at);
}

bool name_matching_lists(const sdb::sdb_database& database, const tag_texts& texts,
                         const request::bounds& bounds, const list_name_taker& take)
{
    const pe_list nothing;
    const std::string no_path;
    return matcher(database, nothing, no_path, texts, bounds).name_all(take);
}

void compare_lists(const looked_at_lists& lists, const sdb::sdb_database& database,
                   const pe_list& file, const std::string& path, const tag_texts& texts,
                   const request::bounds& bounds, comparison_listener& listener)
{
    matcher(database, file, path, texts, bounds).compare(lists, listener);
}

} // namespace model
