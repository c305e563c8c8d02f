// Decodes arbitrary bytes as a version resource. What stands in the map must stand in the bytes.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "pe/version_resource.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    pe::version_map map;
    pe::decode_version_resource(map, uni::byte_view({data, size}));
    for (const auto& [key, entry] : map) {
        if (entry.offset > size || entry.size > size - entry.offset) {
            std::abort();
        }
    }
    return 0;
}
