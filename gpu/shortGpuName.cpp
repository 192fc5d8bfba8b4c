#include "gpu/shortGpuName.h"

namespace {

// The order matters: a vendor is removed before its brands, and a longer brand before the shorter one it
// begins with.
constexpr const char* removedWords[] = {
    "NVIDIA ",   "GeForce ", "Quadro ", "Tesla ", "TITAN ",      "AMD ",    "Radeon Pro ", "Radeon ",
    "Instinct ", "Apple ",   "(TM) ",   "(R) ",   " Laptop GPU", " Mobile", " Graphics",   " Series",
};

} // namespace

QString shortGpuName(QString& name) {
    for (const char* word : removedWords)
        name.remove(QLatin1String(word), Qt::CaseInsensitive);
    name.replace(QLatin1String("Ada Generation"), QLatin1String("Ada"), Qt::CaseInsensitive);
    name.remove(QLatin1Char(' '));
    return name.trimmed();
}
