#include "files/mounted_volume.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "files/volume_words.h"
#include "ntfs/deleted_files.h"
#include "ntfs/directory.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace files {

namespace {

// Of the folders that are kept, but for the largest: so one of any size is not read again for each of
// its children.
constexpr std::size_t most_kept = 0x2000000; // bytes
constexpr std::uint64_t first_user_entry = 16;

// A stretch of an image as bytes of their own.
class part_of_image : public io::byte_source {
public:
    part_of_image(std::shared_ptr<image_bytes> bytes, std::uint64_t start, std::uint64_t size)
        : bytes_(std::move(bytes)), start_(start), size_(size)
    {}

    std::uint64_t size() const noexcept override { return size_; }
    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        const std::uint64_t left = size_ - std::min(size_, offset);
        out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), left)));
        return bytes_->source->read(out, start_ + offset);
    }

private:
    const std::shared_ptr<image_bytes> bytes_;
    const std::uint64_t start_;
    const std::uint64_t size_;
};

constexpr const char* lies_elsewhere = "its record tells that it lies elsewhere";

// Whether the record of a file knows the name and the folder under which it was found.
bool is_told_by(const ntfs::stored_file& file, const place_on_volume& place)
{
    if (place.in != place_on_volume::area::living || place.names.empty()) {
        return true;
    }
    std::string_view name = place.names.back();
    name.remove_prefix(name.starts_with("./") ? 2 : 0);
    return std::ranges::any_of(file.names, [&](const ntfs::stored_name& each) {
        return ntfs::entry_of(each.parent) == ntfs::entry_of(place.parent) && each.name == name;
    });
}

std::string text_of(std::u16string_view name)
{
    return uni::utf8_from_utf16(name);
}

io::file_times usual_times(const ntfs::stored_times& times)
{
    return {times.write, times.access, times.creation};
}

io::file_history history_of(ntfs::ntfs_volume& volume, const ntfs::stored_file& file,
                            const ntfs::record_row& stream)
{
    io::file_history history;
    history.times = usual_times(file.times);
    history.record_change = file.times.record_change;
    for (const ntfs::stored_name& name : file.names) {
        history.names.push_back({name.name, usual_times(name.times), name.times.record_change});
    }
    constexpr std::uint32_t hidden = 2;
    constexpr std::uint32_t system = 4;
    history.is_hidden = (file.attributes & hidden) != 0;
    history.is_system = (file.attributes & system) != 0;
    history.reparse_kind = file.reparse_kind;
    history.stream = stream.name;
    for (const ntfs::record_row& other : file.streams) {
        if (other.is_named && other.name != stream.name) {
            history.other_streams.push_back(other.name);
        }
    }
    history.is_deleted = !file.is_in_use;
    if (history.is_deleted) {
        const ntfs::cluster_counts counts = ntfs::count_clusters(volume, stream);
        history.clusters = counts.all;
        history.free_clusters = counts.free;
    }
    history.is_damaged = !file.is_whole;
    return history;
}

// Ascending, where there are short names among them.
std::vector<std::uint64_t> references_of_long_names(const ntfs::folder& children)
{
    std::vector<std::uint64_t> found;
    bool has_short = false;
    for (std::size_t i = 0; i < children.size(); ++i) {
        const ntfs::folder::child child = children.at(i);
        has_short = has_short || child.is_short_name;
        if (!child.is_short_name) {
            found.push_back(child.reference);
        }
    }
    if (has_short) {
        std::ranges::sort(found);
    } else {
        found.clear();
    }
    return found;
}

// What a child is. That it is a link, which would not be entered, is asked of its record.
platform::entry_kind kind_of(ntfs::ntfs_volume& volume, const ntfs::folder::child& child)
{
    using enum platform::entry_kind;
    ntfs::mft_entries_ctx context(volume);
    ntfs::stored_file itself;
    const bool is_link =
        child.is_link() &&
        (ntfs::read_stored_file(context, child.reference, itself) != ntfs::record_state::read ||
         ntfs::stands_for_another(itself.reparse_kind));
    return child.is_directory() ? (is_link ? directory_link : directory)
           : is_link            ? file_link
                                : file;
}

