#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <future>
#include <thread>

namespace uni {

inline constexpr std::size_t most_threads = 64;

// How many threads a run is to keep busy that was asked for `wanted`; for 0 as many as this machine can,
// within reason.
inline std::size_t threads_for(std::size_t wanted) noexcept
{
    constexpr std::size_t within_reason = 16;
    const std::size_t machine = std::max(1u, std::thread::hardware_concurrency());
    return wanted != 0 ? std::min(wanted, most_threads) : std::min(machine, within_reason);
}

// How many threads may be busy at a time. One that works counts, one that waits does not; who finds some
// left may have others help.
class thread_allowance {
public:
    explicit thread_allowance(std::size_t threads) noexcept
        : left_(static_cast<std::ptrdiff_t>(threads))
    {}

    // Counts a thread that works, even if none is left.
    void begin_work() noexcept { --left_; }
    void end_work() noexcept { ++left_; }

    // Takes as many as are left, but no more than `most`; they are given back by end_work().
    std::size_t take_spare(std::size_t most) noexcept
    {
        std::ptrdiff_t left = left_;
        while (left > 0) {
            const auto taken = std::min(static_cast<std::size_t>(left), most);
            if (left_.compare_exchange_weak(left, left - static_cast<std::ptrdiff_t>(taken))) {
                return taken;
            }
        }
        return 0;
    }

private:
    std::atomic<std::ptrdiff_t> left_;
};

// Counts its thread as one that works.
class busy_thread {
public:
    explicit busy_thread(thread_allowance& threads) noexcept : threads_(threads)
    {
        threads_.begin_work();
    }
    ~busy_thread() { threads_.end_work(); }
    busy_thread(const busy_thread&) = delete;
    busy_thread& operator=(const busy_thread&) = delete;

private:
    thread_allowance& threads_;
};

// Threads that help with one piece of work. Without an allowance there are none.
class helping_threads {
public:
    explicit helping_threads(thread_allowance* threads) noexcept : threads_(threads) {}
    ~helping_threads()
    {
        for (; count_ != 0; --count_) {
            threads_->end_work();
        }
    }
    helping_threads(const helping_threads&) = delete;
    helping_threads& operator=(const helping_threads&) = delete;

    // Takes those that are to spare now, so that at most that many help; answers how many do.
    std::size_t take(std::size_t most) noexcept
    {
        count_ += threads_ != nullptr && count_ < most ? threads_->take_spare(most - count_) : 0;
        return count_;
    }
    std::size_t count() const noexcept { return count_; }

private:
    thread_allowance* threads_;
    std::size_t count_ = 0;
};

// One thread, where one is to spare, for what std::async() takes with its policy.
class possible_helper {
public:
    explicit possible_helper(thread_allowance* threads) noexcept : helpers_(threads)
    {
        helpers_.take(1);
    }
    // Without a thread, the system's or ours, it is done when it is asked for.
    std::launch policy() const noexcept
    {
        return helpers_.count() == 0 ? std::launch::deferred
                                     : std::launch::async | std::launch::deferred;
    }

private:
    helping_threads helpers_;
};

} // namespace uni
