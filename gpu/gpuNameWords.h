// What a marketing name has around its model token.
#pragma once

/// Removed wherever they are, in any case. The order matters: a vendor is removed before its brands, and a
/// longer brand before the shorter one it begins with.
inline constexpr const char* gpuNameWords[] = {
    "NVIDIA ",   "GeForce ", "Quadro ", "Tesla ", "TITAN ",      "AMD ",    "Radeon Pro ", "Radeon ",
    "Instinct ", "Apple ",   "(TM) ",   "(R) ",   " Laptop GPU", " Mobile", " Graphics",   " Series",
};