// The name of the folder of one that was deleted, and what such a name tells.
std::string record_name(std::uint64_t reference)
{
    return std::to_string(ntfs::entry_of(reference)) + '-' +
           std::to_string(ntfs::sequence_of(reference));
}

std::optional<std::uint64_t> read_record_name(std::string_view name)
{
    std::uint64_t entry = 0;
    std::uint16_t sequence = 0;
    const char* const end = name.data() + name.size();
    const auto first = std::from_chars(name.data(), end, entry);
    if (first.ec != std::errc{} || first.ptr == end || *first.ptr != '-') {
        return std::nullopt;
    }
    const auto second = std::from_chars(first.ptr + 1, end, sequence);
    const std::uint64_t reference = entry | std::uint64_t{sequence} << 48;
    return second.ec == std::errc{} && second.ptr == end && record_name(reference) == name
               ? std::optional(reference)
               : std::nullopt;
}

// What stands in the root under the name of the folder of those that were deleted is told apart from it.
std::string name_in_root(const std::string& name)
{
    return uni::equal_ignoring_case(name, deleted_folder) ? "./" + name : name;
}

} // namespace

// One stream of a file on a volume.
class volume_file : public io::byte_source {
public:
    volume_file(std::shared_ptr<mounted_volume> volume, ntfs::record_row stream,
                const ntfs::stored_times& times, io::file_history history)
        : volume_(std::move(volume)), stream_(std::move(stream)), times_(usual_times(times)),
          history_(std::move(history))
    {}

    std::uint64_t size() const noexcept override { return ntfs::stream_size(stream_); }
    io::file_times times() const override { return times_; }
    const io::file_history* history() const noexcept override { return &history_; }
    bool has_failed() const noexcept override { return has_failed_; }
    bool has_changed() const override { return volume_->bytes_->source->has_changed(); }

    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        const std::uint64_t left = size() - std::min(size(), offset);
        out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), left)));
        const std::scoped_lock lock(volume_->bytes_->mutex);
        const auto got = static_cast<std::size_t>(
            ntfs::read_stream(*volume_->volume_, stream_, offset, out, last_));
        has_failed_ |= got < out.size();
        return got;
    }

private:
    const std::shared_ptr<mounted_volume> volume_;
    const ntfs::record_row stream_;
    const io::file_times times_;
    const io::file_history history_;
    ntfs::expanded_unit last_;
    bool has_failed_ = false;
};

std::shared_ptr<mounted_volume> mounted_volume::mount(std::shared_ptr<image_bytes> bytes,
                                                      std::uint64_t start, std::uint64_t size,
                                                      std::string& reason)
{
    const std::scoped_lock lock(bytes->mutex);
    const std::uint64_t whole = bytes->source->size();
    start = std::min(start, whole);
    size = std::min(size, whole - start);
    ntfs::volume_state state = ntfs::volume_state::closed;
    auto volume =
        ntfs::open_ntfs_volume(std::make_unique<part_of_image>(bytes, start, size), &state);
    if (volume) {
        return std::shared_ptr<mounted_volume>(
            new mounted_volume(std::move(bytes), std::move(volume)));
    }
    part_of_image part(bytes, start, size);
    reason = size == 0 && start != 0                   ? beyond_image
             : state == ntfs::volume_state::no_records ? damaged
                                                       : words_of_contents(part);
    return nullptr;
}

bool mounted_volume::find(std::string_view path, place_on_volume& place, std::string& reason)
{
    const std::scoped_lock lock(bytes_->mutex);
    return find_parted(path, "/", place, reason) ||
           (reason == no_such_file && path.find('\\') != std::string_view::npos &&
            find_parted(path, "/\\", place, reason));
}

bool mounted_volume::find_parted(std::string_view path, std::string_view separators,
                                 place_on_volume& place, std::string& reason)
{
    const bool names_living =
        path == "." || (path.starts_with('.') && separators.find(path[1]) != path.npos);
    std::vector<std::string_view> names;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find_first_of(separators), path.size());
        if (end != 0 && path.substr(0, end) != ".") {
            names.push_back(path.substr(0, end));
        }
        path.remove_prefix(std::min(path.find_first_not_of(separators, end), path.size()));
    }
    if (!names_living && find_deleted(names, place, reason)) {
        return true;
    }
    place = {};
    reason.clear();
    std::vector<step> steps = {{ntfs::root_entry, {}}};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i] == ".." && steps.size() > 1) {
            steps.pop_back();
        } else if (!enter(steps, names[i], i + 1 == names.size(), place, reason)) {
            return false;
        }
    }
    place.reference = steps.back().reference;
    place.parent = steps.size() > 1 ? steps[steps.size() - 2].reference : 0;
    for (std::size_t i = 1; i < steps.size(); ++i) {
        place.names.push_back(i == 1 ? name_in_root(steps[i].name) : std::move(steps[i].name));
    }
    return true;
}

