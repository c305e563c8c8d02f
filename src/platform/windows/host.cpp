#include "platform/host.h"

#include <vector>

#include <windows.h>

#include <shlobj.h>

#include "platform/windows/wide.h"

namespace platform {

namespace {

struct system_version {
    bool known = false;
    unsigned major = 0;
    unsigned minor = 0;
    unsigned build = 0;
};

bool is_at_least_6_1()
{
    OSVERSIONINFOEXA wanted{};
    wanted.dwOSVersionInfoSize = sizeof wanted;
    wanted.dwMajorVersion = 6;
    wanted.dwMinorVersion = 1;
    DWORDLONG mask = ::VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
    mask = ::VerSetConditionMask(mask, VER_MINORVERSION, VER_GREATER_EQUAL);
    return ::VerifyVersionInfoA(&wanted, VER_MAJORVERSION | VER_MINORVERSION, mask) != 0;
}

// The version of kernel32, which no compatibility setting changes.
system_version read_system_version()
{
    system_version version;
    DWORD ignored = 0;
    const DWORD size = ::GetFileVersionInfoSizeW(L"kernel32.dll", &ignored);
    std::vector<char> block(size);
    void* fixed = nullptr;
    UINT fixed_size = 0;
    if (size == 0 || !::GetFileVersionInfoW(L"kernel32.dll", 0, size, block.data()) ||
        !::VerQueryValueW(block.data(), L"\\", &fixed, &fixed_size) ||
        fixed_size < sizeof(VS_FIXEDFILEINFO)) {
        return version;
    }
    const auto* const information = static_cast<const VS_FIXEDFILEINFO*>(fixed);
    version.major = information->dwProductVersionMS >> 16;
    version.minor = information->dwProductVersionMS & 0xffff;
    version.build = information->dwProductVersionLS >> 16;
    version.known = is_at_least_6_1() && version.major >= 6;
    return version;
}

const char* role_word(BYTE product_type)
{
    switch (product_type) {
    case VER_NT_WORKSTATION:
        return "workstation";
    case VER_NT_DOMAIN_CONTROLLER:
        return "domain-controller";
    case VER_NT_SERVER:
        return "server";
    default:
        return "-";
    }
}

bool has_product_type(BYTE product_type)
{
    OSVERSIONINFOEXA wanted{};
    wanted.dwOSVersionInfoSize = sizeof wanted;
    wanted.wProductType = product_type;
    return ::VerifyVersionInfoA(&wanted, VER_PRODUCT_TYPE,
                                ::VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL)) != 0;
}

BYTE product_type()
{
    for (const BYTE type :
         {BYTE{VER_NT_WORKSTATION}, BYTE{VER_NT_DOMAIN_CONTROLLER}, BYTE{VER_NT_SERVER}}) {
        if (has_product_type(type)) {
            return type;
        }
    }
    return 0;
}

bool has_service_pack(WORD major, WORD minor)
{
    OSVERSIONINFOEXA wanted{};
    wanted.dwOSVersionInfoSize = sizeof wanted;
    wanted.wServicePackMajor = major;
    wanted.wServicePackMinor = minor;
    DWORDLONG mask = ::VerSetConditionMask(0, VER_SERVICEPACKMAJOR, VER_EQUAL);
    mask = ::VerSetConditionMask(mask, VER_SERVICEPACKMINOR, VER_EQUAL);
    return ::VerifyVersionInfoA(&wanted, VER_SERVICEPACKMAJOR | VER_SERVICEPACKMINOR, mask) != 0;
}

std::string service_pack_text()
{
    for (WORD major = 1; major < 10; ++major) {
        for (WORD minor = 0; minor < 10; ++minor) {
            if (has_service_pack(major, minor)) {
                return ".sp." + std::to_string(major) + "." + std::to_string(minor);
            }
        }
    }
    return {};
}

struct program_place {
    bool is_remote = false;
    bool is_removable = false;
};

// Where the program's own file lies; a path without a drive is remote.
program_place own_place()
{
    std::vector<wchar_t> path(1023);
    const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), 1022);
    if (length < 2 || path[1] != L':') {
        return {true, false};
    }
    const char drive[] = {static_cast<char>(path[0]), ':', '\\', '\0'};
    const UINT type = ::GetDriveTypeA(drive);
    return {type == DRIVE_REMOTE, type == DRIVE_REMOVABLE};
}

