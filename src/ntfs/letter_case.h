#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ntfs {

struct ntfs_volume;

// How a volume takes letters for one another: each UTF-16 unit has a large one in the volume's own
// table, $UpCase. Without a table that is so for ASCII letters alone.
class letter_case {
public:
    letter_case() = default;
    // Reads the table; one that is not to be had, or has not its size, is none.
    explicit letter_case(ntfs_volume& volume);

    char16_t large(char16_t unit) const noexcept
    {
        if (!table_.empty()) {
            return table_[unit];
        }
        return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - u'a' + u'A') : unit;
    }
    // The order of names in which letter case does not count: below, above or 0.
    int compare(std::u16string_view a, std::u16string_view b) const noexcept;

private:
    std::vector<char16_t> table_;
};

} // namespace ntfs
