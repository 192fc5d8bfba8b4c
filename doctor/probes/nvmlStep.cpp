#include "doctor/probes/nvmlStep.h"

#include <algorithm>
#include <array>

#include <dlfcn.h>

#include "doctor/facts/NvmlFacts.h"
#include "doctor/facts/PciFacts.h"
#include "doctor/facts/json.h"
#include "doctor/recording/RecordedCall.h"
#include "doctor/recording/Recorder.h"
#include "nvidia/GpuNvml_Loader.h"
#include "nvidia/nvidiaPairing.h"

namespace doctor {

namespace {

/// Entry points that only the doctor asks for; any may be missing.
struct NvmlIdentityTable {
    using GetText = nvmlReturn_t(char* text, unsigned int length);
    using GetDeviceText = nvmlReturn_t(nvmlDevice_t device, char* text, unsigned int length);

    GetText* nvmlSystemGetDriverVersion = nullptr;
    GetText* nvmlSystemGetNVMLVersion = nullptr;
    GetDeviceText* nvmlDeviceGetUUID = nullptr;
    GetDeviceText* nvmlDeviceGetVbiosVersion = nullptr;
    nvmlReturn_t (*nvmlDeviceGetMigMode)(nvmlDevice_t device, unsigned int* current,
                                         unsigned int* pending) = nullptr;
    nvmlReturn_t (*nvmlDeviceGetPersistenceMode)(nvmlDevice_t device, int* mode) = nullptr;

    template <class Visit>
    void walk(Visit visit) {
        visit("nvmlSystemGetDriverVersion", nvmlSystemGetDriverVersion, EntryPoint::Optional);
        visit("nvmlSystemGetNVMLVersion", nvmlSystemGetNVMLVersion, EntryPoint::Optional);
        visit("nvmlDeviceGetUUID", nvmlDeviceGetUUID, EntryPoint::Optional);
        visit("nvmlDeviceGetVbiosVersion", nvmlDeviceGetVbiosVersion, EntryPoint::Optional);
        visit("nvmlDeviceGetMigMode", nvmlDeviceGetMigMode, EntryPoint::Optional);
        visit("nvmlDeviceGetPersistenceMode", nvmlDeviceGetPersistenceMode, EntryPoint::Optional);
    }
};

/// A text from NVML; empty if the call fails.
template <class Get>
QString textFrom(Channel& channel, const char* function, Get get) {
    std::array<char, 96> text{};
    const nvmlReturn_t status = channel.around(QLatin1String(function), [&] {
        return get(text.data(), static_cast<unsigned int>(text.size() - 1));
    });
    return status == NVML_SUCCESS ? QString::fromUtf8(text.data()) : QString();
}

class Inquiry {
  public:
    explicit Inquiry(Channel& toDoctor) : channel(toDoctor) {
        const auto silent = [](LoadFailure) {};
        for (const QString& name : qAsConst(recording().libraries))
            if (name.contains("nvidia-ml"))
                identity.load({name.toLatin1().constData()}, DynamicLoader::system(), silent);
    }

    NvmlLibrary library() const {
        NvmlLibrary facts;
        Dl_info place{};
        if (::dladdr(recording().entryPoints.value("nvmlInit_v2"), &place) != 0)
            facts.file = QString::fromLocal8Bit(place.dli_fname);
        if (const auto get = identity.table().nvmlSystemGetDriverVersion)
            facts.driverVersion = textFrom(channel, "nvmlSystemGetDriverVersion", get);
        if (const auto get = identity.table().nvmlSystemGetNVMLVersion)
            facts.nvmlVersion = textFrom(channel, "nvmlSystemGetNVMLVersion", get);
        return facts;
    }

    NvmlIdentity device(unsigned int index, nvmlDevice_t handle) const {
        NvmlIdentity facts;
        facts.index = static_cast<int>(index);
        nvmlPciInfo_t pci{};
        if (GpuNvml_Loader::table().nvmlDeviceGetPciInfo_v3(handle, &pci) == NVML_SUCCESS)
            facts.address = pciAddress(pci.domain, pci.bus, pci.device);
        const auto text = [&](const char* function, NvmlIdentityTable::GetDeviceText* get) {
            return get == nullptr ? QString()
                                  : textFrom(channel, function, [&](char* room, unsigned int length) {
                                        return get(handle, room, length);
                                    });
        };
        facts.uuid = text("nvmlDeviceGetUUID", identity.table().nvmlDeviceGetUUID);
        facts.vbiosVersion = text("nvmlDeviceGetVbiosVersion", identity.table().nvmlDeviceGetVbiosVersion);
        askModes(facts, handle);
        return facts;
    }

  private:
    void askModes(NvmlIdentity& facts, nvmlDevice_t handle) const {
        unsigned int mig = 0;
        unsigned int pending = 0;
        if (const auto get = identity.table().nvmlDeviceGetMigMode)
            if (channel.around("nvmlDeviceGetMigMode", [&] { return get(handle, &mig, &pending); }) ==
                NVML_SUCCESS)
                facts.migMode = static_cast<int>(mig);
        int persistence = 0;
        if (const auto get = identity.table().nvmlDeviceGetPersistenceMode)
            if (channel.around("nvmlDeviceGetPersistenceMode", [&] { return get(handle, &persistence); }) ==
                NVML_SUCCESS)
                facts.persistenceMode = persistence;
    }

    Channel& channel;
    VendorLibrary<NvmlIdentityTable> identity;
};

} // namespace

void askNvml(Channel& channel) {
    const Recorder recorder(channel);
    if (GpuNvml_Loader::load(Recorder::loader()) == 0)
        return;
    const GpuNvml_Table& nvml = GpuNvml_Loader::table();
    const Inquiry inquiry(channel);
    const nvmlReturn_t started = nvml.nvmlInit_v2();
    // The file is known even if the library doesn't start.
    channel.send("library", toJson(inquiry.library()));
    unsigned int count = 0;
    if (started != NVML_SUCCESS || nvml.nvmlDeviceGetCount_v2(&count) != NVML_SUCCESS)
        return;
    for (unsigned int index = 0; index < std::min(count, maxNvidiaDevices); ++index) {
        nvmlDevice_t handle = nullptr;
        if (nvml.nvmlDeviceGetHandleByIndex_v2(index, &handle) == NVML_SUCCESS)
            channel.send("device", toJson(inquiry.device(index, handle)));
    }
    nvml.nvmlShutdown();
}

} // namespace doctor
