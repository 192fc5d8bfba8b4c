#include "doctor/probes/openCLStep.h"

#include <cstdlib>

#include <dlfcn.h>

#include "amd/AmdOclCandidate.h"
#include "app/log/logLine.h"
#include "doctor/facts/json.h"
#include "doctor/recording/RecordedCall.h"
#include "doctor/recording/Recorder.h"
#include "doctor/steps/Message.h"
#include "nvidia/nvidiaPairing.h"

namespace doctor {

namespace {

using GpuOpenCL_Loader::call;
using GpuOpenCL_Loader::table;

QString platformName(cl_platform_id platform) {
    QByteArray name(static_cast<int>(openCLNameRoom), '\0');
    call(table().clGetPlatformInfo, platform, CL_PLATFORM_NAME, openCLNameRoom, name.data(), nullptr);
    return QString::fromUtf8(name.constData());
}

quint32 countDevices(cl_platform_id platform, cl_device_type type, int& status) {
    cl_uint count = 0;
    status = call(table().clGetDeviceIDs, platform, type, 0, nullptr, &count);
    return status == CL_SUCCESS ? count : 0;
}

/// The bus by each of the attributes, including those that the program would not query.
QVector<BusAnswer> busAnswers(cl_device_id device) {
    QVector<BusAnswer> answers;
    const auto ask = [&](const char* name, cl_device_info attribute, auto& value, auto bus) {
        const cl_int status = call(table().clGetDeviceInfo, device, attribute, sizeof value, &value, nullptr);
        answers.append({QLatin1String(name), status, status == CL_SUCCESS ? bus(value) : 0});
    };
    cl_uint number = 0;
    TopologyAmd topology{};
    PciBusInfoKhr location{};
    ask("NV", deviceAttributePciBusIdNv, number, [](cl_uint bus) { return bus; });
    ask("AMD", deviceAttributeTopologyAmd, topology, [](const TopologyAmd& answer) {
        return static_cast<quint32>(static_cast<unsigned char>(answer.bus));
    });
    ask("KHR", deviceAttributePciBusInfoKhr, location,
        [](const PciBusInfoKhr& answer) { return static_cast<quint32>(answer.pci_bus); });
    return answers;
}

void tellDevices(Channel& channel, const OpenCLPlatform& platform) {
    const std::vector<AmdOclCandidate> candidates = collectAmdOclCandidates({1, {platform}});
    int number = 0;
    for (const AmdOclCandidate& candidate : candidates) {
        OpenCLDeviceFacts facts;
        facts.name = candidate.name;
        facts.handle = handleText(candidate.device);
        facts.platform = static_cast<int>(platform.number);
        facts.number = number++;
        facts.answers = busAnswers(candidate.device);
        const NvidiaOclBus location = nvidiaOclBus(candidate.device);
        facts.nvidiaAttribute = QString::fromLatin1(location.attribute);
        facts.nvidiaBus = location.bus;
        facts.amdBusKnown = candidate.busKnown;
        facts.amdSource = QString::fromLatin1(candidate.busSource);
        facts.amdBus = static_cast<quint32>(candidate.bus);
        channel.send("device", toJson(facts));
    }
}

} // namespace

void listOpenCL(Channel& channel) {
    logLevel = -1;
    const Recorder recorder(channel);
    if (GpuOpenCL_Loader::load(Recorder::loader()) == 0)
        return;
    const OpenCLPlatforms platforms = listOpenCLPlatforms();
    OpenCLLibrary library;
    Dl_info place{};
    if (::dladdr(recording().entryPoints.value("clGetPlatformIDs"), &place) != 0)
        library.file = QString::fromLocal8Bit(place.dli_fname);
    library.reportedPlatforms = platforms.reported;
    channel.send("library", toJson(library));
    for (const OpenCLPlatform& platform : platforms.listed) {
        OpenCLPlatformFacts facts;
        facts.number = static_cast<int>(platform.number);
        facts.name = platformName(platform.id);
        facts.reported = countDevices(platform.id, CL_DEVICE_TYPE_GPU, facts.status);
        int ignored = 0;
        facts.otherDevices =
            countDevices(platform.id, CL_DEVICE_TYPE_CPU | CL_DEVICE_TYPE_ACCELERATOR, ignored);
        channel.send("platform", toJson(facts));
        tellDevices(channel, platform);
    }
}

void tryIcdAlone(Channel& channel, const IcdFile& icd, const QString& folder) {
    ::setenv("OCL_ICD_VENDORS", folder.toLocal8Bit().constData(), 1);
    // Names further drivers.
    ::unsetenv("OCL_ICD_FILENAMES");
    const DynamicLoader loader = Recorder::loader();
    {
        const Recorder recorder(channel);
        if (loader.open(icd.library.toLocal8Bit().constData(), RTLD_LAZY) == nullptr)
            return;
    }
    listOpenCL(channel);
}

} // namespace doctor