// Finds what lies in the folder of those that were deleted; true for that folder itself.
bool mounted_volume::find_deleted(const std::vector<std::string_view>& names,
                                  place_on_volume& place, std::string& reason)
{
    using enum place_on_volume::area;
    place = {};
    reason = no_such_file;
    if (names.empty() || names.size() > 3 ||
        !uni::equal_ignoring_case(names.front(), deleted_folder)) {
        return false;
    }
    place.in = all_deleted;
    place.names = {std::string(deleted_folder)};
    if (names.size() == 1) {
        return true;
    }
    const auto reference = read_record_name(names[1]);
    ntfs::mft_entries_ctx context(*volume_);
    ntfs::stored_file file;
    if (!reference ||
        ntfs::read_stored_file(context, *reference, file) != ntfs::record_state::read ||
        file.is_in_use || file.sequence != ntfs::sequence_of(*reference)) {
        return false;
    }
    place.in = one_record;
    place.reference = *reference;
    place.names.emplace_back(names[1]);
    if (names.size() == 2) {
        return true;
    }
    for (const std::string_view name : {names[2], names[2].substr(0, names[2].find(':', 1))}) {
        const auto own = std::ranges::find_if(file.names, [&](const ntfs::stored_name& each) {
            return uni::equal_ignoring_case(each.name, name);
        });
        if (own != file.names.end()) {
            place.in = deleted_file;
            place.names.push_back(own->name);
            place.stream = names[2].substr(std::min(name.size() + 1, names[2].size()));
            return true;
        }
    }
    return false;
}

// Each record is a folder, which holds the file by its long name.
void mounted_volume::list_deleted(const place_on_volume& place,
                                  std::vector<platform::directory_entry>& entries)
{
    using enum place_on_volume::area;
    if (place.in == all_deleted) {
        if (!deleted_) {
            deleted_.emplace();
            ntfs::visit_deleted_files(*volume_, [this](const ntfs::stored_file& file) {
                deleted_->push_back(file.entry | std::uint64_t{file.sequence} << 48);
            });
        }
        for (const std::uint64_t reference : *deleted_) {
            entries.push_back({record_name(reference), platform::entry_kind::directory});
        }
    } else if (place.in == one_record) {
        ntfs::mft_entries_ctx context(*volume_);
        ntfs::stored_file file;
        ntfs::read_stored_file(context, place.reference, file);
        const auto own = std::ranges::find_if(
            file.names, [](const ntfs::stored_name& name) { return !name.is_short_name(); });
        if (own != file.names.end()) {
            entries.push_back({own->name, platform::entry_kind::file});
        } else if (!file.names.empty()) {
            entries.push_back({file.names.front().name, platform::entry_kind::file});
        }
    }
}

// Goes from a folder to one of its children. What stands behind a colon is a stream, where no name has
// the colon.
bool mounted_volume::enter(std::vector<step>& steps, std::string_view name, bool is_last,
                           place_on_volume& place, std::string& reason)
{
    ntfs::folder::child found = look_up(steps, name, reason);
    const std::size_t colon = name.find(':', 1);
    if (found.name.empty() && is_last && colon != std::string_view::npos) {
        constexpr std::string_view type = ":$DATA";
        place.stream = name.substr(colon + 1);
        if (place.stream.ends_with(type)) {
            place.stream.resize(place.stream.size() - type.size());
        }
        found = look_up(steps, name.substr(0, colon), reason);
    }
    if (found.name.empty()) {
        return false;
    }
    steps.push_back({found.reference, text_of(found.name)});
    if (!is_last && found.is_link()) {
        reason = "a folder above it is a link, not followed";
        return false;
    }
    return true;
}

