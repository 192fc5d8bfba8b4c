// The flags on a segment, queried by their bytes as a reader in another language does.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <QByteArray>
#include <QStringList>

/// Which of "attached", "published" and "measuring" some process has set on the object at `path`, with blanks
/// between them.
inline QString flagsOn(const QByteArray& path) {
    constexpr off_t first = 4611686018427387904; // 2 to the power of 62
    const char* const names[] = {"attached", "published", "measuring"};
    QStringList set;
    const int object = open(path.constData(), O_RDONLY | O_CLOEXEC);
    for (int i = 0; i < 3; ++i) {
        struct flock range{};
        range.l_type = F_WRLCK;
        range.l_whence = SEEK_SET;
        range.l_start = first + i;
        range.l_len = 1;
        if (fcntl(object, F_OFD_GETLK, &range) != 0)
            set << "not to be asked";
        else if (range.l_type != F_UNLCK)
            set << names[i];
    }
    close(object);
    return set.join(' ');
}
