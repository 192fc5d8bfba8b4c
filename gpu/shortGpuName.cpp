#include "gpu/shortGpuName.h"

#include "gpu/gpuNameWords.h"

QString shortGpuName(QString& name) {
    for (const char* word : gpuNameWords)
        name.remove(QLatin1String(word), Qt::CaseInsensitive);
    name.replace(QLatin1String("Ada Generation"), QLatin1String("Ada"), Qt::CaseInsensitive);
    name.remove(QLatin1Char(' '));
    return name.trimmed();
}
