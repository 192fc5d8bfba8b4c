// The file that is written before it takes the place of another.
#pragma once

#include <string>
#include <string_view>

#include "support/FileDescriptor.h"

namespace qzstatus {

/// A new file in the target's directory, removed in its destructor unless it was renamed. It holds a lock
/// (`flock`), so that temporaries which a killed run has left are recognised: nobody holds theirs.
class TemporaryFile {
  public:
    /// `directory`: empty, or ending in a slash. First removes what killed runs of this user left there.
    explicit TemporaryFile(const std::string& directory);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// False, with the reason in `errno`, when it could not be created.
    bool isOpen() const { return file.isOpen(); }

    /// Writes `text` to the disk and sets the file's mode; 0 or the `errno` of what failed.
    int fill(std::string_view text, unsigned mode) const;

    /// Takes the place of `target`; 0 or the `errno` of the failure.
    int renameTo(const std::string& target);

  private:
    std::string path;
    FileDescriptor file;
    bool renamed = false;
};

} // namespace qzstatus
