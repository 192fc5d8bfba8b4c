// Looks at the machine, as far as the wanted checks need it.
#pragma once

#include <QStringList>

#include "doctor/Finding.h"
#include "doctor/Places.h"
#include "doctor/checks/registry.h"
#include "doctor/facts/Facts.h"
#include "doctor/steps/StepRunner.h"

namespace doctor {

struct ExaminationSettings {
    Places places;
    QString user;              ///< whose rights are judged; empty: those of the one who runs the doctor
    bool wakesCards = false;   ///< examine cards that sleep
    bool recordsFirst = false; ///< the program's run has the machine to itself
    int readings = 1;          ///< its update cycles
    QString program;           ///< to be asked; usually the one beside the doctor
    StepLimits limits;
    StepRunner::Progress progress;
};

/// Gathers what checks with these needs (`Need` bits) look at.
Facts examine(const ExaminationSettings& settings, unsigned needs);

/// The checks that `only` names (all, when it is empty), without those that `skip` names.
std::vector<Check> chosenChecks(const QStringList& only, const QStringList& skip);

/// Lets each check judge the facts, in the order of the report.
QVector<Finding> judge(const std::vector<Check>& chosen, const Facts& facts);

} // namespace doctor
