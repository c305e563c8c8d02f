// What a database would do: its subjects (programs, packages, drivers, and what no program uses), what each
// of them gets, and what is unusual about them and about the database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "model/finding.h"
#include "model/fix_uses.h"
#include "model/knowledge.h"
#include "model/known_records.h"
#include "model/record_groupings.h"
#include "request/bounds.h"
#include "sdb/database.h"
#include "uni/thread_allowance.h"

namespace model {

// What is known of a database beside its bytes.
struct examined_database {
    const sdb::sdb_database& database;
    const knowledge& known;
    bool is_vendors_own = false; // by place, name and identifier together
    std::uint64_t now = 0;       // FILETIME ticks, of the run; 0 if that does not matter
    // What stands in known databases is left out; null for nothing.
    const known_filter* known_ones = nullptr;
};

// Findings about one thing, of one kind no more than a reader takes in; how many there were is kept.
class finding_list {
public:
    void add(finding one);
    void clear();
    // Puts the heaviest first, those of one weight by identifier.
    void settle();
    std::span<const finding> all() const noexcept { return findings_; }
    // How many were added.
    std::uint64_t count() const noexcept { return count_; }
    // Those of a kind that are not in the list.
    struct surplus {
        const finding_kind* kind;
        std::uint64_t count;
    };
    std::vector<surplus> left_out() const;

private:
    static constexpr std::uint64_t most_of_a_kind = 1000;
    std::vector<finding> findings_;
    std::vector<surplus> counts_;
    std::uint64_t count_ = 0;
};

// A record that a database is about, with what it gets.
struct subject {
    std::uint32_t record = 0;
    std::vector<fix_use> uses;
    finding_list findings;
    bool is_whole = true; // otherwise there are more fixes than are looked at
};

// Whether a finding is one that is asked for.
using finding_filter = std::function<bool(const finding&)>;

// The first subject of several that tells of a patch, by its place among them.
struct told_patch {
    std::uint32_t patch;
    std::uint32_t place;
    friend auto operator<=>(const told_patch&, const told_patch&) = default;
};

class subject_judge;

class examination {
public:
    // With a filter only subjects come that have a finding which is asked for. Of `threads` those that are to
    // spare help.
    explicit examination(const examined_database& examined, const request::bounds& bounds = {},
                         finding_filter is_wanted = {}, uni::thread_allowance* threads = nullptr);
    examination(const examination&) = delete;
    examination& operator=(const examination&) = delete;

    // The subjects in the order in which they are to be looked at: those with a high finding first, then
    // by the sum of what is found, then as they stand.
    std::span<const std::uint32_t> subjects() const noexcept { return order_; }
    // Whether nothing is found about one of these, by its place.
    bool is_plain(std::size_t place) const { return are_plain_[place]; }
    // How many there are, those that are not asked for among them; and how many are left out, as they
    // stand in known databases.
    std::size_t subject_count() const noexcept { return subject_count_; }
    std::size_t known_subjects() const noexcept { return known_; }
    std::size_t with_high_finding() const noexcept { return with_high_; }
    // Whether a subject is the first that tells of a patch.
    bool is_first_to_tell(std::uint32_t patch, std::uint32_t record) const;
    // The first subject that has more fixes than are looked at; 0 for none.
    std::uint32_t cut_at() const noexcept { return cut_; }
    // What is unusual about the database itself.
    const finding_list& of_database() const noexcept { return of_database_; }

    // What a thread looks at subjects with.
    std::unique_ptr<subject_judge> make_judge() const;

    const record_groupings& groupings() const noexcept { return *groupings_; }

private:
    const examined_database& examined_;
    const request::bounds bounds_;
    std::unique_ptr<const record_groupings> groupings_;
    std::vector<std::uint32_t> order_;
    std::vector<bool> are_plain_;     // of these, those about which nothing is found
    std::vector<told_patch> tellers_; // ascending
    std::size_t subject_count_ = 0;
    std::size_t with_high_ = 0;
    std::size_t known_ = 0;
    std::uint32_t cut_ = 0;
    finding_list of_database_;
};

// Findings about what a database says of itself, and about how it is built.
void judge_database(finding_list& findings, const examined_database& examined);

// A finding of that kind, weighed for a database; none where it has no meaning there.
std::optional<finding> found(const examined_database& examined, signal what, std::uint32_t offset);

} // namespace model
