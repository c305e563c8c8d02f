#include "ntfs/letter_case.h"

#include <algorithm>

#include "ntfs/attributes.h"
#include "ntfs/volume.h"
#include "uni/byte_view.h"

namespace ntfs {

namespace {

constexpr std::uint64_t table_entry = 10;
constexpr std::size_t units = 0x10000;

} // namespace

letter_case::letter_case(ntfs_volume& volume)
{
    mft_entries_ctx context(volume);
    std::vector<record_row> rows;
    list_record_attributes(context, table_entry, rows);
    const auto content = std::find_if(rows.begin(), rows.end(), is_main_content);
    io::byte_vector bytes;
    if (content == rows.end() || content->real_size != units * 2 ||
        !read_attribute_data(context, *content, bytes) || bytes.size() != units * 2) {
        return;
    }
    table_.resize(units);
    for (std::size_t i = 0; i < units; ++i) {
        table_[i] = uni::byte_view(bytes).u16(i * 2);
    }
}

int letter_case::compare(std::u16string_view a, std::u16string_view b) const noexcept
{
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        const char16_t x = large(a[i]);
        const char16_t y = large(b[i]);
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

} // namespace ntfs
