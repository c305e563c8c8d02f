#include "io/output_file.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "io/byte_source.h"
#include "support/byte_writer.h"

namespace {

namespace fs = std::filesystem;
using test_support::bytes;
constexpr std::string_view digits = "0123456789";

bytes bytes_of(std::string_view text)
{
    return {text.begin(), text.end()};
}

// A folder of its own for each test.
class output_files : public testing::Test {
protected:
    output_files()
    {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
    }
    ~output_files() override { fs::remove_all(folder_); }

    std::string path(const std::string& name) const { return (folder_ / name).string(); }
    std::string make(const std::string& name, std::string_view contents) const
    {
        std::ofstream(folder_ / name, std::ios::binary) << contents;
        return path(name);
    }
    std::string contents(const std::string& name) const
    {
        std::ifstream file(folder_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    fs::path folder_ = fs::path(testing::TempDir()) /
                       (std::string("output_files_") +
                        testing::UnitTest::GetInstance()->current_test_info()->name());
};

TEST_F(output_files, come_to_their_place_when_they_are_whole)
{
    using io::output_mode;
    const std::tuple<const char*, output_mode, const char*, const char*> cases[] = {
        {"no file", output_mode::replace, nullptr, "new\r\n"},
        {"an old one", output_mode::replace, "old", "new\r\n"},
        {"with no partial one", output_mode::replace_fresh, "old", "new\r\n"},
        {"appended to", output_mode::append, "old\r\n", "old\r\nnew\r\n"},
        {"appended to a line", output_mode::append, "old", "old\r\nnew\r\n"},
        {"appended to none", output_mode::append, nullptr, "new\r\n"},
    };
    for (const auto& [what, mode, before, behind] : cases) {
        for (const bool is_finished : {true, false}) {
            SCOPED_TRACE(what);
            const std::string old = before != nullptr ? before : "";
            fs::remove(folder_ / "out");
            fs::remove(folder_ / "out.partial");
            if (before != nullptr) {
                make("out", before);
            }
            io::output_file file;
            std::string reason;
            ASSERT_TRUE(file.open(io::output_file::find(path("out"), mode), mode, reason));
            file.text("new\n");
            file.flush();
            EXPECT_EQ(contents("out"), mode == output_mode::append ? behind : old);
            if (is_finished) {
                EXPECT_TRUE(file.finish());
            } else {
                file.give_up();
            }
            EXPECT_EQ(contents("out"), is_finished ? behind : old);
            EXPECT_EQ(fs::exists(folder_ / "out.partial"),
                      !is_finished && mode != output_mode::append);
        }
    }
    make("out.partial", "another's");
    io::output_file file;
    std::string reason;
    EXPECT_FALSE(file.open(io::output_file::find(path("out"), output_mode::replace_fresh),
                           output_mode::replace_fresh, reason));
    EXPECT_EQ(contents("out.partial"), "another's");
}

TEST_F(output_files, keep_their_order_across_full_buffers)
{
    constexpr std::size_t buffer = io::output_sink::buffer_bytes;
    const std::string filling(buffer - 1, 'a');
    const std::string longer_than_the_buffer(buffer + 100, 'b');
    io::output_file out;
    std::string reason;
    ASSERT_TRUE(out.open(io::output_file::find(path("out"), io::output_mode::replace),
                         io::output_mode::replace, reason));
    out.text(filling);
    out.line_end(); // the buffer's last byte
    out.text(longer_than_the_buffer);
    out.line_end();
    out.right("z", buffer);
    EXPECT_TRUE(out.finish());
    EXPECT_TRUE(contents("out") == filling + "\r\n" + longer_than_the_buffer + "\r\n" +
                                       std::string(buffer - 1, ' ') + "z");
}

TEST_F(output_files, sources_read_what_exists)
{
    const auto file = io::open_source(make("in", digits) + "/");
    ASSERT_NE(file, nullptr);
    EXPECT_NE(file->times().write, 0u);
    const auto memory = test_support::source_of(bytes_of(digits));
    for (io::byte_source* const source : {file.get(), memory.get()}) {
        EXPECT_EQ(source->size(), 10u);
        for (const auto& [offset, expected] :
             {std::pair(std::uint64_t{3}, "3456"), {8, "89"}, {10, ""}, {~std::uint64_t{0}, ""}}) {
            bytes out(4);
            out.resize(source->read(out, offset));
            EXPECT_EQ(out, bytes_of(expected));
        }
        io::byte_vector out = {1};
        EXPECT_TRUE(io::read_source(out, *source, 4));
        EXPECT_EQ(std::string(out.begin(), out.end()), "0123");
        EXPECT_FALSE(io::read_source(out, *source, 0));
    }
    EXPECT_FALSE(io::open_source(path("absent")) || io::open_source(""));
}

struct breaking_sink : io::output_sink {
    bool write_block(std::string_view block) override
    {
        written += works ? block : "";
        return works;
    }
    std::string written;
    bool works = true;
};

TEST(output_sink, drops_everything_behind_a_failed_block)
{
    breaking_sink out;
    for (const bool works : {true, false, true}) {
        out.works = works;
        out.text("block");
        out.flush();
    }
    EXPECT_FALSE(out.good());
    EXPECT_EQ(out.written, "block");
}

} // namespace
