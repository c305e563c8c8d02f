#include "model/database_facts.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <unordered_set>

#include "model/record_collector.h"
#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/guid.h"
#include "uni/numbers.h"
#include "uni/text.h"

namespace model {

namespace {

namespace tag = sdb::tag;

using guid_bytes = std::array<std::uint8_t, uni::guid_size>;

// Gathers the facts of one database.
class fact_gatherer {
public:
    fact_gatherer(database_facts& facts, const sdb::sdb_database& database,
                  const request::bounds& bounds, const known_filter* known)
        : facts_(facts), database_(database), known_(known), collector_(database),
          budget_(database, bounds)
    {}

    void take_children()
    {
        std::set<std::uint16_t> seen;
        database_.for_each_child(database_.database_offset(),
                                 [&](std::uint32_t offset, std::uint16_t child) {
                                     if (sdb::tag_type(child) != sdb::type::list) {
                                         facts_.scalars.push_back(offset);
                                     } else if (!seen.insert(child).second) {
                                         return; // the first of a kind has counted them all
                                     } else if (child == tag::library) {
                                         count_library();
                                     } else {
                                         count_records(child);
                                     }
                                 });
        leave_out_repeated_texts();
    }

    void count_names_and_strings()
    {
        if (!app_names_.empty()) {
            add_count(tag::app_name, "appname", app_names_.size(), true);
        }
        if (!app_ids_.empty()) {
            add_count(tag::app_id, "appid", app_ids_.size(), true);
        }
        std::uint64_t strings = 0;
        database_.for_each_child(database_.string_table_offset(),
                                 [&](std::uint32_t, std::uint16_t) { ++strings; });
        if (strings != 0) {
            add_count(tag::stringtable_item, "strings", strings);
        }
    }

    void finish_counts()
    {
        facts_.counts_are_exact = collector_.groups_are_exact();
        std::ranges::stable_sort(facts_.counts, {}, &record_count::tag);
    }

private:
    void add_count(std::uint16_t tag, std::string name, std::uint64_t count, bool of_values = false)
    {
        facts_.counts.push_back({tag, std::move(name), count, of_values});
    }

    // Everything of a kind that stands in the library counts, wherever else it stands too.
    void count_library()
    {
        std::set<std::uint16_t> seen;
        database_.for_each_child(database_.library_offset(),
                                 [&](std::uint32_t, std::uint16_t child) {
                                     if (seen.insert(child).second) {
                                         add_count(child, sdb::tag_name(child), count_of(child));
                                     }
                                 });
    }

    std::uint64_t count_of(std::uint16_t tag) const
    {
        const auto all = database_.ordinals_by_tag(tag);
        return static_cast<std::uint64_t>(std::ranges::count_if(
            all, [this](sdb::tag_ordinal one) { return !is_known(database_.offset_at(one)); }));
    }

    bool is_known(std::uint32_t record) const { return known_ != nullptr && known_->holds(record); }

    void count_records(std::uint16_t list_tag)
    {
        std::uint64_t count = 0;
        for (const sdb::tag_ordinal ordinal : database_.ordinals_by_tag(list_tag)) {
            count += counts(ordinal) ? 1 : 0;
        }
        add_count(list_tag, sdb::tag_name(list_tag), count);
    }

    // What a record says of its application; of several tags of a kind the last counts.
    struct application {
        std::optional<std::uint32_t> name_reference;
        std::optional<guid_bytes> id;
    };

