#include "reader/isMappedUser.h"

#include <cstdint>
#include <fstream>

bool isInUidMap(std::istream& map, uid_t user) {
    std::uint64_t first = 0;
    std::uint64_t outside = 0;
    std::uint64_t count = 0;
    while (map >> first >> outside >> count)
        if (user >= first && user - first < count)
            return true;
    return false;
}

bool isMappedUser(uid_t user, const std::string& procRoot) {
    constexpr uid_t usualOverflow = 65534;
    std::ifstream map(procRoot + "/self/uid_map");
    return map.is_open() ? isInUidMap(map, user) : user != usualOverflow;
}
