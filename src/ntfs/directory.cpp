#include "ntfs/directory.h"

#include <algorithm>
#include <cinttypes>

#include "ntfs/attributes.h"
#include "ntfs/index_blocks.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace ntfs {

namespace {

constexpr std::u16string_view index_name = u"$I30";
constexpr std::uint64_t largest_node = 4096;
constexpr std::uint64_t longest_next_entry = 768;
constexpr std::size_t most_repeated = 0x10000; // children kept twice for a while
constexpr std::uint64_t longest_beside_names = 1023;

// Lists the entries of a node, which ends with its bytes.
void parse_node(uni::byte_view node, index_parsing parsing, std::vector<std::uint64_t>& children)
{
    const std::uint64_t total = node.u32(4);
    if (total == 0 || total > largest_node) {
        return;
    }
    const bool is_strict = parsing == index_parsing::strict;
    std::uint64_t position = node.u32(0);
    for (std::uint64_t done = 0; done < total && node.contains(position, index_entry_header);) {
        const std::uint64_t length = node.u16(position + 8);
        const std::uint64_t key = node.u16(position + 10);
        const std::uint64_t reference = node.u64(position);
        const unsigned flags = node.u16(position + 12);
        if (length < index_entry_header || length > total || key > total ||
            (is_strict && key > length) || !node.contains(position, length)) {
            return;
        }
        if (reference != 0 && flags != 2 && flags != 3) {
            children.push_back(entry_of(reference));
        } else if (is_strict) {
            return;
        }
        done += length;
        position += length;
        if (node.u16(position + 8) > longest_next_entry) {
            return;
        }
    }
}

// What a directory's record, and those that extend it, say of its index.
struct index_parts {
    bool has_root = false;
    bool has_allocation = false;
    std::vector<extent> extents; // of the allocation
};

void take_index_part(const attribute& found, index_parsing parsing, index_parts& parts,
                     std::vector<std::uint64_t>& children)
{
    if (!found.has_name(index_name)) {
        return;
    }
    if (found.type() == attribute_type::index_root) {
        const uni::byte_view root = found.value();
        if (root.u32(0) == attribute_type::file_name && root.u32(8) != 0) {
            parts.has_root = true;
            parse_node(root.from(index_root_header), parsing, children);
        }
    } else if (found.type() == attribute_type::index_allocation && !found.is_resident()) {
        std::vector<byte_run> runs;
        decode_data_runs(found, runs);
        runs_to_extents(runs, parts.extents);
        parts.has_allocation = true;
    }
}

void keep_each_once(std::vector<std::uint64_t>& children)
{
    std::sort(children.begin(), children.end());
    children.erase(std::unique(children.begin(), children.end()), children.end());
}

// Lists the entries of all blocks of an index, whatever their order.
bool read_index_blocks(ntfs_volume& volume, std::vector<extent>& extents, index_parsing parsing,
                       std::vector<std::uint64_t>& children)
{
    std::size_t enough = most_repeated;
    return visit_index_blocks(volume, extents, [&](std::uint64_t, uni::byte_view block, bool) {
        parse_node(block.from(index_block_header), parsing, children);
        if (children.size() > enough) {
            keep_each_once(children);
            enough = children.size() * 2 + most_repeated;
        }
    });
}

// Reads the record of a directory, or, for one that extends another, of that one.
bool read_directory_record(mft_entries_ctx& context, std::uint64_t& entry,
                           std::vector<std::uint8_t>& buffer)
{
    for (int followed = 0; read_file_record(context, entry, buffer) && !context.bad; ++followed) {
        const std::uint64_t base = entry_of(file_record(buffer).base_reference());
        if (file_record(buffer).base_reference() == 0 || base == entry) {
            return true;
        }
        if (followed != 0) {
            break;
        }
        entry = base;
    }
    return false;
}

// A node of the cache with the contents of a directory; null if it cannot be listed.
directory_node* listed_directory(mft_entries_ctx& context, std::uint64_t entry)
{
    const auto known = context.volume.directories.find(entry);
    if (known != context.volume.directories.end()) {
        trace_line(context,
                   known->second.names.empty() ? "info: get children names" : "info: cache lookup");
        return &known->second;
    }
    trace_line(context, "info: get children nodes");
    directory_node node;
    if (!enum_directory(context, entry, node.children, index_parsing::strict) ||
        node.children.empty()) {
        trace_line(context, "info: none found");
        return nullptr;
    }
    trace_line(context, "info: # children [%d]", static_cast<int>(node.children.size()));
    trace_line(context, "info: get children names");
    return &context.volume.directories.emplace(entry, std::move(node)).first->second;
}

// Which of equal names counts: one of a file that is there before that of a deleted one, then one
// in the directory before one that the child has elsewhere.
unsigned rank_of(const file_record& child, bool is_elsewhere)
{
    return (child.is_in_use() ? 0u : 2u) + (is_elsewhere ? 1u : 0u);
}

// Names of the children of a directory.
void collect_children_names(mft_entries_ctx& context, std::uint64_t directory, directory_node& node)
{
    std::vector<std::uint8_t> buffer;
    std::vector<file_name> names;
    node.names.reserve(node.children.size());
    for (const std::uint64_t child : node.children) {
        if (child == directory) {
            continue;
        }
        if (!read_file_record(context, child, buffer) || context.bad) {
            trace_line(context, "err: readFR: inode 0x%" PRIx64, child);
            continue;
        }
        if (!file_record(buffer).has_sound_sizes()) {
            trace_line(context, "err: paramsFR: inode 0x%" PRIx64, child);
        }
        names.clear();
        collect_file_names(context, child, file_record(buffer), names);
        if (names.empty()) {
            trace_line(context, "err: namelookup: inode 0x%" PRIx64, child);
        }
        for (file_name& found : names) {
            uni::lower_text(found.name);
            const named_child named{child, rank_of(file_record(buffer), found.parent != directory)};
            const auto [place, is_new] = node.names.try_emplace(std::move(found.name), named);
            if (!is_new && named.rank < place->second.rank) {
                place->second = named;
            }
        }
    }
}

// Cuts what names a device in front of a path on it.
std::string_view without_device(std::string_view path)
{
    constexpr std::string_view snapshot_id = "snapid_";
    constexpr std::size_t shortest_id_prefix = 47;
    std::size_t from = 0;
    if (path.starts_with("\\\\?\\")) {
        const std::string prefix = uni::snapshot_prefix(true);
        if (!uni::lowered(path).starts_with(prefix)) {
            return path;
        }
        from = prefix.size();
    } else if (path.starts_with("\\\\.\\") && path.substr(4).starts_with(snapshot_id)) {
        from = shortest_id_prefix;
    } else {
        return path;
    }
    const std::size_t rest = path.find('\\', from);
    return rest == std::string_view::npos ? std::string_view() : path.substr(rest);
}

// Finds a segment of a path in a directory.
bool find_segment(mft_entries_ctx& context, std::uint64_t directory, std::string_view segment,
                  std::uint64_t& inode)
{
    // What follows a colon is a stream.
    const std::string name = uni::lowered(uni::trimmed(segment.substr(0, segment.find(':'))));
    trace_line(context, "seg: %s", name.c_str());
    directory_node* const node = listed_directory(context, directory);
    if (node == nullptr) {
        return false;
    }
    if (node->names.empty()) {
        collect_children_names(context, directory, *node);
    }
    if (node->names.empty()) {
        trace_line(context, "err: no child names");
        return false;
    }
    const auto found = node->names.find(name);
    if (found == node->names.end()) {
        trace_line(context, "err: no child nodes");
        return false;
    }
    inode = found->second.entry;
    trace_line(context, "info: inode found for seg: %s : 0x%" PRIx64, name.c_str(), inode);
    return true;
}

std::string joined(const std::vector<std::string>& segments, bool is_rooted)
{
    std::string path;
    for (const std::string& segment : segments) {
        if (is_rooted || !path.empty()) {
            path += '\\';
        }
        path += segment;
    }
    return path;
}

} // namespace

