// What a described machine's kernel shows of its GPUs: the PCI bus, modules, device nodes, files of /proc.
#include <QTest>

#include "simulator/lib/Machine.h"

using namespace qzsim;

namespace {

constexpr const char* bothVendors = "[nvidia]\ncount = 2\nbus = 0x41\n"
                                    "[card card0]\naddress = 0000:41:00.0\nvendor = 0x10de\n"
                                    "[card card1]\naddress = 0000:83:00.0\nvendor = 0x1002\n";

Machine parse(const QByteArray& text) {
    return parseMachine(text.toStdString(), "file");
}

QByteArray complaint(const QByteArray& text) {
    try {
        parse(text);
    } catch (const DescriptionError& error) {
        return error.what();
    }
    return "none";
}

/// Each PCI device on one line: address, class, vendor, device, driver, further files.
QStringList devices(const Machine& machine) {
    QStringList lines;
    for (const PciDevice& device : machine.pciDevices) {
        QString line = QStringLiteral("%1 %2 %3 %4 %5")
                           .arg(QString::fromStdString(device.address), QString::number(device.classCode, 16),
                                QString::fromStdString(device.vendor).trimmed(),
                                QString::number(device.device, 16), QString::fromStdString(device.driver));
        for (const SysfsFile& file : device.files)
            line += ' ' + QString::fromStdString(file.path + "=" + file.bytes).trimmed();
        lines << line;
    }
    lines.sort();
    return lines;
}

QStringList modules(const Machine& machine) {
    QStringList names;
    for (const std::string& name : machine.modules)
        names << QString::fromStdString(name);
    names.sort();
    return names;
}

QStringList nodes(const Machine& machine) {
    QStringList names;
    for (const DeviceNode& node : machine.nodes)
        names << QString::fromStdString(node.path) +
                     (node.mode == 0666 ? QString() : QString::number(node.mode, 8));
    names.sort();
    return names;
}

QStringList procFiles(const Machine& machine) {
    QStringList files;
    for (const SysfsFile& file : machine.procFiles)
        files << QString::fromStdString(file.path + ": " + file.bytes.substr(0, file.bytes.find('\n')));
    files.sort();
    return files;
}

const QStringList nvidiaModules{"nvidia", "nvidia_drm", "nvidia_modeset", "nvidia_uvm"};

} // namespace

class TestSimulatorKernelSide : public QObject {
    Q_OBJECT

  private slots:
    void whatFollows() {
        const Machine machine = parse(bothVendors);
        // A card has a vendor file of its own.
        QCOMPARE(devices(machine),
                 (QStringList{"0000:41:00.0 30000  2684 nvidia", "0000:42:00.0 30000 0x10de 2684 nvidia",
                              "0000:83:00.0 30000  744c amdgpu"}));
        QCOMPARE(modules(machine), QStringList{"amdgpu"} + nvidiaModules);
        QCOMPARE(nodes(machine), (QStringList{"dri/card0", "dri/card1", "dri/renderD128", "dri/renderD129",
                                              "kfd", "nvidia-uvm", "nvidia0", "nvidia1", "nvidiactl"}));
        QCOMPARE(procFiles(machine), QStringList{"driver/nvidia/version: NVRM version: NVIDIA UNIX x86_64 "
                                                 "Kernel Module  550.54.14  Thu Feb 22 01:44:30 UTC 2024"});
        QCOMPARE(machine.driverVersion, std::string("550.54.14"));
        QCOMPARE(machine.nvmlGpus[1].uuid, std::string("GPU-5f1a7e00-0000-4000-8000-000000000001"));
        QVERIFY(!machine.nvmlGpus[1].mig.has_value());
    }

    void nothingFollowsFromNothing() {
        const Machine machine = parse("[machine]\n");
        QCOMPARE(devices(machine) + modules(machine) + nodes(machine) + procFiles(machine), QStringList());
    }

