#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "io/large_vector.h"
#include "model/examination.h"
#include "model/payload.h"
#include "model/record_facts.h"
#include "model/suspect_paths.h"
#include "model/suspect_texts.h"
#include "sdb/tags.h"
#include "uni/guid.h"
#include "uni/text.h"
#include "uni/time.h"

namespace model {

namespace {

namespace tag = sdb::tag;
namespace type = sdb::type;

constexpr std::size_t most_judged_text = 512;
constexpr std::uint64_t before_databases = 126'227'808'000'000'000; // 2001-01-01, FILETIME ticks

// A bit for each tag that stands once in a list; 0 for all others.
unsigned bit_of_single(std::uint16_t tag)
{
    switch (tag) {
    case tag::name:
        return 1u << 0;
    case tag::exe_id:
        return 1u << 1;
    case tag::fix_id:
        return 1u << 2;
    case tag::wildcard_name:
        return 1u << 3;
    case tag::shim_tagid:
        return 1u << 4;
    case tag::patch_tagid:
        return 1u << 5;
    case tag::layer_tagid:
        return 1u << 6;
    case tag::flag_tagid:
        return 1u << 7;
    case tag::command_line:
        return 1u << 8;
    case tag::dllfile:
        return 1u << 9;
    case tag::patch_bits:
        return 1u << 10;
    case tag::database_id:
        return 1u << 11;
    case tag::time:
        return 1u << 12;
    default:
        return 0;
    }
}

class database_judge {
public:
    database_judge(finding_list& findings, const examined_database& examined)
        : findings_(findings), examined_(examined), database_(examined.database),
          known_(examined.known), payloads_(examined.known)
    {}

    void judge()
    {
        judge_name();
        judge_id();
        judge_time();
        judge_tags();
        judge_strings();
        judge_definitions();
        judge_indexes();
        judge_extent();
        judge_nesting();
    }

private:
    // Who refers to a string.
    enum class use : std::uint8_t { none, by_known, by_judged };

    void add(signal what, std::uint32_t offset, finding_part first = {}, std::size_t variant = 0,
             std::uint64_t number = 0, finding_part second = {})
    {
        if (std::optional<finding> made = found(examined_, what, offset)) {
            made->first = std::move(first);
            made->second = std::move(second);
            made->variant = variant;
            made->number = number;
            findings_.add(*std::move(made));
        }
    }

    std::uint32_t own(std::uint16_t tag) const
    {
        return child_of(database_, database_.database_offset(), tag);
    }

    void judge_name()
    {
        const std::uint32_t at = own(tag::name);
        constexpr std::size_t most_of_name = 0x10000;
        const std::string name = at == 0 ? std::string() : text_at(database_, at, most_of_name);
        const std::string lower = uni::lowered(name);
        if (!examined_.is_vendors_own && poses_as_update(known_, name)) {
            add(signal::reg_update_name, at, finding_part(at));
        }
        if (at != 0 && known_.holds_word(name_list::system_maker, lower)) {
            add(signal::who_vendor, at, finding_part(at));
        }
        if (!name.empty() && (is_bare_guid(name) || known_.holds(name_list::default_name, name) ||
                              known_.holds(name_list::default_name, without_number(name)))) {
            add(signal::who_default, at, finding_part(at));
        }
        if (own(tag::compiler_version) == 0 && !examined_.is_vendors_own) {
            add(signal::who_compiler, database_.database_offset());
        }
    }

    void judge_id()
    {
        const std::uint32_t at = own(tag::database_id);
        if (at == 0 || database_.payload_at(at).size() != uni::guid_size ||
            examined_.is_vendors_own) {
            return;
        }
        const std::string id = uni::guid_text(database_.payload_at(at).bytes());
        for (const auto& [name, vendor_id] : known_.entries(name_list::vendor_database)) {
            if (!vendor_id.empty() && uni::equal_ignoring_case(vendor_id, id)) {
                add(signal::who_id, at, finding_part(id), 0, 0, finding_part(name));
                return;
            }
        }
        if (id.find_first_not_of("0-") == std::string::npos) {
            add(signal::who_id, at, {}, 2);
        } else if (has_pattern(id)) {
            add(signal::who_id, at, finding_part(id), 1);
        }
    }

