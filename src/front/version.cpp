#include "front/version.h"

#include "files/ewf.h"
#include "platform/digests.h"
#include "sdb/inflate.h"

// How it was built, which the build says.
#ifndef QUILT_BUILD
#define QUILT_BUILD "unknown"
#endif

namespace front {

namespace {

std::string runtime_library()
{
#ifdef _GLIBCXX_RELEASE
    return ", libstdc++ " + std::to_string(_GLIBCXX_RELEASE);
#else
    return {};
#endif
}

} // namespace

std::string version_line()
{
    return "quilt ver: " + std::string(version);
}

std::string version_text()
{
    const std::string ewf = files::ewf_library();
    return version_line() + "\nbuild: " QUILT_BUILD "\nwith: " + sdb::inflate_library() + ", " +
           platform::digest_library() + (ewf.empty() ? "" : ", " + ewf) + runtime_library() + "\n";
}

} // namespace front
