// Whether a process of a given name runs on the machine.
#pragma once

#include <QtGlobal>

#include "support/qzString.h"

/// Whether a process is called `name`: its command name, the base name of its executable or of its `argv[0]`,
/// or, for a script that its `#!` line started, the script's file name. Zombies don't count, and no process
/// has an empty name.
///
/// The kernel cuts command names at 15 bytes. A name of 15 bytes or more is therefore compared with the
/// executable, `argv[0]` and the script; its first 15 bytes suffice only where the executable can't be read.
///
/// `name`: of a name with a slash, the part after the last one counts. A name that fills its 25 bytes was
/// probably truncated and is compared as a prefix; if it has a slash, a path with that prefix counts as well.
/// `caseSensitive`: when false, the letters A to Z equal a to z.
/// `leaveOutCaller`: the calling process does not match.
/// `foundPid`: if not null, set to the process found, or 0. Of several processes, to any of them.
/// `procRoot`: where the process list is mounted.
///
/// A process is judged by the entries that can be read; one without any (another user's under `hidepid`)
/// does not count. Also returns true, without a pid, if the process list itself cannot be read: not mounted,
/// or no free descriptor.
///
/// The match is cached per thread, and the whole list is read only when that process is gone.
bool ourProcessAlreadyExists(const _qzString8_allSize<25>& name, bool caseSensitive, bool leaveOutCaller,
                             qint64* foundPid = nullptr, const char* procRoot = "/proc");