    void judge_time()
    {
        const std::uint32_t at = own(tag::time);
        if (at == 0) {
            return;
        }
        const std::uint64_t time = number_at(database_, at);
        const finding_part moment = finding_part::moment(time);
        if (time == 0) {
            add(signal::time_odd, at);
        } else if (examined_.now != 0 && time > examined_.now) {
            add(signal::time_odd, at, moment, 1);
        } else if (time < before_databases) {
            add(signal::time_odd, at, moment, 2);
        }
    }

    // One pass over all tags.
    void judge_tags()
    {
        used_.assign(database_.tag_count(), use::none);
        std::uint64_t unknown = 0;
        std::uint32_t first_unknown = 0;
        sdb::tag_ordinal behind_known; // the list of a known database
        for (sdb::tag_ordinal at; at.number() < database_.tag_count(); ++at) {
            const std::uint32_t offset = database_.offset_at(at);
            const std::uint16_t one = database_.tag_at(at);
            if (at >= behind_known && is_known_list(at)) {
                behind_known = database_.children().end(at);
            }
            const bool is_known = at < behind_known;
            if (sdb::tag_type(one) == type::stringref) {
                note_use(offset, is_known ? use::by_known : use::by_judged);
            }
            if (is_known) {
                continue;
            }
            if (sdb::tag_type(one) == type::stringref) {
                if (one == tag::link_url || one == tag::url || one == tag::more_info_url) {
                    judge_link(offset);
                }
            } else if (one == tag::data_bits || one == tag::file_bits || one == tag::patch_bits) {
                judge_payload(offset, payloads_.in_binary(database_.payload_at(offset)));
            }
            if (sdb::known_tag_name(one).empty()) {
                first_unknown = unknown == 0 ? offset : first_unknown;
                ++unknown;
            }
        }
        if (unknown != 0) {
            add(signal::shape_unknown, first_unknown, finding_part(first_unknown),
                unknown == 1 ? 0 : 1, unknown);
        }
    }

    bool is_known_list(sdb::tag_ordinal one) const
    {
        return examined_.known_ones != nullptr && database_.children().list(one) != nullptr &&
               examined_.known_ones->holds(database_.offset_at(one));
    }

    void note_use(std::uint32_t offset, use by)
    {
        const std::uint64_t place =
            std::uint64_t{database_.string_table_offset()} + database_.word_behind(offset);
        if (const auto string = database_.ordinal_of(place)) {
            use& so_far = used_[string->number()];
            so_far = std::max(so_far, by);
        }
    }

    void judge_link(std::uint32_t offset)
    {
        const std::string address = text_at(database_, offset, most_judged_text);
        // What is cut off may be where it really leads.
        const std::string host =
            address.size() > most_judged_text ? std::string() : host_of(address);
        const bool is_bare =
            host.starts_with('[') || host.find_first_not_of("0123456789.") == std::string::npos;
        if (!address.empty() && (is_bare || !is_known_host(known_, host))) {
            add(signal::apphelp_link, offset, finding_part(offset));
        }
    }

    void judge_payload(std::uint32_t offset, const payload& hidden)
    {
        switch (hidden.kind) {
        case payload_kind::none:
            break;
        case payload_kind::program:
            add(signal::data_payload, offset, name_of_tag(offset), 0, hidden.at);
            break;
        case payload_kind::script:
            add(signal::data_payload, offset, name_of_tag(offset), 1, hidden.at);
            break;
        case payload_kind::base64:
            add(signal::data_payload, offset, name_of_tag(offset), 2, hidden.length);
            break;
        case payload_kind::packed:
            add(signal::data_payload, offset, name_of_tag(offset), 3, hidden.at);
            break;
        }
    }

