#include <gtest/gtest.h>

#include "sdb/inflate.h"
#include "support/database_text.h"
#include "support/sample_database.h"

namespace {

using test_support::bytes;
using test_support::example;

TEST(examples, hold_what_their_text_says_byte_for_byte)
{
    const bytes text = example("sample.txt");
    const bytes image = test_support::database_from_text({text.begin(), text.end()});
    EXPECT_GT(image.size(), 6000u);
    EXPECT_TRUE(image == example("sample.sdb"));
    const bytes changed = example("changed.txt");
    EXPECT_TRUE(test_support::database_from_text({changed.begin(), changed.end()}) ==
                example("changed.sdb"));

    // Another release of the compression library may pack them differently.
    const bytes packed = example("sample-compressed.sdb");
    io::byte_vector plain;
    ASSERT_EQ(sdb::inflate_image(uni::byte_view(packed), plain), sdb::inflation::whole);
    EXPECT_TRUE(bytes(plain.begin(), plain.end()) == image);
}

} // namespace
