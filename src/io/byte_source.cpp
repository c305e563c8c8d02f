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
    file_source(int descriptor, const file_times& times)
        : descriptor_(descriptor), times_(times),
          size_(static_cast<std::uint64_t>(platform::file_length(descriptor)))
    {}
    ~file_source() override { platform::close_file(descriptor_); }

    std::uint64_t size() const noexcept override { return size_; }
    file_times times() const override { return times_; }

    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        std::size_t done = 0;
        while (done < out.size()) {
            const std::size_t block = std::min(out.size() - done, largest_block);
            const std::size_t got = platform::read_file(descriptor_, out.subspan(done, block),
                                                        static_cast<std::int64_t>(offset + done));
            done += got;
            if (got < block) {
                break;
            }
        }
        return done;
    }

private:
    int descriptor_;
    file_times times_;
    std::uint64_t size_;
};

} // namespace

std::unique_ptr<byte_source> open_source(const std::string& path)
{
    const std::size_t last = path.find_last_not_of("/\\");
    if (last == std::string::npos) {
        return nullptr;
    }
    const std::string cut = path.substr(0, last + 1);
    platform::file_facts facts;
    platform::read_file_facts(cut, facts);
    const int descriptor = platform::open_file(cut, platform::open_mode::read);
    if (descriptor < 0) {
        return nullptr;
    }
    const file_times times{facts.write_time, facts.access_time, facts.creation_time};
    return std::make_unique<file_source>(descriptor, times);
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
