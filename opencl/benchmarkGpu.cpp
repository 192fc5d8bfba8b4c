#include "opencl/benchmarkGpu.h"

#include <QString>

#include "app/log/logLine.h"
#include "gpu/GpuInfo.h"
#include "opencl/GpuBenchmarkOpenCL.h"
#include "opencl/OpenCLDevices.h"
#include "opencl/benchmarkSettings.h"

void benchmarkGpu(GpuDevice& record) {
    const QString name = gpuName(record);
    if (record.clDevice == 0) {
        logLine(
            2, QStringLiteral("  %1 %2-%3: unable to run Benchmark(openCL), device_HardwareID is NULL")
                   .arg(name, QString::fromLatin1(gpuTypeName(record)), QString::number(record.deviceIndex)));
        record.hasSpeed = 0;
        return;
    }
    GpuBenchmarkOpenCL_Context context;
    logLine(5, QStringLiteral("  %1: running %2s Benchmark(openCL) ...")
                   .arg(name, QString::number(benchmarkSeconds)));
    record.speedGps =
        GpuBenchmarkOpenCL::run(context, openCLDeviceOf(record), benchmarkSeconds, benchmarkGeometry);
    record.hasSpeed = 1;
}