    void placesThatNoBusHas() {
        for (const char* place : {"bus = 0x100", "domain = 0x100000", "bus = 300"}) {
            const Machine machine = parse("[nvidia]\n" + QByteArray(place));
            QCOMPARE(devices(machine), QStringList());
            QCOMPARE(modules(machine), nvidiaModules);
        }
        for (const char* address :
             {"platform-gpu", "0000:00:20.0", "0000:00:00.8", "0:0:0.0", "0000:0A:00.0"})
            QCOMPARE(devices(parse("[card card0]\naddress = " + QByteArray(address))), QStringList());
        QCOMPARE(devices(parse("[card card0]\ndevice_entry = directory\n")), QStringList());
        QCOMPARE(devices(parse("[nvidia]\ndomain = 0xfffff\nbus = 0xff\ndevice = 31\n")),
                 QStringList{"fffff:ff:1f.0 30000 0x10de 2684 nvidia"});
    }

    void devicesAtOnePlace() {
        QCOMPARE(devices(parse("[nvidia]\ncount = 2\nbus_step = 0\n[nvidia]\n")).size(), 1);
    }

    void pciStated() {
        const Machine machine =
            parse(QByteArray(bothVendors) +
                  "[pci 0000:41:00.0]\ndriver = nouveau\n./power/runtime_status = suspended\n"
                  "[pci 0000:42:00.0]\nmissing = yes\n"
                  "[pci 0000:83:00.0]\ndriver = none\nclass = 0x038000\nvendor = 0x1003\n"
                  "[pci 0000:fe:00.0]\ncount = 2\nvendor = 0x10de\ndriver = vfio-pci\ndevice = 0x20b0\n");
        QCOMPARE(devices(machine),
                 (QStringList{"0000:41:00.0 30000  2684 nouveau power/runtime_status=suspended",
                              "0000:83:00.0 38000 0x1003 744c ", "0000:fe:00.0 30000 0x10de 20b0 vfio-pci",
                              "0000:ff:00.0 30000 0x10de 20b0 vfio-pci"}));
        QCOMPARE(modules(machine), (QStringList{"nouveau", "vfio_pci"}));
        // Where the modules are not loaded, neither are there nodes of theirs.
        QCOMPARE(nodes(machine), (QStringList{"dri/card0", "dri/card1", "dri/renderD128", "dri/renderD129"}));
        QCOMPARE(procFiles(machine), QStringList());
    }

    void theRestStated() {
        const Machine machine =
            parse("[proc]\nversion = Linux on WSL\nmeminfo = @missing\n"
                  "[node /dev/nvidia0]\nmode = 0600\n[node /dev/nvidia1]\nmissing = yes\n[node /dev/dxg]\n"
                  "[node /dev/dri/renderD200]\nmode = 0\n"
                  "[kernel]\nmodules = nvidia\n[nvml]\ndriver_version = 1.2\n[nvidia]\ncount = 2\n"
                  "uuid = GPU-{i}\nvbios = 9\nmig = yes\npersistence = no\n");
        QCOMPARE(modules(machine), QStringList{"nvidia"});
        QCOMPARE(nodes(machine), (QStringList{"dri/renderD2000", "dxg", "nvidia0600", "nvidiactl"}));
        QCOMPARE(procFiles(machine),
                 (QStringList{"driver/nvidia/version: NVRM version: NVIDIA UNIX x86_64 Kernel Module  1.2  "
                              "Thu Feb 22 01:44:30 UTC 2024",
                              "version: Linux on WSL"}));
        QCOMPARE(machine.nvmlGpus[1].uuid, std::string("GPU-1"));
        QCOMPARE(machine.nvmlGpus[1].vbiosVersion, std::string("9"));
        QVERIFY(machine.nvmlGpus[1].mig == true);
        QVERIFY(!machine.nvmlGpus[1].persistence);
        QCOMPARE(procFiles(parse("[nvidia]\n[proc]\ndriver/nvidia/version = @missing\n")), QStringList());
        QCOMPARE(procFiles(parse("[nvidia]\n[proc]\ndriver/nvidia/version = 5\n")),
                 QStringList{"driver/nvidia/version: 5"});
    }

