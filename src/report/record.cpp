#include "report/record.h"

#include <algorithm>

#include "sdb/finders.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace report {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::uint64_t list_header = 6;
constexpr std::uint64_t largest_record = 100'000;
constexpr std::uint64_t largest_listing = 1'000'000;
constexpr std::uint64_t listing_share_of_a_tag = 64;

} // namespace

record_expander::record_expander(const sdb::sdb_database& database) : database_(database) {}

std::uint64_t record_expander::listing_limit(const sdb::sdb_database& database)
{
    return largest_listing + listing_share_of_a_tag * database.tag_count();
}

std::span<const record_item> record_expander::subrecord(std::size_t index) const noexcept
{
    return items_of(subrecords_[index]);
}

std::span<const record_item> record_expander::items_of(const group& found) const noexcept
{
    return found.is_followed
               ? bodies(found.first, found.last)
               : std::span(references_).subspan(found.first, found.last - found.first);
}

bool record_expander::expand(std::uint32_t tag_offset, bool follow_references,
                             std::uint64_t& listed_items)
{
    bodies_.clear();
    references_.clear();
    subrecords_.clear();
    own_count_ = 0;
    const std::optional<std::uint32_t> ordinal = database_.ordinal_of(tag_offset);
    if (!ordinal) {
        return false;
    }
    if (relation_ == nullptr) {
        relation_ = &database_.children();
        on_chain_.resize(database_.tag_count());
    }
    const record_item head = item_of(*ordinal, 1);
    bodies_.push_back(head);
    record_items_ = gather(head, 2, 0);
    listed_items += record_items_;
    own_count_ = bodies_.size();
    while (!work_.empty()) {
        const group next = work_.back();
        work_.pop_back();
        walk_group(next, follow_references, listed_items);
    }
    enter_chain(0);
    return record_items_ != 0;
}

record_item record_expander::item_of(std::uint32_t ordinal, std::uint16_t depth) const
{
    return {database_.offset_at(ordinal), ordinal, database_.tag_at(ordinal), depth};
}

std::uint32_t record_expander::list_size(const record_item& item) const
{
    return database_.list_size_at(item.ordinal);
}

// Gathers all rows of the relation whose list starts in the span that the head's size claims, in
// file order, at depths from `base_depth` on. Reference lists with all that stands in them become
// groups to be walked; the rest goes behind bodies_. Gives the number of rows.
std::size_t record_expander::gather(const record_item& head, std::uint16_t base_depth,
                                    std::size_t chain_length)
{
    const std::uint64_t last_key = std::uint64_t{head.offset} + list_size(head) + list_header - 1;
    const std::uint32_t first = head.ordinal + 1;
    const std::uint32_t end = relation_->end(head.ordinal);
    const bool ends_in_span = database_.offset_at(end - 1) <= last_key;
    const bool goes_on_behind = end == database_.tag_count() || database_.offset_at(end) > last_key;
    if (!ends_in_span || !goes_on_behind) {
        return gather_irregular(head.ordinal, database_.ordinal_from(last_key + 1), base_depth,
                                chain_length);
    }
    if (end == first) {
        return 0;
    }
    const auto shift = static_cast<std::uint16_t>(base_depth - relation_->depth(first));
    return split_rows(
        end - first,
        [&](std::size_t row) {
            const std::uint32_t ordinal = first + static_cast<std::uint32_t>(row);
            return item_of(ordinal, static_cast<std::uint16_t>(relation_->depth(ordinal) + shift));
        },
        chain_length);
}

// The same where what stands in the list is not what its size claims: damaged sizes, or a list that
// stayed open too long.
std::size_t record_expander::gather_irregular(std::uint32_t list, std::uint32_t behind,
                                              std::uint16_t base_depth, std::size_t chain_length)
{
    std::vector<std::uint32_t> rows;
    for (; list < behind; ++list) {
        relation_->for_each_child(list, [&](std::uint32_t row) { rows.push_back(row); });
    }
    if (rows.empty()) {
        return 0;
    }
    const auto shift = static_cast<std::uint16_t>(base_depth - relation_->depth(rows.front()));
    std::ranges::sort(rows);
    return split_rows(
        rows.size(),
        [&](std::size_t row) {
            return item_of(rows[row],
                           static_cast<std::uint16_t>(relation_->depth(rows[row]) + shift));
        },
        chain_length);
}

