// Walks through a volume in an image and reads what it finds, living and deleted. The input is a sequence of
// changes to the volume that is kept for tests: which of its records and index blocks (2 bytes), the place
// in it (2 bytes), count (1 byte), then the new bytes. Whatever is changed, every path that is listed can be
// asked for, folders form a tree, and each step ends by itself.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>

#include <zlib.h>

#include "files/mounted_volume.h"

namespace {

constexpr std::size_t longest_input = 1024;
constexpr std::size_t record_size = 1024;
constexpr std::size_t most_listed = 3000;
constexpr std::size_t deepest = 64;

struct kept_volume {
    io::byte_vector bytes;
    std::vector<std::size_t> places; // of what is worth changing
};

kept_volume unpack()
{
    kept_volume volume;
    const gzFile packed = ::gzopen(QUILT_SOURCE_DIR "/tests/images/ntfs-4096.img.gz", "rb");
    constexpr std::size_t piece = 0x100000;
    for (int got = 1; got > 0;) {
        const std::size_t done = volume.bytes.size();
        volume.bytes.resize(done + piece);
        got = ::gzread(packed, volume.bytes.data() + done, piece);
        volume.bytes.resize(done + static_cast<std::size_t>(std::max(got, 0)));
    }
    ::gzclose(packed);
    volume.places.push_back(0);
    const uni::byte_view view(volume.bytes);
    for (std::size_t at = 0; at < volume.bytes.size(); at += record_size) {
        if (view.u32(at) == 0x454c4946 || view.u32(at) == 0x58444e49) { // "FILE", "INDX"
            volume.places.push_back(at);
        }
    }
    return volume;
}

// The volume with a few bytes of it changed.
class changed_volume final : public io::byte_source {
public:
    changed_volume(const kept_volume& of, uni::byte_view changes) : of_(of)
    {
        for (std::uint64_t at = 0; at + 5 <= changes.size(); at += 5 + changes.u8(at + 4)) {
            const std::size_t place =
                of.places[changes.u16(at) % of.places.size()] + changes.u16(at + 2) % 4096u;
            const uni::byte_view with = changes.slice(at + 5, changes.u8(at + 4));
            for (std::size_t i = 0; i < with.size(); ++i) {
                changes_[place + i] = with.u8(i);
            }
        }
    }

    std::uint64_t size() const noexcept override { return of_.bytes.size(); }
    std::size_t read(std::span<std::uint8_t> out, std::uint64_t offset) override
    {
        const auto bytes = uni::byte_view(of_.bytes).slice(offset, out.size()).bytes();
        std::ranges::copy(bytes, out.begin());
        for (auto change = changes_.lower_bound(offset);
             change != changes_.end() && change->first < offset + bytes.size(); ++change) {
            out[static_cast<std::size_t>(change->first - offset)] = change->second;
        }
        return bytes.size();
    }

private:
    const kept_volume& of_;
    std::map<std::uint64_t, std::uint8_t> changes_;
};

// Goes through a folder and those below it.
void walk(files::mounted_volume& volume, const std::string& folder, std::size_t depth,
          std::size_t& listed)
{
    std::string reason;
    files::place_on_volume place;
    std::vector<platform::directory_entry> entries;
    if (!volume.find(folder, place, reason)) {
        return;
    }
    if (depth > deepest) {
        std::abort(); // folders form no tree
    }
    volume.list(place, entries);
    for (const platform::directory_entry& entry : entries) {
        if (++listed > most_listed) {
            return;
        }
        const std::string path = folder + "/" + entry.name;
        reason.clear();
        if (entry.kind == platform::entry_kind::directory) {
            walk(volume, path, depth + 1, listed);
        } else if (volume.find(path, place, reason)) {
            platform::file_facts facts;
            volume.read_facts(place, facts);
            if (const auto file = volume.open(place, reason)) {
                io::byte_vector head;
                io::read_source(head, *file, 0x4000);
            } else if (reason.empty()) {
                std::abort(); // it is not said why
            }
        } else if (reason.empty()) {
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > longest_input) {
        return -1;
    }
    static const kept_volume kept = unpack();
    auto bytes = std::make_shared<files::image_bytes>();
    bytes->source = std::make_unique<changed_volume>(kept, uni::byte_view(std::span(data, size)));
    std::string reason;
    const auto volume = files::mounted_volume::mount(bytes, 0, kept.bytes.size(), reason);
    if (volume) {
        std::size_t listed = 0;
        walk(*volume, "", 0, listed);
        listed = 0;
        walk(*volume, std::string(files::deleted_folder), 0, listed);
    }
    return 0;
}