struct token_handle {
    HANDLE handle = nullptr;
    ~token_handle()
    {
        if (handle != nullptr) {
            ::CloseHandle(handle);
        }
    }
};

enum class verdict { no, yes, unknown };

// Membership in the administrators group of the full token behind a filtered one.
verdict linked_token_is_admin(HANDLE token)
{
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD sid_size = sizeof sid;
    if (!::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &sid_size)) {
        return verdict::unknown;
    }
    token_handle linked;
    DWORD returned = 0;
    BOOL member = FALSE;
    if (!::GetTokenInformation(token, TokenLinkedToken, &linked.handle, sizeof linked.handle,
                               &returned) ||
        !::CheckTokenMembership(linked.handle, sid, &member)) {
        return verdict::unknown;
    }
    return member ? verdict::yes : verdict::no;
}

} // namespace

std::optional<std::string> environment_variable(const std::string& name)
{
    const std::wstring wide = wide_from_utf8(name);
    const DWORD size = ::GetEnvironmentVariableW(wide.c_str(), nullptr, 0);
    if (wide.empty() || size == 0) {
        return std::nullopt;
    }
    std::wstring value(size, L'\0');
    value.resize(::GetEnvironmentVariableW(wide.c_str(), value.data(), size));
    return utf8_from_wide(value);
}

std::string host_name()
{
    std::vector<wchar_t> name(4096);
    DWORD length = static_cast<DWORD>(name.size());
    if (!::GetComputerNameW(name.data(), &length)) {
        return "<unk>";
    }
    return utf8_from_wide({name.data(), length});
}

host_facts read_host_facts()
{
    host_facts facts;
    SYSTEM_INFO system{};
    ::GetNativeSystemInfo(&system);
    // By the processor's kind, of which two count: a 64-bit ARM processor reads as 32-bit, as it
    // has in every run header.
    facts.is_64bit = system.dwProcessorType == 2200 || system.dwProcessorType == 8664;
    const system_version version = read_system_version();
    facts.known_version = version.known;
    facts.os_name = "Windows";
    const std::string numbers = std::to_string(version.major) + "." + std::to_string(version.minor);
    facts.os_version_text = numbers + "." + role_word(product_type()) + service_pack_text();
    facts.os_build_text = numbers + "." + std::to_string(version.build);
    facts.host_name = host_name();
    const program_place place = own_place();
    facts.runs_remote = place.is_remote;
    facts.runs_removable = place.is_removable;
    return facts;
}

std::optional<std::string> own_software_hive()
{
    wchar_t folder[MAX_PATH];
    const UINT length = ::GetSystemWindowsDirectoryW(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) {
        return std::nullopt;
    }
    return utf8_from_wide(std::wstring(folder, length)) + "\\System32\\config\\SOFTWARE";
}

bool is_process_admin()
{
    const system_version version = read_system_version();
    TOKEN_ELEVATION_TYPE elevation = TokenElevationTypeDefault;
    verdict answer = verdict::unknown;
    token_handle token;
    DWORD returned = 0;
    if (version.known && ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token.handle) &&
        ::GetTokenInformation(token.handle, TokenElevationType, &elevation, sizeof elevation,
                              &returned)) {
        if (elevation == TokenElevationTypeLimited) {
            answer = linked_token_is_admin(token.handle);
        } else {
            answer = ::IsUserAnAdmin() ? verdict::yes : verdict::no;
        }
    }
    if (answer == verdict::unknown) {
        return ::IsUserAnAdmin() != FALSE;
    }
    // A filtered token in the administrators group counts as not being administrator.
    return answer == verdict::yes && elevation != TokenElevationTypeLimited;
}

void raise_named_event(const std::string& name)
{
    // The event's name is narrow text on this side, as a waiting script would give it.
    const HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, name.c_str());
    if (event != nullptr) {
        ::SetEvent(event);
        ::CloseHandle(event);
    }
}

} // namespace platform
