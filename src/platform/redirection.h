#pragma once

namespace platform {

// While it lives, a 32-bit build sees the 64-bit system folders as they are. Does nothing where the
// system has no such redirection.
class wow64_redirect_adt {
public:
    wow64_redirect_adt();
    // NOLINTNEXTLINE(performance-trivially-destructible): it is not on both systems
    ~wow64_redirect_adt();
    wow64_redirect_adt(const wow64_redirect_adt&) = delete;
    wow64_redirect_adt& operator=(const wow64_redirect_adt&) = delete;

private:
    [[maybe_unused]] void* saved_ = nullptr; // what to give back
};

} // namespace platform
