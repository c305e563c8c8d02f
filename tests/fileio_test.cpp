#include "io/fileio.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "io/byte_source.h"

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

TEST_F(fileio, reads_what_exists_on_disk_and_in_memory)
{
    const std::string_view text = "0123456789";
    io::fileio on_disk, in_memory;
    io::byte_vector out = {1};
    EXPECT_FALSE(on_disk.read_at(out, 1, 0));
    EXPECT_FALSE(on_disk.open_read(path("absent")));
    ASSERT_TRUE(on_disk.open_read(make("in", text)));
    in_memory.open_memory(io::byte_vector(text.begin(), text.end()));
    EXPECT_FALSE(in_memory.open_write(path("in"), true, true, true)) << "refused in memory mode";
    for (io::fileio* const file : {&on_disk, &in_memory}) {
        EXPECT_EQ(file->size(), 10);
        for (const auto& [count, offset, read, expected] :
             {std::tuple(std::uint64_t{4}, 3, true, "3456"),
              {~std::uint64_t{0}, 8, true, "89"},
              {0, 9, true, ""},
              {0, 10, false, ""},
              {1, -1, false, ""}}) {
            EXPECT_EQ(file->read_at(out, count, offset), read) << offset;
            EXPECT_EQ(std::string(out.begin(), out.end()), expected) << offset;
        }
        EXPECT_FALSE(file->append(bytes_of("x"))) << "not opened for writing";
    }
}

TEST_F(fileio, sources_read_what_exists)
{
    const std::string_view text = "0123456789";
    const auto file = io::open_source(make("in", text) + "/");
    ASSERT_NE(file, nullptr);
    EXPECT_NE(file->times().write, 0u);
    io::memory_source memory(io::byte_vector(text.begin(), text.end()));
    for (io::byte_source* const source : {file.get(), static_cast<io::byte_source*>(&memory)}) {
        EXPECT_EQ(source->size(), 10u);
        for (const auto& [offset, expected] :
             {std::pair(std::uint64_t{3}, "3456"), {8, "89"}, {10, ""}, {~std::uint64_t{0}, ""}}) {
            std::string out = "....";
            out.resize(
                source->read(std::span(reinterpret_cast<std::uint8_t*>(out.data()), 4), offset));
            EXPECT_EQ(out, expected);
        }
        io::byte_vector out = {1};
        EXPECT_TRUE(io::read_source(out, *source, 4));
        EXPECT_EQ(std::string(out.begin(), out.end()), "0123");
        EXPECT_FALSE(io::read_source(out, *source, 0));
    }
    EXPECT_EQ(io::open_source(path("absent")), nullptr);
    EXPECT_EQ(io::open_source(""), nullptr);
}

TEST_F(fileio, loading_stops_at_the_limit)
{
    make("in", "0123456789");
    io::byte_vector out;
    for (const auto& [limit, size] : {std::pair(4u, 4u), {10u, 10u}, {100u, 10u}}) {
        EXPECT_TRUE(io::load_file_bytes(out, path("in"), limit));
        EXPECT_EQ(out.size(), size);
    }
    for (const auto& [bad, exists] : {std::pair(std::string(), false),
                                      {path("absent"), false},
                                      {make("empty", ""), true},
                                      {path("."), true}}) {
        EXPECT_FALSE(io::load_file_bytes(out, bad, 100)) << bad;
        EXPECT_TRUE(out.empty());
        EXPECT_EQ(io::file_exists(bad), exists) << bad;
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

} // namespace
