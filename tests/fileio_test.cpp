#include "io/fileio.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "io/stdin_stream.h"

namespace {

namespace fs = std::filesystem;

std::span<const std::uint8_t> bytes_of(std::string_view text)
{
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// A folder of its own for each test.
class fileio : public testing::Test {
protected:
    fileio()
    {
        const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
        folder_ = fs::path(testing::TempDir()) / (std::string("fileio_") + test->name());
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

    fs::path folder_;
};

TEST_F(fileio, results_end_lines_with_cr_lf_unless_in_byte_mode)
{
    for (const bool byte_mode : {false, true}) {
        io::fileio file;
        ASSERT_TRUE(file.open_write(path("out"), true, byte_mode, true));
        file.output_stream()->text("\none\n\ntwo\r\nthree");
        file.close();
        EXPECT_EQ(file.output_stream(), nullptr);
        EXPECT_EQ(contents("out"),
                  byte_mode ? "\none\n\ntwo\r\nthree" : "\r\none\r\n\r\ntwo\r\r\nthree");
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
    EXPECT_FALSE(fs::exists(folder_ / "absent"));
    EXPECT_FALSE(file.is_open());

    make("kept", "old text");
    ASSERT_TRUE(file.open_write(path("kept") + "/\\/", true, true, false));
    EXPECT_EQ(file.size(), 8);
    EXPECT_TRUE(file.write_at(bytes_of("NEW"), 0));
    EXPECT_TRUE(file.append(bytes_of("!")));
    EXPECT_EQ(file.size(), 9);
    fs::permissions(make("locked", "old text"), fs::perms::owner_read);
    ASSERT_TRUE(file.open_write(path("locked"), true, true, true)) << "closes what was open";
    EXPECT_EQ(file.size(), 0);
    EXPECT_TRUE(file.append(bytes_of("new")));
    file.close();
    EXPECT_EQ(contents("kept") + contents("locked"), "NEW text!new");
}

TEST_F(fileio, append_goes_to_the_end_that_the_file_has_now)
{
    io::fileio file;
    ASSERT_TRUE(file.open_write(make("grows", "1"), true, true, false));
    std::ofstream(folder_ / "grows", std::ios::app) << "2";
    EXPECT_TRUE(file.append(bytes_of("3")));
    EXPECT_EQ(file.size(), 3);
    EXPECT_EQ(contents("grows"), "123");
}

TEST_F(fileio, reads_what_exists_on_disk_and_in_memory)
{
    const std::string_view text = "0123456789";
    io::fileio on_disk;
    io::fileio in_memory;
    io::byte_vector out = {1};
    const auto read = [&] { return std::string(out.begin(), out.end()); };
    EXPECT_FALSE(on_disk.read_at(out, 1, 0));
    EXPECT_FALSE(on_disk.open_read(path("absent")));
    ASSERT_TRUE(on_disk.open_read(make("in", text)));
    in_memory.open_memory(io::byte_vector(text.begin(), text.end()));
    EXPECT_FALSE(in_memory.open_write(path("in"), true, true, true)) << "refused in memory mode";
    for (io::fileio* const file : {&on_disk, &in_memory}) {
        EXPECT_EQ(file->size(), 10);
        EXPECT_TRUE(file->read_at(out, 4, 3));
        EXPECT_EQ(read(), "3456");
        EXPECT_TRUE(file->read_at(out, ~std::uint64_t{0}, 8));
        EXPECT_EQ(read(), "89");
        EXPECT_TRUE(file->read_at(out, 0, 9));
        EXPECT_EQ(read(), "");
        EXPECT_FALSE(file->read_at(out, 0, 10));
        EXPECT_FALSE(file->read_at(out, 1, -1));
    }
    EXPECT_FALSE(on_disk.append(bytes_of("x"))) << "opened for reading";
    EXPECT_TRUE(in_memory.append(bytes_of("ab")));
    EXPECT_TRUE(in_memory.read_at(out, 9, 9));
    EXPECT_EQ(read(), "9ab");
}

TEST_F(fileio, loading_stops_at_the_limit)
{
    make("in", "0123456789");
    io::byte_vector out;
    for (const auto& [limit, size] : {std::pair(4u, 4u), {10u, 10u}, {100u, 10u}}) {
        EXPECT_TRUE(io::load_file_bytes(out, path("in"), limit));
        EXPECT_EQ(out.size(), size);
    }
    for (const std::string& bad : {std::string(), path("absent"), make("empty", ""), path(".")}) {
        EXPECT_FALSE(io::load_file_bytes(out, bad, 100)) << bad;
        EXPECT_TRUE(out.empty());
        EXPECT_EQ(io::file_exists(bad), !bad.empty() && bad != path("absent"));
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
    for (const bool trim : {false, true}) {
        std::rewind(input);
        io::stdin_stream lines(input);
        std::vector<std::string> found;
        for (std::string line; lines.stdin_list_next(line, trim);) {
            found.push_back(line);
        }
        EXPECT_EQ(found, (trim ? std::vector<std::string>{"a b ", "", "", start, "xyz", "last"}
                               : std::vector<std::string>{"a b \r\r\n", "\n", "\r\n", start,
                                                          "xyz\n", "last\r"}));
    }
    std::fclose(input);
    std::string line = "old";
    EXPECT_FALSE(io::stdin_stream(nullptr).stdin_list_next(line, true));
    EXPECT_EQ(line, "");
}

} // namespace
