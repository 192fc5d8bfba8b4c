#include "reader/status/userId.h"

#include <cerrno>
#include <vector>

#include <pwd.h>

namespace qzstatus {

std::optional<uid_t> userId(const std::string& name) {
    constexpr std::size_t largestEntry = std::size_t{1} << 20;
    passwd entry{};
    passwd* found = nullptr;
    for (std::vector<char> room(1024); room.size() <= largestEntry; room.resize(2 * room.size())) {
        const int error = ::getpwnam_r(name.c_str(), &entry, room.data(), room.size(), &found);
        if (error != ERANGE)
            return found != nullptr ? std::optional<uid_t>(found->pw_uid) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace qzstatus
