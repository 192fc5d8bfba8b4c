// The report in each output form.
#pragma once

#include <QVector>

#include "doctor/Finding.h"
#include "doctor/facts/Gpus.h"

namespace doctor {

struct Report {
    QVector<Finding> findings;
    QVector<Gpu> gpus; ///< those of the vendors whose GPUs are listed
    Facts facts;

    GpuCount count() const { return countGpus(gpus); }

    /// The most serious verdict.
    Verdict worst() const;

    /// "4 GPUs installed, 1 listed: ..."; one sentence.
    QString headline() const;
};

/// For people. `columns`: the width of lines; `colour`: with a terminal's colours.
QByteArray textForm(const Report& report, int columns, bool colour);

/// For programs: one JSON object, described in docs/finding-out-why.md.
QByteArray jsonForm(const Report& report);

/// For Prometheus.
QByteArray prometheusForm(const Report& report);

} // namespace doctor
