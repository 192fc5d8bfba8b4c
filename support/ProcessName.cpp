#include "support/ProcessName.h"

#include <algorithm>

#include "support/procEntry.h"

namespace {

/// Only the letters A to Z: in some locales the lower case of "I" is not "i".
char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

ProcessName::ProcessName(std::string_view text, bool cut, bool matchCase)
    : whole(text), base(baseName(text)), isCut(cut), isCaseSensitive(matchCase) {}

bool ProcessName::beginsWith(std::string_view text, std::string_view beginning) const {
    return text.size() >= beginning.size() &&
           std::equal(beginning.begin(), beginning.end(), text.begin(), [this](char left, char right) {
               return isCaseSensitive ? left == right : lowerCase(left) == lowerCase(right);
           });
}

bool ProcessName::equals(std::string_view text) const {
    return !base.empty() && beginsWith(text, base) && (isCut || text.size() == base.size());
}

bool ProcessName::isCommand(std::string_view comm) const {
    return base.size() < commCapacity && equals(comm);
}

bool ProcessName::mayBeCutCommand(std::string_view comm) const {
    return base.size() >= commCapacity && comm.size() == commCapacity && beginsWith(base, comm);
}

bool ProcessName::isProgram(std::string_view programPath) const {
    return equals(baseName(programPath)) || (isPathBeginning() && beginsWith(programPath, whole));
}

bool ProcessName::isScript(std::string_view comm, std::string_view scriptPath) const {
    return !comm.empty() && beginsWith(baseName(scriptPath), comm) && isProgram(scriptPath) &&
           (isPathBeginning() || base.size() > commCapacity || mayBeCutCommand(comm));
}
