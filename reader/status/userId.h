// Users by name.
#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace qzstatus {

/// The number of the user with that name; nothing if there is none, or if the system could not say.
std::optional<uid_t> userId(const std::string& name);

} // namespace qzstatus
