#include "files/part_files.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "files/ewf.h"
#include "platform/files.h"
#include "uni/text.h"

namespace files {

namespace {

constexpr std::size_t most_open = 32;
constexpr unsigned most_parts = 10'000;

// Raw parts one behind the other.
class joined_parts final : public io::byte_source {
public:
    explicit joined_parts(part_files parts) : parts_(std::move(parts))
    {
        for (std::size_t i = 0; i < parts_.count(); ++i) {
            starts_.push_back(size_);
            size_ += parts_.size(i);
        }
    }

    std::uint64_t size() const noexcept override { return size_; }
    bool has_failed() const noexcept override { return has_failed_; }
    bool has_changed() const override { return parts_.has_changed(); }

    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        const std::uint64_t left = size_ - std::min(size_, offset);
        out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), left)));
        std::size_t done = 0;
        while (done < out.size()) {
            const std::uint64_t at = offset + done;
            const auto behind = std::ranges::upper_bound(starts_, at);
            const auto part = static_cast<std::size_t>(behind - starts_.begin() - 1);
            const std::uint64_t inner = at - starts_[part];
            const auto wanted = static_cast<std::size_t>(
                std::min<std::uint64_t>(out.size() - done, parts_.size(part) - inner));
            const std::size_t got = parts_.read(part, out.subspan(done, wanted), inner);
            done += got;
            if (got != wanted) {
                has_failed_ = true;
                break;
            }
        }
        return done;
    }

private:
    part_files parts_;
    std::vector<std::uint64_t> starts_;
    std::uint64_t size_ = 0;
    bool has_failed_ = false;
};

bool is_there(const std::string& path)
{
    platform::file_facts facts;
    return platform::read_file_facts(path, facts) && !facts.is_directory;
}

// The ending of the part with a number, from 1: 001 to 999, then 1000 and on.
std::string raw_ending(unsigned number)
{
    std::string digits = std::to_string(number);
    return std::string(digits.size() < 3 ? 3 - digits.size() : 0, '0') + digits;
}

// The same of an E01: E01 to E99, then EAA to EZZ, FAA and so on.
std::string ewf_ending(unsigned number, bool is_large)
{
    constexpr unsigned letters = 26;
    constexpr unsigned last_number = 99;
    std::string ending;
    if (number <= last_number) {
        ending = {'E', static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10)};
    } else {
        const unsigned place = number - last_number - 1;
        ending = {static_cast<char>('E' + place / (letters * letters)),
                  static_cast<char>('A' + place / letters % letters),
                  static_cast<char>('A' + place % letters)};
    }
    return is_large ? ending : uni::lowered(ending);
}

// Adds those that follow the first one. False, with the reason, if one does not open or is missing
// between others.
template <typename make_ending>
bool add_parts(part_files& parts, const std::string& path, const make_ending& ending_of,
               std::string& reason)
{
    const std::string stem = path.substr(0, path.size() - 3);
    unsigned number = 1;
    do {
        if (!parts.add(stem + ending_of(number), reason)) {
            return false;
        }
        ++number;
    } while (number < most_parts && is_there(stem + ending_of(number)));
    constexpr unsigned most_missing = 50;
    for (unsigned behind = number + 1; behind <= number + most_missing; ++behind) {
        if (is_there(stem + ending_of(behind))) {
            reason = "is an image in parts, of which " + stem + ending_of(number) + " is missing";
            return false;
        }
    }
    return true;
}

bool is_ewf(io::byte_source& source)
{
    constexpr auto mark = std::to_array<std::uint8_t>({'E', 'V', 'F', 9, 13, 10, 0xff, 0});
    std::array<std::uint8_t, mark.size()> head{};
    return source.read(head, 0) == head.size() && head == mark;
}

} // namespace

bool part_files::add(const std::string& path, std::string& reason)
{
    auto source = io::open_source(path, reason);
    if (!source) {
        reason = path + ": " + reason;
        return false;
    }
    paths_.push_back(path);
    parts_.push_back({source->size(), source->times()});
    keep(parts_.size() - 1, std::move(source));
    return true;
}

void part_files::keep(std::size_t number, std::unique_ptr<io::byte_source> source)
{
    open_.push_front({number, std::move(source)});
    if (open_.size() > most_open) {
        open_.pop_back();
    }
}

io::byte_source* part_files::source_of(std::size_t number)
{
    const auto known = std::ranges::find(open_, number, &open_part::number);
    if (known != open_.end()) {
        open_.splice(open_.begin(), open_, known);
        return open_.front().source.get();
    }
    auto source = io::open_source(paths_[number]);
    if (!source) {
        return nullptr;
    }
    is_another_ |= source->size() != parts_[number].size ||
                   source->times().write != parts_[number].times.write;
    keep(number, std::move(source));
    return open_.front().source.get();
}

std::size_t part_files::read(std::size_t number, std::span<std::uint8_t> out, std::uint64_t offset)
{
    io::byte_source* const source = source_of(number);
    return source != nullptr ? source->read(out, offset) : 0;
}

bool part_files::has_changed() const
{
    return is_another_ || std::ranges::any_of(open_, [](const open_part& each) {
               return each.source->has_changed();
           });
}

image_source open_image(const std::string& path)
{
    image_source found;
    found.paths = {path};
    auto first = io::open_source(path, found.reason);
    if (!first) {
        return found;
    }
    part_files parts;
    const bool is_e01 = is_ewf(*first);
    const std::string ending = path.size() > 4 ? path.substr(path.size() - 4) : "";
    if (is_e01 && uni::equal_ignoring_case(ending, ".e01")) {
        const bool is_large = ending[1] == 'E';
        const auto ending_of = [is_large](unsigned number) { return ewf_ending(number, is_large); };
        if (add_parts(parts, path, ending_of, found.reason)) {
            found.paths = parts.paths();
            found.bytes = open_ewf(std::move(parts), found.reason);
        }
    } else if (is_e01) {
        found.reason = "is a part of an E01 image, which the path is to name by its first file";
    } else if (ending == ".001" && is_there(path.substr(0, path.size() - 3) + raw_ending(2))) {
        if (add_parts(parts, path, raw_ending, found.reason)) {
            found.paths = parts.paths();
            found.bytes = std::make_unique<joined_parts>(std::move(parts));
        }
    } else {
        found.bytes = std::move(first);
    }
    return found;
}

} // namespace files
