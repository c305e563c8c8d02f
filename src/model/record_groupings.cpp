#include "model/record_groupings.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>
#include <vector>

#include "model/content.h"
#include "model/fix_uses.h"
#include "model/record_facts.h"
#include "model/text_memo.h"
#include "sdb/tags.h"
#include "uni/guid.h"
#include "uni/text.h"

namespace model {

namespace {

namespace tag = sdb::tag;

struct named_record {
    std::uint64_t name; // hash
    std::uint32_t record;
    auto operator<=>(const named_record&) const = default;
};
struct numbered_record {
    std::uint64_t id[2]; // its halves
    std::uint32_t record;
    auto operator<=>(const numbered_record&) const = default;
};

// Leaves those whose key comes more than once, and few others: nearly all come once, and to sort them all
// would take longer than all else here.
template <typename record_list, typename key_maker>
void keep_repeated(record_list& records, key_maker&& key_of)
{
    constexpr std::size_t room = 8; // places for each
    const std::size_t places = std::bit_ceil(records.size() * room + 1);
    std::vector<bool> once(places);
    std::vector<bool> twice(places);
    const auto place_of = [&](const auto& record) {
        constexpr std::uint64_t spread = 0x9e3779b97f4a7c15; // 2^64 divided by the golden ratio
        return static_cast<std::size_t>((key_of(record) * spread) >> 32) & (places - 1);
    };
    for (const auto& record : records) {
        const std::size_t place = place_of(record);
        twice[place] = twice[place] || once[place];
        once[place] = true;
    }
    std::erase_if(records, [&](const auto& record) { return !twice[place_of(record)]; });
    std::ranges::sort(records);
}

// Finds executables and applications that share a name, and executables that share an identifier. Names and fixes are held against each other by
// digests under a key of this run.
class duplicate_search {
public:
    explicit duplicate_search(const sdb::sdb_database& database)
        : database_(database), hashes_(database)
    {
        for (const sdb::tag_table::list_row& list : database.children().lists()) {
            if (list.tag == tag::exe || list.tag == tag::app) {
                note(database.offset_at(list.ordinal), list.tag);
            }
        }
        keep_repeated(named_, [](const named_record& one) { return one.name; });
        keep_repeated(numbered_, [](const numbered_record& one) { return one.id[0] ^ one.id[1]; });
    }

    // Of one name, with different fixes.
    std::vector<std::uint32_t> namesakes()
    {
        std::vector<std::uint32_t> found;
        for (std::size_t first = 0, i = 0; i < named_.size(); first = i) {
            while (i < named_.size() && named_[i].name == named_[first].name) {
                ++i;
            }
            const auto same = std::span<const named_record>(named_).subspan(first, i - first);
            if (same.size() > 1 && have_other_fixes(same)) {
                std::ranges::transform(same, std::back_inserter(found), &named_record::record);
            }
        }
        std::ranges::sort(found);
        return found;
    }

    // Whose identifier comes once more.
    std::vector<std::uint32_t> repeated_ids() const
    {
        std::vector<std::uint32_t> found;
        for (std::size_t i = 1; i < numbered_.size(); ++i) {
            if (std::ranges::equal(numbered_[i].id, numbered_[i - 1].id)) {
                found.push_back(numbered_[i].record);
            }
        }
        std::ranges::sort(found);
        return found;
    }

private:
    void note(std::uint32_t record, std::uint16_t kind)
    {
        std::uint32_t name = 0;
        std::uint32_t id = 0;
        database_.for_each_child(record, [&](std::uint32_t offset, std::uint16_t own) {
            name = own == tag::name && name == 0 ? offset : name;
            id = own == tag::exe_id && id == 0 ? offset : id;
        });
        if (name != 0) {
            named_.push_back({hash_of_text(name) + kind, record});
        }
        const uni::byte_view value = id == 0 ? uni::byte_view() : database_.payload_at(id);
        if (value.size() == uni::guid_size) {
            numbered_.push_back({{value.u64(0), value.u64(8)}, record});
        }
    }

