#include "files/ewf.h"

namespace files {

std::unique_ptr<io::byte_source> open_ewf(part_files, std::string& reason)
{
    reason = "is an E01 image, which this build does not read: ewfmount makes a raw one of it";
    return nullptr;
}

std::string ewf_library()
{
    return {};
}

} // namespace files
