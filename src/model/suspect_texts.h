// What names, identifiers and addresses that a database gives itself tell of who made them.
#pragma once

#include <string>
#include <string_view>

#include "model/knowledge.h"

namespace model {

// Whether a name is one of an update of the system.
bool poses_as_update(const knowledge& known, std::string_view name);

// A name without the number that a tool puts behind it: "Name(1)", "Name_1", "Name 1".
std::string_view without_number(std::string_view name);

bool is_bare_guid(std::string_view name);

// Whether an identifier, in lower case, looks written by hand: one or two digits alone, groups in each of which one
// digit is one more than the one before or the same, digits or bytes that go up or down in order (bytes by 1 or by
// 0x11, as written or as stored), or a word such as "deadbeef".
bool has_pattern(std::string_view guid);

// The host that an address leads to, lower-case; nothing for one that is not http(s).
std::string host_of(std::string_view address);

// Whether a host, or a domain in which it lies, is one of the list.
bool is_known_host(const knowledge& known, std::string_view host);

bool is_path_or_address(std::string_view text);

} // namespace model