ntfs::folder::child mounted_volume::look_up(const std::vector<step>& steps, std::string_view name,
                                            std::string& reason)
{
    known_folder* const folder = folder_at(steps, reason);
    if (folder == nullptr) {
        return {};
    }
    const std::u16string units = uni::utf16_from_utf8(name);
    const ntfs::folder::child found =
        units.empty() ? ntfs::folder::child{} : folder->children.find(units, letters_);
    if (found.name.empty()) {
        reason = folder->state == ntfs::folder::state::whole
                     ? no_such_file
                     : "no such file in what can be read of a damaged folder";
    }
    return found;
}

// The folder that a walk has come to. Its record must tell that it lies where it was found, and each has
// one place alone: so folders form a tree, whatever their indexes say.
mounted_volume::known_folder* mounted_volume::folder_at(const std::vector<step>& steps,
                                                        std::string& reason)
{
    const step& here = steps.back();
    known_folder* const folder = read_folder(here.reference, reason);
    if (folder == nullptr || steps.size() == 1) {
        return folder;
    }
    const std::uint64_t parent = ntfs::entry_of(steps[steps.size() - 2].reference);
    const auto own = std::ranges::find_if(
        folder->own_names, [](const ntfs::stored_name& name) { return !name.is_short_name(); });
    const bool is_here =
        own != folder->own_names.end() && ntfs::entry_of(own->parent) == parent &&
        std::ranges::any_of(folder->own_names, [&](const ntfs::stored_name& name) {
            return (name.is_short_name() || &name == &*own) && name.name == here.name;
        });
    if (!is_here) {
        reason = lies_elsewhere;
        return nullptr;
    }
    return folder;
}

mounted_volume::known_folder* mounted_volume::read_folder(std::uint64_t reference,
                                                          std::string& reason)
{
    const std::uint64_t entry = ntfs::entry_of(reference);
    if (const auto known = by_entry_.find(entry); known != by_entry_.end()) {
        folders_.splice(folders_.begin(), folders_, known->second);
        return &folders_.front();
    }
    ntfs::mft_entries_ctx context(*volume_);
    ntfs::stored_file file;
    const ntfs::record_state state = ntfs::read_stored_file(context, reference, file);
    if (state != ntfs::record_state::read) {
        reason = words_of(state);
        return nullptr;
    }
    if (!file.is_directory) {
        reason = no_such_file;
        return nullptr;
    }
    known_folder folder{entry, std::move(file.names), {}, {}};
    folder.state = folder.children.read(context, entry);
    if (folder.state == ntfs::folder::state::unreadable) {
        reason = "its index is damaged";
        return nullptr;
    }
    return keep(std::move(folder));
}

mounted_volume::known_folder* mounted_volume::keep(known_folder folder)
{
    const std::size_t cost = folder.cost();
    if (cost > largest_) {
        largest_ = cost;
        largest_entry_ = folder.entry;
    }
    kept_ += cost;
    folders_.push_front(std::move(folder));
    by_entry_[folders_.front().entry] = folders_.begin();
    while (kept_ - largest_ > most_kept && folders_.size() > 2) {
        const auto last = std::prev(folders_.end());
        if (last->entry == largest_entry_) {
            folders_.splice(std::next(folders_.begin()), folders_, last);
            continue;
        }
        kept_ -= last->cost();
        by_entry_.erase(last->entry);
        folders_.erase(last);
    }
    return &folders_.front();
}

std::unique_ptr<io::byte_source> mounted_volume::open(const place_on_volume& place,
                                                      std::string& reason)
{
    const std::scoped_lock lock(bytes_->mutex);
    ntfs::mft_entries_ctx context(*volume_);
    ntfs::stored_file file;
    const ntfs::record_state state = ntfs::read_stored_file(context, place.reference, file);
    if (state != ntfs::record_state::read) {
        reason = words_of(state);
        return nullptr;
    }
    if (file.is_in_use == (place.in == place_on_volume::area::deleted_file)) {
        reason = file.is_in_use ? no_such_file : "its record is free, as that of a deleted file";
        return nullptr;
    }
    if (!is_told_by(file, place)) {
        reason = lies_elsewhere;
        return nullptr;
    }
    const ntfs::record_row* const stream = file.stream(place.stream);
    if (stream == nullptr) {
        // Each file has a content, be it empty.
        const bool is_damaged = !file.is_whole || (place.stream.empty() && !file.is_directory);
        reason = is_damaged              ? words_of(ntfs::record_state::unreadable)
                 : !place.stream.empty() ? "no such stream"
                                         : "is a folder";
        return nullptr;
    }
    reason = words_of(file, *stream);
    if (!reason.empty()) {
        return nullptr;
    }
    return std::make_unique<volume_file>(shared_from_this(), *stream, file.times,
                                         history_of(*volume_, file, *stream));
}

