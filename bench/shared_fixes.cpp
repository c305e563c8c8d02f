#include "shared_fixes.h"

#include <random>
#include <string>
#include <vector>

#include "sdb/tags.h"

namespace test_support {

namespace {

namespace tag = sdb::tag;

constexpr std::size_t fix_count = 800;
constexpr std::uint64_t bytes_of_an_executable = 155;

class shared_fixes {
public:
    bytes make(std::uint64_t executables)
    {
        std::vector<node> fixes;
        for (std::size_t i = 0; i < fix_count; ++i) {
            fixes.push_back(make_fix(i));
        }
        b_.add(b_.list(tag::library, fixes));
        for (std::uint64_t i = 0; i < executables; ++i) {
            b_.add(make_executable(i, fixes));
        }
        return b_.build();
    }

private:
    std::uint64_t dice(std::uint64_t sides) { return engine_() % sides; }
    std::string numbered(const char* name, std::uint64_t number)
    {
        return name + std::to_string(number);
    }
    node guid(std::uint16_t tag)
    {
        bytes made(16);
        for (std::uint8_t& byte : made) {
            byte = static_cast<std::uint8_t>(dice(256));
        }
        return b_.binary(tag, made);
    }

    node make_fix(std::size_t number)
    {
        std::vector<node> tags = {
            b_.text(tag::name, numbered("CorrectSomething", number)),
            b_.text(tag::dllfile, numbered("AcFixes", dice(100)) + ".dll"), guid(tag::fix_id),
            b_.text(tag::description, numbered("What is corrected ", number))};
        for (std::uint64_t i = 2 + dice(8); i > 0; --i) {
            tags.push_back(b_.list(tag::inexclude,
                                   {b_.text(tag::module, numbered("module", dice(400)) + ".dll")}));
        }
        return b_.list(tag::shim, tags);
    }

    node make_executable(std::uint64_t number, const std::vector<node>& fixes)
    {
        std::vector<node> tags = {
            b_.text(tag::name, numbered("Program", number) + ".exe"),
            b_.text(tag::app_name, numbered("Product ", dice(4000))),
            b_.text(tag::vendor, numbered("Vendor Software ", dice(500))), guid(tag::exe_id),
            b_.list(tag::matching_file,
                    {b_.text(tag::name, "*"),
                     b_.text(tag::company_name, numbered("Firm ", dice(500))),
                     b_.qword(tag::upto_bin_product_version, dice(1u << 31) << 16)})};
        for (std::uint64_t i = 1 + dice(3); i > 0; --i) {
            const std::size_t fix = dice(fixes.size());
            tags.push_back(
                b_.list(tag::shim_ref, {b_.text(tag::name, numbered("CorrectSomething", fix)),
                                        b_.reference(tag::shim_tagid, fixes[fix])}));
        }
        return b_.list(tag::exe, tags);
    }

    std::mt19937_64 engine_;
    sdb_builder b_;
};

} // namespace

bytes database_of_shared_fixes(std::uint64_t target_bytes)
{
    return shared_fixes().make(target_bytes / bytes_of_an_executable);
}

} // namespace test_support
