// Examines the machine as far as the selected checks need it.
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
    QString user;              ///< whose rights are checked; empty: those of the user running the doctor
    bool wakesCards = false;   ///< examine suspended cards as well
    bool recordsFirst = false; ///< nothing else runs beside the program's run
    int readings = 1;          ///< its update cycles
    QString program;           ///< qzGpuInfo's path; usually the one beside the doctor
    StepLimits limits;
    StepRunner::Progress progress;
};

/// Collects the facts for checks with these needs (`Need` bits).
Facts examine(const ExaminationSettings& settings, unsigned needs);

/// The checks that `only` names (all, when it is empty), without those that `skip` names.
std::vector<Check> chosenChecks(const QStringList& only, const QStringList& skip);

/// Lets each check judge the facts, in the order of the report.
QVector<Finding> judge(const std::vector<Check>& chosen, const Facts& facts);

} // namespace doctor
