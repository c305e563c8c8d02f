#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace uni {

// Numbered pieces of work, done on several threads and handed over in their order. A few results are
// all there ever are, however many pieces: each is used again, so that it may keep its memory.
template <typename piece_result>
class ordered_work {
public:
    // Pieces from `first` to the one before `end`.
    ordered_work(std::size_t first, std::size_t end)
        : end_(end), begun_(first), handed_over_(first), released_(first)
    {}
    ~ordered_work() { stop(); }
    ordered_work(const ordered_work&) = delete;
    ordered_work& operator=(const ordered_work&) = delete;

    // Starts the threads, each of which calls make_worker() for a function that takes a piece's
    // number and the place for its result; what they look at there stands still until all have. False
    // if the system has no thread to give.
    template <typename maker>
    bool start(std::size_t threads, maker make_worker)
    {
        try {
            while (threads_.size() < threads) {
                threads_.emplace_back([this, make_worker] { run(make_worker); });
            }
        } catch (const std::system_error&) {
            // Those that could be started do it all.
        }
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return workers_ == threads_.size() || failure_ != nullptr; });
        return !threads_.empty();
    }

    // The result of the next piece, to be asked for once for each; good until the next call. Throws
    // what the work threw.
    piece_result& next()
    {
        std::unique_lock lock(mutex_);
        released_ = handed_over_;
        changed_.notify_all();
        place& wanted = places_[handed_over_ % window];
        changed_.wait(lock, [&] { return wanted.is_ready || failure_ != nullptr; });
        if (!wanted.is_ready) {
            std::rethrow_exception(failure_);
        }
        wanted.is_ready = false;
        ++handed_over_;
        return wanted.result;
    }

    // Lets no further piece be begun, and waits for the threads.
    void stop()
    {
        {
            const std::scoped_lock lock(mutex_);
            begun_ = end_;
        }
        changed_.notify_all();
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

private:
    static constexpr std::size_t window = 6;

    struct place {
        piece_result result;
        bool is_ready = false;
    };

    template <typename maker>
    void run(maker& make_worker)
    {
        try {
            auto worker = make_worker();
            note_worker();
            while (const std::optional<std::size_t> piece = begin_piece()) {
                place& made = places_[*piece % window];
                worker(*piece, made.result);
                const std::scoped_lock lock(mutex_);
                made.is_ready = true;
                changed_.notify_all();
            }
        } catch (...) {
            const std::scoped_lock lock(mutex_);
            failure_ = std::current_exception();
            changed_.notify_all();
        }
    }

    void note_worker()
    {
        const std::scoped_lock lock(mutex_);
        ++workers_;
        changed_.notify_all();
    }

    std::optional<std::size_t> begin_piece()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return begun_ == end_ || begun_ < released_ + window; });
        return begun_ == end_ ? std::nullopt : std::optional(begun_++);
    }

    std::size_t end_;
    std::size_t begun_;
    std::size_t handed_over_;
    std::size_t released_; // as many places are free again
    std::array<place, window> places_;
    std::size_t workers_ = 0; // that were made
    std::exception_ptr failure_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::thread> threads_;
};

} // namespace uni
