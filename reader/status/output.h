// Where the output goes.
#pragma once

#include <string>
#include <string_view>

namespace qzstatus {

/// Writes all of `text`; 0, or the `errno` of the write that failed. Returns EINTR as soon as `givesUp` is
/// true; it is asked before each write, and a signal interrupts one that waits.
int writeAll(int descriptor, std::string_view text, bool (*givesUp)() = nullptr);

/// Whether a descriptor can take a few bytes without waiting, or can within a second.
bool takesOutput(int descriptor);

/// Replaces the file at `path` as a whole, with `mode`: readers see the old text or the new one, and a
/// failure leaves the old file as it is. The text is on the disk before the name leads to it. Only a regular
/// file is replaced, never a device or a link. Signals wait meanwhile, so that none leaves a temporary file.
/// Returns an empty text, or one sentence that says what failed.
std::string replaceFile(const std::string& path, std::string_view text, unsigned mode = 0644);

} // namespace qzstatus
