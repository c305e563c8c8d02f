#include "sdb/database.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace sdb {

namespace {

constexpr std::uint64_t index_entry_size = 12;
constexpr std::uint64_t shortest_tag = 2;

// Bytes from a tag to the next, given the u32 behind its tag word.
std::uint64_t step_over(std::uint16_t tag, std::uint32_t word)
{
    const std::uint64_t step = bytes_to_next[tag >> 12];
    if (tag_type(tag) != type::string && tag_type(tag) != type::binary_) [[likely]] {
        return step;
    }
    return step + word + (tag_type(tag) == type::binary_ ? word % 2 : 0);
}

std::vector<index_entry> decode_entries(uni::byte_view bits)
{
    std::vector<index_entry> entries(static_cast<std::size_t>(bits.size() / index_entry_size));
    for (std::size_t i = 0; i < entries.size(); ++i) {
        entries[i] = {bits.u64(i * index_entry_size), bits.u32(i * index_entry_size + 8)};
    }
    std::ranges::stable_sort(entries, {}, &index_entry::key);
    return entries;
}

} // namespace

// What tells a tag apart within its type.
constexpr std::uint16_t number_mask = 0x0fff;

// Ordinals of the tags of one type, equal tags side by side: those of a tag stand from
// starts[number] to starts[number + 1], the number being what tells it apart within the type.
struct ordinals_by_number {
    std::vector<std::uint32_t> starts;
    io::large_vector<tag_ordinal> ordinals;
};

struct sdb_database::lazy_indexes {
    std::array<std::optional<ordinals_by_number>, bytes_to_next.size()> by_type;
    std::optional<std::vector<sdb_index_record>> indexes;
    std::optional<std::vector<bool>> indexed;
    std::optional<std::vector<std::uint32_t>> strings;
    std::optional<std::vector<guid_item>> guids;
};

sdb_database::sdb_database() : lazy_(std::make_unique<lazy_indexes>()) {}

sdb_database::~sdb_database() = default;

void sdb_database::clear()
{
    loaded_ = false;
    version_major_ = version_minor_ = 0;
    indexes_offset_ = database_offset_ = library_offset_ = 0;
    string_table_offset_ = string_table_size_ = 0;
    ordinal_by_offset_.clear();
    tags_ = {};
    raw_indexes_.clear();
    leading_referrers_.clear();
    *lazy_ = {};
}

load_result sdb_database::load(io::byte_source& file, std::uint64_t most,
                               const image_user& on_image)
{
    io::byte_vector bytes;
    io::read_source(bytes, file, largest_file);
    const bool is_whole = bytes.size() == std::min(file.size(), largest_file);
    if (file.has_failed() || (!is_whole && !bytes.empty())) {
        clear();
        image_.clear();
        return load_result::unreadable;
    }
    const bool is_compressed = uni::byte_view(bytes).u32(8) == compressed_magic;
    if (is_compressed && file.size() > largest_file) {
        clear();
        image_.clear();
        was_compressed_ = true;
        return load_result::not_inflated;
    }
    const load_result result = load_image(std::move(bytes), most, on_image);
    file_size_ = is_compressed ? image_.size() : file.size();
    return result;
}

load_result sdb_database::load_image(io::byte_vector image, std::uint64_t most,
                                     const image_user& on_image)
{
    image_ = std::move(image);
    file_size_ = image_.size();
    bytes_behind_stream_ = 0;
    if (on_image && this->image().u32(8) == plain_magic) {
        on_image(image_);
    }
    const scan_outcome outcome = scan();
    was_compressed_ = outcome == scan_outcome::compressed;
    inflation result = inflation::whole;
    if (was_compressed_) {
        io::byte_vector inflated;
        result = inflate_image(this->image(), inflated, most, &bytes_behind_stream_);
        if (result == inflation::whole) {
            image_ = std::move(inflated);
            file_size_ = image_.size();
            if (on_image) {
                on_image(image_);
            }
            scan();
        }
    }
    if (loaded_) {
        return load_result::loaded;
    }
    image_.clear();
    clear();
    if (result == inflation::too_large) {
        return load_result::too_large;
    }
    return was_compressed_ ? load_result::not_inflated : load_result::no_database;
}

