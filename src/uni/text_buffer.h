#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "uni/numbers.h"

namespace uni {

// Growing text that is written at its end. All report text is made through this one type: a
// buffer of its own keeps what it is given, and an output_sink, which derives from it, hands the
// text on whenever it is full. No call leaves a format (fill, base, width) behind for the next.
class text_buffer {
public:
    text_buffer() = default;
    virtual ~text_buffer() = default;
    text_buffer(const text_buffer&) = delete;
    text_buffer& operator=(const text_buffer&) = delete;

    // Whether all that was written could be handed on.
    virtual bool good() const noexcept { return true; }

    // Hands on what is held, where text is handed on.
    virtual void flush() {}

    // Room for at least `count` bytes; written bytes count once taken() is told where they end.
    char* room(std::size_t count)
    {
        if (static_cast<std::size_t>(limit_ - end_) < count) [[unlikely]] {
            make_room(count);
        }
        return end_;
    }
    void taken(char* end) noexcept { end_ = end; }

    void text(std::string_view text)
    {
        if (static_cast<std::size_t>(limit_ - end_) < text.size()) [[unlikely]] {
            pass_text(text);
        } else if (!text.empty()) {
            std::memcpy(end_, text.data(), text.size());
            end_ += text.size();
        }
    }
    // The same for text that may be of many kilobytes, which goes on without a copy where that is worth it.
    void long_text(std::string_view text)
    {
        if (text.size() < worth_no_copy) {
            this->text(text);
        } else {
            pass_text(text);
        }
    }
    // A literal, whose length the compiler knows.
    template <std::size_t size>
    void literal(const char (&text)[size])
    {
        char* out = room(size - 1);
        std::memcpy(out, text, size - 1);
        taken(out + size - 1);
    }
    void character(char c)
    {
        char* out = room(1);
        *out = c;
        taken(out + 1);
    }
    void line_end() { character('\n'); }
    void blanks(std::size_t count)
    {
        constexpr std::size_t block = 0x1000;
        for (; count > block; count -= block) {
            std::memset(room(block), ' ', block);
            taken(end_ + block);
        }
        if (count != 0) {
            char* out = room(count);
            std::memset(out, ' ', count);
            taken(out + count);
        }
    }
    // Left-justified in `width` bytes, blank-filled; longer text stands whole.
    void left(std::string_view value, std::size_t width)
    {
        text(value);
        if (value.size() < width) {
            blanks(width - value.size());
        }
    }
    // Right-justified in `width` bytes, blank-filled.
    void right(std::string_view value, std::size_t width)
    {
        if (value.size() < width) {
            blanks(width - value.size());
        }
        text(value);
    }
    // Exactly `digits` lower-case hexadecimal digits, zero-filled, no prefix.
    void hex(std::uint64_t value, unsigned digits) { taken(put_hex(room(16), value, digits)); }
    // Hexadecimal without padding beyond `minimum_digits`.
    void hex_min(std::uint64_t value, unsigned minimum_digits)
    {
        taken(put_hex_min(room(16), value, minimum_digits));
    }
    void decimal(std::uint64_t value) { taken(put_decimal(room(20), value)); }

    // What is held at the moment.
    std::string_view view() const noexcept
    {
        return {storage_.get(), static_cast<std::size_t>(end_ - storage_.get())};
    }
    void clear() noexcept { end_ = storage_.get(); }
    // How many bytes were written in all, those that were handed on among them.
    std::uint64_t total() const noexcept
    {
        return handed_on_ + static_cast<std::uint64_t>(end_ - storage_.get());
    }

    // Exchanges what two buffers hold, which must not be output_sinks.
    void swap(text_buffer& other) noexcept
    {
        std::swap(storage_, other.storage_);
        std::swap(end_, other.end_);
        std::swap(limit_, other.limit_);
    }

protected:
    static constexpr std::size_t worth_no_copy = 0x8000;

    // Takes a text for which there is no room, or which is long.
    virtual void pass_text(std::string_view text)
    {
        std::memcpy(room(text.size()), text.data(), text.size());
        end_ += text.size();
    }
    // Makes room for `count` more bytes behind what is held; here by growing.
    virtual void make_room(std::size_t count) { grow(count); }

    void note_handed_on(std::size_t count) noexcept { handed_on_ += count; }

    std::size_t capacity() const noexcept
    {
        return static_cast<std::size_t>(limit_ - storage_.get());
    }

    // What is held stays where it is or moves, and is not there twice.
    void grow(std::size_t count)
    {
        const auto held = static_cast<std::size_t>(end_ - storage_.get());
        const std::size_t wanted = std::max({capacity() * 2, held + count, std::size_t{256}});
        auto* const larger = static_cast<char*>(std::realloc(storage_.get(), wanted));
        if (larger == nullptr) {
            throw std::bad_alloc();
        }
        static_cast<void>(storage_.release());
        storage_.reset(larger);
        end_ = larger + held;
        limit_ = larger + wanted;
    }

private:
    struct give_back {
        void operator()(char* storage) const noexcept { std::free(storage); }
    };

    std::unique_ptr<char, give_back> storage_;
    char* end_ = nullptr;
    char* limit_ = nullptr;
    std::uint64_t handed_on_ = 0;
};

} // namespace uni