    // Of a text, ASCII case aside.
    std::uint64_t hash_of_text(std::uint32_t text)
    {
        return hashes_.of(database_.word_behind(text), [&] {
            const uni::byte_view stored = database_.string_bytes(database_.word_behind(text));
            lower_.clear();
            for (std::uint64_t at = 0; stored.u16(at) != 0; at += 2) {
                const std::uint16_t unit = stored.u16(at);
                lower_.push_back(static_cast<std::uint8_t>(
                    unit < 0x80 ? uni::lower_ascii(static_cast<char>(unit)) : unit & 0xff));
                lower_.push_back(static_cast<std::uint8_t>(unit >> 8));
            }
            return keyed_digest(key_, 0, uni::byte_view(lower_)).low;
        });
    }

    // The fixes of a record, whatever their order.
    std::uint64_t hash_of_fixes(std::uint32_t record)
    {
        std::uint64_t sum = 0;
        database_.for_each_child(record, [&](std::uint32_t offset, std::uint16_t child) {
            if (!is_fix_reference(child) && child != tag::apphelp) {
                return;
            }
            std::uint64_t names[3] = {};
            database_.for_each_child(offset, [&](std::uint32_t inner, std::uint16_t own) {
                if (own == tag::name) {
                    names[0] = hash_of_text(inner);
                } else if (own == tag::command_line) {
                    names[1] = hash_of_text(inner);
                } else if (sdb::is_expanded_dword_tag(own)) {
                    names[2] = database_.word_behind(inner);
                }
            });
            std::uint8_t bytes[sizeof(names)];
            std::memcpy(bytes, names, sizeof(names));
            sum += keyed_digest(key_, child, uni::byte_view(bytes)).low;
        });
        return sum;
    }

    bool have_other_fixes(std::span<const named_record> same)
    {
        const std::uint64_t fixes = hash_of_fixes(same.front().record);
        return std::ranges::any_of(same.subspan(1), [&](const named_record& one) {
            return hash_of_fixes(one.record) != fixes;
        });
    }

    const sdb::sdb_database& database_;
    const content_key key_ = random_content_key();
    text_memo<std::uint64_t> hashes_;
    std::vector<std::uint8_t> lower_; // a text in work
    io::roomy_vector<named_record> named_;
    io::roomy_vector<numbered_record> numbered_;
};

bool has_words_itself(const sdb::sdb_database& database, std::uint32_t message)
{
    bool has = false;
    database.for_each_child(message, [&](std::uint32_t, std::uint16_t child) {
        has = has || child == tag::apphelp_title || child == tag::apphelp_details ||
              child == tag::apphelp_contact || child == tag::link || child == tag::link_text ||
              child == tag::link_url || child == tag::url;
    });
    return has;
}

} // namespace

record_groupings::record_groupings(const sdb::sdb_database& database) : database_(database)
{
    note_messages();
    duplicate_search duplicates(database);
    namesakes_ = duplicates.namesakes();
    repeated_ids_ = duplicates.repeated_ids();
}

void record_groupings::note_messages()
{
    for (const sdb::tag_table::list_row& list : database_.children().lists()) {
        if (list.tag != tag::apphelp) {
            continue;
        }
        const std::uint32_t message = database_.offset_at(list.ordinal);
        if (const std::uint32_t help = child_of(database_, message, tag::htmlhelpid)) {
            std::uint32_t& words = words_by_id_[database_.word_behind(help)];
            words = words == 0 && has_words_itself(database_, message) ? message : words;
        }
    }
}

bool record_groupings::has_namesake(std::uint32_t record) const
{
    return std::ranges::binary_search(namesakes_, record);
}

bool record_groupings::repeats_id(std::uint32_t exe) const
{
    return std::ranges::binary_search(repeated_ids_, exe);
}

std::uint32_t record_groupings::words_of(std::uint32_t message) const
{
    const std::uint32_t help = child_of(database_, message, tag::htmlhelpid);
    if (help == 0 || has_words_itself(database_, message)) {
        return has_words_itself(database_, message) ? message : 0;
    }
    const auto known = words_by_id_.find(database_.word_behind(help));
    return known == words_by_id_.end() ? 0 : known->second;
}

} // namespace model
