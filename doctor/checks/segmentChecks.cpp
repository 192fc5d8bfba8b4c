// segment.*
#include "doctor/checks/checks.h"
#include "reader/GpuSegmentReader.h"
#include "reader/isFresh.h"

namespace doctor {

namespace {

QString seconds(double value) {
    return QStringLiteral("%1 s").arg(value, 0, 'f', value < 10.0 ? 1 : 0);
}

QString companionText(const SegmentFacts& segment) {
    QStringList pids;
    for (const int pid : segment.companions)
        pids.append(QString::number(pid));
    return pids.isEmpty() ? QStringLiteral("the companion")
                          : QStringLiteral("the companion (pid %1)").arg(pids.join(", "));
}

bool isUnread(const Facts& facts, Findings& findings) {
    if (facts.segmentEnd.isDone())
        return false;
    findings.skipped(QStringLiteral("the segment could not be looked at"));
    return true;
}

SegmentResult resultOf(const SegmentFacts& segment) {
    return static_cast<SegmentResult>(segment.result);
}

} // namespace

void judgeSegmentState(const Facts& facts, Findings& findings) {
    if (isUnread(facts, findings))
        return;
    const SegmentFacts& segment = facts.segment;
    const QString text = QStringLiteral("%1: %2").arg(segment.path, segment.resultText);
    switch (resultOf(segment)) {
    case SegmentResult::Ok:
        findings.ok(QStringLiteral("%1 holds a list of %2 GPU(s), published %3 ago")
                        .arg(segment.path, QString::number(segment.gpus), seconds(segment.ageSeconds)));
        break;
    case SegmentResult::Missing:
        findings.ok(text);
        break;
    case SegmentResult::NotReady:
        findings.note(text);
        break;
    case SegmentResult::PermissionDenied:
        findings.warning(
            text, QStringLiteral("segment.owner says whose it is; run reader and companion as one user"));
        break;
    case SegmentResult::Locked:
        findings.failure(
            text, QStringLiteral("a process holds the lock and does not go on: find it with lslocks, and "
                                 "end it"));
        break;
    default:
        findings.failure(
            text, QStringLiteral("end the companion, remove the file, and start the companion again: rm %1")
                      .arg(segment.path));
        break;
    }
}

void judgeSegmentOwner(const Facts& facts, Findings& findings) {
    if (isUnread(facts, findings))
        return;
    const SegmentFacts& segment = facts.segment;
    const QString user = facts.rights.user.name;
    if (!segment.exists)
        findings.ok(QStringLiteral("no user has a segment"));
    else if (!user.isEmpty() && segment.owner != user)
        findings.warning(
            QStringLiteral("%1 is %2's, and only that user can read it; this check is for %3")
                .arg(segment.path, segment.owner, user),
            QStringLiteral("run the companion as the user whose programs read it, or check for %1: "
                           "--user %1")
                .arg(segment.owner));
    else
        findings.ok(
            QStringLiteral("%1 is %2's, mode %3")
                .arg(segment.path, segment.owner, QString::number(segment.mode, 8).rightJustified(4, '0')));
}

namespace {

/// Judges a companion whose list is too old.
void judgeLateCompanion(const SegmentFacts& segment, Findings& findings) {
    const QString who = companionText(segment);
    const QString age = seconds(segment.ageSeconds);
    if (segment.measuring)
        findings.failure(
            QStringLiteral("%1 has been measuring for %2").arg(who, age),
            QStringLiteral("a driver does not return from the benchmark: end it with SIGTERM twice"));
    else
        findings.failure(
            QStringLiteral("%1 hangs: it is attached and not measuring, and has published nothing for %2")
                .arg(who, age),
            QStringLiteral("a driver does not return from a call: end it with SIGTERM twice, and see "
                           "pairing.run for the call"));
}

} // namespace

void judgeCompanion(const Facts& facts, Findings& findings) {
    if (isUnread(facts, findings))
        return;
    const SegmentFacts& segment = facts.segment;
    const SegmentResult result = resultOf(segment);
    const QString who = companionText(segment);
    if (!segment.exists || result == SegmentResult::PermissionDenied)
        findings.ok(segment.exists ? QStringLiteral("the companion is another user's")
                                   : QStringLiteral("no companion runs"));
    else if (!segment.attached)
        findings.warning(
            QStringLiteral("no companion runs; one that was killed has left %1").arg(segment.path),
            QStringLiteral("restart the companion; it takes over the segment"));
    else if (segment.ageSeconds > segment.ageLimitSeconds)
        judgeLateCompanion(segment, findings);
    else if (result == SegmentResult::Ok && static_cast<Freshness>(segment.freshness) == Freshness::Ahead)
        findings.warning(QStringLiteral("the list is dated in the future: the clock was set back"),
                         QStringLiteral("it becomes current with the companion's next cycle"));
    else if (!segment.published && result == SegmentResult::Ok)
        findings.note(QStringLiteral("%1 has not published yet; the list is an earlier one's").arg(who));
    else
        findings.ok(segment.measuring ? QStringLiteral("%1 is measuring").arg(who)
                                      : QStringLiteral("%1 publishes").arg(who));
}

} // namespace doctor