    finding_part name_of_tag(std::uint32_t offset) const
    {
        return finding_part(sdb::known_tag_name(database_.tag_from(offset)));
    }

    void judge_strings()
    {
        std::uint64_t unused = 0;
        std::uint32_t first = 0;
        if (database_.string_table_offset() == 0) {
            return;
        }
        for (sdb::tag_ordinal one = database_.ordinal_from(database_.string_table_offset());
             one.number() < database_.tag_count(); ++one) {
            if (database_.tag_at(one) != tag::stringtable_item) {
                continue;
            }
            const std::uint32_t offset = database_.offset_at(one);
            if (used_[one.number()] != use::by_known) {
                judge_payload(offset, payloads_.in_text(database_.payload_at(offset)));
            }
            if (used_[one.number()] != use::none) {
                continue;
            }
            first = unused++ == 0 ? offset : first;
            if (is_path_or_address(text_at(database_, offset, most_judged_text))) {
                add(signal::shape_strings, offset, finding_part(offset), 1);
            }
        }
        if (unused != 0) {
            add(signal::shape_strings, first, {}, 0, unused);
        }
    }

    void judge_definitions()
    {
        std::uint64_t own_ones = 0;
        std::uint32_t first = 0;
        for (const sdb::tag_table::list_row& list : database_.children().lists()) {
            const std::uint32_t offset = database_.offset_at(list.ordinal);
            if (examined_.known_ones != nullptr && examined_.known_ones->holds(offset)) {
                continue;
            }
            if (examined_.known_ones != nullptr && examined_.known_ones->redefines(offset)) {
                add(signal::lib_redefined, offset, finding_part(offset));
            }
            judge_repeats(list.ordinal, list.tag);
            switch (list.tag) {
            case tag::shim:
                judge_module(offset);
                [[fallthrough]];
            case tag::flag:
                first = own_ones++ == 0 ? offset : first;
                break;
            case tag::layer: // otherwise it refers to one
                if (child_of(database_, offset, tag::layer_tagid) == 0 &&
                    stands_alone(list.ordinal)) {
                    first = own_ones++ == 0 ? offset : first;
                }
                break;
            case tag::kshim:
            case tag::kflag:
                add(signal::driver_entries, offset, finding_part(offset));
                break;
            case tag::app:
                judge_application(offset);
                break;
            case tag::msi_transform:
            case tag::msi_custom_action:
                add(signal::msi_action, offset, finding_part(offset));
                break;
            default:
                break;
            }
        }
        if (own_ones != 0) {
            add(signal::lib_own, first, finding_part(first), own_ones == 1 ? 0 : 1, own_ones);
        }
    }

    // What identifies a list, or says what it does, stands in it once.
    void judge_repeats(sdb::tag_ordinal list, std::uint16_t own)
    {
        if (is_test(own) || own == tag::stringtable) {
            return;
        }
        unsigned seen = 0;
        const auto repeated = database_.children().find_child(list, [&](sdb::tag_ordinal child) {
            const unsigned bit = bit_of_single(database_.tag_at(child));
            const bool is_second = (seen & bit) != 0;
            seen |= bit;
            return is_second;
        });
        if (repeated) {
            const std::uint32_t offset = database_.offset_at(*repeated);
            add(signal::shape_twice, offset, finding_part(database_.offset_at(list)), 0, 0,
                name_of_tag(offset));
        }
    }

    // Whose program it says that it is.
    void judge_application(std::uint32_t app)
    {
        const std::uint32_t vendor = child_of(database_, app, tag::vendor);
        const std::string text =
            vendor == 0 ? std::string() : text_at(database_, vendor, most_judged_text);
        if (known_.holds_word(name_list::system_maker, uni::lowered(text))) {
            add(signal::who_vendor, vendor, finding_part(vendor), 1);
        }
    }

