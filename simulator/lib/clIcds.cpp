// Which of the platforms the OpenCL loader offers: those whose driver is registered and can be opened.
#include <cstdlib>
#include <filesystem>

#include <dlfcn.h>

#include "simulator/lib/ClLookup.h"
#include "simulator/lib/Session.h"

namespace qzsim {

namespace {

/// The folder, or the one file, that registers drivers; empty outside a simulated machine, where all count as
/// registered.
std::filesystem::path registeringPath() {
    if (const char* chosen = std::getenv("OCL_ICD_VENDORS"))
        return chosen;
    const char* usual = std::getenv("QZSIM_ICDS");
    return usual == nullptr ? "" : usual;
}

bool isRegistered(const std::string& icd) {
    const std::filesystem::path path = registeringPath();
    std::error_code failed;
    if (path.empty() || path.filename() == icd)
        return true;
    return std::filesystem::exists(path / icd, failed);
}

bool isOffered(const ClPlatform& platform) {
    // As the loader does, this never closes a driver.
    return isRegistered(platform.icd) &&
           (registeringPath().empty() || dlopen(platform.driver.c_str(), RTLD_LAZY) != nullptr);
}

} // namespace

const std::vector<cl_platform_id>& offeredPlatforms() {
    static const std::vector<cl_platform_id> offered = [] {
        std::vector<cl_platform_id> ids;
        for (const ClPlatform& platform : Session::instance().machine().openCl.platforms)
            if (isOffered(platform))
                ids.push_back(reinterpret_cast<cl_platform_id>(const_cast<ClPlatform*>(&platform)));
        return ids;
    }();
    return offered;
}

} // namespace qzsim
