#pragma once

#include <QString>

/// The model token of a marketing name: "NVIDIA GeForce RTX 4090" becomes "RTX4090". Edits `name` in place
/// and returns the edited text, trimmed.
QString shortGpuName(QString& name);