    // Whether a record is one that the listings print. Its application is noted all the same, as
    // far as the first tag that makes it a mere reference.
    bool counts(sdb::tag_ordinal record)
    {
        if (database_.tag_at(record) == tag::stringtable || is_known(database_.offset_at(record)) ||
            !collector_.collect_first_group(budget_, database_.offset_at(record))) {
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
            // The 16 bytes behind the head, whatever size the tag claims, as these counts always
            // were made.
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

    void leave_out_repeated_texts()
    {
        const auto shown = [&](std::uint32_t offset) {
            const std::uint16_t tag = database_.tag_from(offset);
            const bool is_reference = sdb::tag_type(tag) == sdb::type::stringref;
            return std::pair(tag, is_reference ? database_.word_behind(offset) : offset);
        };
        std::vector<std::uint32_t>& scalars = facts_.scalars;
        std::ranges::sort(scalars, {}, shown);
        const auto are_alike = [&](std::uint32_t one, std::uint32_t other) {
            return shown(one) == shown(other);
        };
        scalars.erase(std::unique(scalars.begin(), scalars.end(), are_alike), scalars.end());
    }

    database_facts& facts_;
    const sdb::sdb_database& database_;
    const known_filter* known_;
    record_collector collector_;
    listing_budget budget_;
    std::unordered_set<std::uint32_t> app_name_references_;
    std::unordered_set<std::string> app_names_;
    std::set<guid_bytes> app_ids_;
};

bool has_text(const sdb::sdb_database& database, std::uint32_t reference)
{
    const uni::byte_view stored = database.string_bytes(reference);
    return stored.size() >= 2 && stored.u16(0) != 0;
}

} // namespace

digest_texts file_digests(io::byte_source& source)
{
    constexpr std::uint64_t longest = 0x10000000;
    io::byte_vector bytes;
    if (source.size() > longest || !io::read_source(bytes, source, source.size()) ||
        bytes.size() != source.size()) {
        return {};
    }
    image_digests digests;
    digests.start(bytes, nullptr);
    return digests.all();
}

database_identity identity_of(const sdb::sdb_database& database)
{
    database_identity made;
    std::optional<std::uint32_t> os_platform;
    std::optional<std::uint32_t> runtime_platform;
    // Of several texts the last counts, and that alone is read.
    std::optional<std::uint32_t> compiler;
    const auto take_scalar = [&](std::uint32_t offset, std::uint16_t child) {
        const sdb::sdb_tag_item item = database.item_from(offset);
        switch (child) {
        case tag::runtime_platform:
            runtime_platform = item.value.u32(0);
            break;
        case tag::os_platform:
            os_platform = item.value.u32(0);
            break;
        case tag::time:
            made.time = item.value.u64(0);
            break;
        case tag::name:
            made.name_at = has_text(database, item.size) ? std::optional(offset) : std::nullopt;
            break;
        case tag::compiler_version:
            compiler = item.size;
            made.compiler_at = has_text(database, item.size) ? std::optional(offset) : std::nullopt;
            break;
        case tag::database_id:
            made.has_several_identifiers = !made.identifier.empty();
            made.identifier =
                item.value.size() == uni::guid_size ? uni::guid_text(item.value.bytes()) : "";
            break;
        default:
            break;
        }
    };
    database.for_each_child(database.database_offset(),
                            [&](std::uint32_t offset, std::uint16_t child) {
                                if (sdb::tag_type(child) != sdb::type::list) {
                                    take_scalar(offset, child);
                                }
                            });
    made.platform = os_platform ? os_platform : runtime_platform;
    if (compiler) {
        database.read_string_ref(made.compiler_version, *compiler);
        uni::remove_char(made.compiler_version, 'v');
    }
    return made;
}

std::string internal_name(const sdb::sdb_database& database, const database_identity& identity)
{
    std::string name;
    if (identity.name_at) {
        database.read_string_ref(name, database.word_behind(*identity.name_at));
    }
    return name;
}

bool gather_facts(database_facts& facts, const sdb::sdb_database& database,
                  const request::bounds& bounds, image_digests* digests, const known_filter* known)
{
    facts = {};
    const auto list = database.ordinal_of(database.database_offset());
    if (!list || !database.children().has_children(*list)) {
        return false;
    }
    image_digests own;
    if (digests == nullptr || !digests->is_started()) {
        own.start(database.image().bytes(), nullptr);
        digests = &own;
    }
    static_cast<database_identity&>(facts) = identity_of(database);
    fact_gatherer gatherer(facts, database, bounds, known);
    gatherer.take_children();
    gatherer.count_names_and_strings();
    facts.digest_md5 = digests->md5();
    facts.digest_sha1 = digests->sha1();
    gatherer.finish_counts();
    return true;
}

} // namespace model