template <typename source>
std::size_t record_expander::split_rows(std::size_t count, source&& row, std::size_t chain_length)
{
    std::size_t kept = bodies_.size();
    bodies_.resize(kept + count);
    for (std::size_t i = 0; i < count;) {
        record_item item = row(i++);
        if (!sdb::is_reference_list_tag(item.tag)) {
            bodies_[kept++] = item;
            continue;
        }
        const std::uint32_t size = list_size(item);
        const std::uint64_t limit = std::uint64_t{item.offset} + size + list_header;
        const std::size_t first = references_.size();
        references_.push_back(item);
        while (size >= list_header && i < count && (item = row(i)).offset < limit) {
            references_.push_back(item);
            ++i;
        }
        work_.push_back({first, references_.size(), chain_length, false});
    }
    bodies_.resize(kept);
    return count;
}

void record_expander::walk_group(const group& walked, bool follow_references,
                                 std::uint64_t& listed_items)
{
    subrecords_.push_back(walked);
    if (!follow_references) {
        return;
    }
    // Groups are walked depth first, so what leads to this one is still the chain's beginning.
    enter_chain(walked.chain_length);
    if (walked.is_followed) {
        chain_.push_back(items_of(walked).front().ordinal);
        on_chain_[chain_.back()] = true;
    }
    const std::size_t count = walked.last - walked.first;
    for (std::size_t i = 1; i < count; ++i) {
        const record_item item = items_of(walked)[i];
        if (sdb::is_expanded_dword_tag(item.tag)) {
            follow(item, listed_items);
        }
    }
}

void record_expander::follow(const record_item& reference, std::uint64_t& listed_items)
{
    if (record_items_ > largest_record || listed_items > listing_limit(database_)) {
        return;
    }
    const std::optional<std::uint32_t> ordinal =
        database_.ordinal_of(database_.word_behind(reference.offset));
    if (!ordinal || is_on_chain(*ordinal)) {
        return;
    }
    const record_item head = item_of(*ordinal, reference.depth);
    const std::size_t first = bodies_.size();
    bodies_.push_back(head);
    const std::size_t gathered =
        gather(head, static_cast<std::uint16_t>(reference.depth + 1), chain_.size() + 1);
    if (gathered == 0) {
        bodies_.pop_back();
        return;
    }
    record_items_ += gathered;
    listed_items += gathered;
    work_.push_back({first, bodies_.size(), chain_.size(), true});
}

void record_expander::enter_chain(std::size_t length)
{
    while (chain_.size() > length) {
        on_chain_[chain_.back()] = false;
        chain_.pop_back();
    }
}

bool record_expander::is_on_chain(std::uint32_t ordinal) const
{
    return ordinal == bodies_.front().ordinal || on_chain_[ordinal];
}

void record_groups::clear()
{
    groups_.clear();
    copied_.clear();
    reachable_.clear();
    is_open_ = false;
}

void record_groups::add(std::span<const record_item> items)
{
    for (std::size_t i = 0; i < items.size();) {
        if (!is_list(items[i])) {
            add_scalar(items[i++]);
            continue;
        }
        const std::size_t first = i++;
        start_group(items[first]);
        while (i < items.size() && !is_list(items[i]) && items[i].depth > items[first].depth) {
            ++i;
        }
        groups_.back() = items.subspan(first, i - first);
    }
}

void record_groups::start_group(const record_item& head)
{
    while (!reachable_.empty() && reachable_.back().depth >= head.depth) {
        reachable_.pop_back();
    }
    reachable_.push_back({head.depth, groups_.size()});
    groups_.emplace_back();
    is_open_ = true;
}

