// The hot paths one by one, over generated databases of 1 MiB and 16 MiB. Bytes per second are
// those of the database.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "io/output_sink.h"
#include "large_database.h"
#include "model/database_facts.h"
#include "model/record_expander.h"
#include "sdb/database.h"
#include "sdb/finders.h"
#include "sdb/inflate.h"
#include "sdb/tags.h"
#include "support/reports.h"

namespace {

constexpr std::int64_t mebibyte = 1 << 20;

// Generating takes longer than what is measured: each size is made once.
const test_support::bytes& image_of(std::int64_t mebibytes)
{
    static const test_support::bytes small = test_support::large_database(mebibyte, 1);
    static const test_support::bytes large = test_support::large_database(16 * mebibyte, 1);
    return mebibytes == 1 ? small : large;
}

void count_bytes(benchmark::State& state)
{
    const auto size = static_cast<std::int64_t>(image_of(state.range(0)).size());
    state.SetBytesProcessed(state.iterations() * size);
}

void load_and_scan(benchmark::State& state)
{
    const test_support::bytes& image = image_of(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        io::byte_vector copy(image.begin(), image.end());
        auto database = std::make_unique<sdb::sdb_database>();
        state.ResumeTiming();
        benchmark::DoNotOptimize(database->load_image(std::move(copy)));
        state.PauseTiming();
        database.reset();
        state.ResumeTiming();
    }
    count_bytes(state);
}

void inflate(benchmark::State& state)
{
    const test_support::bytes packed = test_support::compress(image_of(state.range(0)));
    io::byte_vector plain;
    for (auto _ : state) {
        benchmark::DoNotOptimize(sdb::inflate_image(uni::byte_view(packed), plain));
    }
    count_bytes(state);
}

void expand_executables(benchmark::State& state)
{
    const test_support::loaded_database loaded(image_of(state.range(0)));
    model::record_expander expander(loaded.database);
    for (auto _ : state) {
        model::listing_budget budget(loaded.database);
        for (const sdb::tag_ordinal ordinal : loaded.database.ordinals_by_tag(sdb::tag::exe)) {
            expander.expand(loaded.database.offset_at(ordinal), true, budget);
        }
        benchmark::DoNotOptimize(budget.items);
    }
    count_bytes(state);
}

void list_applications(benchmark::State& state, std::string_view form)
{
    const test_support::loaded_database loaded(image_of(state.range(0)));
    const request::sdb_opts options = test_support::listing_options({"apps"}, form);
    for (auto _ : state) {
        io::null_out_stream nowhere;
        test_support::write_report(nowhere, loaded.database, options);
    }
    count_bytes(state);
}

// A search for what no string holds looks at all of them.
void search_strings(benchmark::State& state)
{
    const test_support::loaded_database loaded(image_of(state.range(0)));
    const std::vector<std::string> wanted{"no such word"};
    for (auto _ : state) {
        sdb::found_tags found;
        benchmark::DoNotOptimize(sdb::find_strings(loaded.database, found, wanted));
    }
    count_bytes(state);
}

// Counts, expansions and both digests.
void gather_statistics(benchmark::State& state)
{
    const test_support::loaded_database loaded(image_of(state.range(0)));
    for (auto _ : state) {
        model::database_facts facts;
        benchmark::DoNotOptimize(model::gather_facts(facts, loaded.database));
    }
    count_bytes(state);
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(1)->Arg(16)->ArgName("MiB")->Unit(benchmark::kMillisecond);
}

BENCHMARK(load_and_scan)->Apply(sizes);
BENCHMARK(inflate)->Apply(sizes);
BENCHMARK(expand_executables)->Apply(sizes);
BENCHMARK(search_strings)->Apply(sizes);
BENCHMARK(gather_statistics)->Apply(sizes);
BENCHMARK_CAPTURE(list_applications, xml, "xml")->Apply(sizes);
BENCHMARK_CAPTURE(list_applications, plain, "plain")->Apply(sizes);
BENCHMARK_CAPTURE(list_applications, json, "json")->Apply(sizes);
BENCHMARK_CAPTURE(list_applications, page, "html")->Apply(sizes);

} // namespace
