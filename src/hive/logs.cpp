#include "hive/logs.h"

#include <algorithm>
#include <bit>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

#include "hive/hive_image.h"

namespace hive {

namespace {

constexpr std::uint64_t block_size = 512; // of a base block that counts, and of a page
constexpr std::uint64_t bins_at = 4096;
constexpr std::uint64_t bin_unit = 4096;
constexpr std::uint32_t newest_type = 6;

namespace field {
constexpr std::uint64_t primary = 4;
constexpr std::uint64_t secondary = 8;
constexpr std::uint64_t written = 12;
constexpr std::uint64_t type = 28;
constexpr std::uint64_t bins_size = 40;
constexpr std::uint64_t flags = 144;
constexpr std::uint64_t checksum = 508;
} // namespace field

void put_u32(io::byte_vector& bytes, std::uint64_t place, std::uint32_t value)
{
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[static_cast<std::size_t>(place) + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

bool has_right_checksum(uni::byte_view base)
{
    std::uint32_t sum = 0;
    for (std::uint64_t place = 0; place < field::checksum; place += 4) {
        sum ^= base.u32(place);
    }
    sum = sum == 0 ? 1 : sum == 0xffffffff ? 0xfffffffe : sum;
    return base.contains(0, block_size) && base.u32(0) == hive_mark &&
           base.u32(field::checksum) == sum;
}

io::byte_vector read_at(io::byte_source& source, std::uint64_t offset, std::uint64_t count)
{
    const std::uint64_t left = source.size() - std::min(source.size(), offset);
    io::byte_vector bytes(static_cast<std::size_t>(std::min(count, left)));
    bytes.resize(source.read(bytes, offset));
    return bytes;
}

bool is_closed(uni::byte_view base)
{
    return has_right_checksum(base) && base.u32(field::primary) == base.u32(field::secondary);
}

// A hive with pages in the place of its own.
class changed_hive final : public io::byte_source {
public:
    changed_hive(std::unique_ptr<io::byte_source> hive, io::byte_vector base)
        : hive_(std::move(hive)), size_(hive_->size()), base_(std::move(base))
    {}

    std::uint64_t size() const noexcept override { return size_; }
    io::file_times times() const override { return hive_->times(); }
    bool has_failed() const noexcept override { return hive_->has_failed(); }
    bool has_changed() const override { return hive_->has_changed(); }
    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override;

    io::byte_vector& base() noexcept { return base_; }
    void put_page(std::uint64_t offset, uni::byte_view page);
    // Settles how far the hive goes, and which of its bins cannot be read.
    std::uint64_t finish();

private:
    // Of what is made of pages, the part that stands in one of them; of the hive, all up to the next.
    std::size_t read_stretch(std::span<std::uint8_t> out, std::uint64_t offset);
    void check_bins();

    std::unique_ptr<io::byte_source> hive_;
    std::uint64_t size_;
    io::byte_vector base_;                                 // the first bytes
    std::unordered_map<std::uint64_t, std::size_t> pages_; // by number, their places
    io::byte_vector bytes_;
    std::set<std::uint64_t> bad_units_; // of the bins
    std::uint64_t bad_bins_ = 0;
};

void changed_hive::put_page(std::uint64_t offset, uni::byte_view page)
{
    for (std::uint64_t at = 0; at < page.size(); at += block_size) {
        const auto [place, is_new] = pages_.try_emplace((offset + at) / block_size, bytes_.size());
        if (is_new) {
            bytes_.resize(bytes_.size() + block_size);
        }
        std::ranges::copy(page.slice(at, block_size).bytes(),
                          bytes_.begin() + static_cast<std::ptrdiff_t>(place->second));
    }
}

std::size_t changed_hive::read_stretch(std::span<std::uint8_t> out, std::uint64_t offset)
{
    const std::uint64_t inner = offset % block_size;
    if (offset < base_.size()) {
        const auto count = std::min(out.size(), base_.size() - static_cast<std::size_t>(offset));
        std::copy_n(base_.begin() + static_cast<std::ptrdiff_t>(offset), count, out.begin());
        return count;
    }
    if (offset >= bins_at && bad_units_.contains((offset - bins_at) / bin_unit)) {
        return 0;
    }
    if (const auto page = pages_.find(offset / block_size); page != pages_.end()) {
        const auto count =
            static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), block_size - inner));
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(page->second + inner), count,
                    out.begin());
        return count;
    }
    std::uint64_t end = offset - inner + block_size;
    while (end < offset + out.size() && !pages_.contains(end / block_size) &&
           (end < bins_at || !bad_units_.contains((end - bins_at) / bin_unit))) {
        end += block_size;
    }
    return hive_->read(
        out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), end - offset))),
        offset);
}

