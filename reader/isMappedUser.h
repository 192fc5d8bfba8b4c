// Which user numbers denote a single user.
#pragma once

#include <istream>
#include <string>

#include <sys/types.h>

/// Whether a user number reported by the kernel denotes a single user. In a user namespace, all users that it
/// lacks appear as one overflow number. If `procRoot` cannot be read, only the usual overflow number, 65534,
/// is refused.
bool isMappedUser(uid_t user, const std::string& procRoot = "/proc");

/// The same for the content of a `uid_map`: lines of first number inside, first outside, count.
bool isInUidMap(std::istream& map, uid_t user);
