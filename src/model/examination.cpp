#include "model/examination.h"

#include <algorithm>
#include <future>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "io/large_vector.h"
#include "model/record_facts.h"
#include "model/subject_judge.h"
#include "sdb/tags.h"
#include "uni/ordered_work.h"

namespace model {

std::optional<finding> found(const examined_database& examined, signal what, std::uint32_t offset)
{
    const finding_kind& kind = examined.known.of(what);
    if (kind.is_custom_only && examined.is_vendors_own) {
        return std::nullopt;
    }
    const bool is_weightless = examined.is_vendors_own && (kind.group == finding_group::target ||
                                                           kind.group == finding_group::effect ||
                                                           kind.group == finding_group::shape);
    finding made;
    made.kind = &kind;
    made.weighs = is_weightless ? weight::none : kind.weighs;
    made.offset = offset;
    return made;
}

void finding_list::add(finding one)
{
    ++count_;
    auto count = std::ranges::find(counts_, one.kind, &surplus::kind);
    if (count == counts_.end()) {
        count = counts_.insert(counts_.end(), surplus{one.kind, 0});
    }
    if (++count->count <= most_of_a_kind) {
        findings_.push_back(std::move(one));
    }
}

void finding_list::clear()
{
    findings_.clear();
    counts_.clear();
    count_ = 0;
}

void finding_list::settle()
{
    std::ranges::stable_sort(findings_, [](const finding& a, const finding& b) {
        return std::make_pair(-static_cast<int>(a.weighs), std::string_view(a.kind->id)) <
               std::make_pair(-static_cast<int>(b.weighs), std::string_view(b.kind->id));
    });
}

std::vector<finding_list::surplus> finding_list::left_out() const
{
    std::vector<surplus> made;
    for (const surplus& one : counts_) {
        if (one.count > most_of_a_kind) {
            made.push_back({one.kind, one.count - most_of_a_kind});
        }
    }
    return made;
}

namespace {

namespace tag = sdb::tag;

constexpr std::uint64_t worth[] = {0, 1, 3, 9}; // of weights, in the sum that orders subjects
constexpr std::size_t in_a_stretch = 512;       // subjects that one thread ranks at a time
constexpr std::size_t most_helpers = 3;

// Whether anything in a list refers to a fix, or tests a file. Of a list of applications, whose
// records are subjects themselves, only what stands in it directly.
bool has_reference(const sdb::sdb_database& database, std::uint32_t list)
{
    const auto ordinal = database.ordinal_of(list);
    if (!ordinal) {
        return false;
    }
    const auto is_either = [](const sdb::tag_table::list_row& row) {
        return is_fix_reference(row.tag) || is_test(row.tag);
    };
    const sdb::tag_table& relation = database.children();
    if (database.tag_from(list) != tag::app) {
        return std::ranges::any_of(relation.lists_in(ordinal->next(), relation.end(*ordinal)),
                                   is_either);
    }
    bool has = false;
    relation.for_each_list_in(
        *ordinal, [&](const sdb::tag_table::list_row& row) { has = has || is_either(row); });
    return has;
}

// Whether a list says by itself that something is blocked or upgraded.
bool is_block(std::uint16_t tag)
{
    switch (tag) {
    case tag::os_upgrade:
    case tag::block_upgrade:
    case tag::reinstall_upgrade:
    case tag::upgrade_driver_block:
    case tag::driver_package_block:
    case tag::bios_block:
    case tag::device_block:
    case tag::machine_block:
        return true;
    default:
        return false;
    }
}

// The records that a database is about, as they stand: programs, packages and drivers, whatever else has
// fixes, tests files or blocks something, and definitions to which nothing refers.
// Of definitions all, if so asked for.
std::vector<std::uint32_t> subjects_of(const sdb::sdb_database& database, bool with_definitions)
{
    std::vector<std::uint32_t> subjects;
    std::vector<std::uint32_t> definitions;
    for (const sdb::tag_table::list_row& list : database.children().lists()) {
        const std::uint32_t record = database.offset_at(list.ordinal);
        switch (list.tag) {
        case tag::exe:
        case tag::msi_package:
        case tag::kdriver:
            subjects.push_back(record);
            break;
        case tag::shim:
        case tag::patch:
            definitions.push_back(record);
            break;
        default:
            break;
        }
    }
    const std::uint32_t library = database.library_offset();
    for (const std::uint32_t around : {database.database_offset(), library}) {
        if (around == 0) {
            continue;
        }
        database.for_each_child(around, [&](std::uint32_t offset, std::uint16_t own) {
            const bool is_told = own == tag::exe || own == tag::msi_package ||
                                 own == tag::kdriver || own == tag::shim || own == tag::patch ||
                                 own == tag::library || own == tag::apphelp ||
                                 sdb::tag_type(own) != sdb::type::list;
            if (!is_told && (is_block(own) || has_reference(database, offset))) {
                const bool is_definition =
                    own == tag::layer || (around == library && !is_block(own));
                (is_definition ? definitions : subjects).push_back(offset);
            }
        });
    }
    const std::vector<bool> is_reached = reached_definitions(database, subjects);
    std::ranges::copy_if(definitions, std::back_inserter(subjects), [&](std::uint32_t definition) {
        return with_definitions || !is_reached[database.ordinal_of(definition)->number()];
    });
    if (!std::ranges::is_sorted(subjects)) { // as they are where no definition is among them
        std::ranges::sort(subjects);
    }
    return subjects;
}

// What comes first, and what tells of which patches.
struct rank {
    std::uint64_t sum;
    std::uint32_t record;
    bool is_high;
    bool is_wanted;
    bool is_plain; // nothing is found about it
};
struct patch_use {
    std::uint32_t patch;
    std::uint32_t record;
};

// What one thread finds out at a time.
struct ranked_stretch {
    io::roomy_vector<rank> ranks;
    std::vector<patch_use> patches;
    std::uint32_t cut = 0; // the first with more fixes than are looked at
};

class ranker {
public:
    ranker(const examined_database& examined, const record_groupings& groupings,
           const request::bounds& bounds, const finding_filter& is_wanted)
        : database_(examined.database), judge_(examined, groupings, bounds), is_wanted_(is_wanted)
    {}

