#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "io/large_vector.h"
#include "io/output_sink.h"

namespace io {

class fileio;

// The buffered stream on a file. Unless the file is in byte mode, each line end goes out as CR LF.
class fileio_output : public output_sink {
public:
    fileio_output(fileio& file, bool line_ends_as_cr_lf);
    ~fileio_output() override;

private:
    bool write_block(std::string_view block) override;

    fileio& file_;
    bool line_ends_as_cr_lf_;
    std::string translated_;
};

// A file on disk, open or closed; an object that fails to open stays valid and closed. Every
// operation answers false on failure and words nothing. Paths are UTF-8.
class fileio {
public:
    fileio() = default;
    ~fileio();
    fileio(const fileio&) = delete;
    fileio& operator=(const fileio&) = delete;

    // Opens `path`, its trailing separators cut, closing what was open. With `write`: for reading
    // and writing; with `truncate` too the file is created or emptied, without it it must exist.
    // `byte_mode` switches off the CR LF line ends of output_stream().
    bool open_write(const std::string& path, bool write, bool byte_mode, bool truncate);
    bool open_read(const std::string& path) { return open_write(path, false, true, false); }
    void close();

    bool is_open() const noexcept { return descriptor_ >= 0; }
    // Length in bytes as of the last open or write.
    std::int64_t size() const noexcept { return size_; }

    // Up to `count` bytes at `offset` into `out`, fewer at the end of the file; false when closed
    // or when `offset` lies at or past the end.
    bool read_at(byte_vector& out, std::uint64_t count, std::int64_t offset);
    // Writes at the end.
    bool append(std::span<const std::uint8_t> bytes);

    // The stream on this file, owned by it and flushed by close(); null when not open.
    fileio_output* output_stream();

private:
    int descriptor_ = -1;
    std::int64_t size_ = 0;
    bool byte_mode_ = false;
    std::unique_ptr<fileio_output> output_;
};

// Whether a file that can be opened, or a directory, is at `path`; false for an empty path.
bool file_exists(const std::string& path);

} // namespace io
