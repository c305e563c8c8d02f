// Brings a hive up to date by arbitrary logs. The input is two lengths in units of 512 bytes, the hive, and
// two logs. Hashes and checksums are put right where the first byte wants it, as mutations seldom hit them.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "hive/hive_image.h"
#include "hive/hive_query.h"
#include "hive/logs.h"

namespace {

constexpr std::size_t longest_input = 65'536;
constexpr std::size_t sector = 512;

void put(io::byte_vector& bytes, std::size_t at, std::uint64_t number, std::size_t width)
{
    for (std::size_t i = 0; i < width && at + i < bytes.size(); ++i) {
        bytes[at + i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
}

void seal(io::byte_vector& base)
{
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < 508; at += 4) {
        sum ^= uni::byte_view(base).u32(at);
    }
    put(base, 508, sum == 0 ? 1 : sum == 0xffffffff ? 0xfffffffe : sum, 4);
}

// Puts the sums of a log and of its entries right, as far as their sizes are.
void seal_log(io::byte_vector& log)
{
    put(log, 0, 0x66676572, 4);
    seal(log);
    std::size_t at = sector;
    while (at + 40 < log.size()) {
        const std::size_t size = uni::byte_view(log).u32(at + 4);
        if (size < 40 || size > log.size() - at) {
            break;
        }
        const auto entry = [&] { return uni::byte_view(log).slice(at, size); };
        put(log, at + 24, hive::log_hash(entry().from(40)), 8);
        put(log, at + 32, hive::log_hash(entry().slice(0, 32)), 8);
        at += size;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 3 || size > longest_input) {
        return -1;
    }
    uni::byte_view rest(std::span(data + 3, size - 3));
    std::vector<io::byte_vector> parts;
    for (const std::size_t length : {data[1] * sector, data[2] * sector, size}) {
        const auto part = rest.slice(0, length).bytes();
        parts.emplace_back(part.begin(), part.end());
        rest = rest.from(length);
    }
    if ((data[0] & 1) != 0) {
        seal_log(parts[1]);
        seal_log(parts[2]);
    }
    std::vector<std::unique_ptr<io::byte_source>> logs;
    logs.push_back(std::make_unique<io::memory_source>(parts[1]));
    logs.push_back(std::make_unique<io::memory_source>(parts[2]));
    hive::log_outcome taken;
    auto changed =
        hive::with_logs(std::make_unique<io::memory_source>(parts[0]), std::move(logs), taken);
    if (changed->size() > size + 4096) {
        std::abort(); // it is made of no more than there is
    }
    hive::hive_bytes bytes;
    bytes.open(std::move(changed));
    hive::hive_query(hive::query_installed_databases(), hive::hive_image(std::move(bytes)),
                     [](hive::hive_value_record&&) {});
    return 0;
}