    void rank_all(std::span<const std::uint32_t> records, ranked_stretch& made)
    {
        made.ranks.clear();
        made.patches.clear();
        made.cut = 0;
        for (const std::uint32_t record : records) {
            judge_.look_at(seen_, record);
            made.cut = made.cut == 0 && !seen_.is_whole ? record : made.cut;
            rank one{0, record, false, !is_wanted_, seen_.findings.count() == 0};
            for (const finding& each : seen_.findings.all()) {
                one.sum += worth[static_cast<std::size_t>(each.weighs)];
                one.is_high = one.is_high || each.weighs == weight::high;
                one.is_wanted = one.is_wanted || is_wanted_(each);
            }
            made.ranks.push_back(one);
            if (one.is_wanted) {
                note_patches(made.patches, record);
            }
        }
    }

private:
    void note_patches(std::vector<patch_use>& patches, std::uint32_t record) const
    {
        if (database_.tag_from(record) == tag::patch) {
            patches.push_back({record, record});
        }
        for (const fix_use& use : seen_.uses) {
            if (use.definition != 0 && database_.tag_from(use.definition) == tag::patch) {
                patches.push_back({use.definition, record});
            }
        }
    }

    const sdb::sdb_database& database_;
    subject_judge judge_;
    const finding_filter& is_wanted_;
    subject seen_;
};

// Ranks all, on several threads where some are to spare.
ranked_stretch rank_subjects(const examined_database& examined, const record_groupings& groupings,
                             const request::bounds& bounds, const finding_filter& is_wanted,
                             std::span<const std::uint32_t> records, uni::thread_allowance* threads)
{
    ranked_stretch all;
    const std::size_t stretches = (records.size() + in_a_stretch - 1) / in_a_stretch;
    uni::helping_threads helpers(stretches > 1 ? threads : nullptr);
    uni::ordered_work<ranked_stretch> work(0, stretches);
    const auto make_ranker = [&] {
        auto one = std::make_unique<ranker>(examined, groupings, bounds, is_wanted);
        return [&, one = std::move(one)](std::size_t number, ranked_stretch& made) {
            const auto from = records.subspan(number * in_a_stretch);
            one->rank_all(from.first(std::min(in_a_stretch, from.size())), made);
        };
    };
    if (helpers.take(most_helpers) == 0 || !work.start(helpers.count() + 1, make_ranker)) {
        ranker(examined, groupings, bounds, is_wanted).rank_all(records, all);
        return all;
    }
    for (std::size_t number = 0; number < stretches; ++number) {
        const ranked_stretch& made = work.next();
        all.ranks.insert(all.ranks.end(), made.ranks.begin(), made.ranks.end());
        all.cut = all.cut != 0 ? all.cut : made.cut;
        all.patches.insert(all.patches.end(), made.patches.begin(), made.patches.end());
    }
    return all;
}

// For each patch the first of the subjects, in their order, that tells of it; by patch.
std::vector<told_patch> first_tellers(const std::vector<patch_use>& uses,
                                      std::span<const std::uint32_t> order)
{
    std::vector<told_patch> tellers;
    if (uses.empty()) {
        return tellers;
    }
    std::unordered_map<std::uint32_t, std::uint32_t> places;
    for (const patch_use& use : uses) {
        places.emplace(use.record, 0);
    }
    for (std::uint32_t place = 0; place < order.size(); ++place) {
        if (const auto found = places.find(order[place]); found != places.end()) {
            found->second = place;
        }
    }
    for (const patch_use& use : uses) {
        tellers.push_back({use.patch, places[use.record]});
    }
    std::ranges::sort(tellers);
    tellers.erase(
        std::unique(tellers.begin(), tellers.end(),
                    [](const told_patch& a, const told_patch& b) { return a.patch == b.patch; }),
        tellers.end());
    return tellers;
}

} // namespace

examination::examination(const examined_database& examined, const request::bounds& bounds,
                         finding_filter is_wanted, uni::thread_allowance* threads)
    : examined_(examined), bounds_(bounds)
{
    examined.database.make_shared_indexes();
    {
        // The database itself is judged beside what must be known before its subjects are.
        const uni::possible_helper helper(threads);
        auto judged = std::async(helper.policy(), [&examined] {
            finding_list findings;
            judge_database(findings, examined);
            findings.settle();
            return findings;
        });
        groupings_ = std::make_unique<const record_groupings>(examined.database);
        order_ = subjects_of(examined.database, false);
        of_database_ = judged.get();
    }
    const auto rank_all = [&] {
        if (examined.known_ones != nullptr) {
            known_ = std::erase_if(
                order_, [&](std::uint32_t record) { return examined.known_ones->holds(record); });
        }
        subject_count_ = order_.size();
        return rank_subjects(examined, *groupings_, bounds, is_wanted, order_, threads);
    };
    ranked_stretch all = rank_all();
    if (all.cut != 0) { // what its layers hold is told by itself
        const std::uint32_t cut = all.cut;
        order_ = subjects_of(examined.database, true);
        all = rank_all();
        all.cut = cut;
    }
    cut_ = all.cut;
    with_high_ = static_cast<std::size_t>(std::ranges::count(all.ranks, true, &rank::is_high));
    std::erase_if(all.ranks, [](const rank& one) { return !one.is_wanted; });
    std::ranges::stable_sort(all.ranks, [](const rank& a, const rank& b) {
        return a.is_high != b.is_high ? a.is_high : a.sum > b.sum;
    });
    order_.resize(all.ranks.size());
    std::ranges::transform(all.ranks, order_.begin(), &rank::record);
    are_plain_.reserve(all.ranks.size());
    for (const rank& one : all.ranks) {
        are_plain_.push_back(one.is_plain);
    }
    tellers_ = first_tellers(all.patches, order_);
}

std::unique_ptr<subject_judge> examination::make_judge() const
{
    return std::make_unique<subject_judge>(examined_, *groupings_, bounds_);
}

bool examination::is_first_to_tell(std::uint32_t patch, std::uint32_t record) const
{
    const auto teller = std::ranges::lower_bound(tellers_, patch, {}, &told_patch::patch);
    return teller != tellers_.end() && teller->patch == patch && order_[teller->place] == record;
}

} // namespace model
