// What one user sees of the shared-memory segment.
#pragma once

#include <QString>
#include <QVector>

namespace doctor {

struct SegmentFacts {
    QString path;
    int result = 0;      ///< SegmentResult
    QString resultText;  ///< one sentence
    bool exists = false; ///< something is under the name
    QString owner;       ///< empty without one
    int mode = 0;
    bool attached = false;
    bool published = false;
    bool measuring = false;
    int freshness = 0; ///< Freshness, of a list that could be read
    double ageSeconds = 0.0;
    double ageLimitSeconds = 0.0;
    int gpus = 0;
    QVector<int> companions; ///< processes that have it open, where they can be seen

    template <class Visit>
    void walk(Visit visit) {
        visit("path", path);
        visit("result", result);
        visit("resultText", resultText);
        visit("exists", exists);
        visit("owner", owner);
        visit("mode", mode);
        visit("attached", attached);
        visit("published", published);
        visit("measuring", measuring);
        visit("freshness", freshness);
        visit("ageSeconds", ageSeconds);
        visit("ageLimitSeconds", ageLimitSeconds);
        visit("gpus", gpus);
        visit("companions", companions);
    }
};

} // namespace doctor