std::size_t changed_hive::read(std::span<std::uint8_t> out, std::uint64_t offset)
{
    const std::uint64_t left = size_ - std::min(size_, offset);
    out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), left)));
    std::size_t done = 0;
    while (done < out.size()) {
        const std::size_t got = read_stretch(out.subspan(done), offset + done);
        if (got == 0) {
            break;
        }
        done += got;
    }
    return done;
}

std::uint64_t changed_hive::finish()
{
    // It grows as far as there are pages without a gap.
    while (size_ % block_size == 0 && pages_.contains(size_ / block_size)) {
        size_ += block_size;
    }
    check_bins();
    return bad_bins_;
}

// Goes from bin to bin. Of what is none, the part up to the next one counts as one.
void changed_hive::check_bins()
{
    std::set<std::uint64_t> changed;
    for (const auto& [number, place] : pages_) {
        if (number * block_size >= bins_at) {
            changed.insert((number * block_size - bins_at) / bin_unit);
        }
    }
    const std::uint64_t bins_size = std::min<std::uint64_t>(
        uni::byte_view(base_).u32(field::bins_size), size_ - std::min(size_, bins_at));
    const auto size_of_bin = [&](std::uint64_t at) -> std::uint64_t {
        const io::byte_vector head = read_at(*this, bins_at + at, 12);
        const uni::byte_view bin(head);
        const std::uint64_t size = bin.u32(8);
        const bool is_bin = bin.u32(0) == bin_mark && bin.u32(4) == at && size != 0 &&
                            size % bin_unit == 0 && size <= bins_size - at;
        return is_bin ? size : 0;
    };
    std::vector<std::pair<std::uint64_t, std::uint64_t>> bad; // units
    for (std::uint64_t at = 0; at + bin_unit <= bins_size;) {
        if (const std::uint64_t size = size_of_bin(at)) {
            at += size;
            continue;
        }
        std::uint64_t end = at + bin_unit;
        while (end + bin_unit <= bins_size && size_of_bin(end) == 0) {
            end += bin_unit;
        }
        const auto first = changed.lower_bound(at / bin_unit);
        if (first != changed.end() && *first < end / bin_unit) {
            bad.emplace_back(at / bin_unit, end / bin_unit);
        }
        at = end;
    }
    for (const auto& [first, end] : bad) {
        for (std::uint64_t unit = first; unit < end; ++unit) {
            bad_units_.insert(unit);
        }
    }
    bad_bins_ = bad.size();
}

// A log that counts, with the copy of the base block with which it begins.
struct known_log {
    std::unique_ptr<io::byte_source> source;
    io::byte_vector base;

    uni::byte_view head() const { return uni::byte_view(base); }
    bool is_new() const { return head().u32(field::type) == newest_type; }
};

std::vector<known_log> logs_that_count(std::vector<std::unique_ptr<io::byte_source>> logs,
                                       bool& has_failed)
{
    std::vector<known_log> known;
    for (auto& source : logs) {
        known_log log{std::move(source), {}};
        if (log.source) {
            log.base = read_at(*log.source, 0, block_size);
            const std::uint32_t type = log.head().u32(field::type);
            const bool counts =
                has_right_checksum(log.head()) && (type == 1 || type == 2 || type == newest_type);
            if (counts) {
                known.push_back(std::move(log));
            } else {
                has_failed |= log.source->has_failed();
            }
        }
    }
    return known;
}

// Where an entry of a new log stands.
struct entry_place {
    const known_log* log = nullptr;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;

    io::byte_vector read() const { return read_at(*log->source, offset, size); }
};