bool enum_directory(mft_entries_ctx& context, std::uint64_t entry,
                    std::vector<std::uint64_t>& children, index_parsing parsing)
{
    children.clear();
    std::vector<std::uint8_t> buffer;
    if (!read_directory_record(context, entry, buffer)) {
        return false;
    }
    index_parts parts;
    const std::uint32_t types[] = {attribute_type::index_root, attribute_type::index_allocation};
    visit_attributes(
        context, entry, file_record(buffer), context.volume.record_alloc_size, types,
        [&](const attribute& found) { take_index_part(found, parsing, parts, children); });
    const bool has_blocks =
        parts.has_allocation && read_index_blocks(context.volume, parts.extents, parsing, children);
    keep_each_once(children);
    return parts.has_root || has_blocks;
}

void collect_file_names(mft_entries_ctx& context, std::uint64_t entry, const file_record& record,
                        std::vector<file_name>& names, const std::uint64_t* parent)
{
    constexpr std::uint64_t name_place = 66;
    const auto take = [&](const attribute& found) {
        const uni::byte_view value = found.value();
        const uni::byte_view stored = value.slice(name_place, value.u8(64) * std::uint64_t{2});
        const unsigned name_space = value.u8(65);
        const bool is_dos_alone = name_space != 0 && (name_space & 1) == 0;
        if (found.type() != attribute_type::file_name || is_dos_alone || stored.empty() ||
            stored.size() != value.u8(64) * std::uint64_t{2} ||
            (parent != nullptr && entry_of(value.u64(0)) != *parent)) {
            return;
        }
        file_name name{entry_of(value.u64(0)), {}};
        // A name with a zero in it is none; cut there it would be another file's.
        if (uni::utf16_to_text(stored, name.name) == stored.size() &&
            stored.u16(stored.size() - 2) != 0) {
            names.push_back(std::move(name));
        }
    };
    const std::uint32_t types[] = {attribute_type::file_name};
    visit_attributes(context, entry, record, longest_beside_names, types, take);
}

