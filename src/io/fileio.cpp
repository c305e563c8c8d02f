#include "io/fileio.h"

#include <algorithm>
#include <utility>

#include "platform/files.h"

namespace io {

namespace {

constexpr std::uint64_t largest_block = 0x10000000;

std::string without_trailing_separators(const std::string& path)
{
    const std::size_t last = path.find_last_not_of("/\\");
    return last == std::string::npos ? std::string() : path.substr(0, last + 1);
}

platform::open_mode mode_for(bool write, bool truncate)
{
    if (!write) {
        return platform::open_mode::read;
    }
    return truncate ? platform::open_mode::write_truncate : platform::open_mode::write_existing;
}

std::span<const std::uint8_t> bytes_of(std::string_view text)
{
    // A char may be looked at as a byte.
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

} // namespace

fileio_output::fileio_output(fileio& file, bool line_ends_as_cr_lf)
    : file_(file), line_ends_as_cr_lf_(line_ends_as_cr_lf)
{}

fileio_output::~fileio_output()
{
    flush();
}

bool fileio_output::write_block(std::string_view block)
{
    if (!line_ends_as_cr_lf_) {
        return file_.append(bytes_of(block));
    }
    translated_.clear();
    while (!block.empty()) {
        const std::size_t line = block.find('\n');
        translated_.append(block.substr(0, line));
        if (line == std::string_view::npos) {
            break;
        }
        translated_.append("\r\n");
        block.remove_prefix(line + 1);
    }
    return file_.append(bytes_of(translated_));
}

fileio::~fileio()
{
    close();
}

bool fileio::open_write(const std::string& path, bool write, bool byte_mode, bool truncate)
{
    if (path.empty()) {
        return false;
    }
    close();
    const std::string cut = without_trailing_separators(path);
    if (cut.empty()) {
        return false;
    }
    descriptor_ = platform::open_file(cut, mode_for(write, truncate));
    if (descriptor_ < 0) {
        return false;
    }
    byte_mode_ = byte_mode;
    size_ = platform::file_length(descriptor_);
    return true;
}

void fileio::close()
{
    output_.reset();
    if (descriptor_ >= 0) {
        platform::close_file(descriptor_);
    }
    descriptor_ = -1;
    size_ = 0;
    byte_mode_ = false;
}

bool fileio::read_at(byte_vector& out, std::uint64_t count, std::int64_t offset)
{
    out.clear();
    if (!is_open() || offset < 0 || offset >= size_) {
        return false;
    }
    const std::uint64_t wanted = std::min(count, static_cast<std::uint64_t>(size_ - offset));
    out.resize(static_cast<std::size_t>(wanted));
    std::size_t done = 0;
    while (done < out.size()) {
        const std::size_t block = std::min<std::size_t>(out.size() - done, largest_block);
        const std::size_t got =
            platform::read_file(descriptor_, std::span(out).subspan(done, block),
                                offset + static_cast<std::int64_t>(done));
        done += got;
        if (got < block) {
            break;
        }
    }
    out.resize(done);
    return true;
}

bool fileio::append(std::span<const std::uint8_t> bytes)
{
    if (!is_open()) {
        return false;
    }
    if (bytes.empty()) {
        return true;
    }
    // The end as it is now: another may have written to the file.
    const std::int64_t end = platform::file_length(descriptor_);
    if (!platform::write_file(descriptor_, bytes, end)) {
        return false;
    }
    size_ = end + static_cast<std::int64_t>(bytes.size());
    return true;
}

fileio_output* fileio::output_stream()
{
    if (!is_open()) {
        return nullptr;
    }
    if (!output_) {
        output_ = std::make_unique<fileio_output>(*this, !byte_mode_);
    }
    return output_.get();
}

bool file_exists(const std::string& path)
{
    fileio file;
    platform::file_facts facts;
    return !path.empty() && (file.open_read(path) || platform::read_file_facts(path, facts));
}

} // namespace io