// By the sizes as they are stored, whatever stands in which list.
image_extent sdb_database::extent() const
{
    const uni::byte_view bytes = image();
    image_extent found;
    found.file_size = file_size_;
    found.is_file_longer = file_size_ > bytes.size();
    const auto look_at = [&](std::uint64_t position, std::uint16_t tag) {
        const bool is_sized = tag_type(tag) >= type::list && tag_type(tag) <= type::binary_;
        const std::uint64_t end = is_sized ? position + tag_header + bytes.u32(position + 2)
                                           : position + bytes_to_next[tag >> 12];
        if (end > bytes.size() && !found.cut_off_at) {
            found.cut_off_at = static_cast<std::uint32_t>(position);
            found.claimed_end = end;
        }
    };
    std::uint64_t position = header_size;
    while (bytes.contains(position, 2) && bytes.u16(position) != tag::database) {
        look_at(position, bytes.u16(position));
        position += step_over(bytes.u16(position), bytes.u32(position + 2));
    }
    for (const tag_table::list_row& list : tags_.lists()) {
        look_at(tags_.offset(list.ordinal), list.tag);
    }
    if (!tags_.offsets().empty()) { // behind anything else that ends too late no tag was found
        const std::uint32_t last = tags_.offsets().back();
        look_at(last, bytes.u16(last));
    }
    found.trailing_at = header_size;
    while (bytes.contains(found.trailing_at, tag_header) &&
           tag_type(bytes.u16(found.trailing_at)) == type::list) {
        found.trailing_at += tag_header + bytes.u32(found.trailing_at + 2);
    }
    found.trailing_at = std::min<std::uint64_t>(found.trailing_at, bytes.size());
    return found;
}

sdb_database::scan_outcome sdb_database::scan()
{
    clear();
    if (image_.size() < header_size) {
        return scan_outcome::no_database;
    }
    const uni::byte_view head = image();
    const std::uint32_t magic = head.u32(8);
    if (magic == compressed_magic) {
        return scan_outcome::compressed;
    }
    if (magic != plain_magic) {
        return scan_outcome::no_database;
    }
    version_major_ = head.u32(0);
    version_minor_ = head.u32(4);
    ordinal_by_offset_.reset(image_.size());
    tags_.reset(image_.size() / shortest_tag);
    scan_recorded_part(scan_leading_part());
    ordinal_by_offset_.finish();
    tags_.finish();
    loaded_ = true;
    return scan_outcome::scanned;
}

// Walks the tags before the database list, of which only indexes and string references are kept.
// Gives the position of the database list, or of the image's end.
std::uint64_t sdb_database::scan_leading_part()
{
    const uni::byte_view bytes = image();
    sdb_index_record pending;
    std::uint64_t position = header_size;
    while (bytes.contains(position, 2)) {
        const sdb_tag_item item = decode(position);
        if (item.tag == tag::database) {
            break;
        }
        if (item.valid) {
            note_leading_tag(item, pending);
        }
        position += step_over(item.tag, item.size);
    }
    return position;
}

void sdb_database::note_leading_tag(const sdb_tag_item& item, sdb_index_record& pending)
{
    if (tag_type(item.tag) == type::stringref && item.value.size() == 4) {
        leading_referrers_.emplace_back(item.size, item.offset);
        return;
    }
    switch (item.tag) {
    case tag::stringtable:
    case tag::library:
        note_list(item.offset, item.tag);
        break;
    case tag::indexes:
        indexes_offset_ = item.offset;
        break;
    case tag::index_tag:
        pending.index_tag = item.value.u16(0);
        break;
    case tag::index_key:
        pending.index_key = item.value.u16(0);
        break;
    case tag::index_flags:
        // Readers of earlier reports know 16 bits of this dword, so no more are kept.
        pending.index_flags = item.value.u16(0);
        break;
    case tag::index:
        pending = {};
        pending.list_offset = item.offset;
        pending.list_size = item.size;
        break;
    case tag::index_bits:
        if (pending.index_tag != 0 && pending.index_key != 0) {
            note_index_entries(item, pending);
            pending = {};
        }
        break;
    default:
        break;
    }
}

void sdb_database::note_index_entries(const sdb_tag_item& item, const sdb_index_record& pending)
{
    if (item.value.size() < index_entry_size) {
        return;
    }
    raw_index found{pending, item.value};
    found.record.bits_position =
        item.offset - static_cast<std::uint32_t>(pending.list_offset) + std::uint32_t{tag_header};
    found.record.bits_size = item.size;
    raw_indexes_.push_back(std::move(found));
}

