#include "platform/host.h"

#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <semaphore.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace platform {

namespace {

// The first `wanted` numbers of a release text such as "6.1.0-18-amd64", joined by dots.
std::string leading_numbers(std::string_view release, int wanted)
{
    std::string out;
    for (int taken = 0; taken < wanted; ++taken) {
        const std::size_t length = release.find_first_not_of("0123456789");
        const std::string_view number = release.substr(0, length);
        if (number.empty()) {
            break;
        }
        out.append(taken == 0 ? "" : ".").append(number);
        if (length == std::string_view::npos || release[length] != '.') {
            break;
        }
        release.remove_prefix(length + 1);
    }
    return out;
}

} // namespace

std::optional<std::string> environment_variable(const std::string& name)
{
    const char* const value = std::getenv(name.c_str());
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

std::string host_name()
{
    struct utsname system {};
    return ::uname(&system) == 0 && system.nodename[0] != '\0' ? system.nodename : "<unk>";
}

host_facts read_host_facts()
{
    host_facts facts;
    facts.is_64bit = sizeof(void*) == 8;
    facts.host_name = host_name();
    struct utsname system {};
    if (::uname(&system) == 0) {
        facts.os_name = system.sysname;
        facts.os_version_text = leading_numbers(system.release, 2) + ".-";
        facts.os_build_text = leading_numbers(system.release, 3);
    }
    return facts;
}

std::optional<std::string> own_software_hive()
{
    return std::nullopt;
}

bool is_process_admin()
{
    return ::geteuid() == 0;
}

void raise_named_event(const std::string& name)
{
    sem_t* const event = ::sem_open(("/" + name).c_str(), O_CREAT, 0600, 0);
    if (event != SEM_FAILED) {
        ::sem_post(event);
        ::sem_close(event);
    }
}

} // namespace platform
