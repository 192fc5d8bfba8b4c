// Which user numbers mean one user.
#pragma once

#include <istream>
#include <string>

#include <sys/types.h>

/// Whether a user number that the kernel reports here means one user. In a user namespace all users that it
/// lacks are shown as one overflow number. Where `procRoot` cannot be read, only the usual overflow number,
/// 65534, is refused.
bool isMappedUser(uid_t user, const std::string& procRoot = "/proc");

/// The same by the content of a `uid_map`: lines of first number inside, first outside, count.
bool isInUidMap(std::istream& map, uid_t user);