    void registeredDrivers() {
        const Machine machine = parse("[icd nvidia.icd]\ntext = libother.so\n[platform]\nname = NVIDIA CUDA\n"
                                      "[platform]\nname = Clover\n[platform]\nname = Clover\n"
                                      "[platform]\nname = Else\nicd = a.icd\nlibrary = libamdocl64.so\n"
                                      "[platform]\nname = rusticl\n[icd rusticl.icd]\nmissing = yes\n");
        QStringList files;
        for (const IcdFile& icd : machine.icds)
            files << QString::fromStdString(icd.name + ": " + icd.text).trimmed();
        files.sort();
        QCOMPARE(files, (QStringList{"a.icd: libamdocl64.so", "mesa.icd: libMesaOpenCL.so.1",
                                     "nvidia.icd: libother.so"}));
        QCOMPARE(machine.openCl.platforms[0].driver, std::string("libnvidia-opencl.so.1"));
        QCOMPARE(parse("[platform]\n").icds.at(0).text, std::string("libsimulated-opencl.so.1\n"));
    }

    void errors_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("said");
        const auto row = [](const char* name, const char* text, const char* said) {
            QTest::newRow(name) << QByteArray(text) << QByteArray(said);
        };
        row("driver's file", "[icd nvidia]\n", "file:1: a driver's file needs its name: [icd nvidia.icd]");
        row("driver's path", "[icd a/b.icd]\n", "file:1: a driver's file needs its name: [icd nvidia.icd]");
        row("driver", "[platform]\nlibrary = libx.so\n",
            "file:1: no driver and file for it: libx.so, simulated.icd");
        row("platform's file", "[platform]\nicd = .icd\n",
            "file:1: no driver and file for it: libsimulated-opencl.so.1, .icd");
        row("no address", "[pci]\n", "file:1: a PCI device needs its address: [pci 0000:41:00.0]");
        row("short address", "[pci 41:00.0]\n", "file:1: a PCI device needs its address: [pci 0000:41:00.0]");
        row("no vendor", "[pci 0000:41:00.0]\ndriver = x\n",
            "file:1: no GPU is at 0000:41:00.0, so its vendor must be given");
        row("kernel driver", "[pci 0000:41:00.0]\nvendor = 0x10de\ndriver = a/b\n",
            "file:1: not a driver's name: a/b");
        row("class", "[pci 0000:41:00.0]\nvendor = 0x10de\nclass = 0x1000000\n",
            "file:3: class must lie between 0 and 16777215: 0x1000000");
        row("path", "[pci 0000:41:00.0]\nvendor = 0x10de\n./../x = 1\n",
            "file:3: not a file below the device: ./../x");
        row("changing file", "[pci 0000:41:00.0]\nvendor = 0x10de\n./x = 1, 2\n",
            "file:3: a file of a PCI device doesn't change or fail: 1, 2");
        row("failing file", "[pci 0000:41:00.0]\nvendor = 0x10de\n./x = @fails EIO\n",
            "file:3: a file of a PCI device doesn't change or fail: @fails EIO");
        row("pci key", "[pci 0000:41:00.0]\nvendor = 0x10de\nname = x\n", "file:3: [pci] has no key name");
        row("node", "[node nvidia0]\n", "file:1: a device node needs its path: [node /dev/nvidia0]");
        row("node's folder", "[node /dev/shm/x]\n",
            "file:1: a device node needs its path: [node /dev/nvidia0]");
        row("node above", "[node /dev/dri/..]\n",
            "file:1: a device node needs its path: [node /dev/nvidia0]");
        row("no node", "[node /dev/]\n", "file:1: a device node needs its path: [node /dev/nvidia0]");
        row("mode", "[node /dev/a]\nmode = 680\n", "file:1: a mode is up to four octal digits: 680");
        row("long mode", "[node /dev/a]\nmode = 00600\n", "file:1: a mode is up to four octal digits: 00600");
        row("proc", "[proc]\ncpuinfo = x\n", "file:2: [proc] has no key cpuinfo");
        row("kind", "[proc]\nversion = @directory\n",
            "file:2: a file of /proc is a text or @missing: @directory");
        row("module", "[kernel]\nmodules = a/b\n", "file:1: not a module's name: a/b");
        row("mig", "[nvidia]\nmig = 1\n", "file:2: mig must be yes or no: 1");
    }

    void errors() {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, said);
        QCOMPARE(complaint(text), said);
    }
};

QTEST_APPLESS_MAIN(TestSimulatorKernelSide)
#include "test_SimulatorKernelSide.moc"