void sdb_database::note_list(std::uint64_t position, std::uint16_t tag)
{
    const auto offset = static_cast<std::uint32_t>(position);
    if (tag == tag::stringtable) {
        string_table_offset_ = offset;
        string_table_size_ = image().u32(position + 2);
    } else if (tag == tag::database) {
        database_offset_ = offset;
    } else if (tag == tag::library) {
        library_offset_ = offset;
    }
}

void sdb_database::scan_recorded_part(std::uint64_t position)
{
    const uni::byte_view bytes = image();
    while (bytes.contains(position, 2)) {
        // The tag word and the u32 behind it in one read.
        const std::uint64_t head = bytes.u64(position);
        const auto tag = static_cast<std::uint16_t>(head);
        const auto word = static_cast<std::uint32_t>(head >> 16);
        const std::uint64_t behind = position + step_over(tag, word);
        if (is_known_type(tag_type(tag))) [[likely]] {
            const auto offset = static_cast<std::uint32_t>(position);
            if (tag_type(tag) == type::list) {
                note_list(position, tag);
            }
            ordinal_by_offset_.add(offset);
            tags_.add(offset, tag, word, behind);
        }
        position = behind;
    }
}

bool sdb_database::read_item(sdb_tag_item& item, std::uint64_t offset) const
{
    item = {};
    const std::optional<tag_ordinal> ordinal = ordinal_of(offset);
    if (!loaded_ || !ordinal) {
        return false;
    }
    item = item_at(*ordinal);
    item.indexed = is_indexed(*ordinal);
    return true;
}

bool sdb_database::read_string_ref(std::string& text, std::uint32_t reference) const
{
    const uni::byte_view stored = string_bytes(reference);
    uni::utf16_to_text(stored, text);
    return !stored.empty();
}

namespace {

// Sorts the tags of one type by tag. `for_each_tag` calls what it is given with each one's ordinal and
// tag, in file order, every time alike.
ordinals_by_number sort_by_tag(auto&& for_each_tag)
{
    ordinals_by_number sorted;
    sorted.starts.resize(number_mask + std::size_t{2});
    for_each_tag(
        [&](tag_ordinal, std::uint16_t tag) { ++sorted.starts[(tag & number_mask) + 1u]; });
    std::partial_sum(sorted.starts.begin(), sorted.starts.end(), sorted.starts.begin());
    sorted.ordinals.resize(sorted.starts.back());
    std::vector<std::uint32_t> next = sorted.starts;
    for_each_tag([&](tag_ordinal ordinal, std::uint16_t tag) {
        sorted.ordinals[next[tag & number_mask]++] = ordinal;
    });
    return sorted;
}

} // namespace

std::span<const tag_ordinal> sdb_database::ordinals_by_tag(std::uint16_t tag) const
{
    std::optional<ordinals_by_number>& index = lazy_->by_type[tag >> 12];
    if (!index) {
        index = tag_type(tag) == type::list
                    ? sort_by_tag([this](auto&& act) {
                          for (const tag_table::list_row& list : tags_.lists()) {
                              act(list.ordinal, list.tag);
                          }
                      })
                    : sort_by_tag([this, tag](auto&& act) {
                          for (tag_ordinal one; one.number() < tags_.size(); ++one) {
                              if (tag_type(tag_at(one)) == tag_type(tag)) {
                                  act(one, tag_at(one));
                              }
                          }
                      });
    }
    const std::uint32_t first = index->starts[tag & number_mask];
    const std::uint32_t behind = index->starts[(tag & number_mask) + 1u];
    return std::span(index->ordinals).subspan(first, behind - first);
}

const std::vector<sdb_index_record>& sdb_database::indexes() const
{
    if (!lazy_->indexes) {
        std::vector<sdb_index_record> records;
        for (const raw_index& raw : raw_indexes_) {
            records.push_back(raw.record);
            records.back().entries = decode_entries(raw.entries);
        }
        std::ranges::stable_sort(records, {}, &sdb_index_record::index_tag);
        lazy_->indexes = std::move(records);
    }
    return *lazy_->indexes;
}

bool sdb_database::is_indexed(tag_ordinal ordinal) const
{
    make_shared_indexes();
    return (*lazy_->indexed)[ordinal.number()];
}

