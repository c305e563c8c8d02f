// Images in the Expert Witness format, which keep their bytes in chunks with checksums, in files named
// disk.E01, disk.E02 and so on. They are read by libewf, where the build has it.
#pragma once

#include <memory>
#include <string>

#include "files/part_files.h"
#include "io/byte_source.h"

namespace files {

// The bytes of the disk or volume that the files hold. Chunks whose checksums are wrong cannot be read.
// Null, with the reason in words, where it does not open or the build cannot read it.
std::unique_ptr<io::byte_source> open_ewf(part_files files, std::string& reason);

// The name of the library that reads them, with its version; empty where the build has none.
std::string ewf_library();

} // namespace files
