#include "uni/ordered_work.h"

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace {

using work = uni::ordered_work<std::string>;

constexpr std::size_t most_ahead = 6;

// The work of these tests: the piece's number as text, behind what its place held before.
auto number_maker(std::atomic<std::size_t>& begun)
{
    return [&begun] {
        return [&begun](std::size_t piece, std::string& out) {
            ++begun;
            if (piece % 7 == 0) { // some take longer, so that they end out of order
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            out = std::to_string(piece);
        };
    };
}

TEST(ordered_work, gives_every_result_in_order)
{
    for (const std::size_t threads : {1u, 2u, 4u}) {
        std::atomic<std::size_t> begun = 0;
        work numbers(5, 200);
        ASSERT_TRUE(numbers.start(threads, number_maker(begun)));
        for (std::size_t piece = 5; piece < 200; ++piece) {
            ASSERT_EQ(numbers.next(), std::to_string(piece));
        }
        numbers.stop();
        EXPECT_EQ(begun, 195u);
    }
    std::atomic<std::size_t> begun = 0;
    EXPECT_FALSE(work(0, 1).start(0, number_maker(begun))) << "nobody to do it";
}

TEST(ordered_work, runs_no_further_ahead_than_it_has_places)
{
    std::atomic<std::size_t> asked = 0;
    std::atomic<bool> too_far = false;
    std::atomic<std::size_t> begun = 0;
    work numbers(0, 100);
    ASSERT_TRUE(numbers.start(3, [&] {
        return [&](std::size_t piece, std::string&) {
            ++begun;
            too_far = too_far || piece >= asked + most_ahead;
        };
    }));
    for (; asked < 100; ++asked) {
        if (asked == 0 || asked == 50) { // time to run away
            while (begun < asked + most_ahead - (asked == 0 ? 0 : 1)) {
                std::this_thread::yield();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        numbers.next();
    }
    EXPECT_FALSE(too_far);
}

TEST(ordered_work, what_a_worker_throws_reaches_the_one_who_asks)
{
    for (const std::size_t threads : {1u, 3u}) {
        work numbers(0, 100);
        ASSERT_TRUE(numbers.start(threads, [] {
            return [](std::size_t piece, std::string& out) {
                if (piece == 20) {
                    throw std::runtime_error("piece 20");
                }
                out = std::to_string(piece);
            };
        }));
        std::size_t taken = 0;
        std::string thrown;
        try {
            for (; taken < 100; ++taken) {
                ASSERT_EQ(numbers.next(), std::to_string(taken));
            }
        } catch (const std::runtime_error& error) {
            thrown = error.what();
        }
        EXPECT_EQ(thrown, "piece 20");
        EXPECT_TRUE(threads == 1 ? taken == 20 : taken <= 20) << taken;
    }
}

TEST(ordered_work, what_the_maker_throws_reaches_the_one_who_asks)
{
    struct no_worker {
        void operator()(std::size_t, std::string&) const {}
    };
    work numbers(0, 100);
    ASSERT_TRUE(numbers.start(2, []() -> no_worker { throw std::runtime_error("no worker"); }));
    EXPECT_THROW(numbers.next(), std::runtime_error);
}

TEST(ordered_work, ends_before_all_is_taken)
{
    for (const std::size_t pieces : {3u, 1000u}) { // all made already; most not begun
        for (const std::size_t taken : {0u, 2u}) {
            std::atomic<std::size_t> begun = 0;
            {
                work numbers(0, pieces);
                ASSERT_TRUE(numbers.start(3, number_maker(begun)));
                for (std::size_t piece = 0; piece < taken; ++piece) {
                    EXPECT_EQ(numbers.next(), std::to_string(piece));
                }
                numbers.stop();
                const std::size_t at_the_end = begun;
                EXPECT_LE(at_the_end, taken + most_ahead);
                numbers.stop();
                EXPECT_EQ(begun, at_the_end);
            }
        }
    }
}

} // namespace
