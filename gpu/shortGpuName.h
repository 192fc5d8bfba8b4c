#pragma once

#include <QString>

/// The model token of a marketing name: "NVIDIA GeForce RTX 4090" becomes "RTX4090". Edits `name` in place
/// and gives the edited text without white space at its ends.
QString shortGpuName(QString& name);