// Whether an entry of a later number than those that were collected stands somewhere behind. (Those of earlier
// numbers are what is left of an older use of the log.)
bool has_later_entry(const known_log& log, std::uint64_t at, std::uint32_t wanted)
{
    constexpr std::uint64_t piece_size = 0x10000;
    for (; at < log.source->size(); at += piece_size) {
        const io::byte_vector bytes = read_at(*log.source, at, piece_size);
        const uni::byte_view piece(bytes);
        for (std::uint64_t place = 0; place + 16 <= piece.size(); place += block_size) {
            const std::uint32_t number = piece.u32(place + 12);
            if (piece.u32(place) == entry_mark && number > wanted) {
                return true;
            }
        }
    }
    return false;
}

// The entries of a log that follow each other from its own sequence number on, by number. False if later ones
// stand behind one that is damaged or missing.
bool collect_entries(const known_log& log, std::multimap<std::uint32_t, entry_place>& entries)
{
    constexpr std::uint64_t head_size = 40;
    std::uint32_t wanted = log.head().u32(field::primary);
    for (std::uint64_t at = block_size;; ++wanted) {
        const io::byte_vector bytes = read_at(*log.source, at, head_size);
        const uni::byte_view head(bytes);
        const std::uint64_t size = head.u32(4);
        if (head.size() < head_size || head.u32(0) != entry_mark || head.u32(12) != wanted) {
            return !has_later_entry(log, at, wanted);
        }
        entries.emplace(wanted, entry_place{&log, at, size});
        if (size < head_size || size % block_size != 0 || size > log.source->size() - at) {
            return true; // which ends the work when it is this one's turn
        }
        at += size;
    }
}

// Whether an entry is sound; gives its pages.
bool read_pages(uni::byte_view entry, std::vector<std::pair<std::uint64_t, uni::byte_view>>& pages)
{
    constexpr std::uint64_t references_at = 40;
    pages.clear();
    const std::uint64_t bins_size = entry.u32(16);
    const std::uint64_t count = entry.u32(20);
    if (entry.size() != entry.u32(4) || bins_size % bin_unit != 0 ||
        !entry.contains(references_at, count * 8) ||
        entry.u64(24) != log_hash(entry.from(references_at)) ||
        entry.u64(32) != log_hash(entry.slice(0, 32))) {
        return false;
    }
    std::uint64_t at = references_at + count * 8;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t offset = entry.u32(references_at + i * 8);
        const std::uint64_t size = entry.u32(references_at + i * 8 + 4);
        if (size == 0 || offset % block_size != 0 || size % block_size != 0 ||
            !entry.contains(at, size) || offset + size > bins_size) {
            return false;
        }
        pages.emplace_back(bins_at + offset, entry.slice(at, size));
        at += size;
    }
    return true;
}

// Takes the entries of new logs as far as they go.
void take_entries(const std::vector<known_log>& logs, std::uint32_t from, changed_hive& hive,
                  log_outcome& outcome)
{
    std::multimap<std::uint32_t, entry_place> entries;
    bool are_all = true;
    for (const known_log& log : logs) {
        if (log.is_new() && log.head().u32(field::primary) >= from) {
            are_all = collect_entries(log, entries) && are_all;
        }
    }
    std::vector<std::pair<std::uint64_t, uni::byte_view>> pages;
    std::uint64_t taken = 0; // of the entries that there are
    std::uint32_t wanted = entries.empty() ? 0 : entries.begin()->first;
    for (auto same = entries.equal_range(wanted); same.first != same.second;
         same = entries.equal_range(++wanted)) {
        const io::byte_vector bytes = same.first->second.read();
        const bool is_one = std::all_of(same.first, same.second, [&](const auto& each) {
            return each.second.size == bytes.size() && each.second.read() == bytes;
        });
        const uni::byte_view entry(bytes);
        if (!is_one || !read_pages(entry, pages)) {
            break;
        }
        for (const auto& [offset, page] : pages) {
            hive.put_page(offset, page);
            outcome.pages += page.size() / block_size;
        }
        put_u32(hive.base(), field::primary, wanted);
        put_u32(hive.base(), field::secondary, wanted);
        put_u32(hive.base(), field::bins_size, entry.u32(16));
        put_u32(hive.base(), field::flags,
                uni::byte_view(hive.base()).u32(field::flags) | (entry.u32(8) & 1));
        taken += static_cast<std::uint64_t>(std::distance(same.first, same.second));
        ++outcome.entries;
    }
    outcome.is_complete = are_all && taken == entries.size();
}

