// amd.*
#include <algorithm>

#include "amd/amdCard.h"
#include "doctor/checks/checks.h"
#include "doctor/facts/Gpus.h"
#include "doctor/facts/endingText.h"
#include "support/qzLastOSError.h"

namespace doctor {

namespace {

bool hasAmd(const Facts& facts) {
    return std::any_of(facts.pci.begin(), facts.pci.end(),
                       [](const PciDevice& device) { return device.vendor == pciVendorAmd; }) ||
           std::any_of(facts.programRun.cards.begin(), facts.programRun.cards.end(),
                       [](const CardFacts& card) { return card.isAmd; });
}

bool judgedAbsent(const Facts& facts, Findings& findings) {
    if (hasAmd(facts))
        return false;
    findings.ok(QStringLiteral("there is no AMD GPU"));
    return true;
}

/// The reading of a card's file; "hwmon/hwmon3/temp1_input" of "/sys/class/drm/card0/device/hwmon/...".
bool isOfCard(const CallFacts& call, const CardFacts& card, QString& file) {
    const QString part = "/" + card.entry + "/device/";
    const QString path = call.argument("path");
    const int at = path.indexOf(part);
    file = path.mid(at + part.size());
    return call.name.startsWith("read ") && at >= 0;
}

QString cardText(const CardFacts& card) {
    return QStringLiteral("%1 '%2'").arg(card.entry, card.name);
}

} // namespace

void judgeAmdModule(const Facts& facts, Findings& findings) {
    if (judgedAbsent(facts, findings))
        return;
    const bool hasCards = std::any_of(facts.programRun.cards.begin(), facts.programRun.cards.end(),
                                      [](const CardFacts& card) { return card.isAmd; });
    if (facts.system.modules.contains("amdgpu"))
        findings.ok(QStringLiteral("the kernel module amdgpu is loaded"));
    else if (facts.system.modules.contains("radeon"))
        findings.warning(
            QStringLiteral("the kernel module is radeon, which does not report a card's memory"),
            QStringLiteral("cards of the first GCN generations can be given to amdgpu by the kernel "
                           "parameters radeon.si_support=0 amdgpu.si_support=1 (cik_support likewise)"));
    else if (hasCards)
        findings.ok(QStringLiteral("the kernel shows AMD's cards; amdgpu is built in"));
    else
        findings.failure(
            QStringLiteral("the kernel module amdgpu is not loaded"),
            QStringLiteral("load it: sudo modprobe amdgpu; where it does not load, see dmesg, and "
                           "whether the GPU's firmware is installed (firmware-amd-graphics, "
                           "linux-firmware)"));
}

void judgeAmdCards(const Facts& facts, Findings& findings) {
    if (judgedAbsent(facts, findings))
        return;
    for (const CardFacts& card : facts.programRun.cards) {
        if (!card.isAmd)
            continue;
        findings.on(card.entry);
        if (card.isLargeEnough)
            findings.ok(
                QStringLiteral("%1 at %2 with %3 MB").arg(cardText(card), card.address).arg(card.memoryMb));
        else if (card.memoryMb > 0)
            findings.note(
                QStringLiteral("%1 at %2 is left out: its %3 MB are below the %4 MB that a card needs")
                    .arg(cardText(card), card.address)
                    .arg(card.memoryMb)
                    .arg(minAmdMemoryMb));
        else
            findings.failure(
                QStringLiteral("%1 is left out: mem_info_vram_total does not have its memory")
                    .arg(cardText(card)),
                QStringLiteral("this file is the driver amdgpu's: see pci.drivers for the card's driver, "
                               "and dmesg for what it says"));
    }
    if (findings.isEmpty() && !facts.programEnd.isDone())
        findings.skipped(QStringLiteral("the program's own search does not get to AMD's cards"));
    else if (findings.isEmpty())
        findings.failure(QStringLiteral("there is an AMD GPU, but /sys/class/drm has no card for it"),
                         QStringLiteral("see pci.drivers for its kernel driver, and dmesg for what it says"));
}

void judgeAmdFiles(const Facts& facts, Findings& findings) {
    if (judgedAbsent(facts, findings))
        return;
    for (const CardFacts& card : facts.programRun.cards) {
        if (!card.isAmd || !card.isLargeEnough)
            continue;
        findings.on(card.entry);
        bool allRead = true;
        for (const CallFacts& call : facts.programRun.calls) {
            QString file;
            if (!isOfCard(call, card, file) || (call.returned && call.status == 0))
                continue;
            // The files that may have the name are tried in turn.
            if (file == QLatin1String("product_name") || file == QLatin1String("label"))
                continue;
            allRead = false;
            if (!call.returned)
                findings.failure(QStringLiteral("reading %1's %2 %3")
                                     .arg(card.entry, file, endingText(facts.programEnd, facts.timeLimit)),
                                 QStringLiteral("see dmesg for what the kernel driver says"));
            else
                findings.note(QStringLiteral("%1's %2 can't be read: %3")
                                  .arg(card.entry, file, QString(qzLastOSError(call.status))));
        }
        if (allRead)
            findings.ok(QStringLiteral("every file of %1 can be read").arg(card.entry));
    }
    if (findings.isEmpty())
        findings.ok(QStringLiteral("there is no card whose figures are read"));
}

void judgeAmdPower(const Facts& facts, Findings& findings) {
    if (judgedAbsent(facts, findings))
        return;
    for (const PciDevice& device : facts.pci) {
        if (device.vendor != pciVendorAmd || !device.isSuspended())
            continue;
        findings.on(device.address);
        if (facts.sleepingCard.isEmpty())
            findings.note(QStringLiteral("the GPU at %1 slept; reading it has woken it").arg(device.address));
        else
            findings.note(
                QStringLiteral("the GPU at %1 sleeps; what would wake it was left out").arg(device.address),
                QStringLiteral("to examine it too: --wake"));
    }
    if (findings.isEmpty())
        findings.ok(QStringLiteral("no AMD GPU sleeps"));
}

} // namespace doctor
