// The recording functions of NVML and CUDA. They record the arguments and answers that the program uses.
#include <cstring>

#include "doctor/recording/RecordedCall.h"
#include "doctor/steps/Message.h"
#include "nvidia/CudaLibrary.h"
#include "nvidia/nvml.h"

namespace doctor {

namespace {

/// A JSON number holds 53 bits.
QString wide(unsigned long long number) {
    return QString::number(number);
}

/// The text that a library wrote into a buffer, terminated or not.
QString textIn(const char* room, std::size_t size) {
    return textOfBytes(QByteArray(room, static_cast<int>(strnlen(room, size))));
}

QJsonObject of(nvmlDevice_t device) {
    return {{"device", handleText(device)}};
}

nvmlReturn_t nvmlInit() {
    const RecordedCall call("nvmlInit_v2");
    return call.answer(call.real(nvmlInit)());
}

nvmlReturn_t nvmlShutdown() {
    const RecordedCall call("nvmlShutdown");
    return call.answer(call.real(nvmlShutdown)());
}

nvmlReturn_t nvmlDeviceGetCount(unsigned int* count) {
    const RecordedCall call("nvmlDeviceGetCount_v2");
    const nvmlReturn_t status = call.real(nvmlDeviceGetCount)(count);
    return call.answer(status, {{"count", static_cast<double>(*count)}});
}

nvmlReturn_t nvmlDeviceGetHandleByIndex(unsigned int index, nvmlDevice_t* device) {
    const RecordedCall call("nvmlDeviceGetHandleByIndex_v2", {{"index", static_cast<double>(index)}});
    const nvmlReturn_t status = call.real(nvmlDeviceGetHandleByIndex)(index, device);
    return call.answer(status, of(*device));
}

nvmlReturn_t nvmlDeviceGetPciInfo(nvmlDevice_t device, nvmlPciInfo_t* pci) {
    const RecordedCall call("nvmlDeviceGetPciInfo_v3", of(device));
    const nvmlReturn_t status = call.real(nvmlDeviceGetPciInfo)(device, pci);
    return call.answer(status, {{"domain", static_cast<double>(pci->domain)},
                                {"bus", static_cast<double>(pci->bus)},
                                {"slot", static_cast<double>(pci->device)},
                                {"id", static_cast<double>(pci->pciDeviceId)}});
}

nvmlReturn_t nvmlDeviceGetName(nvmlDevice_t device, char* name, unsigned int length) {
    const RecordedCall call("nvmlDeviceGetName", of(device));
    const nvmlReturn_t status = call.real(nvmlDeviceGetName)(device, name, length);
    return call.answer(status, {{"name", textIn(name, length)}});
}

nvmlReturn_t nvmlDeviceGetUtilizationRates(nvmlDevice_t device, nvmlUtilization_t* utilization) {
    const RecordedCall call("nvmlDeviceGetUtilizationRates", of(device));
    const nvmlReturn_t status = call.real(nvmlDeviceGetUtilizationRates)(device, utilization);
    return call.answer(status, {{"value", static_cast<double>(utilization->gpu)}});
}

nvmlReturn_t nvmlDeviceGetTemperature(nvmlDevice_t device, nvmlTemperatureSensors_t sensor,
                                      unsigned int* temperature) {
    const RecordedCall call("nvmlDeviceGetTemperature", of(device));
    const nvmlReturn_t status = call.real(nvmlDeviceGetTemperature)(device, sensor, temperature);
    return call.answer(status, {{"value", static_cast<double>(*temperature)}});
}

nvmlReturn_t nvmlDeviceGetMemoryInfo(nvmlDevice_t device, nvmlMemory_t* memory) {
    const RecordedCall call("nvmlDeviceGetMemoryInfo", of(device));
    const nvmlReturn_t status = call.real(nvmlDeviceGetMemoryInfo)(device, memory);
    return call.answer(
        status, {{"total", wide(memory->total)}, {"free", wide(memory->free)}, {"used", wide(memory->used)}});
}

const char* nvmlErrorString(nvmlReturn_t result) {
    const RecordedCall call("nvmlErrorString", {{"result", result}});
    const char* text = call.real(nvmlErrorString)(result);
    call.answer(0, {{"text", text != nullptr ? QJsonValue(textOfBytes(text)) : QJsonValue()}});
    return text;
}

template <const char* const& Name>
int cudaGetDeviceProperties(void* properties, int device) {
    const RecordedCall call(Name, {{"device", device}});
    const int status = call.real(cudaGetDeviceProperties<Name>)(properties, device);
    CudaDeviceProperties read;
    const QByteArray soname = recording().sonames.value(Name).toLocal8Bit();
    if (status == 0)
        readCudaProperties(soname.constData(), properties, read);
    return call.answer(status, {{"major", read.major}, {"minor", read.minor}, {"bus", read.pciBusID}});
}

constexpr const char* plainProperties = "cudaGetDeviceProperties";
constexpr const char* secondProperties = "cudaGetDeviceProperties_v2";

int cudaGetDeviceCount(int* count) {
    const RecordedCall call("cudaGetDeviceCount");
    const int status = call.real(cudaGetDeviceCount)(count);
    return call.answer(status, {{"count", *count}});
}

int cuInit(unsigned int flags) {
    const RecordedCall call("cuInit");
    return call.answer(call.real(cuInit)(flags));
}

int cuDeviceGetCount(int* count) {
    const RecordedCall call("cuDeviceGetCount");
    const int status = call.real(cuDeviceGetCount)(count);
    return call.answer(status, {{"count", *count}});
}

int cuDeviceGet(int* device, int ordinal) {
    const RecordedCall call("cuDeviceGet", {{"device", ordinal}});
    const int status = call.real(cuDeviceGet)(device, ordinal);
    return call.answer(status, {{"handle", *device}});
}

int cuDeviceGetAttribute(int* value, int attribute, int device) {
    const RecordedCall call("cuDeviceGetAttribute", {{"attribute", attribute}, {"handle", device}});
    const int status = call.real(cuDeviceGetAttribute)(value, attribute, device);
    return call.answer(status, {{"value", *value}});
}

template <class Function>
void* address(Function* function) {
    return reinterpret_cast<void*>(function);
}

} // namespace

void* nvidiaRecordingFunction(const QString& entryPoint) {
    static const QHash<QString, void*> functions{
        {"nvmlInit_v2", address(nvmlInit)},
        {"nvmlShutdown", address(nvmlShutdown)},
        {"nvmlDeviceGetCount_v2", address(nvmlDeviceGetCount)},
        {"nvmlDeviceGetHandleByIndex_v2", address(nvmlDeviceGetHandleByIndex)},
        {"nvmlDeviceGetPciInfo_v3", address(nvmlDeviceGetPciInfo)},
        {"nvmlDeviceGetName", address(nvmlDeviceGetName)},
        {"nvmlDeviceGetUtilizationRates", address(nvmlDeviceGetUtilizationRates)},
        {"nvmlDeviceGetTemperature", address(nvmlDeviceGetTemperature)},
        {"nvmlDeviceGetMemoryInfo", address(nvmlDeviceGetMemoryInfo)},
        {"nvmlErrorString", address(nvmlErrorString)},
        {"cudaGetDeviceCount", address(cudaGetDeviceCount)},
        {plainProperties, address(cudaGetDeviceProperties<plainProperties>)},
        {secondProperties, address(cudaGetDeviceProperties<secondProperties>)},
        {"cuInit", address(cuInit)},
        {"cuDeviceGetCount", address(cuDeviceGetCount)},
        {"cuDeviceGet", address(cuDeviceGet)},
        {"cuDeviceGetAttribute", address(cuDeviceGetAttribute)},
    };
    return functions.value(entryPoint);
}

} // namespace doctor
