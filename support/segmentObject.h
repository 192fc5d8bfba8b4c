// The file behind a named segment: how it comes to be, and how one that exists is opened.
#pragma once

#include <QByteArray>
#include <QtGlobal>

#include "support/FileDescriptor.h"

/// Makes an object of `size` bytes, zeros, its memory allocated, rights 0600, with the lock of those attached
/// held, and only then gives it the name `path`. With `replace` it takes the name from what has it. Nothing
/// open on failure, nothing left behind, the reason in `errno`: EEXIST when the name is taken.
FileDescriptor createSegmentObject(const QByteArray& directory, const QByteArray& path, qint64 size,
                                   bool replace);

/// Opens an object and takes the lock of those attached. Nothing open on failure, the reason in `errno`:
/// EPERM for what is not a regular file of this user with one name, EAGAIN when no try of several came to
/// an end, as while another process is removing it.
FileDescriptor openSegmentObject(const QByteArray& path, bool writable);

/// Sets the lock of those attached, without waiting: F_RDLCK, F_WRLCK (only for the last one attached) or
/// F_UNLCK.
bool setAttachedLock(int object, short type);

/// Whether `path`, itself and not what it may point to, is the object that is open.
bool isSameObject(int object, const QByteArray& path);

/// Bytes of the object now, -1 on failure.
qint64 objectSize(int object);

/// Whether the process may write a file up to `size`; going past its limit would end it by a signal.
bool isWithinFileSizeLimit(qint64 size);
