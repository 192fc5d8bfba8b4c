// The kernel's entries on a process, which chooses its own name and arguments.
#include <functional>
#include <string>

#include "support/procEntry.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

bool liesWithin(std::string_view part, std::string_view whole) {
    const std::less_equal<> notAfter;
    return part.empty() || (notAfter(whole.data(), part.data()) &&
                            notAfter(part.data() + part.size(), whole.data() + whole.size()));
}

void checkParts(std::string_view text) {
    ProcStat stat;
    if (parseProcStat(text, stat))
        require(liesWithin(stat.comm, text) && stat.state != '\n' && stat.state != ' ',
                "a process's name lies in what was read");
    else
        require(stat.comm.empty() && stat.state == '?' && stat.startTime == 0, "what fails changes nothing");

    const ProcArguments arguments = parseProcCmdline(text);
    const auto parts = pieces(text, '\0');
    require(arguments.program == parts[0] && arguments.first == (parts.size() > 1 ? parts[1] : ""),
            "arguments end at NUL bytes");

    const std::string_view comm = parseProcComm(text);
    require(text.substr(0, comm.size()) == comm && text.size() - comm.size() <= 1,
            "a line loses its end only");
    const std::string_view program = withoutDeletedMark(text);
    require(text.substr(0, program.size()) == program &&
                (program == text || text.substr(program.size()) == " (deleted)"),
            "a path loses the mark only");
    const std::string_view base = baseName(text);
    require(liesWithin(base, text) && base.find('/') == std::string_view::npos, "a base name has no slash");
}

/// Whatever a process calls itself, the kernel's line is split in the right places.
void checkHostileName(std::string_view name) {
    const std::string line =
        "4711 (" + std::string(name) + ") S 1 2 3 4 -1 6 7 8 9 10 11 12 13 14 20 0 1 0 88213 0\n";
    ProcStat stat;
    require(parseProcStat(line, stat), "a kernel's line is understood");
    require(stat.comm == name && stat.state == 'S' && stat.startTime == 88213 && !stat.isDead(),
            "a name does not reach what follows it");
}

void checkPid(std::string_view text) {
    const int pid = parseProcPid(text);
    require(pid >= 0, "a process has a positive number");
    if (pid > 0)
        require(std::to_string(pid) == text, "a process's number is all of its entry");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = asText(data, size);
    checkParts(text);
    checkHostileName(text);
    checkPid(text);
    return 0;
}
