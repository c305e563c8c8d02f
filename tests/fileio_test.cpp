#include "io/fileio.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "io/byte_source.h"
#include "io/stdin_stream.h"
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
class fileio : public testing::Test {
protected:
    fileio()
    {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
    }
    ~fileio() override { fs::remove_all(folder_); }

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

    fs::path folder_ =
        fs::path(testing::TempDir()) /
        (std::string("fileio_") + testing::UnitTest::GetInstance()->current_test_info()->name());
};

TEST_F(fileio, results_end_lines_with_cr_lf_unless_in_byte_mode)
{
    for (const auto& [byte_mode, expected] :
         {std::pair(false, "\r\none\r\n\r\ntwo\r\r\nthree"), {true, "\none\n\ntwo\r\nthree"}}) {
        io::fileio file;
        ASSERT_TRUE(file.open_write(path("out"), true, byte_mode, true));
        file.output_stream()->text("\none\n\ntwo\r\nthree");
        file.close();
        EXPECT_EQ(file.output_stream(), nullptr);
        EXPECT_EQ(contents("out"), expected);
    }
}

TEST_F(fileio, stream_keeps_order_across_full_buffers)
{
    constexpr std::size_t buffer = io::output_sink::buffer_bytes;
    const std::string filling(buffer - 1, 'a');
    const std::string longer_than_the_buffer(buffer + 100, 'b');
    io::fileio file;
    ASSERT_TRUE(file.open_write(path("out"), true, false, true));
    io::output_sink& out = *file.output_stream();
    out.text(filling);
    out.line_end(); // the buffer's last byte
    out.text(longer_than_the_buffer);
    out.line_end();
    out.right("z", buffer);
    file.close();
    EXPECT_TRUE(contents("out") == filling + "\r\n" + longer_than_the_buffer + "\r\n" +
                                       std::string(buffer - 1, ' ') + "z");
}

TEST_F(fileio, opening_for_writing)
{
    io::fileio file;
    EXPECT_FALSE(file.open_write("", true, true, true));
    EXPECT_FALSE(file.open_write(path("absent"), true, true, false));
    EXPECT_FALSE(file.is_open() || fs::exists(path("absent")));
    ASSERT_TRUE(file.open_write(make("kept", "old") + "/\\/", true, true, false));
    EXPECT_EQ(file.size(), 3);
    std::ofstream(path("kept"), std::ios::app) << " text";
    EXPECT_TRUE(file.append(bytes_of("!"))) << "to the end that it has now";
    EXPECT_EQ(file.size(), 9);
    fs::permissions(make("locked", "old text"), fs::perms::owner_read);
    ASSERT_TRUE(file.open_write(path("locked"), true, true, true)) << "closes what was open";
    EXPECT_EQ(file.size(), 0);
    EXPECT_TRUE(file.append(bytes_of("new")));
    file.close();
    EXPECT_EQ(contents("kept") + contents("locked"), "old text!new");
}

TEST_F(fileio, reads_what_exists)
{
    io::fileio file;
    io::byte_vector out = {1};
    EXPECT_FALSE(file.read_at(out, 1, 0));
    EXPECT_FALSE(file.open_read(path("absent")));
    ASSERT_TRUE(file.open_read(make("in", digits)));
    EXPECT_EQ(file.size(), 10);
    const std::tuple<std::uint64_t, int, bool, const char*> cases[] = {{4, 3, true, "3456"},
                                                                       {~0ull, 8, true, "89"},
                                                                       {0, 9, true, ""},
                                                                       {0, 10, false, ""},
                                                                       {1, -1, false, ""}};
    for (const auto& [count, offset, read, expected] : cases) {
        EXPECT_EQ(file.read_at(out, count, offset), read) << offset;
        EXPECT_EQ(std::string(out.begin(), out.end()), expected) << offset;
    }
    EXPECT_FALSE(file.append(bytes_of("x"))) << "not opened for writing";
}

TEST_F(fileio, sources_read_what_exists)
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

TEST_F(fileio, is_there_or_not)
{
    for (const auto& [name, exists] : {std::pair(std::string(), false),
                                       {path("absent"), false},
                                       {make("empty", ""), true},
                                       {path("."), true}}) {
        EXPECT_EQ(io::file_exists(name), exists) << name;
    }
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

TEST(stdin_stream, gives_lines_of_at_most_4095_bytes)
{
    std::FILE* const input = std::tmpfile();
    ASSERT_NE(input, nullptr);
    const std::string start(4095, 'x');
    std::fputs(("a b \r\r\n\n\r\n" + start + "xyz\nlast\r").c_str(), input);
    std::rewind(input);
    io::stdin_stream lines(input);
    std::vector<std::string> found;
    for (std::string line; lines.stdin_list_next(line);) {
        found.push_back(line);
    }
    EXPECT_EQ(found, (std::vector<std::string>{"a b ", "", "", start, "xyz", "last"}));
    std::fclose(input);
    std::string line = "old";
    EXPECT_FALSE(io::stdin_stream(nullptr).stdin_list_next(line));
    EXPECT_EQ(line, "");
}

} // namespace
