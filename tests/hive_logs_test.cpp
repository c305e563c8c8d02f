// A hive that was not closed, and what its logs make of it.

#include "hive/logs.h"

#include <gtest/gtest.h>

#include <tuple>

#include "hive/hive_image.h"
#include "hive/hive_query.h"
#include "support/hive_builder.h"

namespace {

using namespace test_support;

constexpr std::size_t sector = 512;

// Puts the checksum of a base block in its place.
void seal(bytes& base)
{
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < 508; at += 4) {
        sum ^= uni::byte_view(base).u32(at);
    }
    put(base, 508, sum, 4);
}

bytes base_of(const bytes& hive, std::uint32_t type, std::uint32_t primary, std::uint32_t secondary)
{
    bytes base(hive.begin(), hive.begin() + sector);
    put(base, {{4, primary, 4}, {8, secondary, 4}, {28, type, 4}});
    seal(base);
    return base;
}

// A hive of that many installed databases, which all have the bins of the largest.
bytes hive_of(int databases)
{
    std::vector<hive_key> keys;
    for (int i = 0; i < databases; ++i) {
        keys.push_back(installed_database("{" + std::to_string(i) + "}", "C:\\x.sdb", "", 1));
    }
    keys.resize(4, {.name = "filler", .values = {{"DatabasePath", 1, bytes(3000, 'x')}}});
    return hive_builder().build(software_hive(std::move(keys)));
}

// An entry with the pages in which one hive differs from another.
bytes entry_of(std::uint32_t sequence, const bytes& from, const bytes& to)
{
    bytes references;
    bytes pages;
    std::uint32_t count = 0;
    for (std::size_t at = 4096; at < to.size(); at += 4096) {
        const bytes page(to.begin() + static_cast<std::ptrdiff_t>(at),
                         to.begin() + static_cast<std::ptrdiff_t>(at) + 4096);
        if (at >= from.size() ||
            !std::equal(page.begin(), page.end(), from.begin() + static_cast<std::ptrdiff_t>(at))) {
            append(references, at - 4096, 4);
            append(references, 4096, 4);
            append(pages, page);
            ++count;
        }
    }
    bytes entry;
    append(entry, "HvLE");
    for (const std::uint64_t word : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{sequence},
                                     std::uint64_t{to.size() - 4096}, std::uint64_t{count}}) {
        append(entry, word, 4);
    }
    entry.resize(40);
    append(entry, references);
    append(entry, pages);
    align(entry, sector);
    put(entry, 4, entry.size(), 4);
    const uni::byte_view view(entry);
    put(entry, 24, hive::log_hash(view.from(40)), 8);
    put(entry, 32, hive::log_hash(uni::byte_view(entry).slice(0, 32)), 8);
    return entry;
}

bytes new_log(const bytes& hive, std::uint32_t sequence, const std::vector<bytes>& entries)
{
    bytes log = base_of(hive, 6, sequence, sequence);
    for (const bytes& entry : entries) {
        append(log, entry);
    }
    return log;
}

bytes old_log(const bytes& from, const bytes& to)
{
    bytes log = base_of(to, 1, 9, 9);
    append(log, "DIRT");
    bytes bits((to.size() - 4096) / 4096);
    bytes pages;
    for (std::size_t at = 4096; at < to.size(); at += sector) {
        const auto begin = to.begin() + static_cast<std::ptrdiff_t>(at);
        if (at >= from.size() ||
            !std::equal(begin, begin + sector, from.begin() + static_cast<std::ptrdiff_t>(at))) {
            const std::size_t bit = (at - 4096) / sector;
            bits[bit / 8] = static_cast<std::uint8_t>(bits[bit / 8] | 1 << bit % 8);
            append(pages, bytes(begin, begin + sector));
        }
    }
    append(log, bits);
    align(log, sector);
    append(log, pages);
    return log;
}

// How many databases a hive has installed, with what was taken of the logs.
std::string brought_up(const bytes& hive, const std::vector<bytes>& logs)
{
    std::vector<std::unique_ptr<io::byte_source>> sources;
    for (const bytes& log : logs) {
        sources.push_back(source_of(log));
    }
    hive::log_outcome taken;
    hive::hive_bytes found;
    found.open(hive::with_logs(source_of(hive), std::move(sources), taken));
    int databases = 0;
    hive::hive_query(hive::query_installed_databases(), hive::hive_image(std::move(found)),
                     [&](hive::hive_value_record&& row) {
                         databases += row.value_name == "DatabaseType" ? 1 : 0;
                     });
    return std::to_string(databases) + " by " + std::to_string(taken.entries) +
           (taken.is_complete ? "" : ", more left") + (taken.bad_bins != 0 ? ", bad" : "");
}

