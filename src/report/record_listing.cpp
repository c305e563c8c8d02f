#include "report/record_listing.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <utility>

#include "report/bounded_text.h"
#include "sdb/tags.h"
#include "uni/ordered_work.h"

namespace report {

namespace {

namespace tag = sdb::tag;
using ordinals_span = std::span<const sdb::tag_ordinal>;

// What is shorter is not made by several threads, and more of them are of no use to one listing.
constexpr std::size_t fewest_stretches = 4;
constexpr std::size_t most_helpers = 3;
// Of what one of several threads gathers at a time.
constexpr std::size_t largest_list = 0x10000;

// What several threads share: stretches of so many records.
struct shared_records {
    ordinals_span all;
    std::size_t in_a_stretch;

    std::size_t stretches() const { return (all.size() + in_a_stretch - 1) / in_a_stretch; }
    ordinals_span from(std::size_t number) const { return all.subspan(number * in_a_stretch); }
    ordinals_span stretch(std::size_t number) const
    {
        return from(number).first(std::min(in_a_stretch, from(number).size()));
    }
};

// A stretch of a long listing, made ahead of its turn.
struct stretch {
    uni::text_buffer text;
    std::uint64_t items = 0; // that it takes of the listing's budget
    std::uint64_t records = 0;
    bool is_whole = false;
    form::stream_state began_in;
    form::stream_state ended_in;
    bool printed = false;
    bool left_references = false;
};

// Makes stretches on a thread of its own, with a writer of its own.
class stretch_maker {
public:
    stretch_maker(const sdb::sdb_database& database, model::search& search,
                  const form::writer& form, const shared_records& records,
                  const std::atomic<std::uint64_t>& listed_items)
        : form_(form.fork(text_)), listing_(database, search, *form_), records_(records),
          listed_items_(listed_items)
    {}

