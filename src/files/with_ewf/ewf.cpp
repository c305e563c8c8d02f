#include "files/ewf.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

// The library has been built with what this declares.
#define HAVE_LIBBFIO 1
#include <libbfio.h>
#include <libewf.h>

namespace files {

namespace {

// One of the files as the library reads it, from a place that moves.
struct moving_file {
    part_files* files = nullptr;
    std::size_t number = 0;
    std::uint64_t place = 0;
    bool is_open = false;
};

moving_file& file_of(std::intptr_t* handle)
{
    return *reinterpret_cast<moving_file*>(handle);
}

int free_file(std::intptr_t** handle, libbfio_error_t**)
{
    *handle = nullptr; // it is no one's but ours
    return 1;
}

int copy_file(std::intptr_t**, std::intptr_t*, libbfio_error_t**)
{
    return -1;
}

int open_file(std::intptr_t* handle, int flags, libbfio_error_t**)
{
    file_of(handle).is_open = (flags & LIBBFIO_ACCESS_FLAG_WRITE) == 0;
    file_of(handle).place = 0;
    return file_of(handle).is_open ? 1 : -1;
}

int close_file(std::intptr_t* handle, libbfio_error_t**)
{
    file_of(handle).is_open = false;
    return 0;
}

ssize_t read_file(std::intptr_t* handle, std::uint8_t* out, std::size_t count, libbfio_error_t**)
{
    moving_file& file = file_of(handle);
    const std::size_t got = file.files->read(file.number, {out, count}, file.place);
    file.place += got;
    return static_cast<ssize_t>(got);
}

ssize_t write_file(std::intptr_t*, const std::uint8_t*, std::size_t, libbfio_error_t**)
{
    return -1;
}

off64_t seek_file(std::intptr_t* handle, off64_t offset, int whence, libbfio_error_t**)
{
    moving_file& file = file_of(handle);
    const auto from =
        static_cast<std::int64_t>(whence == SEEK_SET   ? 0
                                  : whence == SEEK_CUR ? file.place
                                                       : file.files->size(file.number));
    if (offset < -from || offset > INT64_MAX - from) {
        return -1;
    }
    file.place = static_cast<std::uint64_t>(from + offset);
    return from + offset;
}

int exists(std::intptr_t*, libbfio_error_t**)
{
    return 1;
}

int is_open(std::intptr_t* handle, libbfio_error_t**)
{
    return file_of(handle).is_open ? 1 : 0;
}

int size_of(std::intptr_t* handle, std::uint64_t* size, libbfio_error_t**)
{
    *size = file_of(handle).files->size(file_of(handle).number);
    return 1;
}

class ewf_source final : public io::byte_source {
public:
    explicit ewf_source(part_files files) : files_(std::move(files)) {}
    ~ewf_source() override
    {
        if (handle_ != nullptr) {
            libewf_handle_close(handle_, nullptr);
            libewf_handle_free(&handle_, nullptr);
        }
        if (pool_ != nullptr) {
            libbfio_pool_free(&pool_, nullptr);
        }
    }

    bool open()
    {
        moving_.resize(files_.count());
        if (libbfio_pool_initialize(&pool_, 0, 0, nullptr) != 1 ||
            libewf_handle_initialize(&handle_, nullptr) != 1) {
            return false;
        }
        for (std::size_t i = 0; i < files_.count(); ++i) {
            moving_[i] = {&files_, i};
            libbfio_handle_t* one = nullptr;
            int place = 0;
            if (libbfio_handle_initialize(&one, reinterpret_cast<std::intptr_t*>(&moving_[i]),
                                          free_file, copy_file, open_file, close_file, read_file,
                                          write_file, seek_file, exists, is_open, size_of,
                                          LIBBFIO_FLAG_IO_HANDLE_NON_MANAGED, nullptr) != 1) {
                return false;
            }
            if (libbfio_pool_append_handle(pool_, &place, one, LIBBFIO_ACCESS_FLAG_READ, nullptr) !=
                1) {
                libbfio_handle_free(&one, nullptr);
                return false;
            }
        }
        return libewf_handle_open_file_io_pool(handle_, pool_, LIBEWF_OPEN_READ, nullptr) == 1 &&
               libewf_handle_get_media_size(handle_, &size_, nullptr) == 1 &&
               libewf_handle_get_bytes_per_sector(handle_, &sector_, nullptr) == 1 &&
               size_ <= INT64_MAX && sector_ != 0;
    }

    std::uint64_t size() const noexcept override { return size_; }
    bool has_failed() const noexcept override { return has_failed_; }
    bool has_changed() const override { return files_.has_changed(); }

    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        const std::uint64_t left = size_ - std::min(size_, offset);
        out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), left)));
        std::size_t done = 0;
        while (done < out.size() && !is_spoilt_) {
            const ssize_t got =
                libewf_handle_read_random(handle_, out.data() + done, out.size() - done,
                                          static_cast<off64_t>(offset + done), nullptr);
            if (got <= 0) {
                break;
            }
            note_bad_chunks();
            const std::uint64_t begin = offset + done;
            const std::uint64_t sound = sound_to(begin, begin + static_cast<std::size_t>(got));
            done += static_cast<std::size_t>(sound - begin);
            if (sound != begin + static_cast<std::size_t>(got)) {
                break;
            }
        }
        has_failed_ |= done < out.size();
        return done;
    }

private:
    // The library gives zeros for chunks whose checksums are wrong, and notes them.
    void note_bad_chunks()
    {
        constexpr std::uint32_t most_stretches = 4096;
        std::uint32_t count = 0;
        if (libewf_handle_get_number_of_checksum_errors(handle_, &count, nullptr) != 1 ||
            count > most_stretches) {
            is_spoilt_ = true;
            return;
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            std::uint64_t first = 0;
            std::uint64_t sectors = 0;
            if (libewf_handle_get_checksum_error(handle_, i, &first, &sectors, nullptr) != 1) {
                is_spoilt_ = true;
                return;
            }
            std::uint64_t& end = bad_[first * sector_];
            end = std::max(end, (first + sectors) * sector_);
        }
    }
    std::uint64_t sound_to(std::uint64_t begin, std::uint64_t end) const
    {
        if (is_spoilt_) {
            return begin;
        }
        for (const auto& [first, behind] : bad_) {
            if (first < end && behind > begin) {
                return std::max(first, begin);
            }
        }
        return end;
    }

    part_files files_;
    std::vector<moving_file> moving_;
    libbfio_pool_t* pool_ = nullptr;
    libewf_handle_t* handle_ = nullptr;
    std::uint64_t size_ = 0;
    std::uint32_t sector_ = 0;
    std::map<std::uint64_t, std::uint64_t> bad_; // stretches, by their first byte
    bool is_spoilt_ = false;                     // more of it is bad than can be kept in mind
    bool has_failed_ = false;
};

} // namespace

std::unique_ptr<io::byte_source> open_ewf(part_files files, std::string& reason)
{
    auto source = std::make_unique<ewf_source>(std::move(files));
    if (!source->open()) {
        reason = "is a damaged E01 image, or files of it are missing";
        return nullptr;
    }
    return source;
}

std::string ewf_library()
{
    return std::string("libewf ") + libewf_get_version();
}

} // namespace files
