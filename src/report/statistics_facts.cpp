#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>

#include "platform/digests.h"
#include "report/record.h"
#include "report/statistics.h"
#include "report/tag_text.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/guid.h"
#include "uni/numbers.h"
#include "uni/paths.h"
#include "uni/text.h"

namespace report {

namespace {

namespace tag = sdb::tag;
namespace pseudo_tag = sdb::pseudo_tag;

using guid_bytes = std::array<std::uint8_t, uni::guid_size>;

// Gathers the facts of one database.
class fact_gatherer {
public:
    fact_gatherer(database_facts& facts, const sdb::sdb_database& database,
                  const front::sdb_opts& options)
        : facts_(facts), database_(database), options_(options), collector_(database)
    {}

    void take_children(const std::vector<sdb::sdb_child_record>& children)
    {
        std::set<std::uint16_t> seen;
        for (const sdb::sdb_child_record& child : children) {
            if (!child.is_list) {
                take_scalar(child);
            } else if (!seen.insert(child.tag).second) {
                continue; // the first of a kind has counted them all
            } else if (child.tag == tag::library) {
                count_library();
            } else {
                count_records(child.tag);
            }
        }
    }

    void count_names_and_strings()
    {
        if (!app_names_.empty()) {
            add_count(tag::app_name, "appname", app_names_.size());
        }
        if (!app_ids_.empty()) {
            add_count(tag::app_id, "appid", app_ids_.size());
        }
        const std::uint32_t strings = database_.child_count(database_.string_table_offset());
        if (strings != 0) {
            add_count(tag::stringtable_item, "strings", strings);
            widen(facts_.rows.back().value_text);
        }
    }

    void take_digests()
    {
        const auto image = database_.image().bytes();
        const auto digest = [image](platform::digest_kind kind) {
            return uni::hex_text(platform::compute_digest(kind, image));
        };
        facts_.digest_md5 = digest(platform::digest_kind::md5);
        facts_.digest_sha1 = digest(platform::digest_kind::sha1);
    }

    void take_registry_facts()
    {
        const std::string path = uni::lowered(options_.current_path);
        std::string folder;
        std::string name;
        if (!uni::split_path(path, folder, name)) {
            name = path;
        }
        const auto found = options_.installed_databases.find(name);
        // An empty name is that of the installed databases without a path, not of a file.
        if (name.empty() || found == options_.installed_databases.end()) {
            return;
        }
        const front::installed_database& installed = found->second;
        facts_.reg_install_time = installed.install_time;
        facts_.registry_modtime = installed.key_modtime;
        facts_.database_types = installed.database_type;
        facts_.registry_path = installed.database_path;
        add_pseudo(pseudo_tag::install_time, "Install Timestamp", "", installed.install_time);
        add_pseudo(pseudo_tag::registry_modtime, "Reg LastMod Timestamp", "",
                   installed.key_modtime);
        add_pseudo(pseudo_tag::database_description, "Database Description", installed.description,
                   0);
        add_pseudo(pseudo_tag::database_types, "Database Types", "", installed.database_type);
        add_pseudo(pseudo_tag::database_path, "Database Path", installed.database_path, 0);
    }

    void sort_rows() { std::ranges::stable_sort(facts_.rows, {}, &stat_row::key); }

private:
    void widen(const std::string& text)
    {
        facts_.value_width = std::max(facts_.value_width, text.size());
    }

    void take_scalar(const sdb::sdb_child_record& child)
    {
        std::string text = tag_text(database_, child.offset, options_, true, false);
        switch (child.tag) {
        case tag::runtime_platform:
            runtime_platform_ = text;
            break;
        case tag::os_platform:
            os_platform_ = text;
            break;
        case tag::time:
            text += " [UTC]";
            facts_.database_modtime_text = text;
            facts_.database_time = database_.image().u64(std::uint64_t{child.offset} + 2);
            break;
        case tag::name:
            facts_.internal_name = text;
            break;
        case tag::compiler_version:
            uni::remove_char(text, 'v');
            facts_.compiler_version = text;
            break;
        case tag::database_id:
            facts_.database_identifier = text;
            break;
        default:
            break; // no row, but its text counts for the width
        }
        facts_.platform = os_platform_.empty() ? runtime_platform_ : os_platform_;
        widen(text);
    }