    // Whether a list stands in the database list or in the library itself, where definitions do.
    bool stands_alone(sdb::tag_ordinal list)
    {
        if (places_of_definitions_.empty()) {
            for (const std::uint32_t around :
                 {database_.database_offset(), database_.library_offset()}) {
                database_.for_each_child(around, [&](std::uint32_t offset, std::uint16_t one) {
                    if (one == tag::layer) {
                        places_of_definitions_.push_back(offset);
                    }
                });
            }
            places_of_definitions_.push_back(0xffffffff);
            std::ranges::sort(places_of_definitions_);
        }
        return std::ranges::binary_search(places_of_definitions_, database_.offset_at(list));
    }

    void judge_module(std::uint32_t shim)
    {
        const std::uint32_t file = child_of(database_, shim, tag::dllfile);
        if (file == 0) {
            return;
        }
        const std::string name = uni::lowered(text_at(database_, file, most_judged_text));
        const bool is_path = name.find_first_of("\\/:") != std::string::npos;
        const bool is_module = name.ends_with(".dll") || name.find('.') == std::string::npos;
        if (is_path || !is_module || !known_.holds(name_list::shim_module, stem_of(name))) {
            add(signal::inject_own_module, shim, finding_part(shim), 0, 0, finding_part(file));
        }
        if (is_suspect_module(known_, name)) {
            add(signal::inject_path, shim, finding_part(shim), 0, 0, finding_part(file));
        }
    }

    void judge_indexes()
    {
        if (database_.indexes().empty()) {
            add(signal::shape_no_index, database_.database_offset());
            return;
        }
        for (const sdb::sdb_index_record& index : database_.indexes()) {
            const auto stray = std::ranges::find_if(index.entries, [&](const auto& entry) {
                return !database_.is_recorded(entry.tag_offset) ||
                       database_.tag_from(entry.tag_offset) != index.index_tag;
            });
            if (stray != index.entries.end()) {
                add(signal::shape_no_index, static_cast<std::uint32_t>(index.list_offset),
                    finding_part(sdb::tag_name(index.index_tag)), 2, stray->tag_offset);
            }
        }
    }

    void judge_extent()
    {
        const sdb::image_extent extent = database_.extent();
        if (extent.is_file_longer) {
            add(signal::shape_trailing, 0, {}, 4, extent.file_size);
        }
        if (extent.cut_off_at) {
            add(signal::shape_trailing, *extent.cut_off_at, finding_part(*extent.cut_off_at), 1);
        } else if (extent.trailing_at < database_.image().size()) {
            add(signal::shape_trailing, static_cast<std::uint32_t>(extent.trailing_at), {}, 0,
                database_.image().size() - extent.trailing_at);
        }
        if (const std::uint64_t behind = database_.bytes_behind_stream()) {
            add(signal::shape_trailing, 0, {}, 2, behind);
        }
    }

    // The first list that claims more than the one around it.
    void judge_nesting()
    {
        std::vector<std::uint64_t> ends; // of the lists around
        for (const sdb::tag_table::list_row& list : database_.children().lists()) {
            const std::uint32_t offset = database_.offset_at(list.ordinal);
            while (!ends.empty() && ends.back() <= offset) {
                ends.pop_back();
            }
            const std::uint64_t end =
                std::uint64_t{offset} + sdb::tag_header + database_.word_behind(offset);
            if (!ends.empty() && end > ends.back()) {
                add(signal::shape_trailing, offset, finding_part(offset), 3);
                return;
            }
            ends.push_back(end);
        }
    }

    finding_list& findings_;
    const examined_database& examined_;
    const sdb::sdb_database& database_;
    const knowledge& known_;
    const payload_search payloads_;
    std::vector<use> used_; // strings, by ordinal
    std::vector<std::uint32_t> places_of_definitions_;
};

} // namespace

void judge_database(finding_list& findings, const examined_database& examined)
{
    database_judge(findings, examined).judge();
}

} // namespace model
