// Where it shows that somebody is attached to a segment.
#pragma once

#include <cstdint>

/// Everyone attached holds a shared record lock (`F_OFD_SETLK`) on this one byte, far beyond any payload.
/// Asking for it (`F_OFD_GETLK`, `F_WRLCK`) tells whether anybody is.
constexpr std::int64_t attachedLockOffset = std::int64_t{1} << 62;
