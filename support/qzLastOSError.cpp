#include "support/qzLastOSError.h"

#include <cerrno>
#include <cstring>

_qzString<500> qzLastOSError(int errorNumber) {
    const int current = errno;
    char buffer[256] = {};
    const char* text = strerror_r(errorNumber == -1 ? current : errorNumber, buffer, sizeof buffer);
    const _qzString<500> result(QString::fromLocal8Bit(text));
    errno = current;
    return result;
}