TEST(hive_logs, hash_is_that_of_the_published_vectors)
{
    bytes counted(32);
    for (std::size_t i = 0; i < counted.size(); ++i) {
        counted[i] = static_cast<std::uint8_t>(i);
    }
    constexpr std::uint64_t seed = 0x004fb61a001bdbcc;
    const std::tuple<std::uint64_t, bytes, std::uint64_t> cases[] = {
        {seed, {}, 0x30ed35c100cd3c7d},
        {seed, {0xaf}, 0x48e73fc77d75ddc1},
        {seed, {0xab, 0x42, 0x7e, 0xa8, 0xd1, 0x0f, 0xc7}, 0xe11847e4f0678c41},
        {0x804fb61a001bdbcc, {0x86, 0x42, 0xdc, 0x59}, 0x36289d9654fb49f6},
        {hive::log_seed, bytes(32), 0x571374cf4fb04f7a},
        {hive::log_seed, counted, 0x2e1f98dddc7010aa},
    };
    for (const auto& [with, data, hash] : cases) {
        EXPECT_EQ(hive::log_hash(uni::byte_view(data), with), hash) << data.size();
    }
}

TEST(hive_logs, are_taken_as_far_as_they_hold)
{
    const bytes one = hive_of(1), two = hive_of(2), three = hive_of(3);
    bytes dirty = one;
    put(dirty, {{4, 12, 4}, {8, 10, 4}});
    seal(dirty);
    const bytes first = entry_of(10, one, two), second = entry_of(11, two, three);
    const auto changed = [](bytes log, std::size_t place, std::uint64_t number,
                            unsigned width = 1) {
        put(log, place, number, width);
        return log;
    };
    const bytes both = new_log(one, 10, {first, second});
    const std::size_t second_at = sector + first.size();
    bytes torn(both.begin(), both.end() - sector);
    bytes no_base = dirty;
    put(no_base, 0, bytes(512, 0));
    const bytes old = old_log(one, two);
    const bytes spoilt_hive = changed(two, 4096, 'x');
    const struct {
        const char* what;
        bytes hive;
        std::vector<bytes> logs;
        const char* found;
    } cases[] = {
        {"no log", dirty, {{}, bytes(100, 'x')}, "1 by 0"},
        {"both in one log", dirty, {both, {}}, "3 by 2"},
        {"one in each, the later first",
         dirty,
         {new_log(one, 11, {second}), new_log(one, 10, {first})},
         "3 by 2"},
        {"the same entry in both", dirty, {both, new_log(one, 11, {second})}, "3 by 2"},
        {"another of its number",
         dirty,
         {both, new_log(one, 11, {entry_of(11, two, hive_of(4))})},
         "2 by 1, more left"},
        {"a number is missing",
         dirty,
         {new_log(one, 10, {first, entry_of(12, two, three)})},
         "2 by 1, more left"},
        {"a log begins too late",
         dirty,
         {new_log(one, 10, {first}), new_log(one, 12, {entry_of(12, two, three)})},
         "2 by 1, more left"},
        {"numbers from before the hive", changed(dirty, 8, 11), {both}, "1 by 0"},
        {"a page is spoilt", dirty, {changed(both, second_at + 200, 0x5a)}, "2 by 1, more left"},
        {"a head is spoilt", dirty, {changed(both, second_at + 8, 0)}, "2 by 1, more left"},
        {"a mark is spoilt", dirty, {changed(both, second_at, 0)}, "2 by 1"},
        {"a size is absurd",
         dirty,
         {changed(both, second_at + 4, 0xfffffe00, 4)},
         "2 by 1, more left"},
        {"the end is torn off", dirty, {torn}, "2 by 1, more left"},
        {"the log's own sum is wrong", dirty, {changed(both, 100, 1)}, "1 by 0"},
        {"the hive has no base block", no_base, {both}, "3 by 2"},
        {"a bin is spoilt",
         dirty,
         {new_log(one, 10, {entry_of(10, one, spoilt_hive)})},
         "0 by 1, bad"},
        {"an old log", dirty, {old}, "2 by 1"},
        {"an old log is cut", dirty, {bytes(old.begin(), old.end() - 1)}, "1 by 0"},
        {"an old log of another time", changed(dirty, 12, 1), {old}, "1 by 0"},
        {"a new log before an old one", dirty, {old, both}, "3 by 2"},
    };
    for (const auto& each : cases) {
        bytes hive = each.hive;
        if (hive != no_base) {
            seal(hive);
        }
        EXPECT_EQ(brought_up(hive, each.logs), each.found) << each.what;
        EXPECT_TRUE(hive::is_unclosed(*source_of(hive))) << each.what;
    }
    EXPECT_FALSE(hive::is_unclosed(*source_of(one)));
}

} // namespace
