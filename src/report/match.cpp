#include "report/match.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "report/record.h"
#include "report/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/notice.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace report {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::string_view any_name = "*";
// Records that stand in one another are expanded again and again; no sound database comes near.
constexpr std::uint64_t largest_gathering = 1'000'000;
constexpr std::uint64_t gathering_share_of_a_tag = 16;

// One property of a matching-file list.
struct match_property {
    std::uint16_t tag;
    std::string text;
    std::uint64_t number;
};

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

bool property_agrees(const pe_property& found, const match_property& wanted)
{
    const std::string_view text = text_to_match(found);
    if (found.number != 0 && found.number == wanted.number) {
        return true;
    }
    // A number of 0 has a text on the database's side alone.
    if (text == wanted.text ||
        (is_numeric(wanted.tag) && text.empty() && found.number == wanted.number)) {
        return true;
    }
    switch (bound_of(wanted.tag)) {
    case bound::upper:
        return found.number <= wanted.number;
    case bound::lower:
        return found.number >= wanted.number;
    case bound::exact:
        return false;
    }
    return false;
}

bool list_agrees(const pe_list& file, const std::vector<match_property>& properties)
{
    for (const match_property& wanted : properties) {
        const pe_property* found = find_property(file, wanted.tag);
        if (found == nullptr) {
            return true; // meant, whatever comes behind
        }
        if (!property_agrees(*found, wanted)) {
            return false;
        }
    }
    return true;
}

// The names under which a database may know a file, lower-case.
struct file_keys {
    explicit file_keys(std::string path)
    {
        uni::lower_text(path);
        uni::replace_char(path, '/', '\\');
        constexpr std::string_view folder = "c:\\windows";
        if (const std::size_t at = path.find(folder); at != std::string::npos) {
            path.replace(at, folder.size(), "%windir%");
        }
        full = path;
        name = path.substr(path.find_last_of('\\') + 1); // from the start if there is none
    }
    std::string full;
    std::string name;
};

class matcher {
public:
    matcher(const sdb::sdb_database& database, const front::sdb_opts& options, const pe_list& file)
        : database_(database), options_(options), file_(file), keys_(options.pe_path)
    {}

    void run(match_results& results)
    {
        record_expander expander(database_);
        const std::uint64_t limit =
            largest_gathering + gathering_share_of_a_tag * database_.tag_count();
        std::uint64_t gathered = 0;
        const sdb::tag_table& relation = database_.children();
        for (const std::uint32_t record : relation.lists_around(tag::matching_file)) {
            if (gathered > limit) {
                break;
            }
            gathered += relation.end(record) - record;
            if (may_hold_key(record) && expander.expand(relation.offset(record), false, gathered)) {
                walk_record(expander.own_items());
            }
        }
        results = name_is_known_ ? std::move(by_name_) : std::move(by_path_);
    }

private:
    using item_span = std::span<const record_item>;

    void walk_record(item_span items)
    {
        const std::uint32_t record = items.front().offset;
        stored_name_ = {};
        name_.reset();
        for (std::size_t i = 1; i < items.size();) {
            const record_item& item = items[i++];
            if (item.tag == tag::name && stored_name_.u16(0) == 0) {
                stored_name_ = stored_text(item.offset);
                name_.reset();
            } else if (item.tag == tag::matching_file) {
                const std::uint64_t end = std::uint64_t{item.offset} + sdb::tag_header +
                                          database_.list_size_at(item.ordinal);
                const std::size_t first = i;
                while (i < items.size() && items[i].offset < end) {
                    ++i;
                }
                look_at_list(record, items.subspan(first, i - first));
            }
        }
    }

    void look_at_list(std::uint32_t record, item_span members)
    {
        const std::string_view key = key_of(members);
        const bool is_name = uni::equal_ignoring_case(key, keys_.name);
        if (!is_name && !uni::equal_ignoring_case(key, keys_.full)) {
            return;
        }
        name_is_known_ = name_is_known_ || is_name;
        if (!members.empty() && list_agrees(file_, properties_of(members))) {
            // The property of the lowest tag, of equal ones the first.
            const std::uint32_t first =
                std::ranges::min_element(members, {}, &record_item::tag)->offset;
            std::uint32_t list = 0;
            const bool found = database_.find_enclosing_list(list, first, false);
            // A name may be the path too, and then counts as a name.
            (is_name ? by_name_ : by_path_)[record].insert(found ? list : first);
        }
    }

