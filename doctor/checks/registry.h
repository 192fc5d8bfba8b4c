// The list of all checks.
#pragma once

#include <vector>

#include "doctor/Finding.h"
#include "doctor/facts/Facts.h"

namespace doctor {

/// What a check needs besides the kernel's and the system's files, which are always read.
enum Need : unsigned {
    NeedsNothing = 0,
    NeedsProgram = 1,
    NeedsNvml = 2,
    NeedsOpenCL = 4,
    NeedsIcds = 8,
    NeedsRights = 16,
    NeedsSegment = 32,
    NeedsAnswers = 64,
};

struct Check {
    const char* id;
    const char* question; ///< what it answers, for the list of checks
    unsigned needs;       ///< `Need` bits
    void (*judge)(const Facts& facts, Findings& findings);
};

/// In the order of the report.
const std::vector<Check>& checks();

/// Whether a selector names a check: its id, or the part before a dot, with or without that dot.
bool selects(const QString& selector, const Check& check);

} // namespace doctor
