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

/// What the program's own run has met, call by call, in a description on which the program answers alike. Its
/// first lines say what was left out, and its section [expected] what the program and the doctor said there.
QByteArray describeMachine(const Facts& facts, const QVector<Finding>& findings,
                           const RecordingSettings& settings);

} // namespace doctor
