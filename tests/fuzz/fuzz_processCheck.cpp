// The check for a process by name, over a process list of one. The input: the name looked for, then the bytes
// of stat, comm and cmdline, each after a byte 0x1e.
#include <string>

#include "support/ourProcessAlreadyExists.h"
#include "support/procEntry.h"
#include "tests/fuzz/ScratchDirectory.h"

namespace {

using Name = _qzString8_allSize<25>;

struct Input {
    std::string name;
    std::string stat;
    std::string comm;
    std::string cmdline;
};

Input inputOf(std::string_view text) {
    constexpr char separator = '\x1e';
    std::vector<std::string_view> parts = pieces(text, separator);
    parts.resize(4);
    return {std::string(parts[0].substr(0, parts[0].find('\0'))), std::string(parts[1]),
            std::string(parts[2]), std::string(parts[3])};
}

bool isPlainName(const std::string& name) {
    return !name.empty() && name.size() <= commCapacity && name.find('/') == std::string::npos;
}

bool exists(const std::string& name, const ScratchDirectory& list) {
    qint64 pid = -1;
    const bool found = ourProcessAlreadyExists(Name(name.c_str()), true, true, &pid, list.path.c_str());
    require(pid == 0 || (found && pid == 7), "a process that is named is there");
    return found;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ScratchDirectory list;
    const Input input = inputOf(asText(data, size, 4096));
    list.write("7/stat", input.stat);
    list.write("7/comm", input.comm);
    list.write("7/cmdline", input.cmdline);
    const bool found = exists(input.name, list);

    constexpr std::size_t statRoom = 1024;
    ProcStat stat;
    if (parseProcStat(std::string_view(input.stat).substr(0, statRoom), stat)) {
        const bool isDead = std::string_view("ZXx").find(stat.state) != std::string_view::npos;
        require(!isDead || !found, "a dead process is not there");
        if (isPlainName(input.name) && stat.comm == input.name)
            require(found || isDead, "a process is found by its name");
    }
    if (isPlainName(input.name) && input.name.size() < Name::capacity &&
        input.stat.find(input.name) == std::string::npos &&
        input.comm.find(input.name) == std::string::npos &&
        input.cmdline.find(input.name) == std::string::npos)
        require(!found, "a process has no name that is in none of its entries");
    return 0;
}
