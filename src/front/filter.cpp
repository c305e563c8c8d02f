#include "front/filter.h"

#include <algorithm>
#include <memory>
#include <optional>

#include "io/byte_source.h"
#include "platform/files.h"
#include "uni/numbers.h"
#include "uni/paths.h"
#include "uni/text.h"
#include "uni/utf.h"

namespace front {

namespace {

std::vector<std::string> split_items(std::string_view text)
{
    std::vector<std::string> items;
    for (const char separator : {'|', ','}) {
        if (text.find(separator) != std::string_view::npos) {
            items = uni::split(text, separator, true);
            break;
        }
    }
    if (items.empty()) {
        items.emplace_back(text);
    }
    return items;
}

// Takes every star out of a pattern and tells whether it began or ended with one.
void take_stars(std::u16string& pattern, bool& at_front, bool& at_back)
{
    at_front = pattern.starts_with(u'*');
    at_back = pattern.ends_with(u'*');
    std::erase(pattern, u'*');
}

request::filter_entry make_entry(std::string_view item)
{
    request::filter_entry entry;
    entry.text = entry.pattern = uni::utf16_from_utf8(item);
    // What stands behind a colon would be a stream, which is not looked at.
    if (const std::size_t colon = entry.pattern.find(u':'); colon != std::u16string::npos) {
        entry.pattern.resize(colon);
        entry.match_all = entry.pattern == u"*";
    }
    if (!entry.match_all) {
        take_stars(entry.pattern, entry.star_front, entry.star_back);
        entry.is_path = entry.pattern.starts_with(u'\\');
    }
    return entry;
}

// A piece of a path as patterns are written. What is no UTF-8 is compared byte by byte, so that
// plain patterns find it all the same.
std::u16string comparable(std::string text)
{
    uni::lower_text(text);
    std::u16string units = uni::utf16_from_utf8(text);
    if (units.empty()) {
        for (const char byte : text) {
            units.push_back(static_cast<unsigned char>(byte));
        }
    }
    return units;
}

// A file whose write time is not to be had is for whoever opens it to tell of.
bool lies_in_window(const request::cmd_params& params, files::file_tree& tree,
                    const std::string& path)
{
    const auto& start = params.time_window_start;
    const auto& stop = params.time_window_stop;
    platform::file_facts facts;
    return (!start && !stop) || !tree.read_facts(path, facts) ||
           (facts.write_time >= start.value_or(0) && facts.write_time <= stop.value_or(UINT64_MAX));
}

// One path as the entries look at it.
class filtered_path {
public:
    filtered_path(files::file_tree& tree, const std::string& path) : tree_(tree), path_(path)
    {
        std::string name;
        uni::split_path(path, directory_, name);
        name_ = comparable(std::move(name));
    }

    bool is_accepted_by(const request::filter_entry& entry, bool& open_failed)
    {
        return (entry.is_path && is_below(entry.pattern)) || entry.match_all ||
               is_named_like(entry) ||
               (!entry.signature.empty() && holds_signature(entry, open_failed));
    }

private:
    // Whether the folder's path holds the pattern and the match ends at a boundary of folders: the
    // folder's own end, or a separator, which may be the pattern's last character. Only the first
    // place where the pattern stands counts.
    bool is_below(const std::u16string& pattern)
    {
        if (!folded_directory_) {
            folded_directory_ = comparable(directory_);
            std::replace(folded_directory_->begin(), folded_directory_->end(), u'/', u'\\');
            folded_directory_->push_back(u'\\');
        }
        const std::size_t at = folded_directory_->find(pattern);
        const std::size_t behind = at + pattern.size();
        return at != std::u16string::npos &&
               (pattern.ends_with(u'\\') || (*folded_directory_)[behind] == u'\\');
    }

    bool is_named_like(const request::filter_entry& entry) const
    {
        if (entry.star_front && entry.star_back) {
            return name_.find(entry.pattern) != std::u16string::npos;
        }
        if (entry.star_front) {
            return name_.ends_with(entry.pattern);
        }
        if (entry.star_back) {
            return name_.starts_with(entry.pattern);
        }
        return !entry.pattern.empty() && name_ == entry.pattern;
    }

    bool holds_signature(const request::filter_entry& entry, bool& open_failed)
    {
        if (!file_) {
            file_ = tree_.open(path_);
        }
        if (!file_) {
            open_failed = true;
            return false;
        }
        // A read that reaches the file's end gives fewer bytes.
        io::byte_vector bytes(entry.signature.size());
        if (entry.signature_offset >= file_->size()) {
            return false;
        }
        bytes.resize(file_->read(bytes, entry.signature_offset));
        open_failed |= file_->has_failed();
        return std::ranges::equal(bytes, entry.signature);
    }

    files::file_tree& tree_;
    const std::string& path_;
    std::string directory_;
    std::optional<std::u16string> folded_directory_; // made when first needed
    std::u16string name_;
    std::unique_ptr<io::byte_source> file_; // opened when first needed
};

} // namespace

bool parse_filter(std::vector<request::filter_entry>& entries, std::string_view text)
{
    entries.clear();
    for (const std::string& item : split_items(uni::lowered(text))) {
        if (item == "*") {
            request::filter_entry everything;
            everything.text = u"*";
            everything.match_all = true;
            entries.assign(1, everything);
            break;
        }
        entries.push_back(make_entry(item));
    }
    return !entries.empty();
}

std::optional<request::filter_entry> parse_signature_filter(std::string_view text)
{
    std::size_t separator = text.find('|');
    if (separator == std::string_view::npos) {
        separator = text.find(',');
    }
    constexpr std::string_view hex_digits = "0123456789abcdefABCDEF";
    request::filter_entry entry;
    for (const std::string& byte : uni::split(text.substr(0, separator), ' ', true)) {
        const auto value = uni::read_u32_auto("0x" + byte);
        if (!value || *value > 0xff || byte.find_first_not_of(hex_digits) != std::string::npos) {
            return std::nullopt;
        }
        entry.signature.push_back(static_cast<std::uint8_t>(*value));
    }
    if (separator != std::string_view::npos) {
        const std::string_view offset = uni::trimmed(text.substr(separator + 1));
        const auto value = uni::read_u64_auto(offset);
        if (!value || offset.empty() || offset.front() < '0' || offset.front() > '9') {
            return std::nullopt;
        }
        entry.signature_offset = *value;
    }
    return entry.signature.empty() ? std::nullopt : std::optional(entry);
}

bool filter_accepts(const request::cmd_params& params, files::file_tree& tree, bool& open_failed,
                    const std::string& path, const std::vector<request::filter_entry>& entries)
{
    open_failed = false;
    if (path.empty() || !lies_in_window(params, tree, path)) {
        return false;
    }
    if (entries.empty() || (entries.size() == 1 && entries.front().match_all)) {
        return true;
    }
    filtered_path candidate(tree, path);
    return std::any_of(entries.begin(), entries.end(), [&](const request::filter_entry& entry) {
        return candidate.is_accepted_by(entry, open_failed);
    });
}

} // namespace front
