// The driver with made-up vendors, in a separate directory in shared memory.
#pragma once

#include <memory>

#include "CaptureStdout.h"
#include "FakeProvider.h"
#include "SegmentDirectory.h"
#include "app/GpuInfo_Main.h"

/// Creates a vendor for each of the words "NVIDIA", "AMD" and "Apple" in `vendors`; the other places stay
/// empty.
struct DriverBench {
    explicit DriverBench(const QString& vendors = "NVIDIA AMD", const char* segmentDirectory = nullptr) {
        Vendors madeUp{{}, linuxVendors().unloadLibraries};
        const auto place = [&](std::size_t index, FakeProvider*& fake, const char* vendor) {
            if (!vendors.contains(QLatin1String(vendor)))
                return;
            auto made = std::make_unique<FakeProvider>(calls, QLatin1String(vendor));
            fake = made.get();
            madeUp.providers[index] = std::move(made);
        };
        place(0, nvidia, "NVIDIA");
        place(1, amd, "AMD");
        place(2, apple, "Apple");
        driver = std::make_unique<GpuInfo_Main>(
            std::move(madeUp), segmentDirectory != nullptr ? segmentDirectory : directory.path());
    }

    const GpuInfoBlock& list() const { return driver->gpuList(); }

    /// What a call prints.
    template <class Call>
    static QByteArray printed(Call call) {
        CaptureStdout output;
        call();
        return output.take();
    }

    QByteArray init() {
        return printed([this] { initResult = driver->init(); });
    }

    QByteArray update() {
        return printed([this] { driver->update(); });
    }

    QByteArray segment() const { return directory.bytes(segmentKey); }

    SegmentDirectory directory;
    QStringList calls; ///< of the vendors, in their order
    FakeProvider* nvidia = nullptr;
    FakeProvider* amd = nullptr;
    FakeProvider* apple = nullptr;
    bool initResult = false;
    std::unique_ptr<GpuInfo_Main> driver;
};