void sdb_database::make_shared_indexes() const
{
    if (!lazy_->indexed) {
        std::vector<bool> marks(tags_.size());
        for (const sdb_index_record& record : indexes()) {
            for (const index_entry& entry : record.entries) {
                if (const auto found = ordinal_of(entry.tag_offset)) {
                    marks[found->number()] = true;
                }
            }
        }
        lazy_->indexed = std::move(marks);
    }
}

std::string guid_item::text() const
{
    std::array<std::uint8_t, uni::guid_size> bytes = shown;
    uni::swap_guid_order(bytes);
    return uni::guid_text(bytes);
}

const std::vector<guid_item>& sdb_database::guid_items() const
{
    if (!lazy_->guids) {
        std::vector<guid_item> found;
        for (tag_ordinal ordinal; ordinal.number() < tags_.size(); ++ordinal) {
            if (tag_type(tag_at(ordinal)) != type::binary_) {
                continue;
            }
            const sdb_tag_item item = item_at(ordinal);
            if (item.size == uni::guid_size && item.value.size() == uni::guid_size) {
                guid_item& guid = found.emplace_back();
                guid.ordinal = ordinal;
                std::ranges::copy(item.value.bytes(), guid.shown.begin());
                uni::swap_guid_order(guid.shown);
            }
        }
        std::ranges::stable_sort(found, {}, &guid_item::shown);
        lazy_->guids = std::move(found);
    }
    return *lazy_->guids;
}

const std::vector<std::uint32_t>& sdb_database::string_offsets() const
{
    if (!lazy_->strings) {
        lazy_->strings = read_string_table();
    }
    return *lazy_->strings;
}

std::vector<std::uint32_t> sdb_database::read_string_table() const
{
    std::vector<std::uint32_t> references;
    const std::uint64_t start = string_table_offset_;
    const std::uint64_t size = string_table_size_;
    if (start == 0 || size <= tag_header || image_.size() <= start + size) {
        return references;
    }
    const uni::byte_view table = image().from(start);
    std::uint64_t position = tag_header;
    while (position < size) {
        const std::uint64_t length = table.u32(position + 2);
        if (length != 0) {
            if (position + length + tag_header >= size) {
                break;
            }
            references.push_back(static_cast<std::uint32_t>(position));
        }
        position += tag_header + length;
    }
    return references;
}

std::vector<std::uint32_t>
sdb_database::string_referrers(std::span<const std::uint32_t> references) const
{
    std::vector<std::uint32_t> sorted(references.begin(), references.end());
    std::ranges::sort(sorted);
    // A mark for each hash of a wanted reference keeps nearly all others from being looked up.
    constexpr std::uint32_t marks = 0x10000;
    std::vector<std::uint8_t> marked(marks);
    for (const std::uint32_t reference : sorted) {
        marked[reference % marks] = 1;
    }
    const auto is_wanted = [&](std::uint32_t reference) {
        return marked[reference % marks] != 0 && std::ranges::binary_search(sorted, reference);
    };
    std::vector<std::uint32_t> offsets;
    for (const auto& [reference, offset] : leading_referrers_) {
        if (is_wanted(reference)) {
            offsets.push_back(offset);
        }
    }
    // Whatever the tag, its word is looked at first: that it is wanted is the rarer thing.
    const uni::byte_view bytes = image();
    for (const std::uint32_t offset : tags_.offsets()) {
        if (is_wanted(bytes.u32(std::uint64_t{offset} + 2)) &&
            tag_type(bytes.u16(offset)) == type::stringref && bytes.contains(offset, tag_header)) {
            offsets.push_back(offset);
        }
    }
    return offsets;
}

bool sdb_database::find_enclosing_list(std::uint32_t& result, std::uint32_t offset,
                                       bool want_parent) const
{
    result = 0;
    if (!loaded_ || offset == 0) {
        return false;
    }
    const std::optional<tag_ordinal> ordinal = ordinal_of(offset);
    const tag_table& relation = children();
    std::optional<tag_ordinal> found;
    if (!want_parent) {
        found = ordinal && relation.has_children(*ordinal)
                    ? ordinal
                    : relation.list_before(ordinal_from(offset));
    } else if (ordinal && relation.has_children(*ordinal)) {
        found = relation.list_around(*ordinal);
    }
    if (found) {
        result = offset_at(*found);
    }
    return found.has_value();
}

} // namespace sdb