// A scalar that does not simply follow its list's others.
void record_groups::add_scalar(const record_item& item)
{
    if (is_open_ && item.depth > groups_.back().front().depth) {
        append(groups_.size() - 1, item);
        return;
    }
    is_open_ = false;
    const auto behind = std::ranges::lower_bound(reachable_, item.depth, {}, &depth_mark::depth);
    if (behind != reachable_.begin()) {
        append((behind - 1)->group, item);
    }
}

void record_groups::append(std::size_t group, const record_item& item)
{
    const auto [copy, is_new] = copied_.try_emplace(group);
    if (is_new) {
        copy->second.assign(groups_[group].begin(), groups_[group].end());
    }
    copy->second.push_back(item);
    groups_[group] = copy->second;
}

namespace {

// Whether every list of a database holds exactly what its size claims, and none is a reference list
// too small for the size that makes it keep what stands in it.
bool has_sound_lists(const sdb::sdb_database& database)
{
    return std::ranges::all_of(
        database.children().lists(), [](const sdb::tag_table::list_row& list) {
            const bool keeps_items =
                list.size == 0 || list.size >= list_header || !sdb::is_reference_list_tag(list.tag);
            return keeps_items && list.is_exact;
        });
}

} // namespace

bool is_search_pending(const front::sdb_opts& options)
{
    return !options.find_strings_list.empty() || !options.find_guid_text.empty() ||
           !options.find_tagids_list.empty();
}

search_sieve::search_sieve(const sdb::sdb_database& database,
                           std::span<const std::uint32_t> found_offsets)
    : database_(database)
{
    for (const std::uint32_t offset : found_offsets) {
        if (const auto ordinal = database.ordinal_of(offset)) {
            hits_.push_back(*ordinal);
        }
    }
    // A reference to a record that holds a hit is a hit itself; chains of references are short.
    constexpr int longest_chain = 32;
    struct reference {
        std::uint32_t ordinal;
        std::uint32_t target;
    };
    std::vector<reference> rest;
    for (const sdb::tag_table::reference& one : database.children().references()) {
        if (const auto target = database.ordinal_of(one.target)) {
            rest.push_back({one.ordinal, *target});
        }
    }
    for (int round = 0; round < longest_chain; ++round) {
        note_spanning_lists();
        const auto leads_to_hit =
            std::partition(rest.begin(), rest.end(),
                           [this](const reference& one) { return !may_hold_hit(one.target); });
        if (leads_to_hit == rest.end()) {
            return;
        }
        std::for_each(leads_to_hit, rest.end(),
                      [this](const reference& one) { hits_.push_back(one.ordinal); });
        rest.erase(leads_to_hit, rest.end());
        std::ranges::sort(hits_);
    }
    lets_all_pass_ = true;
}

// Notes the lists in which a hit stands, and those that claim more than they hold: there gathering
// may reach further.
void search_sieve::note_spanning_lists()
{
    spanning_lists_.clear();
    auto hit = hits_.begin();
    for (const sdb::tag_table::list_row& list : database_.children().lists()) {
        while (hit != hits_.end() && *hit < list.ordinal) {
            ++hit;
        }
        const bool holds_hit = hit != hits_.end() && *hit < list.end;
        if (holds_hit || (!list.is_exact && claims_more(list.ordinal))) {
            spanning_lists_.push_back(list.ordinal);
        }
    }
}

// Whether a tag, with a list's head, claims more than it holds.
bool search_sieve::claims_more(std::uint32_t ordinal) const
{
    const std::uint32_t end = database_.children().end(ordinal);
    const std::uint64_t claimed_end =
        database_.offset_at(ordinal) + std::uint64_t{database_.list_size_at(ordinal)} + list_header;
    return end != database_.tag_count() && database_.offset_at(end) < claimed_end;
}

bool search_sieve::may_hold_hit(std::uint32_t record_ordinal) const
{
    return may_list_hold_hit(record_ordinal) ||
           (sdb::tag_type(database_.tag_at(record_ordinal)) != type::list &&
            (claims_more(record_ordinal) || std::ranges::binary_search(hits_, record_ordinal)));
}