    void make(std::size_t number, stretch& made)
    {
        // At least that many were counted before, which bounds how far it can go astray.
        const std::uint64_t before = listed_items_;
        listing_.budget().items = before;
        listing_.budget().most_items = listing_.budget().limit; // beyond which it is of no use
        listing_.budget().largest_list = largest_list;
        listing_.budget().was_too_large = false;
        listing_.budget().left_references = false;
        made.began_in = form_->state();
        made.records = form_->records();
        made.printed = listing_.print_records(records_.stretch(number));
        made.ended_in = form_->state();
        made.items = listing_.budget().items - before;
        made.records = form_->records() - made.records;
        made.left_references = listing_.budget().left_references;
        made.is_whole = !form_->is_cut() && text_.good() && !listing_.budget().was_too_large;
        form_->uncut();
        text_.hand_over(made.text);
    }

private:
    bounded_text text_;
    std::unique_ptr<form::writer> form_;
    record_listing listing_;
    const shared_records& records_;
    const std::atomic<std::uint64_t>& listed_items_;
};

// The tags of the lists that stand directly in a list.
std::set<std::uint16_t> list_tags_in(const sdb::sdb_database& database, std::uint32_t list_offset)
{
    std::set<std::uint16_t> tags;
    if (const auto list = database.ordinal_of(list_offset)) {
        database.children().for_each_list_in(
            *list, [&](const sdb::tag_table::list_row& child) { tags.insert(child.tag); });
    }
    return tags;
}

} // namespace

bool record_listing::print_record(std::uint32_t tag_offset)
{
    if (!collector_.collect(search_, budget_, tag_offset, &form_.folds()) ||
        !has_substance(collector_.groups()[0], collector_.groups().size() == 1)) {
        return false;
    }
    form_.record(collector_.groups());
    return true;
}

bool record_listing::print_records(ordinals_span ordinals)
{
    const bool are_lists =
        !ordinals.empty() && sdb::tag_type(database_.tag_at(ordinals.front())) == sdb::type::list;
    bool printed = false;
    for (const sdb::tag_ordinal ordinal : ordinals) {
        if (search_.finds_nothing() || !form_.takes_more(database_.offset_at(ordinal))) {
            break;
        }
        if (budget_.is_exhausted()) {
            form_.cut();
            break;
        }
        const bool may_pass = !are_lists || (search_.may_list_pass(ordinal) &&
                                             !search_.is_known(database_.offset_at(ordinal)));
        if (may_pass) {
            printed |= print_record(database_.offset_at(ordinal));
        }
    }
    return printed;
}

// Has the records printed by several threads, as soon as some are to spare, a stretch at a time, and
// takes the stretches in their order. How a record looks depends on those before it in two ways: the
// budget of the listing, and the state of the form. Where a stretch was made on a wrong guess about
// these it is made again, in its place.
bool record_listing::print_stretches(ordinals_span ordinals)
{
    const shared_records records{ordinals, budget_.bounds.records_of_a_thread};
    const std::size_t count = records.stretches();
    std::atomic<std::uint64_t> listed_items = 0;
    const auto make_maker = [&] {
        auto maker =
            std::make_unique<stretch_maker>(database_, search_, form_, records, listed_items);
        return [maker = std::move(maker)](std::size_t number, stretch& made) {
            maker->make(number, made);
        };
    };
    uni::helping_threads helpers(threads_);
    std::optional<uni::ordered_work<stretch>> work;
    bool is_helped = false;
    bool printed = print_records(records.stretch(0));
    listed_items = budget_.items;
    for (std::size_t number = 1; number < count; ++number) {
        if (!form_.takes_more(database_.offset_at(records.stretch(number).front()))) {
            break;
        }
        if (!work && count - number >= fewest_stretches && helpers.take(most_helpers) != 0) {
            database_.make_shared_indexes();
            is_helped = work.emplace(number, count).start(helpers.count() + 1, make_maker);
        }
        const stretch* const made = is_helped ? &work->next() : nullptr;
        if (made && budget_.items + made->items > budget_.limit) {
            work->stop();
            return print_records(records.from(number)) || printed;
        }
        if (!made || !made->is_whole || made->began_in != form_.state() ||
            !form_.has_room_for(made->text.view().size())) {
            printed |= print_records(records.stretch(number));
        } else {
            form_.take(made->text.view(), made->records, made->ended_in);
            budget_.items += made->items;
            printed |= made->printed;
            budget_.left_references |= made->left_references;
        }
        listed_items = budget_.items;
    }
    return printed;
}

bool record_listing::list_tag(std::uint16_t tag)
{
    const ordinals_span ordinals = database_.ordinals_by_tag(tag);
    const bool is_long = ordinals.size() >= fewest_stretches * budget_.bounds.records_of_a_thread;
    return is_long && threads_ != nullptr && !search_.is_asked_for() ? print_stretches(ordinals)
                                                                     : print_records(ordinals);
}

void record_listing::say_what_is_missing(const job& work) const
{
    if (budget_.left_references) {
        work.notices.say("%s: its records refer to too many others, not all are followed\n",
                         work.path.c_str());
    }
}

bool list_tags(const job& work, const std::set<std::uint16_t>& tags)
{
    record_listing listing(*work.database, *work.search, work.form, work.threads);
    bool found = false;
    for (const std::uint16_t tag : tags) {
        if (listing.list_tag(tag)) {
            work.form.end_section();
            found = true;
        }
    }
    listing.say_what_is_missing(work);
    return found;
}

bool list_one_tag(const job& work, std::uint16_t tag)
{
    record_listing listing(*work.database, *work.search, work.form, work.threads);
    const bool found = listing.list_tag(tag);
    work.form.end_section();
    listing.say_what_is_missing(work);
    return found;
}

std::set<std::uint16_t> application_tags(const sdb::sdb_database& database)
{
    std::set<std::uint16_t> tags = list_tags_in(database, database.database_offset());
    tags.erase(tag::library);
    tags.erase(tag::layer);
    return tags;
}

std::set<std::uint16_t> fix_tags(const sdb::sdb_database& database)
{
    const std::set<std::uint16_t> in_database = list_tags_in(database, database.database_offset());
    std::set<std::uint16_t> tags;
    if (in_database.contains(tag::library)) {
        tags = list_tags_in(database, database.library_offset());
        tags.erase(tag::inexclude);
    }
    if (in_database.contains(tag::layer)) {
        tags.insert(tag::layer);
    }
    return tags;
}

} // namespace report
