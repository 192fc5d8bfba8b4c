// The name of a process to look for.
#pragma once

#include <string_view>

/// Compares a process's names with the wanted one. Pure; refers to the text it was constructed from.
class ProcessName {
  public:
    /// `cut`: the text was probably truncated and is compared as a prefix.
    ProcessName(std::string_view text, bool cut, bool matchCase);

    /// False when no process can have the name.
    bool isUsable() const { return !base.empty() || isPathBeginning(); }

    /// The kernel's command name equals the name. Never true of a name of 15 bytes or more: the kernel's may
    /// have been cut there.
    bool isCommand(std::string_view comm) const;

    /// The kernel's command name is full, and the name has 15 bytes or more and begins with it.
    bool mayBeCutCommand(std::string_view comm) const;

    /// The base name of an executable's path or of an `argv[0]` equals the name.
    bool isProgram(std::string_view programPath) const;

    /// `argv[1]` is the script of this name: the interpreter runs under the beginning of the script's name.
    /// Never true of a name that `isCommand` decides.
    bool isScript(std::string_view comm, std::string_view scriptPath) const;

  private:
    bool isPathBeginning() const { return isCut && base.size() < whole.size(); }
    bool equals(std::string_view text) const;
    bool beginsWith(std::string_view text, std::string_view beginning) const;

    std::string_view whole;
    std::string_view base; ///< what follows the last slash
    bool isCut;
    bool isCaseSensitive;
};
