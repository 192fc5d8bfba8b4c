// What the tests of a segment share.
#pragma once

#include "SegmentDirectory.h"
#include "support/qzSharedMemory.h"

inline constexpr char key[] = "segment";
inline constexpr unsigned char mode = 7;
inline constexpr qint64 blockSize = 7472;

/// The limits of a segment's texts.
inline bool isSentenceAbout(const QByteArray& text, const char* name) {
    return text.startsWith("The shared memory \"" + QByteArray(name) + "\" ") && text.endsWith('.') &&
           text.size() <= 250 && !text.contains('\n');
}

inline QByteArray textOf(const qzSharedMemory& segment) {
    return segment.errorString().c_str();
}
