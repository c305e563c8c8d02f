#include "ntfs/folder.h"

#include <algorithm>

#include "ntfs/attributes.h"
#include "ntfs/directory.h"
#include "ntfs/index_blocks.h"
#include "ntfs/usable_name.h"

namespace ntfs {

namespace {

constexpr std::string_view index_of_names = "$I30";
constexpr std::uint64_t name_place = 66;
constexpr unsigned node_below = 1; // it leads to a block, as no other entry does
constexpr unsigned last_entry = 2;

constexpr std::uint8_t dos_alone = 2;

// Where the index of a directory lies, as its record tells.
struct index_rows {
    const record_row* root = nullptr;
    const record_row* allocation = nullptr;
    const record_row* bitmap = nullptr;
};

index_rows rows_of_index(const std::vector<record_row>& rows)
{
    index_rows found;
    for (const record_row& row : rows) {
        if (row.name != index_of_names) {
            continue;
        }
        if (row.type == attribute_type::index_root && row.is_resident) {
            found.root = &row;
        } else if (row.type == attribute_type::index_allocation && !row.is_resident) {
            found.allocation = &row;
        } else if (row.type == attribute_type::bitmap) {
            found.bitmap = &row;
        }
    }
    return found;
}

// Which blocks of an index are in use.
class block_use {
public:
    // A bitmap that cannot be read leaves it open.
    block_use(mft_entries_ctx& context, const record_row* bitmap)
        : is_known_(bitmap != nullptr && read_attribute_data(context, *bitmap, bits_))
    {
        for (const std::uint8_t byte : bits_) {
            for (unsigned bit = 0; bit < 8; ++bit) {
                left_ += (byte >> bit) & 1;
            }
        }
    }

    bool is_known() const noexcept { return is_known_; }
    bool holds(std::uint64_t block) const noexcept
    {
        return !is_known_ || ((uni::byte_view(bits_).u8(block / 8) >> (block % 8)) & 1) != 0;
    }
    void note() noexcept { left_ -= left_ != 0 ? 1 : 0; }
    // Whether blocks in use were not met.
    bool is_any_left() const noexcept { return is_known_ && left_ != 0; }

private:
    io::byte_vector bits_;
    std::uint64_t left_ = 0;
    bool is_known_;
};

} // namespace

bool folder::take_entry(uni::byte_view key, std::uint64_t reference)
{
    const std::uint64_t length = key.u8(64) * std::uint64_t{2};
    if (length == 0 || !key.contains(name_place, length)) {
        return false;
    }
    if (length == 2 && key.u16(name_place) == u'.' && entry_of(reference) == root_entry) {
        return true; // of the root, itself
    }
    const std::size_t from = names_.size();
    has_marked_names_ |= append_usable(names_, key.slice(name_place, length));
    children_.push_back({reference, from, key.u32(56), key.u32(60),
                         static_cast<std::uint16_t>(names_.size() - from),
                         (key.u8(65) & 3) == dos_alone});
    return true;
}

// Takes the entries of a node, which ends with its bytes. False if it is damaged.
bool folder::take_node(uni::byte_view node)
{
    const std::uint64_t end = node.u32(4);
    std::uint64_t position = node.u32(0);
    while (position < end && node.contains(position, index_entry_header)) {
        const std::uint64_t length = node.u16(position + 8);
        const std::uint64_t key = node.u16(position + 10);
        const bool leads_on = (node.u16(position + 12) & node_below) != 0;
        nodes_below_ += leads_on ? 1 : 0;
        if ((node.u16(position + 12) & last_entry) != 0) {
            return position + length == end;
        }
        constexpr std::uint64_t unit = 8;
        const std::uint64_t expected =
            (index_entry_header + key + unit - 1) / unit * unit + (leads_on ? unit : 0);
        if (length != expected || !node.contains(position, length) ||
            !take_entry(node.slice(position + index_entry_header, key), node.u64(position))) {
            return false;
        }
        position += length;
    }
    return false;
}

folder::state folder::read(mft_entries_ctx& context, std::uint64_t entry)
{
    children_.clear();
    names_.clear();
    nodes_below_ = 0;
    is_sorted_ = false;
    has_marked_names_ = false;
    std::vector<record_row> rows;
    list_record_attributes(context, entry, rows);
    bool is_whole = !context.incomplete;
    const index_rows index = rows_of_index(rows);
    if (index.root == nullptr) {
        return state::unreadable;
    }
    const uni::byte_view root(index.root->value);
    is_whole = root.u32(0) == attribute_type::file_name && is_whole;
    is_whole = take_node(root.from(index_root_header)) && is_whole;
    std::uint64_t blocks = 0;
    if (index.allocation != nullptr) {
        block_use use(context, index.bitmap);
        // Blocks are counted in clusters, and in sectors where a cluster is larger than one of them.
        const std::uint64_t cluster = context.volume.cluster_size;
        const std::uint64_t vcns_of_block =
            index_block_size / (cluster <= index_block_size ? cluster : 512);
        std::vector<extent> extents = index.allocation->extents;
        visit_index_blocks(context.volume, extents,
                           [&](std::uint64_t number, uni::byte_view block, bool is_sound) {
                               if (use.holds(number)) {
                                   use.note();
                                   ++blocks;
                                   is_whole = is_whole && is_sound &&
                                              block.u64(16) == number * vcns_of_block;
                                   is_whole = take_node(block.from(index_block_header)) && is_whole;
                               }
                           });
        is_whole = is_whole && use.is_known() && !use.is_any_left();
    }
    is_whole = is_whole && !(has_marked_names_ && has_equal_names());
    return is_whole && blocks >= nodes_below_ ? state::whole : state::damaged;
}

// Whether two children are called the same, so that one hides the other.
bool folder::has_equal_names() const
{
    std::vector<std::u16string_view> names;
    for (const stored& each : children_) {
        names.push_back(name_of(each));
    }
    std::ranges::sort(names);
    return std::ranges::adjacent_find(names) != names.end();
}

folder::child folder::at(std::size_t number) const noexcept
{
    const stored& found = children_[number];
    return {found.reference, found.attributes, found.reparse_kind, found.is_short_name,
            name_of(found)};
}

folder::child folder::find(std::u16string_view name, const letter_case& letters)
{
    const auto order = [&](const stored& a, std::u16string_view b) {
        const int by_letters = letters.compare(name_of(a), b);
        return by_letters != 0 ? by_letters : name_of(a).compare(b);
    };
    if (!is_sorted_) {
        std::sort(children_.begin(), children_.end(), [&](const stored& a, const stored& b) {
            const int by_name = order(a, name_of(b));
            return by_name != 0 ? by_name < 0 : a.reference < b.reference;
        });
        is_sorted_ = true;
    }
    auto found =
        std::lower_bound(children_.begin(), children_.end(), name,
                         [&](const stored& a, std::u16string_view b) { return order(a, b) < 0; });
    if (found == children_.end() || name_of(*found) != name) {
        found = std::lower_bound(children_.begin(), children_.end(), name,
                                 [&](const stored& a, std::u16string_view b) {
                                     return letters.compare(name_of(a), b) < 0;
                                 });
    }
    const bool is_found = found != children_.end() && letters.compare(name_of(*found), name) == 0;
    return is_found ? at(static_cast<std::size_t>(found - children_.begin())) : child{};
}

} // namespace ntfs
