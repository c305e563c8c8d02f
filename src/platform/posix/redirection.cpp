#include "platform/redirection.h"

namespace platform {

wow64_redirect_adt::wow64_redirect_adt() = default;
wow64_redirect_adt::~wow64_redirect_adt() = default;

} // namespace platform
