#include "doctor/Finding.h"

namespace doctor {

QString verdictName(Verdict verdict) {
    switch (verdict) {
    case Verdict::Skipped:
        return QStringLiteral("skipped");
    case Verdict::Ok:
        return QStringLiteral("ok");
    case Verdict::Note:
        return QStringLiteral("note");
    case Verdict::Warning:
        return QStringLiteral("warning");
    case Verdict::Failure:
        break;
    }
    return QStringLiteral("failure");
}

} // namespace doctor
