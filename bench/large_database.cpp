#include "large_database.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <stdexcept>

#include "sdb/tags.h"

namespace test_support {
namespace {

namespace tag = sdb::tag;

constexpr std::uint64_t reference_size = 16'777'216;

// What no record of the main loop exceeds, its texts included. The last bytes are filled with
// small records.
constexpr std::uint64_t largest_step = 8192;
constexpr std::uint64_t largest_filler = 512;

constexpr std::uint32_t value_is_dword = 4;
constexpr std::uint32_t english = 0x409;

// Numbers of the engine by own means: the distributions of the standard differ between libraries.
class dice {
public:
    explicit dice(std::uint64_t seed) : engine_(seed) {}

    std::uint64_t bits() { return engine_(); }
    // From `low` to `high`, both included.
    std::uint32_t between(std::uint32_t low, std::uint32_t high)
    {
        const std::uint64_t span = std::uint64_t{high} - low + 1;
        return low + static_cast<std::uint32_t>(((engine_() >> 32) * span) >> 32);
    }
    bool percent(std::uint32_t chance) { return between(1, 100) <= chance; }
    template <typename container>
    const auto& pick(const container& from)
    {
        return from[between(0, static_cast<std::uint32_t>(from.size() - 1))];
    }

private:
    std::mt19937_64 engine_;
};

constexpr std::array<std::string_view, 40> syllables = {
    "ba", "bel", "cor", "da", "den", "dra", "el",  "fen", "fi",  "gar", "gol", "ha",  "hin", "in",
    "jo", "ka",  "kel", "la", "len", "ma",  "mor", "na",  "nev", "or",  "pa",  "pel", "qui", "ra",
    "ri", "sa",  "sen", "ta", "tor", "tu",  "ul",  "va",  "vel", "win", "ye",  "zan",
};

constexpr std::array<std::string_view, 16> nouns = {
    "Studio", "Office", "Ledger", "Planner", "Reader",  "Player", "Archive",  "Gateway",
    "Meter",  "Viewer", "Server", "Toolbox", "Console", "Agent",  "Designer", "Library",
};

constexpr std::array<std::string_view, 6> foreign = {
    "чертёж", "бухгалтерия", "プレーヤー", "測定", "Möbelbau", "🧵",
};

constexpr std::array<std::string_view, 5> firm_forms = {
    "Systems Ltd", "Software GmbH", "Digital Works", "Instruments Inc", "& Partners",
};

class generator {
public:
    generator(std::uint64_t target_bytes, std::uint64_t seed) : target_(target_bytes), dice_(seed)
    {}

    bytes run();

private:
    // How many of something there are, when there are `at_reference` of them in 16 MiB.
    std::uint32_t scaled(std::uint64_t at_reference) const
    {
        return static_cast<std::uint32_t>(
            std::max<std::uint64_t>(1, at_reference * target_ / reference_size));
    }
    bool fits(std::uint64_t more) const
    {
        return b_.size_so_far() + index_bytes_ + more <= target_;
    }

    std::string word(std::uint32_t most_syllables = 4);
    std::string two_words(std::string_view between, std::uint32_t most_syllables = 4);
    std::string phrase();
    std::string file_name(std::string_view extension);
    std::string sentence();
    node guid(std::uint16_t tag);
    node version(std::uint16_t tag);
    node link_date(std::uint16_t tag);
    bytes random_bytes(std::uint32_t low, std::uint32_t high);

    void make_pools();
    node inexclude();
    node shim();
    node patch();
    node attached_file();
    node flag();
    void make_library();
    void make_layers();

    struct known {
        node where;
        std::string name;
    };
    node named_reference(std::uint16_t list, std::uint16_t reference, const known& to);
    node shim_ref();
    node property(std::uint32_t which);
    node matching_file(std::string_view name);
    void add_references(std::vector<node>& tags);
    void add_details(std::vector<node>& tags);
    void make_executable();
    void make_package();
    void make_driver();
    void make_message();
    void make_records();
    void fill_up();
    void make_indexes();

