// Runs the whole program: options and lists from lines, up to an empty one, what stands behind it as the
// file that is read. The last byte chooses what kind of file that is. A scratch folder is all that a run
// can reach, and whatever it was given, it ends with 0 or -1, with a word where it is -1, and with text
// that does nothing to a terminal.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <sanitizer/common_interface_defs.h>
#include <sys/mman.h>
#include <unistd.h>

#include "front/run_driver.h"
#include "readers.h"
#include "support/hive_builder.h"
#include "support/ntfs_builder.h"
#include "support/pe_builder.h"
#include "support/sample_database.h"

namespace {

// Longer inputs find nothing that shorter ones do not.
constexpr std::size_t longest_input = 65'536;
constexpr std::size_t most_words = 24;

using words = std::vector<std::string>;

// A stream of the program that leads into memory for as long as the object lives.
class caught_stream {
public:
    explicit caught_stream(int descriptor)
        : descriptor_(descriptor), before_(::dup(descriptor)), file_(::memfd_create("caught", 0))
    {
        __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(before_)));
        ::dup2(file_, descriptor_);
    }
    ~caught_stream()
    {
        ::dup2(before_, descriptor_);
        ::close(before_);
        ::close(file_);
        __sanitizer_set_report_fd(reinterpret_cast<void*>(2));
    }
    caught_stream(const caught_stream&) = delete;
    caught_stream& operator=(const caught_stream&) = delete;

    void give(std::string_view input)
    {
        fuzz::require(::write(file_, input.data(), input.size()) ==
                          static_cast<ssize_t>(input.size()),
                      "no memory for a stream");
        ::lseek(file_, 0, SEEK_SET);
    }
    std::string taken() const
    {
        std::string text(static_cast<std::size_t>(::lseek(file_, 0, SEEK_END)), '\0');
        fuzz::require(::pread(file_, text.data(), text.size(), 0) ==
                          static_cast<ssize_t>(text.size()),
                      "a stream that cannot be read");
        return text;
    }

private:
    int descriptor_;
    int before_;
    int file_;
};

void write_file(const char* name, std::string_view contents)
{
    std::ofstream(name, std::ios::binary) << contents;
}

std::string text_of(const test_support::bytes& contents)
{
    return {contents.begin(), contents.end()};
}

// A folder of its own, in which a run finds a sample of each kind of file.
class scratch_folder {
public:
    scratch_folder()
    {
        const bool has_memory = std::filesystem::is_directory("/dev/shm");
        std::string place = has_memory ? "/dev/shm/quilt-run-XXXXXX" : "/tmp/quilt-run-XXXXXX";
        fuzz::require(::mkdtemp(place.data()) != nullptr, "no scratch folder");
        folder_ = place;
        enter();
        std::filesystem::create_directories("v/Windows/AppPatch");
        write_file("v/Windows/AppPatch/sysmain.sdb", sample);
        write_file("sample.sdb", sample);
        leave();
    }
    ~scratch_folder() { std::filesystem::remove_all(folder_); }

    void enter()
    {
        before_ = std::filesystem::current_path();
        std::filesystem::current_path(folder_);
        write_file("tool.exe", tool);
    }
    // Removes what a run left there.
    void leave()
    {
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            if (entry.path().filename() != "v" && entry.path().filename() != "sample.sdb") {
                std::filesystem::remove_all(entry.path());
            }
        }
        std::filesystem::current_path(before_);
    }

    const std::string sample = text_of(test_support::sample_database());
    const std::string tool = text_of(test_support::sample_program(true));

private:
    std::filesystem::path folder_;
    std::filesystem::path before_;
};

// The words of an input, without a way out of the folder or to what other programs see.
words words_of(std::string_view lines)
{
    words found;
    while (!lines.empty() && found.size() < most_words) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        std::string word(lines.substr(0, end));
        for (char& c : word) {
            c = c == '/' || c == '\\' || c == '\0' ? '_' : c;
        }
        if (word.find("ignal") == word.npos && word.find("IGNAL") == word.npos && word != "..") {
            found.push_back(std::move(word));
        }
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    return found;
}