bool mounted_volume::read_facts(const place_on_volume& place, platform::file_facts& facts)
{
    const std::scoped_lock lock(bytes_->mutex);
    facts = {};
    using enum place_on_volume::area;
    if (place.in == all_deleted || place.in == one_record) {
        facts.is_directory = true;
        return true;
    }
    ntfs::mft_entries_ctx context(*volume_);
    ntfs::stored_file file;
    if (ntfs::read_stored_file(context, place.reference, file) != ntfs::record_state::read ||
        !is_told_by(file, place)) {
        return false;
    }
    const ntfs::record_row* const stream = file.stream(place.stream);
    if (stream == nullptr ? !place.stream.empty() || !file.is_directory : !stream->has_start) {
        return false;
    }
    facts.write_time = file.times.write;
    facts.access_time = file.times.access;
    facts.creation_time = file.times.creation;
    facts.size = stream != nullptr ? ntfs::stream_size(*stream) : 0;
    facts.is_directory = file.is_directory && stream == nullptr;
    return true;
}

bool mounted_volume::list_streams(const place_on_volume& place, std::vector<std::string>& names)
{
    const std::scoped_lock lock(bytes_->mutex);
    ntfs::mft_entries_ctx context(*volume_);
    ntfs::stored_file file;
    bool are_all =
        ntfs::read_stored_file(context, place.reference, file) == ntfs::record_state::read &&
        file.is_whole && is_told_by(file, place);
    for (const ntfs::record_row& stream : file.streams) {
        if (!stream.is_named) {
            continue;
        }
        const bool can_be_named = !stream.name.empty() && file.stream(stream.name) == &stream &&
                                  stream.name.find('/') == std::string::npos;
        are_all = are_all && can_be_named;
        if (can_be_named) {
            names.push_back(stream.name);
        }
    }
    return are_all;
}

platform::listing_result mounted_volume::list(const place_on_volume& place,
                                              std::vector<platform::directory_entry>& entries)
{
    const std::scoped_lock lock(bytes_->mutex);
    entries.clear();
    if (place.in != place_on_volume::area::living) {
        list_deleted(place, entries);
        return {true, false, {}};
    }
    std::vector<step> steps = {{ntfs::root_entry, {}}};
    std::string reason;
    for (std::string_view name : place.names) {
        name.remove_prefix(name.starts_with("./") ? 2 : 0);
        const ntfs::folder::child found = look_up(steps, name, reason);
        if (found.name.empty()) {
            return {false, false, reason};
        }
        steps.push_back({found.reference, text_of(found.name)});
    }
    known_folder* const folder = folder_at(steps, reason);
    if (folder == nullptr) {
        return {false, false, reason == no_such_file ? "is no folder" : reason};
    }
    entries.reserve(folder->children.size());
    const std::vector<std::uint64_t> with_long_name = references_of_long_names(folder->children);
    for (std::size_t i = 0; i < folder->children.size(); ++i) {
        const ntfs::folder::child child = folder->children.at(i);
        // The file system's own files are not shown, as systems do not show them, nor is a short name of one
        // that has another.
        if (ntfs::entry_of(child.reference) < first_user_entry ||
            (child.is_short_name && std::ranges::binary_search(with_long_name, child.reference))) {
            continue;
        }
        std::string name = text_of(child.name);
        entries.push_back(
            {steps.size() == 1 ? name_in_root(name) : std::move(name), kind_of(*volume_, child)});
    }
    return folder->state == ntfs::folder::state::whole
               ? platform::listing_result{true, false, {}}
               : platform::listing_result{false, false, "its index is damaged"};
}

} // namespace files