bool search_sieve::may_list_hold_hit(std::uint32_t list) const
{
    return lets_all_pass_ || std::ranges::binary_search(spanning_lists_, list);
}

bool record_collector::collect(front::sdb_opts& options, std::uint32_t tag_offset)
{
    groups_.clear();
    if (options.no_results || !run_pending_search(options)) {
        return false;
    }
    const std::optional<std::uint32_t> ordinal = database_.ordinal_of(tag_offset);
    if (!ordinal || (sieve_ && !sieve_->may_hold_hit(*ordinal)) ||
        !expander_.expand(tag_offset, true, options.listed_items)) {
        return false;
    }
    groups_.add(expander_.own_items());
    for (std::size_t i = 0; i < expander_.subrecord_count(); ++i) {
        groups_.add(expander_.subrecord(i));
    }
    return !groups_.empty() && passes_search(options);
}

// Runs the search that is asked for, if any has not been run; false if it finds nothing.
bool record_collector::run_pending_search(front::sdb_opts& options)
{
    sdb::found_tags& found = options.found_offsets;
    if (found.empty()) {
        if (!options.find_strings_list.empty()) {
            for (const std::string& pattern : options.find_strings_list) {
                sdb::find_strings(database_, found, pattern);
            }
        } else if (!options.find_guid_text.empty()) {
            sdb::find_guid(database_, found, options.find_guid_text);
        } else {
            // No id is checked against the database: one that is no tag's place finds nothing.
            found = options.find_tagids_list;
            std::ranges::sort(found);
            found.erase(std::unique(found.begin(), found.end()), found.end());
        }
        const bool searched = !options.find_strings_list.empty() || !options.find_guid_text.empty();
        options.no_results = searched && found.empty();
    }
    if (!found.empty() && !sieve_) {
        sieve_.emplace(database_, found);
    }
    return !options.no_results;
}

bool record_collector::passes_search(const front::sdb_opts& options) const
{
    const auto is_found = [&](const record_item& item) {
        return std::ranges::binary_search(options.found_offsets, item.offset);
    };
    if (options.found_offsets.empty()) {
        return true;
    }
    for (std::size_t group = 0; group < groups_.size(); ++group) {
        if (std::ranges::any_of(groups_[group], is_found)) {
            return true;
        }
    }
    return false;
}

bool record_collector::collect_first_group(front::sdb_opts& no_search, std::uint32_t tag_offset)
{
    const std::optional<std::uint32_t> ordinal = database_.ordinal_of(tag_offset);
    if (!lists_are_sound_) {
        lists_are_sound_ = has_sound_lists(database_);
    }
    if (ordinal && *lists_are_sound_ && database_.children().has_children(*ordinal)) {
        take_first_group(*ordinal);
        return true;
    }
    if (!collect(no_search, tag_offset)) {
        return false;
    }
    first_group_.assign(groups_[0].begin(), groups_[0].end());
    has_one_group_ = groups_.size() == 1;
    return true;
}

// Where all lists hold what their sizes claim, a record's first group is its head with the scalars
// that stand in it, and every list in it starts another one.
void record_collector::take_first_group(std::uint32_t ordinal)
{
    first_group_.assign(1, {database_.offset_at(ordinal), ordinal, database_.tag_at(ordinal), 1});
    has_one_group_ = true;
    database_.children().for_each_child(ordinal, [&](std::uint32_t child) {
        const record_item item{database_.offset_at(child), child, database_.tag_at(child), 2};
        if (is_list(item)) {
            has_one_group_ = false;
        } else {
            first_group_.push_back(item);
        }
    });
}

bool has_substance(std::span<const record_item> first_group, bool has_one_group)
{
    if (std::ranges::any_of(first_group, [](const record_item& item) {
            return sdb::is_expanded_dword_tag(item.tag);
        })) {
        return false;
    }
    return first_group.size() > 2 || first_group.front().tag == tag::inexclude || !has_one_group;
}

} // namespace report