    // A quick look that spares most records the rest: no only for one in which no list can have one
    // of the keys for its file name.
    bool may_hold_key(std::uint32_t record) const
    {
        const sdb::tag_table& relation = database_.children();
        const std::uint32_t end = relation.end(record);
        const std::uint64_t claimed_end = std::uint64_t{database_.offset_at(record)} +
                                          database_.list_size_at(record) + sdb::tag_header;
        if (end != database_.tag_count() && database_.offset_at(end) < claimed_end) {
            return true; // it claims more than it holds
        }
        for (std::uint32_t ordinal = record + 1; ordinal < end; ++ordinal) {
            if (relation.tag(ordinal) != tag::name) {
                continue;
            }
            const uni::byte_view stored = stored_text(relation.offset(ordinal));
            if (stored.u16(0) == 0 || may_be_key(stored)) {
                return true; // a name without a text may take that of another property
            }
        }
        return false;
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

    // The name of the record in work.
    const std::string& name()
    {
        if (!name_) {
            uni::utf16_to_text(stored_name_, name_.emplace());
        }
        return *name_;
    }

    // The file name of a matching-file list: that of the record, unless the list has its own. The
    // view is good until the next list.
    std::string_view key_of(item_span members)
    {
        key_ = name();
        std::string text;       // of the last member looked at: a member without one keeps it
        std::size_t looked = 0; // members whose text is settled
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (members[i].tag != tag::name) {
                continue;
            }
            std::optional<std::string> found;
            for (std::size_t at = i + 1; at > looked && !found; --at) {
                found = text_of(members[at - 1]);
                if (at <= i && found == any_name) {
                    found = name();
                }
            }
            looked = i + 1;
            text = std::move(found).value_or(std::move(text));
            if (text == any_name) {
                text = name();
            } else if (!text.empty()) {
                key_ = text;
            }
        }
        return key_;
    }

    std::vector<match_property> properties_of(item_span members)
    {
        std::vector<match_property> properties;
        std::string text;
        for (const record_item& member : members) {
            const rendered_value value =
                render_tag_value(database_, database_.item_at(member.ordinal), options_);
            if (!value.lines.empty()) {
                text = value.lines.begin()->second;
            }
            if (text == any_name) {
                text = name();
            }
            properties.push_back({member.tag, text, value.value_number});
        }
        std::stable_sort(
            properties.begin(), properties.end(),
            [](const match_property& a, const match_property& b) { return a.tag < b.tag; });
        return properties;
    }

    // The text in the string table that the name at an offset refers to.
    uni::byte_view stored_text(std::uint32_t name_offset) const
    {
        return database_.string_bytes(database_.word_behind(name_offset));
    }

    // The first text of a tag; nothing for one that has none.
    std::optional<std::string> text_of(const record_item& item) const
    {
        const rendered_value value =
            render_tag_value(database_, database_.item_at(item.ordinal), options_);
        return value.lines.empty() ? std::nullopt : std::optional(value.lines.begin()->second);
    }

    const sdb::sdb_database& database_;
    const front::sdb_opts& options_;
    const pe_list& file_;
    file_keys keys_;
    // Name of the record in work, as stored and once it was asked for.
    uni::byte_view stored_name_;
    std::optional<std::string> name_;
    std::string key_;
    bool name_is_known_ = false;
    match_results by_name_;
    match_results by_path_;
};

} // namespace

bool match_pe_file(match_results& results, const sdb::sdb_database& database,
                   const front::sdb_opts& options)
{
    results.clear();
    pe_list file;
    if (!read_pe_stats(file, options.pe_path)) {
        uni::print_notice("Problem pulling PE stats from file %s\n", options.pe_path.c_str());
        return false;
    }
    matcher(database, options, file).run(results);
    return !results.empty();
}

} // namespace report