request::bounds small_bounds()
{
    request::bounds bounds;
    bounds.text_bytes = 0x100000;
    bounds.inflated_bytes = 0x100000;
    bounds.listing_items = 20'000;
    bounds.matched_items = 20'000;
    return bounds;
}

// A volume with a hive that knows two databases.
std::string sound_volume()
{
    using namespace test_support;
    constexpr std::uint8_t clusters = 32;
    bytes hive = hive_builder().build(
        software_hive({installed_database("{1}.sdb", "C:\\Windows\\AppPatch\\sysmain.sdb", "a", 1),
                       installed_database("{2}.sdb", "D:\\b.sdb", "b", 2)}));
    hive.resize(clusters * ntfs_cluster);
    ntfs_builder volume =
        windows_volume({non_resident_attribute(0x80, {{0x21, clusters, 200, 0, 0}, hive.size()})});
    volume.clusters(200, hive);
    return text_of(volume.image());
}

std::string changed_volume(std::string_view changes)
{
    static const std::string sound = sound_volume();
    std::string image = sound;
    for (std::size_t at = 0; at + 4 <= changes.size();) {
        const auto byte = [&](std::size_t i) {
            return static_cast<unsigned char>(changes[at + i]);
        };
        const std::size_t place = (byte(0) + byte(1) * 256u) * 512 + byte(2) * 2u;
        const std::string_view with = changes.substr(at + 4, byte(3));
        for (std::size_t i = 0; i < with.size() && place + i < image.size(); ++i) {
            image[place + i] = with[i];
        }
        at += 4 + with.size();
    }
    return image;
}

// Puts the file of the input into its place and names it in front of the input's own words. Gives what
// stands on standard input.
std::string_view take_file(unsigned kind, std::string_view contents, words& arguments)
{
    switch (kind % 8) {
    case 0:
        write_file("a.sdb", contents);
        arguments = {"-sdb", "a.sdb"};
        return {};
    case 1:
        arguments = {"-pipe"};
        return contents;
    case 2:
        write_file("a.sdb", contents);
        arguments = {"-enumdir", "."};
        return {};
    case 3:
        write_file("hive", contents);
        arguments = {"-sdb", "sample.sdb", "-stats", "-reg", "hive"};
        return {};
    case 4:
        write_file("volume", changed_volume(contents));
        arguments = {"-partition", "volume"};
        return {};
    case 5:
        write_file("a.sdb", contents);
        arguments = {"-sdb", "a.sdb", "-match", "-pe", "tool.exe"};
        return {};
    case 6:
        write_file("tool.exe", contents);
        arguments = {"-pe", "tool.exe"};
        return {};
    default:
        arguments = {"-partition", "v"};
        return contents;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static scratch_folder folder;
    if (size == 0 || size > longest_input) {
        return -1;
    }
    const std::string_view input(reinterpret_cast<const char*>(data), size - 1);
    const std::size_t lines = std::min(input.find("\n\n"), input.size());
    const std::string_view contents = input.substr(std::min(lines + 2, input.size()));
    words arguments;
    folder.enter();
    const std::string_view given = take_file(data[size - 1], contents, arguments);
    arguments.insert(arguments.begin(), "quilt");
    for (std::string& word : words_of(input.substr(0, lines))) {
        arguments.push_back(std::move(word));
    }
    std::string printed;
    std::string said;
    int result = 0;
    {
        caught_stream in(0);
        in.give(given);
        const caught_stream out(1);
        const caught_stream messages(2);
        result = front::run_driver(arguments, small_bounds());
        printed = out.taken();
        said = messages.taken();
    }
    folder.leave();
    fuzz::require(result == 0 || result == -1, "an exit value that is none");
    // What is no pattern is told on standard output.
    fuzz::require(result == 0 || !said.empty() ||
                      printed.find("prob understanding") != printed.npos,
                  "a failure without a word");
    fuzz::require_text(printed);
    fuzz::require_text(said, true);
    if (printed.starts_with("{\"kind\":\"run\"")) {
        fuzz::require_json_lines(printed, true);
    } else if (printed.starts_with("<!DOCTYPE")) {
        fuzz::require_page(printed);
    }
    return 0;
}
