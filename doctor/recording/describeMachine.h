// A recorded machine as a description for the simulator.
#pragma once

#include <QByteArray>

#include "doctor/Finding.h"
#include "doctor/facts/Facts.h"

namespace doctor {

struct RecordingSettings {
    Places places;
    bool withIdentifiers = false;
};

/// Describes what the program's run met, call by call, so that the program answers the same on the simulated
/// machine. The first lines say what was left out; the section [expected] has the results of the program and
/// the doctor.
QByteArray describeMachine(const Facts& facts, const QVector<Finding>& findings,
                           const RecordingSettings& settings);

} // namespace doctor
