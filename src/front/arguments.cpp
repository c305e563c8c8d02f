#include "front/arguments.h"

#include <algorithm>

#include "uni/text.h"

namespace front {

namespace {

template <typename list>
auto find_from(std::ptrdiff_t start, std::string_view name, list& args)
{
    const auto first = args.begin() + std::min(start, std::ssize(args));
    return std::find_if(first, args.end(), [name](const std::string& argument) {
        return uni::equal_ignoring_case(as_option_name(argument), name);
    });
}

} // namespace

std::string_view as_option_name(std::string_view argument)
{
    return argument.substr(argument.starts_with("--") ? 1 : 0);
}

bool find_option_flag(std::string_view name, argument_list& args)
{
    const auto found = find_from(0, name, args);
    if (found == args.end()) {
        return false;
    }
    args.erase(found);
    return true;
}

bool find_option_value(std::string_view name, std::string& out, argument_list& args)
{
    const auto found = find_from(0, name, args);
    if (found == args.end() || found + 1 == args.end()) {
        return false;
    }
    out = *(found + 1);
    args.erase(found, found + 2);
    return true;
}

bool peek_option_flag(std::string_view name, const argument_list& args)
{
    return find_from(1, name, args) != args.end();
}

bool peek_option_value(std::string_view name, std::string& out, const argument_list& args)
{
    const auto found = find_from(1, name, args);
    if (found == args.end() || found + 1 == args.end()) {
        return false;
    }
    out = *(found + 1);
    return true;
}

} // namespace front