    std::uint64_t target_;
    dice dice_;
    sdb_builder b_;

    std::vector<std::string> vendors_;
    std::vector<std::string> products_;
    std::vector<std::string> modules_;
    std::vector<std::string> descriptions_;
    std::vector<known> shims_;
    std::vector<known> flags_;
    std::vector<known> patches_;
    std::vector<known> layers_;
    std::vector<index_entry> executables_;
    std::vector<index_entry> packages_;
    std::uint64_t index_bytes_ = 0;
};

// ---- texts: 12 to 40 characters --------------------------------------------------------------

std::string generator::word(std::uint32_t most_syllables)
{
    std::string text;
    for (std::uint32_t left = dice_.between(most_syllables - 1, most_syllables); left > 0; --left) {
        text += dice_.pick(syllables);
    }
    text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

// One after the other: the order in which operands are evaluated is open, and the dice remember.
std::string generator::two_words(std::string_view between, std::uint32_t most_syllables)
{
    std::string text = word(most_syllables);
    text += between;
    return text += word(most_syllables);
}

// A product's name.
std::string generator::phrase()
{
    std::string text = dice_.percent(3) ? std::string(dice_.pick(foreign)) : word();
    text += ' ';
    text += word();
    if (dice_.percent(70)) {
        text += ' ';
        text += dice_.pick(nouns);
    }
    text += ' ' + std::to_string(dice_.between(1, 9999));
    while (text.size() < 12) {
        text += dice_.pick(syllables);
    }
    return text;
}

std::string generator::file_name(std::string_view extension)
{
    std::string text = dice_.percent(2) ? std::string(dice_.pick(foreign)) : word();
    std::string second = word();
    second[0] = static_cast<char>(second[0] - 'A' + 'a');
    text += dice_.percent(50) ? "_" : "";
    text += second + std::to_string(dice_.between(0, 999));
    text += extension;
    return text;
}

std::string generator::sentence()
{
    std::string text = word(3);
    text += ' ';
    text += dice_.pick(nouns);
    text += dice_.percent(50) ? " for " : " with ";
    text += word(3);
    return text + ' ' + std::to_string(dice_.between(1, 9999));
}

node generator::guid(std::uint16_t tag)
{
    return b_.binary(tag, random_bytes(16, 16));
}

node generator::version(std::uint16_t tag)
{
    const std::uint64_t major = dice_.between(1, 20);
    const std::uint64_t minor = dice_.between(0, 99);
    const std::uint64_t build = dice_.between(0, 9999);
    const std::uint64_t revision = dice_.percent(20) ? 0xffff : dice_.between(0, 99);
    return b_.qword(tag, major << 48 | minor << 32 | build << 16 | revision);
}

node generator::link_date(std::uint16_t tag)
{
    return b_.dword(
        tag, dice_.between(unix_time(filetime(1996, 1, 1)), unix_time(filetime(2024, 1, 1))));
}

bytes generator::random_bytes(std::uint32_t low, std::uint32_t high)
{
    bytes data(dice_.between(low, high));
    for (std::uint8_t& byte : data) {
        byte = static_cast<std::uint8_t>(dice_.bits() >> 56);
    }
    return data;
}

// ---- library and layers --------------------------------------------------------------------

void generator::make_pools()
{
    for (std::uint32_t i = scaled(3000); i > 0; --i) {
        std::string name = two_words(" ", 3) + ' ';
        vendors_.push_back(name += dice_.pick(firm_forms));
    }
    for (std::uint32_t i = scaled(8000); i > 0; --i) {
        products_.push_back(phrase());
    }
    for (std::uint32_t i = scaled(2000); i > 0; --i) {
        modules_.push_back(file_name(".dll"));
    }
    for (std::uint32_t i = scaled(15000); i > 0; --i) {
        descriptions_.push_back(sentence());
    }
}

node generator::inexclude()
{
    const std::string& module = dice_.pick(modules_);
    if (dice_.percent(40)) {
        return b_.list(tag::inexclude, {b_.null(tag::include), b_.text(tag::module, module)});
    }
    return b_.list(tag::inexclude, {b_.text(tag::module, module)});
}

node generator::shim()
{
    std::string name = two_words("") + "Fix" + std::to_string(shims_.size());
    std::vector<node> tags = {
        b_.text(tag::name, name),
        b_.text(tag::dllfile, dice_.pick(modules_)),
        guid(tag::fix_id),
        b_.text(tag::description, sentence()),
    };
    for (std::uint32_t i = dice_.between(0, 3); i > 0; --i) {
        tags.push_back(inexclude());
    }
    const node made = b_.list(tag::shim, tags);
    shims_.push_back({made, std::move(name)});
    return made;
}

node generator::patch()
{
    std::string name = two_words("") + "Patch" + std::to_string(patches_.size());
    const std::string& module = dice_.pick(modules_);
    std::vector<patch_op> operations;
    for (std::uint32_t i = dice_.between(1, 15); i > 0; --i) {
        const std::uint32_t address = dice_.between(0x1000, 0x400000);
        operations.push_back(match_op(module, address, random_bytes(4, 48)));
        operations.push_back(replace_op(module, address, random_bytes(4, 48)));
    }
    const node made = b_.list(
        tag::patch, {b_.text(tag::name, name), guid(tag::fix_id), b_.patch_bits(operations)});
    patches_.push_back({made, std::move(name)});
    return made;
}

node generator::attached_file()
{
    return b_.list(tag::file, {
                                  b_.text(tag::name, file_name(".bin")),
                                  b_.binary(tag::file_bits, random_bytes(500, 8000)),
                              });
}

node generator::flag()
{
    constexpr std::array masks = {tag::flag_mask_kernel, tag::flag_mask_user, tag::flag_mask_shell,
                                  tag::flag_mask_fusion, tag::flag_lua};
    std::string name = two_words("") + "Flag" + std::to_string(flags_.size());
    const std::uint16_t mask = dice_.pick(masks);
    const node made =
        b_.list(tag::flag, {b_.text(tag::name, name), guid(tag::fix_id),
                            b_.qword(mask, std::uint64_t{1} << dice_.between(0, 63))});
    flags_.push_back({made, std::move(name)});
    return made;
}

void generator::make_library()
{
    std::vector<node> tags;
    for (std::uint32_t i = scaled(20); i > 0; --i) {
        tags.push_back(inexclude());
    }
    for (std::uint32_t i = scaled(1000); i > 0; --i) {
        tags.push_back(shim());
    }
    for (std::uint32_t i = scaled(300); i > 0; --i) {
        tags.push_back(patch());
    }
    for (std::uint32_t i = scaled(250); i > 0; --i) {
        tags.push_back(flag());
    }
    for (std::uint32_t i = scaled(780); i > 0 && fits(target_ / 2); --i) {
        tags.push_back(attached_file());
    }
    b_.add(b_.list(tag::library, tags));
}

void generator::make_layers()
{
    for (std::uint32_t i = scaled(250); i > 0; --i) {
        std::string name = two_words("") + "Layer" + std::to_string(layers_.size());
        std::vector<node> tags = {b_.text(tag::name, name)};
        for (std::uint32_t k = dice_.between(1, 6); k > 0; --k) {
            tags.push_back(named_reference(tag::shim_ref, tag::shim_tagid, dice_.pick(shims_)));
        }
        for (std::uint32_t k = dice_.between(0, 3); k > 0; --k) {
            tags.push_back(named_reference(tag::flag_ref, tag::flag_tagid, dice_.pick(flags_)));
        }
        const node made = b_.list(tag::layer, tags);
        b_.add(made);
        layers_.push_back({made, std::move(name)});
    }
}

// ---- records -------------------------------------------------------------------------------

node generator::named_reference(std::uint16_t list, std::uint16_t reference, const known& to)
{
    return b_.list(list, {b_.text(tag::name, to.name), b_.reference(reference, to.where)});
}

node generator::shim_ref()
{
    const known& shim = dice_.pick(shims_);
    if (!dice_.percent(20)) {
        return named_reference(tag::shim_ref, tag::shim_tagid, shim);
    }
    return b_.list(tag::shim_ref,
                   {b_.text(tag::name, shim.name), b_.reference(tag::shim_tagid, shim.where),
                    b_.text(tag::command_line, sentence())});
}

// The properties that a matching file may have, in the order in which they stand.
node generator::property(std::uint32_t which)
{
    switch (which) {
    case 0:
        return b_.text(tag::company_name, dice_.pick(vendors_));
    case 1:
        return b_.text(tag::product_name, dice_.pick(products_));
    case 2:
        return version(tag::upto_bin_product_version);
    case 3:
        return b_.dword(tag::size, dice_.between(4096, 90'000'000));
    case 4:
        return b_.dword(tag::checksum, static_cast<std::uint32_t>(dice_.bits()));
    case 5:
        return b_.text(tag::file_description, dice_.pick(descriptions_));
    case 6:
        return version(tag::bin_file_version);
    case 7:
        return link_date(tag::link_date);
    case 8:
        return b_.dword(tag::pe_checksum, dice_.between(0, 0x1ffffff));
    case 9:
        return version(tag::upto_bin_file_version);
    case 10:
        return b_.text(tag::internal_name, dice_.pick(modules_));
    default:
        return link_date(tag::upto_link_date);
    }
}

node generator::matching_file(std::string_view name)
{
    constexpr std::uint32_t kinds = 12;
    std::vector<node> tags = {b_.text(tag::name, name)};
    const std::uint32_t count = std::max(dice_.between(3, 8), dice_.between(3, 8));
    // A fair choice of `count` kinds out of all, each at most once.
    for (std::uint32_t which = 0, left = count; left > 0; ++which) {
        if (dice_.between(1, kinds - which) <= left) {
            tags.push_back(property(which));
            --left;
        }
    }
    return b_.list(tag::matching_file, tags);
}

void generator::add_references(std::vector<node>& tags)
{
    for (std::uint32_t i = dice_.between(0, 3); i > 0; --i) {
        tags.push_back(shim_ref());
    }
    for (std::uint32_t i = dice_.between(0, 2); i > 0; --i) {
        tags.push_back(named_reference(tag::flag_ref, tag::flag_tagid, dice_.pick(flags_)));
    }
    if (dice_.percent(10)) {
        tags.push_back(named_reference(tag::layer, tag::layer_tagid, dice_.pick(layers_)));
    }
    if (dice_.percent(3)) {
        tags.push_back(named_reference(tag::patch_ref, tag::patch_tagid, dice_.pick(patches_)));
    }
}

// A message for some, and loose data.
void generator::add_details(std::vector<node>& tags)
{
    if (dice_.percent(30)) {
        tags.push_back(
            b_.list(tag::apphelp,
                    {b_.dword(tag::flags, 1), b_.dword(tag::problemseverity, dice_.between(1, 3)),
                     b_.dword(tag::htmlhelpid, dice_.between(1, 100'000))}));
    }
    for (std::uint32_t i = dice_.between(0, 2); i > 0; --i) {
        tags.push_back(b_.list(tag::data, {b_.text(tag::name, dice_.pick(nouns)),
                                           b_.dword(tag::data_valuetype, value_is_dword),
                                           b_.dword(tag::data_dword, dice_.between(0, 65535))}));
    }
}

void generator::make_executable()
{
    const std::string name = file_name(".exe");
    std::vector<node> tags = {
        b_.text(tag::name, name),
        b_.text(tag::app_name, dice_.percent(50) ? dice_.pick(products_) : phrase()),
        b_.text(tag::vendor, dice_.pick(vendors_)),
        guid(tag::exe_id),
    };
    tags.push_back(matching_file("*"));
    for (std::uint32_t i = dice_.between(0, 4); i > 0; --i) {
        tags.push_back(matching_file(dice_.percent(55) ? file_name(".dll") : dice_.pick(modules_)));
    }
    add_references(tags);
    add_details(tags);
    const node made = b_.list(tag::exe, tags);
    b_.add(made);
    executables_.push_back({index_key(name), made});
    index_bytes_ += 12;
}

void generator::make_package()
{
    const bytes id = random_bytes(16, 16);
    std::uint64_t key = 0;
    for (std::size_t i = 8; i-- > 0;) {
        key = key << 8 | id[i];
    }
    const node made = b_.list(tag::msi_package, {
                                                    b_.text(tag::name, file_name(".msi")),
                                                    b_.text(tag::app_name, dice_.pick(products_)),
                                                    b_.text(tag::vendor, dice_.pick(vendors_)),
                                                    b_.binary(tag::msi_package_id, id),
                                                    guid(tag::exe_id),
                                                    shim_ref(),
                                                });
    b_.add(made);
    packages_.push_back({key, made});
    index_bytes_ += 12;
}

void generator::make_driver()
{
    b_.add(b_.list(tag::kdriver, {
                                     b_.text(tag::name, file_name(".sys")),
                                     b_.text(tag::vendor, dice_.pick(vendors_)),
                                     guid(tag::exe_id),
                                     b_.dword(tag::flags, dice_.between(0, 7)),
                                     version(tag::upto_bin_product_version),
                                     link_date(tag::link_date),
                                 }));
}

void generator::make_message()
{
    b_.add(b_.list(tag::apphelp,
                   {
                       b_.dword(tag::htmlhelpid, dice_.between(1, 100'000)),
                       b_.dword(tag::problemseverity, dice_.between(1, 3)),
                       b_.dword(tag::langid, english),
                       b_.text(tag::apphelp_title, sentence()),
                       b_.text(tag::apphelp_details, sentence()),
                       b_.list(tag::link, {b_.text(tag::link_text, phrase()),
                                           b_.text(tag::link_url,
                                                   "https://help.example/" + word() + ".html")}),
                   }));
}

void generator::make_records()
{
    for (std::uint32_t i = 0; fits(largest_step); ++i) {
        make_executable();
        if (i % 8 == 0) {
            make_package();
        }
        if (i % 10 == 0) {
            make_driver();
        }
        if (i % 10 == 5) {
            make_message();
        }
    }
}

void generator::fill_up()
{
    while (fits(largest_filler)) {
        make_driver();
    }
}

void generator::make_indexes()
{
    const auto by_key = [](const index_entry& x, const index_entry& y) { return x.key < y.key; };
    std::stable_sort(executables_.begin(), executables_.end(), by_key);
    std::stable_sort(packages_.begin(), packages_.end(), by_key);
    b_.index(tag::exe, tag::name, 0, executables_);
    b_.index(tag::msi_package, tag::msi_package_id, 0, packages_);
}

bytes generator::run()
{
    constexpr std::uint64_t empty_indexes = 6 + 2 * 26;
    index_bytes_ = empty_indexes;
    b_.version(2, 3);
    b_.add({
        b_.qword(tag::time, filetime(2025, 1, 2, 3, 4, 5)),
        b_.text(tag::compiler_version, "v3.0.0.1"),
        b_.text(tag::name, "Generated system database"),
        b_.dword(tag::os_platform, 1),
        guid(tag::database_id),
    });
    make_pools();
    make_library();
    make_layers();
    make_records();
    fill_up();
    make_indexes();
    return b_.build();
}

} // namespace

bytes large_database(std::uint64_t target_bytes, std::uint64_t seed)
{
    if (target_bytes < smallest_large_database || target_bytes >= std::uint64_t{1} << 32) {
        throw std::logic_error("large_database: size out of range");
    }
    return generator(target_bytes, seed).run();
}

} // namespace test_support
