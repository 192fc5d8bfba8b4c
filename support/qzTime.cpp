#include "support/qzTime.h"

_qzTime::_qzTime(bool now) : seconds(now ? std::time(nullptr) : 0) {}

_qzString8_allSize<250> _qzTime::asString8_Md_hms() const {
    std::tm local{};
    // Room for the format's 14 characters and its NUL; numbers only, so the text does not depend on the
    // locale.
    char text[16] = {};
    tzset();
    if (localtime_r(&seconds, &local) == nullptr ||
        std::strftime(text, sizeof text, "%m-%d %H:%M:%S", &local) == 0)
        return {};
    return text;
}