    void add_count(std::uint16_t key, std::string name, std::uint64_t count)
    {
        facts_.rows.push_back({key, std::move(name), std::to_string(count), 0, count});
    }

    void add_pseudo(std::uint16_t key, std::string name, std::string text, std::uint64_t value)
    {
        facts_.rows.push_back({key, std::move(name), std::move(text), value, 0});
    }

    // Everything of a kind that stands in the library counts, wherever else it stands too.
    void count_library()
    {
        std::set<std::uint16_t> seen;
        std::vector<sdb::sdb_child_record> children;
        database_.child_records(children, database_.library_offset());
        for (const sdb::sdb_child_record& child : children) {
            if (seen.insert(child.tag).second) {
                add_count(child.tag, sdb::tag_name(child.tag),
                          database_.ordinals_by_tag(child.tag).size());
                widen(facts_.rows.back().value_text);
            }
        }
    }

    void count_records(std::uint16_t list_tag)
    {
        std::uint64_t count = 0;
        for (const std::uint32_t ordinal : database_.ordinals_by_tag(list_tag)) {
            count += counts(database_.offset_at(ordinal)) ? 1 : 0;
        }
        add_count(list_tag, sdb::tag_name(list_tag), count);
        widen(facts_.rows.back().value_text);
    }

    // What a record says of its application; of several tags of a kind the last counts.
    struct application {
        std::optional<std::uint32_t> name_reference;
        std::optional<guid_bytes> id;
    };

    // Whether a record is one that the listings print. Its application is noted all the same, as
    // far as the first tag that makes it a mere reference.
    bool counts(std::uint32_t offset)
    {
        if (database_.tag_at(*database_.ordinal_of(offset)) == tag::stringtable ||
            !collector_.collect_first_group(no_search_, offset)) {
            return false;
        }
        application found;
        for (const record_item& item : collector_.first_group()) {
            if (sdb::is_expanded_dword_tag(item.tag)) {
                break;
            }
            read_application(found, item);
        }
        note_application(found);
        return has_substance(collector_.first_group(), collector_.has_one_group());
    }

    void read_application(application& found, const record_item& item) const
    {
        constexpr std::uint64_t head_and_guid = 22;
        if (std::uint64_t{item.offset} + head_and_guid >= database_.image().size()) {
            return;
        }
        if (item.tag == tag::app_name) {
            found.name_reference = database_.word_behind(item.offset);
        } else if (item.tag == tag::app_id) {
            // The 16 bytes behind the head, whatever size the tag claims: meant.
            const auto bytes =
                database_.image().slice(item.offset + sdb::tag_header, uni::guid_size).bytes();
            std::ranges::copy(bytes, found.id.emplace().begin());
        }
    }

    void note_application(const application& found)
    {
        // References to one string need not be read twice.
        if (found.name_reference && app_name_references_.insert(*found.name_reference).second) {
            std::string name;
            database_.read_string_ref(name, *found.name_reference);
            if (!name.empty()) {
                app_names_.insert(std::move(name));
            }
        }
        if (found.id) {
            app_ids_.insert(*found.id);
        }
    }

    database_facts& facts_;
    const sdb::sdb_database& database_;
    const front::sdb_opts& options_;
    record_collector collector_;
    front::sdb_opts no_search_;
    std::string os_platform_;
    std::string runtime_platform_;
    std::unordered_set<std::uint32_t> app_name_references_;
    std::unordered_set<std::string> app_names_;
    std::set<guid_bytes> app_ids_;
};

} // namespace

bool gather_facts(database_facts& facts, const sdb::sdb_database& database,
                  const front::sdb_opts& options)
{
    facts = {};
    std::vector<sdb::sdb_child_record> children;
    if (!database.child_records(children, database.database_offset())) {
        return false;
    }
    fact_gatherer gatherer(facts, database, options);
    gatherer.take_children(children);
    gatherer.count_names_and_strings();
    gatherer.take_digests();
    gatherer.take_registry_facts();
    gatherer.sort_rows();
    return true;
}

} // namespace report
