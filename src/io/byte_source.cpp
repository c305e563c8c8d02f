#include "io/byte_source.h"

#include <algorithm>

#include "platform/files.h"
#include "uni/byte_view.h"

namespace io {

namespace {

// What one call of the system is asked for at the most.
constexpr std::size_t largest_block = 0x10000000;

class file_source : public byte_source {
public:
    // The times are those from before it was opened, as opening may be noted as a use.
    file_source(int descriptor, const platform::file_facts& facts)
        : descriptor_(descriptor), facts_(facts), length_(platform::file_length(descriptor))
    {}
    ~file_source() override { platform::close_file(descriptor_); }

    bool has_length() const noexcept { return length_ >= 0; }
    std::uint64_t size() const noexcept override { return static_cast<std::uint64_t>(length_); }
    file_times times() const override
    {
        return {facts_.write_time, facts_.access_time, facts_.creation_time};
    }
    bool has_failed() const noexcept override { return has_failed_; }
    bool has_changed() const override
    {
        platform::file_facts now;
        return platform::file_length(descriptor_) != length_ ||
               (platform::read_file_facts(descriptor_, now) && now.write_time != facts_.write_time);
    }

    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        std::size_t done = 0;
        while (done < out.size()) {
            const std::size_t block = std::min(out.size() - done, largest_block);
            const platform::read_result got = platform::read_file(
                descriptor_, out.subspan(done, block), static_cast<std::int64_t>(offset + done));
            done += got.count;
            has_failed_ |= got.failed;
            if (got.count < block) {
                break;
            }
        }
        return done;
    }

private:
    int descriptor_;
    platform::file_facts facts_;
    std::int64_t length_;
    bool has_failed_ = false;
};

} // namespace

std::unique_ptr<byte_source> open_source(const std::string& path, std::string& reason)
{
    const std::size_t last = path.find_last_not_of("/\\");
    if (last == std::string::npos) {
        reason = "no such file";
        return nullptr;
    }
    const std::string cut = path.substr(0, last + 1);
    platform::file_facts facts;
    platform::read_file_facts(cut, facts);
    platform::opened_file opened = platform::open_for_reading(cut);
    if (opened.descriptor < 0) {
        reason = std::move(opened.reason);
        return nullptr;
    }
    if (facts.write_time == 0) { // it could not be told beforehand
        platform::read_file_facts(opened.descriptor, facts);
    }
    auto source = std::make_unique<file_source>(opened.descriptor, facts);
    if (!source->has_length()) {
        reason = "its length is not to be had";
        return nullptr;
    }
    return source;
}

std::size_t memory_source::read(std::span<std::uint8_t> out, std::uint64_t offset)
{
    const auto bytes = uni::byte_view(bytes_).slice(offset, out.size()).bytes();
    std::ranges::copy(bytes, out.begin());
    return bytes.size();
}

bool read_source(byte_vector& out, byte_source& source, std::uint64_t limit)
{
    out.resize(static_cast<std::size_t>(std::min(source.size(), limit)));
    out.resize(source.read(out, 0));
    return !out.empty();
}

} // namespace io
