// Everything that the checks know about a machine.
#pragma once

#include <QString>
#include <QVector>

#include "doctor/Places.h"
#include "doctor/facts/NvmlFacts.h"
#include "doctor/facts/OpenCLFacts.h"
#include "doctor/facts/PciFacts.h"
#include "doctor/facts/ProgramFacts.h"
#include "doctor/facts/RightsFacts.h"
#include "doctor/facts/SegmentFacts.h"
#include "doctor/facts/SystemFacts.h"
#include "doctor/steps/StepRunner.h"

namespace doctor {

/// A driver tried alone.
struct IcdTrial {
    IcdFile icd;
    StepOutcome outcome;
    OpenCLFacts openCL;
};

/// One run of the program.
struct AnswerTrial {
    QString option;
    StepOutcome outcome;

    /// Why the program could not be started; empty: it was.
    QString cannot() const {
        const auto all = outcome.reported("cannot");
        return all.isEmpty() ? QString() : all.first().value("reason").toString();
    }
};

struct Facts {
    QString user;         ///< whose rights were asked for; empty: those of the user running the doctor
    double timeLimit = 0; ///< of a step, seconds
    QString sleepingCard; ///< PCI address of a suspended card that must not be woken; empty: none
    QString program;      ///< path of the program beside the doctor

    SystemFacts system;
    QVector<PciDevice> pci;
    StepOutcome programEnd;
    ProgramFacts programRun;
    StepOutcome nvmlEnd;
    NvmlFacts nvml;
    StepOutcome openCLEnd;
    OpenCLFacts openCL;
    QVector<IcdTrial> icds;
    StepOutcome rightsEnd;
    RightsFacts rights;
    StepOutcome segmentEnd;
    SegmentFacts segment;
    QVector<AnswerTrial> answers;
};

} // namespace doctor
