// What records say, as numbers that are equal where they say the same: wherever they stand, in whatever
// order, and whatever offsets and string references their database has for it.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <set>
#include <unordered_map>
#include <vector>

#include "io/large_vector.h"
#include "sdb/database.h"
#include "uni/byte_view.h"

namespace model {

// Of a key that nobody knows beforehand, so that no two records can be made to look alike.
using content_key = std::array<std::uint64_t, 2>;
content_key random_content_key();

struct content_digest {
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    friend auto operator<=>(const content_digest&, const content_digest&) = default;
    content_digest& operator+=(const content_digest& other) noexcept
    {
        low += other.low;
        high += other.high;
        return *this;
    }
};

// SipHash with one and three rounds, of 128 bits. Kinds have 24 bits, sizes 32.
content_digest keyed_digest(const content_key& key, std::uint64_t kind, uni::byte_view bytes);
// How references are seen: by the kind and the name of what they lead to, or also by all that it says.
enum class references_seen { by_name, by_content };

// A list to which references may lead, by its kind and name.
struct named_list {
    content_digest name;
    std::uint32_t list;
    friend auto operator<=>(const named_list&, const named_list&) = default;
};

// The digests of all lists of a database, which must outlive the object.
class record_contents {
public:
    record_contents(const sdb::sdb_database& database, const content_key& key,
                    references_seen seen);

    // Of the list at `offset`, and of a scalar of a list.
    content_digest of_list(std::uint32_t offset) const;
    content_digest of_scalar(std::uint32_t offset);
    // Of the text of a string reference, case as it is.
    content_digest of_text(std::uint32_t offset);

    // Where references are seen by name, lists of one name are told apart by numbers in place of it, which
    // whoever compares gives. The kinds of all lists that are referred to:
    std::set<std::uint16_t> kinds_referred_to() const;
    // All lists of such kinds, ascending.
    std::vector<named_list> lists_of_kinds(const std::set<std::uint16_t>& kinds);
    // Says which lists are to be told apart. To be called once, in front of these two.
    void tell_apart(const std::vector<named_list>& lists);
    // Has references to them seen by all that they say now, and digests them anew. False if nothing changed.
    bool look_closer();
    // Has lists seen as what is given for a name, and digests all anew that refers to such lists.
    void see_as(const std::vector<named_list>& lists);

private:
    using digests = io::roomy_vector<content_digest>;
    std::size_t number_of(sdb::tag_ordinal list) const
    {
        return static_cast<std::size_t>(database_.children().list(list) -
                                        database_.children().lists().data());
    }
    void find_records();
    void digest_all(const std::vector<bool>& which); // lists; of an empty one all
    template <typename predicate>
    void mark_referring(predicate&& is_asked_for);
    content_digest digest_of_reference(std::uint32_t target);
    content_digest digest_of_number(std::uint32_t target) const;
    content_digest digest_of_name(std::uint32_t list);
    content_digest of_scalar(std::uint16_t tag, std::uint32_t offset);
    content_digest of_value(std::uint16_t tag, std::uint32_t offset);
    content_digest digest_of(std::uint64_t kind, const content_digest& value) const;
    content_digest of_tag(std::uint16_t tag, const content_digest& value);

    const sdb::sdb_database& database_;
    const content_key key_;
    digests lists_;                  // by number
    digests earlier_;                // of the round before, which references see
    std::vector<bool> are_records_;  // lists that stand in a database or a library
    std::vector<bool> may_change_;   // lists, as references are seen otherwise
    std::vector<bool> in_namesakes_; // those of them that are namesakes or stand in one
    const std::uint32_t first_text_; // ordinal of the string table
    digests texts_;                  // from there on; zeros for what was not looked at
    // What references see; zeros and nothing for what was not looked at.
    digests list_targets_;                                             // by number
    std::unordered_map<std::uint32_t, content_digest> scalar_targets_; // by offset
    std::vector<std::uint32_t> namesakes_; // ascending numbers: not told by their names
    struct place_of_tag {
        std::size_t list = 0; // in which it was seen last
        std::uint64_t count = 0;
    };
    std::vector<place_of_tag> places_;    // by tag
    std::vector<content_digest> factors_; // the same
};

} // namespace model
