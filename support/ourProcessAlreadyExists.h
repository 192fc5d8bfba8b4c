// Whether a process of a given name runs on the machine.
#pragma once

#include <QtGlobal>

#include "support/qzString.h"

/// Whether a process goes by `name`: its command name, the base name of its executable or of its `argv[0]`,
/// or, for a script that its `#!` line started, the script's file name. Zombies don't count, and no process
/// has an empty name.
///
/// The kernel cuts command names at 15 bytes. A name of 15 bytes or more is therefore compared with the
/// executable, `argv[0]` and the script; its first 15 bytes suffice only where the executable can't be read.
///
/// `name`: of a name with a slash, what follows the last one counts. A name that fills its 25 bytes was
/// probably cut and is taken as a beginning; when it has a slash, a path that begins with it counts as well.
/// `caseSensitive`: when false, the letters A to Z equal a to z.
/// `leaveOutCaller`: the calling process is no match.
/// `foundPid`: if not null, the process found, or 0. Several processes of one name: any of them.
/// `procRoot`: where the process list is mounted.
///
/// A process is judged by those of its entries that can be read; one that shows none of them (another user's
/// under `hidepid`) does not count. The answer is true as well, without a pid, when the process list itself
/// can't be looked at: not mounted, or no descriptor free.
///
/// The match is remembered, each thread its own, and the whole list read only when it is gone.
bool ourProcessAlreadyExists(const _qzString8_allSize<25>& name, bool caseSensitive, bool leaveOutCaller,
                             qint64* foundPid = nullptr, const char* procRoot = "/proc");