// Takes an old log; false, and nothing is taken, if it is not whole or none for this hive.
bool take_old_log(const known_log& log, std::uint64_t written, changed_hive& hive,
                  log_outcome& outcome)
{
    const std::uint64_t bins_size = log.head().u32(field::bins_size);
    const std::uint64_t bitmap_at = block_size + 4;
    const io::byte_vector bits = read_at(*log.source, block_size, 4 + bins_size / (8 * block_size));
    if (log.is_new() || log.head().u32(field::primary) != log.head().u32(field::secondary) ||
        log.head().u64(field::written) != written || bins_size % bin_unit != 0 ||
        uni::byte_view(bits).u32(0) != old_log_mark ||
        bits.size() != 4 + bins_size / (8 * block_size)) {
        return false;
    }
    const std::uint64_t bitmap_end = bitmap_at + bins_size / (8 * block_size);
    const std::uint64_t first = (bitmap_end + block_size - 1) / block_size * block_size;
    std::uint64_t count = 0;
    for (std::size_t i = 4; i < bits.size(); ++i) {
        count += static_cast<std::uint64_t>(std::popcount(bits[i]));
    }
    if (first > log.source->size() || count > (log.source->size() - first) / block_size) {
        return false;
    }
    std::uint64_t at = first;
    for (std::uint64_t page = 0; page < bins_size / block_size; ++page) {
        if (((bits[static_cast<std::size_t>(4 + page / 8)] >> (page % 8)) & 1) != 0) {
            hive.put_page(bins_at + page * block_size,
                          uni::byte_view(read_at(*log.source, at, block_size)));
            at += block_size;
        }
    }
    put_u32(hive.base(), field::bins_size, static_cast<std::uint32_t>(bins_size));
    outcome.pages = count;
    outcome.entries = 1;
    return true;
}

} // namespace

std::uint64_t log_hash(uni::byte_view data, std::uint64_t seed)
{
    auto a = static_cast<std::uint32_t>(seed);
    auto b = static_cast<std::uint32_t>(seed >> 32);
    const auto mix = [&](std::uint32_t word) {
        a += word;
        b ^= a;
        a = std::rotl(a, 20) + b;
        b = std::rotl(b, 9) ^ a;
        a = std::rotl(a, 27) + b;
        b = std::rotl(b, 19);
    };
    const std::uint64_t whole = data.size() / 4 * 4;
    for (std::uint64_t at = 0; at < whole; at += 4) {
        mix(data.u32(at));
    }
    mix(data.u32(whole) | std::uint32_t{0x80} << ((data.size() - whole) * 8));
    mix(0);
    return std::uint64_t{b} << 32 | a;
}

bool is_unclosed(io::byte_source& hive)
{
    const io::byte_vector base = read_at(hive, 0, block_size);
    return base.size() == block_size && !is_closed(uni::byte_view(base));
}

std::unique_ptr<io::byte_source> with_logs(std::unique_ptr<io::byte_source> hive,
                                           std::vector<std::unique_ptr<io::byte_source>> sources,
                                           log_outcome& outcome)
{
    outcome = {};
    io::byte_vector base = read_at(*hive, 0, block_size);
    std::vector<known_log> logs = logs_that_count(std::move(sources), outcome.has_failed);
    if (base.size() != block_size || logs.empty()) {
        return hive;
    }
    std::ranges::stable_sort(logs, {}, [](const known_log& log) {
        return std::pair(!log.is_new(), log.head().u32(field::primary));
    });
    std::uint32_t from = uni::byte_view(base).u32(field::secondary);
    if (!has_right_checksum(uni::byte_view(base))) {
        base = logs.front().base;
        put_u32(base, field::type, 0);
        from = logs.front().head().u32(field::primary);
    }
    const std::uint64_t written = uni::byte_view(base).u64(field::written);
    auto changed = std::make_unique<changed_hive>(std::move(hive), std::move(base));
    if (logs.front().is_new()) {
        take_entries(logs, from, *changed, outcome);
    } else {
        std::ranges::any_of(logs, [&](const known_log& log) {
            return take_old_log(log, written, *changed, outcome);
        });
    }
    outcome.bad_bins = changed->finish();
    outcome.has_failed |=
        std::ranges::any_of(logs, [](const known_log& log) { return log.source->has_failed(); });
    return changed;
}

} // namespace hive
