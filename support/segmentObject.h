// The file behind a named segment: creating one, and opening one that exists.
#pragma once

#include <QByteArray>
#include <QtGlobal>

#include "support/FileDescriptor.h"
#include "support/segmentFlags.h"

/// Creates a zero-filled, preallocated object with mode 0600, sets its flag Attached, and only then gives it
/// the name `path`; with `replace` an existing name is taken over. Nothing open on failure, nothing left
/// behind, the reason in `errno`: EEXIST when the name is taken.
FileDescriptor createSegmentObject(const QByteArray& directory, const QByteArray& path, qint64 size,
                                   bool replace);

/// Opens an object and sets its flag Attached. Nothing open on failure, the reason in `errno`: EPERM for
/// anything but a regular file of this user with one name, EAGAIN if several tries in a row raced with a
/// process removing it.
FileDescriptor openSegmentObject(const QByteArray& path, bool writable);

/// Sets a flag of an open object without waiting: F_RDLCK, F_UNLCK, or F_WRLCK, which succeeds only while no
/// other process has it set. False, with the reason in `errno`, on failure.
bool setFlag(int object, SegmentFlag flag, short type);

/// Whether `path` (not the target, if it is a link) is the open object.
bool isSameObject(int object, const QByteArray& path);

/// Bytes of the object now, -1 on failure.
qint64 objectSize(int object);

/// Whether the process may write a file up to `size`; exceeding its limit would raise a signal.
bool isWithinFileSizeLimit(qint64 size);