bool resolve_path_to_inode(mft_entries_ctx& context, std::string_view path, std::uint64_t& inode,
                           std::uint64_t& parent_inode, std::string& canonical_path)
{
    inode = 0;
    parent_inode = ~std::uint64_t{0};
    canonical_path.clear();
    if (path.empty()) {
        return false;
    }
    const std::string typed(path);
    path = without_device(path);
    trace_line(context, "anal: %s", std::string(path).c_str());
    const char separator = path.find('/') != std::string_view::npos ? '/' : '\\';
    const std::vector<std::string> segments = uni::split(path, separator, false);
    const bool is_rooted = path.starts_with(separator);
    if (is_rooted) {
        trace_line(context, "root dir");
    }
    if (segments.empty()) {
        trace_line(context, "path empty");
        if (is_rooted) {
            inode = root_entry;
            canonical_path.assign(1, '\\');
        }
        return is_rooted;
    }
    inode = parent_inode = root_entry;
    const bool has_drive = segments.front().size() > 1 && segments.front()[1] == ':';
    std::uint64_t directory = root_entry;
    for (std::size_t i = has_drive ? 1 : 0; i < segments.size(); ++i) {
        directory = parent_inode;
        if (!find_segment(context, parent_inode, segments[i], inode)) {
            trace_line(context, "inode not found for %s", typed.c_str());
            return false;
        }
        parent_inode = inode;
    }
    parent_inode = directory;
    canonical_path = joined(segments, is_rooted);
    return true;
}

bool resolve_file(mft_entries_ctx& context, std::string_view path, std::uint64_t& inode,
                  std::uint64_t& parent_inode)
{
    std::string canonical_path;
    return resolve_path_to_inode(context, path, inode, parent_inode, canonical_path);
}

} // namespace ntfs
