#include <cstddef>
#include <cstring>
#include <memory>

#include <QTest>

#include "FakeProvider.h"

namespace {

QByteArray bytesOf(const GpuDevice& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

/// The place of a virtual operation in the class's table, as the C++ ABI of this platform gives it: a pointer
/// to a virtual member is its offset in the table plus one.
template <class Member>
std::ptrdiff_t slotOf(Member member) {
    std::ptrdiff_t words[2];
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    return (words[0] - 1) / std::ptrdiff_t(sizeof(void*));
}

} // namespace

class TestGpuInfo : public QObject {
    Q_OBJECT

  private slots:
    /// The destructor takes the first two slots.
    void virtualOperationsAreInOrder() {
        QCOMPARE(slotOf(&GpuInfo::detectGpus), std::ptrdiff_t(2));
        QCOMPARE(slotOf(&GpuInfo::updateUsage), std::ptrdiff_t(3));
        QCOMPARE(slotOf(&GpuInfo::shutdown), std::ptrdiff_t(4));
    }

    void gpuCount() {
        QStringList calls;
        FakeProvider provider(calls, "NVIDIA");
        QCOMPARE(provider.gpuCount(), 0);
        provider.add();
        provider.add();
        QCOMPARE(provider.gpuCount(), 2);
        provider.removeAll();
        QCOMPARE(provider.gpuCount(), 0);
    }

    /// A key is a device's number, wherever the device is in the list.
    void getGpuGoesByDeviceNumber() {
        QStringList calls;
        FakeProvider provider(calls, "NVIDIA");
        provider.add("b").deviceIndex = 1;
        provider.add("a").deviceIndex = 0;
        GpuDevice out;
        provider.getGpu(out, 0);
        QCOMPARE(QByteArray(out.name), QByteArray("a"));
        provider.getGpu(out, 1);
        QCOMPARE(QByteArray(out.name), QByteArray("b"));
    }

    void getGpuGivesTheFirstOfEqualNumbers() {
        QStringList calls;
        FakeProvider provider(calls, "NVIDIA");
        provider.add("first").deviceIndex = -1;
        provider.add("second").deviceIndex = -1;
        GpuDevice out;
        provider.getGpu(out, -1);
        QCOMPARE(QByteArray(out.name), QByteArray("first"));
    }

    void getGpuCopiesEveryByte() {
        QStringList calls;
        FakeProvider provider(calls, "NVIDIA");
        GpuDevice& gpu = provider.add();
        std::memset(static_cast<void*>(&gpu), 0x5a, sizeof gpu);
        GpuDevice out;
        provider.getGpu(out, 0x5a5a5a5a);
        QCOMPARE(bytesOf(out), QByteArray(152, 'Z'));
    }

    void getGpuWithoutAMatchGivesTheInitialValues() {
        QStringList calls;
        FakeProvider provider(calls, "NVIDIA");
        provider.add("some");
        GpuDevice out;
        std::memset(static_cast<void*>(&out), 0x5a, sizeof out);
        GpuDevice expected = out;
        initialiseGpuDevice(expected);
        provider.getGpu(out, 7);
        QCOMPARE(bytesOf(out).toHex(' '), bytesOf(expected).toHex(' '));
        QCOMPARE(out.deviceIndex, -1);
        QCOMPARE(int(out.statsValid), 0);
        QCOMPARE(QByteArray(out.name), QByteArray());
    }

    void aRecordLeavesAsACopy() {
        QStringList calls;
        FakeProvider provider(calls, "NVIDIA");
        provider.add("kept");
        GpuDevice out;
        provider.getGpu(out, 0);
        setGpuName(out, "changed");
        QCOMPARE(QByteArray(provider.gpu(0).name), QByteArray("kept"));
    }

    void newRecordsHaveTheInitialValues() {
        QStringList calls;
        FakeProvider provider(calls, "NVIDIA");
        GpuDevice& gpu = provider.add();
        gpu.deviceIndex = -1;
        QCOMPARE(bytesOf(gpu).toHex(' '), bytesOf(GpuDevice()).toHex(' '));
    }

    /// The leak checker of the sanitizer build sees the records that a provider forgets.
    void destroyedThroughItsBase() {
        QStringList calls;
        std::unique_ptr<GpuInfo> provider;
        {
            auto fake = std::make_unique<FakeProvider>(calls, "NVIDIA");
            fake->add();
            fake->add();
            provider = std::move(fake);
        }
        provider.reset();
        QCOMPARE(calls, QStringList("delete NVIDIA"));
    }
};

QTEST_APPLESS_MAIN(TestGpuInfo)
#include "test_GpuInfo.moc"
