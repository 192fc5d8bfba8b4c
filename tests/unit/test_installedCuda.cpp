// The CUDA runtime that is really installed, and the header that comes with it.
#include <cstring>

#include <dlfcn.h>

#include <QTest>

#include "FakeLoader.h"
#include "nvidia/CudaLibrary.h"

#if __has_include(<driver_types.h>) && __has_include(<cuda_runtime_api.h>)
#include <cuda_runtime_api.h>
#define QZ_HAS_CUDA_HEADERS 1
#endif

class TestInstalledCuda : public QObject {
    Q_OBJECT

  private slots:
    void init() { FakeLoader::reset(); }

    /// A record that the vendor's own declaration lays out is understood.
    void recordOfTheHeader() {
#ifdef QZ_HAS_CUDA_HEADERS
        constexpr int major = CUDART_VERSION / 1000;
        if (major < 11 || major > 13)
            QSKIP("SKIPPED: the installed headers are of a version that the program passes over");
        const QByteArray file =
            major == 11 ? QByteArray("libcudart.so.11.0") : "libcudart.so." + QByteArray::number(major);
        FakeLibrary& library = FakeLoader::provide(file);
        library.soname = file;
        library.add(
            "cudaGetDeviceCount", +[](int* count) {
                *count = 1;
                return 0;
            });
        library.add(
            "cudaGetDeviceProperties", +[](void* record, int) {
                cudaDeviceProp properties{};
                properties.major = 8;
                properties.minor = 9;
                properties.pciBusID = 0xc1;
                std::memcpy(record, &properties, sizeof properties);
                return 0;
            });
        const std::unique_ptr<CudaLibrary> runtime = openCudaRuntime(FakeLoader::functions());
        QVERIFY(runtime != nullptr);
        CudaDeviceProperties properties;
        QCOMPARE(runtime->deviceProperties(properties, 0), 0);
        QCOMPARE(properties.major, 8);
        QCOMPARE(properties.minor, 9);
        QCOMPARE(properties.pciBusID, 0xc1);
#else
        QSKIP("SKIPPED: no headers of the CUDA runtime are installed");
#endif
    }

    /// With a driver its devices are described; without one the runtime is passed over.
    void runtime() {
        const DynamicLoader loader = DynamicLoader::system();
        void* library = loader.openFirst({"libcudart.so.13", "libcudart.so.12", "libcudart.so.11.0"});
        if (library == nullptr)
            QSKIP("SKIPPED: no CUDA runtime is installed");
        QVERIFY(QByteArray(loader.soname(library)).startsWith("libcudart.so.1"));
        int (*getDeviceCount)(int*) = nullptr;
        QVERIFY(loader.resolve(library, "cudaGetDeviceCount", getDeviceCount));
        int expected = 0;
        const bool isUsable = getDeviceCount(&expected) == 0;

        const std::unique_ptr<CudaLibrary> runtime = openCudaRuntime(loader);
        QCOMPARE(runtime != nullptr, isUsable);
        if (!isUsable)
            return;
        int count = 0;
        QCOMPARE(runtime->deviceCount(count), 0);
        QCOMPARE(count, expected);
        for (int device = 0; device < count; ++device) {
            CudaDeviceProperties properties;
            QCOMPARE(runtime->deviceProperties(properties, device), 0);
            QVERIFY(properties.major >= 2 && properties.major < 100);
            QVERIFY(properties.minor >= 0 && properties.minor < 10);
            QVERIFY(properties.pciBusID >= 0 && properties.pciBusID <= 0xff);
        }
    }
};

QTEST_APPLESS_MAIN(TestInstalledCuda)
#include "test_installedCuda.moc"
