// The directory in which the kernel lists its cards, with entries of any name, and a device's monitors.
#include <filesystem>
#include <set>
#include <string>

#include <QFile>

#include "gpu/sysfs.h"
#include "tests/fuzz/ScratchDirectory.h"

namespace {

bool isCard(std::string_view name) {
    return name.size() > 4 && name.substr(0, 4) == "card" &&
           name.find_first_not_of("0123456789", 4) == std::string_view::npos;
}

bool canBeMade(std::string_view name) {
    constexpr std::size_t longest = 255;
    return !name.empty() && name != "." && name != ".." && name.size() <= longest &&
           name.find('/') == std::string_view::npos;
}

/// Creates a directory for each name that can be one.
std::set<std::string> makeDirectories(const std::filesystem::path& parent, std::string_view names) {
    constexpr std::size_t most = 12;
    std::set<std::string> made;
    for (const std::string_view name : pieces(names, '\0')) {
        if (made.size() < most && canBeMade(name) && std::filesystem::create_directories(parent / name))
            made.emplace(name);
    }
    return made;
}

void checkMonitor(const std::filesystem::path& device, const std::set<std::string>& names) {
    const QString found = findHwmonDir(QString::fromStdString(device.string()));
    const QString parent = QString::fromStdString((device / "hwmon").string()) + '/';
    bool isThere = false;
    for (const std::string& name : names)
        isThere = isThere || (name.rfind("hwmon", 0) == 0 && isAscii(name));
    require(!isThere || !found.isEmpty(), "a monitor that is there is found");
    require(found.isEmpty() || (found.startsWith(parent + "hwmon", Qt::CaseInsensitive) &&
                                !found.midRef(parent.size()).contains('/')),
            "a monitor is an entry of its device");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ScratchDirectory root;
    const std::set<std::string> made = makeDirectories(root.path / "drm", asText(data, size));
    std::set<std::string> expected;
    for (const std::string& name : made)
        if (isCard(name))
            expected.insert(name);

    std::set<std::string> listed;
    const QStringList cards = listDrmCards(QString::fromStdString((root.path / "drm").string()));
    for (const QString& name : cards) {
        require(isDrmCardName(name), "what is listed is a card");
        require(listed.insert(QFile::encodeName(name).toStdString()).second, "a card is listed once");
    }
    for (const std::string& name : expected)
        require(listed.count(name) == 1, "every card is listed");
    for (const std::string& name : listed)
        require(made.count(name) == 1 && (!isAscii(name) || isCard(name)), "only cards are listed");

    makeDirectories(root.path / "device" / "hwmon", asText(data, size));
    checkMonitor(root.path / "device", made);
    root.empty();
    return 0;
}
