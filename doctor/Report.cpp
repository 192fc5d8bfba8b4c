#include "doctor/Report.h"

#include <algorithm>

#include "doctor/facts/endingText.h"

namespace doctor {

namespace {

QString countText(const GpuCount& count) {
    if (count.installed == 0)
        return QStringLiteral("no GPU installed");
    return QStringLiteral("%1 %2 installed, %3 listed")
        .arg(QString::number(count.installed),
             count.installed == 1 ? QStringLiteral("GPU") : QStringLiteral("GPUs"),
             QString::number(count.listed));
}

} // namespace

Verdict Report::worst() const {
    Verdict verdict = Verdict::Skipped;
    for (const Finding& finding : findings)
        verdict = std::max(verdict, finding.verdict);
    return verdict;
}

QString Report::headline() const {
    const QString start = countText(count());
    const auto unlisted =
        std::find_if(gpus.begin(), gpus.end(), [](const Gpu& gpu) { return gpu.counts && !gpu.isListed; });
    if (unlisted != gpus.end())
        return QStringLiteral("%1: %2 is not, since %3")
            .arg(start, unlisted->address.isEmpty() ? unlisted->name : unlisted->address,
                 unlisted->whyNotListed);
    const auto first = std::find_if(findings.begin(), findings.end(),
                                    [&](const Finding& finding) { return finding.verdict == worst(); });
    if (worst() >= Verdict::Warning)
        return QStringLiteral("%1: %2").arg(start, first->fact);
    return QStringLiteral("%1: nothing is wrong").arg(start);
}

} // namespace doctor
