// The program's own vendors. When their libraries are unloaded is tested with
// the driver.
#include <QTest>

#include "amd/GpuInfoAmdLinux.h"
#include "app/Vendors.h"
#include "nvidia/GpuInfoNvml_CUDA.h"

class TestVendors : public QObject {
    Q_OBJECT

  private slots:
    void providersOfALinuxMachine() {
        const Vendors vendors = linuxVendors();
        QVERIFY(dynamic_cast<GpuInfoNvml_CUDA*>(vendors.providers[0].get()) != nullptr);
        QVERIFY(dynamic_cast<GpuInfoAmdLinux*>(vendors.providers[1].get()) != nullptr);
        QVERIFY(vendors.providers[2] == nullptr);
    }
};

QTEST_APPLESS_MAIN(TestVendors)
#include "test_Vendors.moc"
