#include "model/content.h"

#include <algorithm>
#include <bit>
#include <random>
#include <utility>

#include "model/record_facts.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"

namespace model {

namespace {

namespace type = sdb::type;

// References lead through records that refer to others; circles never come to an end.
constexpr int most_rounds_for_references = 16;

// Whether a tag leads to another one.
bool is_reference(std::uint16_t tag)
{
    return sdb::tag_type(tag) == type::dword && sdb::is_expanded_dword_tag(tag);
}

// SipHash with one round a word and three at the end.
struct sip_state {
    explicit sip_state(const content_key& key) noexcept
        : v0(key[0] ^ 0x736f6d6570736575), v1(key[1] ^ 0x646f72616e646f6d ^ 0xee),
          v2(key[0] ^ 0x6c7967656e657261), v3(key[1] ^ 0x7465646279746573)
    {}

    std::uint64_t v0, v1, v2, v3;

    void round() noexcept
    {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }
    void take(std::uint64_t word) noexcept
    {
        v3 ^= word;
        round();
        v0 ^= word;
    }
    // Both halves of one end: since nobody gets to see a digest, no second end is needed to hide the state.
    content_digest digest() noexcept
    {
        v2 ^= 0xee;
        round();
        round();
        round();
        return {v0 ^ v1, v2 ^ v3};
    }
};

} // namespace

content_key random_content_key()
{
    std::random_device source;
    const auto word = [&] { return std::uint64_t{source()} << 32 | source(); };
    return {word(), word()};
}

content_digest keyed_digest(const content_key& key, std::uint64_t kind, uni::byte_view bytes)
{
    sip_state state(key);
    if (bytes.size() <= 4) { // all in one word, as most are
        state.take(kind << 40 | bytes.size() << 32 | bytes.u32(0));
        return state.digest();
    }
    state.take(kind << 40 | bytes.size()); // in front, so that no value begins like another
    for (std::uint64_t at = 0; at < bytes.size(); at += 8) {
        state.take(bytes.u64(at)); // missing bytes are zeros
    }
    return state.digest();
}

record_contents::record_contents(const sdb::sdb_database& database, const content_key& key,
                                 references_seen seen)
    : database_(database), key_(key),
      first_text_(database.ordinal_from(database.string_table_offset()).number()),
      texts_(database.tag_count() - first_text_, content_digest()), factors_(0x10000)
{
    lists_.resize(database.children().lists().size());
    list_targets_.assign(lists_.size(), content_digest());
    find_records();
    digest_all({});
    if (seen == references_seen::by_name || database.children().references().empty()) {
        return;
    }
    mark_referring([](std::uint32_t) { return true; });
    for (int round = 0; round < most_rounds_for_references && earlier_ != lists_; ++round) {
        earlier_ = lists_;
        digest_all(may_change_);
    }
    // What is not known to the end is like nothing else.
    const content_key own_key = random_content_key();
    for (std::size_t number = 0; number < lists_.size() && !earlier_.empty(); ++number) {
        if (earlier_[number] != lists_[number]) {
            const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(number)>>(number);
            lists_[number] = keyed_digest(own_key, 0, uni::byte_view(bytes));
        }
    }
    earlier_ = {};
    may_change_ = {};
}

// A definition is one, and a list of the same kind and name that stands in a record is none.
void record_contents::find_records()
{
    const sdb::tag_table& relation = database_.children();
    are_records_.assign(relation.lists().size(), true);
    sdb::tag_ordinal behind; // the last record
    for (const sdb::tag_table::list_row& list : relation.lists()) {
        const bool is_in_record = list.ordinal < behind;
        are_records_[number_of(list.ordinal)] = !is_in_record;
        if (!is_in_record && list.tag != sdb::tag::database && list.tag != sdb::tag::library) {
            behind = list.end();
        }
    }
}

std::set<std::uint16_t> record_contents::kinds_referred_to() const
{
    std::set<std::uint16_t> kinds;
    for (const sdb::tag_table::reference& one : database_.children().references()) {
        const auto target = database_.ordinal_of(one.target);
        if (target && database_.children().list(*target) != nullptr) {
            kinds.insert(database_.tag_at(*target));
        }
    }
    return kinds;
}

std::vector<named_list> record_contents::lists_of_kinds(const std::set<std::uint16_t>& kinds)
{
    std::vector<named_list> found;
    for (const sdb::tag_table::list_row& list : database_.children().lists()) {
        if (kinds.contains(list.tag)) {
            const std::uint32_t offset = database_.offset_at(list.ordinal);
            found.push_back({digest_of_reference(offset), offset});
        }
    }
    std::ranges::sort(found);
    return found;
}

void record_contents::tell_apart(const std::vector<named_list>& lists)
{
    namesakes_.clear();
    for (const named_list& one : lists) {
        namesakes_.push_back(
            static_cast<std::uint32_t>(number_of(*database_.ordinal_of(one.list))));
    }
    std::ranges::sort(namesakes_);
    if (namesakes_.empty()) {
        may_change_.assign(lists_.size(), false);
        in_namesakes_ = may_change_;
        return;
    }
    std::vector<bool> are_namesakes(lists_.size());
    for (const std::uint32_t number : namesakes_) {
        are_namesakes[number] = true;
    }
    mark_referring([&](std::uint32_t target) {
        const auto own = database_.ordinal_of(target);
        return own && database_.children().list(*own) != nullptr && are_namesakes[number_of(*own)];
    });
    in_namesakes_.assign(may_change_.size(), false);
    const sdb::tag_table& relation = database_.children();
    sdb::tag_ordinal behind;
    for (const std::uint32_t namesake : namesakes_) {
        const sdb::tag_ordinal own = relation.lists()[namesake].ordinal;
        if (own < behind) {
            continue; // in one before
        }
        for (const auto& row : relation.lists_in(own, relation.end(own))) {
            const std::size_t number = number_of(row.ordinal);
            in_namesakes_[number] = may_change_[number];
        }
        behind = relation.end(own);
    }
}

bool record_contents::look_closer()
{
    bool has_changed = false;
    for (const std::uint32_t number : namesakes_) {
        has_changed = has_changed || list_targets_[number] != lists_[number];
        list_targets_[number] = lists_[number];
    }
    if (has_changed) {
        digest_all(in_namesakes_);
    }
    return has_changed;
}

void record_contents::see_as(const std::vector<named_list>& lists)
{
    for (const named_list& one : lists) {
        list_targets_[number_of(*database_.ordinal_of(one.list))] = one.name;
    }
    digest_all(may_change_);
}

// Lists that refer to what is asked for, or in which one stands that does: the digests of the others stay as
// they are.
template <typename predicate>
void record_contents::mark_referring(predicate&& is_asked_for)
{
    const sdb::tag_table& relation = database_.children();
    const auto lists = relation.lists();
    may_change_.assign(lists.size(), false);
    const auto references = relation.references();
    std::size_t behind = references.size(); // the first behind the list's head
    for (std::size_t number = lists.size(); number-- > 0;) {
        while (behind > 0 && lists[number].ordinal < references[behind - 1].ordinal) {
            --behind;
        }
        if (behind == references.size() || lists[number].end() <= references[behind].ordinal) {
            continue; // none in it
        }
        const auto found = relation.find_child(lists[number].ordinal, [&](sdb::tag_ordinal child) {
            const std::uint16_t tag = database_.tag_at(child);
            if (sdb::tag_type(tag) == type::list) {
                return bool{may_change_[number_of(child)]};
            }
            return is_reference(tag) &&
                   is_asked_for(database_.word_behind(database_.offset_at(child)));
        });
        may_change_[number] = found.has_value();
    }
}

// Lists stand in front of what stands in them, so that the last come first.
void record_contents::digest_all(const std::vector<bool>& which)
{
    const sdb::tag_table& relation = database_.children();
    const auto lists = relation.lists();
    places_.assign(0x10000, {lists.size(), 0});
    for (std::size_t number = lists.size(); number-- > 0;) {
        if (!which.empty() && !which[number]) {
            continue;
        }
        content_digest sum;
        relation.for_each_child(lists[number].ordinal, [&](sdb::tag_ordinal child) {
            const std::uint32_t offset = database_.offset_at(child);
            const std::uint16_t own = database_.tag_from(offset);
            const bool is_list = sdb::tag_type(own) == type::list;
            content_digest one = is_list ? lists_[number_of(child)] : of_scalar(own, offset);
            // Of tags that repeat it matters which comes first.
            if (!is_list || is_taken_in_order(own)) {
                place_of_tag& place = places_[own];
                place = {number, place.list == number ? place.count + 1 : 0};
                one.low += place.count * one.high;
            }
            sum += one;
        });
        // As long as it is one of a whole list, not of what stands in it.
        lists_[number] = digest_of(lists[number].tag, sum);
    }
}

content_digest record_contents::of_list(std::uint32_t offset) const
{
    const auto ordinal = database_.ordinal_of(offset);
    return ordinal && database_.children().list(*ordinal) != nullptr ? lists_[number_of(*ordinal)]
                                                                     : content_digest();
}

content_digest record_contents::of_text(std::uint32_t offset)
{
    const std::uint32_t reference = database_.word_behind(offset);
    const auto string =
        database_.ordinal_of(std::uint64_t{database_.string_table_offset()} + reference);
    if (!string) {
        return digest_of_number(reference);
    }
    content_digest& known = texts_[string->number() - first_text_];
    if (known == content_digest()) {
        uni::byte_view text = database_.string_bytes(reference);
        while (text.size() >= 2 && text.u16(text.size() - 2) == 0) {
            text = text.slice(0, text.size() - 2); // which ends it
        }
        known = keyed_digest(key_, type::string, text);
    }
    return known;
}

// By its kind and its name, and where an earlier round is there by all that it said then. One that leads to
// no tag is what it is, since nothing else of it can be held against another.
content_digest record_contents::digest_of_reference(std::uint32_t target)
{
    constexpr std::uint64_t of_named = 0x30000;  // beside the tag
    constexpr std::uint64_t of_record = 0x40000; // the same
    const auto ordinal = database_.ordinal_of(target);
    if (!ordinal) {
        return digest_of_number(target);
    }
    const sdb::tag_table::list_row* const list = database_.children().list(*ordinal);
    if (list == nullptr) {
        const auto [place, is_new] = scalar_targets_.try_emplace(target);
        if (is_new) {
            const std::uint16_t tag = database_.tag_from(target);
            place->second = digest_of(tag | of_named,
                                      is_reference(tag) ? content_digest() : of_value(tag, target));
        }
        return place->second;
    }
    const auto number = static_cast<std::size_t>(list - database_.children().lists().data());
    if (!earlier_.empty()) {
        return earlier_[number];
    }
    content_digest& known = list_targets_[number];
    if (known == content_digest()) {
        known = digest_of(list->tag | (are_records_[number] ? of_record : of_named),
                          digest_of_name(target));
    }
    return known;
}

// Of a reference that leads nowhere.
content_digest record_contents::digest_of_number(std::uint32_t target) const
{
    constexpr std::uint64_t of_nothing = 0x20000;
    const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof(target)>>(target);
    return keyed_digest(key_, of_nothing, uni::byte_view(bytes));
}

// Of a list; nothing for one without a name.
content_digest record_contents::digest_of_name(std::uint32_t list)
{
    const std::uint32_t name = child_of(database_, list, sdb::tag::name);
    return name != 0 ? of_text(name) : content_digest();
}

content_digest record_contents::digest_of(std::uint64_t kind, const content_digest& value) const
{
    const std::array<std::uint8_t, 16> bytes = std::bit_cast<std::array<std::uint8_t, 16>>(
        std::array<std::uint64_t, 2>{value.low, value.high});
    return keyed_digest(key_, kind, uni::byte_view(bytes));
}

content_digest record_contents::of_scalar(std::uint32_t offset)
{
    return of_scalar(database_.tag_from(offset), offset);
}

content_digest record_contents::of_scalar(std::uint16_t tag, std::uint32_t offset)
{
    if (is_reference(tag)) {
        return of_tag(tag, digest_of_reference(database_.word_behind(offset)));
    }
    return of_value(tag, offset);
}

// Of a scalar that is not a reference to a tag.
content_digest record_contents::of_value(std::uint16_t tag, std::uint32_t offset)
{
    return sdb::tag_type(tag) == type::stringref
               ? of_tag(tag, of_text(offset))
               : keyed_digest(key_, tag, database_.value_from(offset));
}

// What a digest that nobody can foresee becomes under a tag: times a factor that nobody can foresee either,
// which tells as much as a digest of both and costs less.
content_digest record_contents::of_tag(std::uint16_t tag, const content_digest& value)
{
    content_digest& factor = factors_[tag];
    if (factor.low == 0) {
        factor = keyed_digest(key_, tag | 0x10000, uni::byte_view());
        factor.low |= 1;
        factor.high |= 1;
    }
    return {value.low * factor.low, value.high * factor.high};
}

} // namespace model
