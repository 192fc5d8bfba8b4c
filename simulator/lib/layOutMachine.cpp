// qzsim-layout FILE [FOLDER REAL_OPENCL [FAULT]...]: checks a description and prints its summary. With FOLDER
// it writes there what the launcher mounts around the program:
//
//     sys/             to be /sys
//     lib/             the vendor libraries, by the names under which they are opened
//     preload/         the libraries to be preloaded
//     dev/             files in place of device nodes
//     proc/            files to be mounted over those of /proc
//     icds/            to be /etc/OpenCL/vendors
//     os-release       to be /etc/os-release; missing if there is to be none
//     processes        the names of further processes, one a line
//     opencl-drivers/  only if kernels are really run: an empty folder for the driver's registration
//     libRealOpenCL.so likewise: a copy of the library REAL_OPENCL
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>

#include "simulator/lib/EntryPoints.h"
#include "simulator/lib/Machine.h"
#include "simulator/lib/SharedObject.h"

namespace {

using namespace qzsim;
namespace fs = std::filesystem;

const fs::path pciFolder = "devices/pci0000:00";

void writeFile(const fs::path& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary);
    if (!file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush())
        throw std::runtime_error(path.string() + ": cannot be written");
}

void writeSysfsFile(const fs::path& path, const SysfsFile& file) {
    fs::create_directories(path.parent_path());
    switch (file.kind) {
    case SysfsFile::Kind::Missing:
        break;
    case SysfsFile::Kind::Directory:
        fs::create_directory(path);
        break;
    case SysfsFile::Kind::Dangling:
        fs::create_symlink("nowhere", path);
        break;
    case SysfsFile::Kind::Changing:
        writeFile(path, std::to_string(file.figure.at(1)) + "\n");
        break;
    case SysfsFile::Kind::Bytes:
    case SysfsFile::Kind::Fails:
    case SysfsFile::Kind::Unreadable:
        writeFile(path, file.bytes);
        if (file.kind == SysfsFile::Kind::Unreadable)
            fs::permissions(path, fs::perms::none);
        break;
    }
}

/// Creates the card's device folder; an empty path if it has none.
fs::path makeDevice(const fs::path& sys, const Card& card) {
    fs::path entry = sys / "class/drm" / card.name / "device";
    switch (card.deviceEntry) {
    case SysfsFile::Kind::Missing:
        return {};
    case SysfsFile::Kind::Dangling:
        fs::create_symlink("../../../devices/nowhere/" + card.address, entry);
        return {};
    case SysfsFile::Kind::Bytes: {
        const fs::path device = pciFolder / card.address;
        fs::create_directories(sys / device);
        fs::create_symlink("../../.." / device, entry);
        return sys / device;
    }
    default:
        fs::create_directory(entry);
        return entry;
    }
}

void writeCard(const fs::path& sys, const Card& card) {
    const fs::path drm = sys / "class/drm";
    fs::create_directory(drm / card.name);
    for (const std::string& connector : card.connectors)
        fs::create_directory(drm / (card.name + "-" + connector));
    const fs::path device = makeDevice(sys, card);
    if (device.empty())
        return;
    for (const std::string& monitor : card.hwmonDirs)
        fs::create_directories(device / "hwmon" / monitor);
    for (const SysfsFile& file : card.files)
        writeSysfsFile(device / file.path, file);
}

/// Links one folder of `sys` to another by a relative path.
void linkBelow(const fs::path& sys, const fs::path& from, const fs::path& to) {
    fs::create_directories((sys / from).parent_path());
    fs::create_symlink(to.lexically_relative(from.parent_path()), sys / from);
}

std::string hexadecimal(std::uint32_t value, int digits) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%0*x\n", digits, value);
    return text.data();
}

void writePciDevice(const fs::path& sys, const PciDevice& device) {
    const fs::path bus = "bus/pci";
    const fs::path place = pciFolder / device.address;
    fs::create_directories(sys / place);
    linkBelow(sys, bus / "devices" / device.address, place);
    writeFile(sys / place / "class", hexadecimal(device.classCode, 6));
    writeFile(sys / place / "device", hexadecimal(device.device, 4));
    if (!device.vendor.empty())
        writeFile(sys / place / "vendor", device.vendor);
    if (!device.driver.empty()) {
        const fs::path driver = bus / "drivers" / device.driver;
        fs::create_directories(sys / driver);
        linkBelow(sys, place / "driver", driver);
    }
    for (const SysfsFile& file : device.files)
        writeSysfsFile(sys / place / file.path, file);
}

void writeNodes(const fs::path& dev, const std::vector<DeviceNode>& nodes) {
    fs::create_directory(dev);
    for (const DeviceNode& node : nodes) {
        fs::create_directories((dev / node.path).parent_path());
        writeFile(dev / node.path, "");
        fs::permissions(dev / node.path, static_cast<fs::perms>(node.mode));
    }
}

void writeProc(const fs::path& proc, const std::vector<SysfsFile>& files) {
    // Created even if empty, so that the host's is hidden.
    fs::create_directories(proc / "driver");
    for (const SysfsFile& file : files)
        writeSysfsFile(proc / file.path, file);
}

void writeSys(const fs::path& sys, const Machine& machine) {
    fs::create_directories(sys / "class/drm");
    // The host's CPU entries are visible here, since PoCL reads them.
    fs::create_directories(sys / "devices/system");
    writeFile(sys / "class/drm/version", "drm 1.1.0 20060810\n");
    for (const std::string& entry : machine.drmEntries)
        fs::create_directory(sys / "class/drm" / entry);
    for (const Card& card : machine.cards)
        writeCard(sys, card);
    fs::create_directories(sys / "bus/pci/devices");
    for (const PciDevice& device : machine.pciDevices)
        writePciDevice(sys, device);
    for (const std::string& module : machine.modules)
        fs::create_directories(sys / "module" / module);
}

/// Writes the library under its link's name, modified as the faults require.
void writeLibrary(const fs::path& link, const fs::path& standIn, const LibraryLink& library,
                  const std::vector<Fault>& faults) {
    std::optional<std::string> changed;
    for (const Fault& fault : faults) {
        const bool isThis = fault.kind == TargetKind::Library &&
                            (fault.target == library.link || findLibrary(fault.target)->file == library.file);
        if (!isThis)
            continue;
        if (fault.action == Action::Absent)
            return;
        if (fault.action == Action::TextFile)
            changed = "this is no library\n";
        if (fault.action == Action::OtherArchitecture || fault.action == Action::Omit) {
            SharedObject image(changed ? *changed : readDescriptionFile(standIn));
            if (fault.action == Action::Omit)
                image.hideName(fault.text);
            else
                image.setMachine(EM_AARCH64);
            changed = image.bytes();
        }
    }
    if (changed)
        writeFile(link, *changed);
    else
        fs::create_symlink(standIn, link);
}

/// A copy, since the original is hidden, with another soname, since the stand-in uses its own.
void copyOpenClLoader(const fs::path& folder, const std::string& loader) {
    fs::create_directory(folder / "opencl-drivers");
    if (loader.empty())
        return;
    SharedObject image(readDescriptionFile(loader));
    image.hideName("libOpenCL.so.1");
    writeFile(folder / "libRealOpenCL.so", image.bytes());
}

/// The files of the stand-ins for the OpenCL platforms' drivers, by the drivers' names.
std::map<std::string, std::string> openClDrivers(const Machine& machine) {
    std::map<std::string, std::string> files;
    for (const ClPlatform& platform : machine.openCl.platforms)
        files[platform.driver] = findLibrary(platform.driver)->file;
    return files;
}

void layOut(const Machine& machine, const fs::path& folder, const std::string& realOpenCl) {
    const fs::path standIns = fs::read_symlink("/proc/self/exe").parent_path() / "lib";
    fs::create_directories(folder / "lib");
    fs::create_directory(folder / "preload");
    writeSys(folder / "sys", machine);
    writeNodes(folder / "dev", machine.nodes);
    writeProc(folder / "proc", machine.procFiles);
    for (const LibraryLink& library : machine.libraries)
        writeLibrary(folder / "lib" / library.link, standIns / library.file, library, machine.faults);
    fs::create_directory(folder / "icds");
    for (const IcdFile& icd : machine.icds)
        writeFile(folder / "icds" / icd.name, icd.text);
    for (const auto& [link, file] : openClDrivers(machine))
        writeLibrary(folder / "lib" / link, standIns / file, {link, file}, machine.faults);
    fs::create_symlink(standIns / "libqzsim-sysfs.so", folder / "preload/libqzsim-sysfs.so");
    if (machine.fastRandom)
        fs::create_symlink(standIns / "libqzsim-fastrandom.so", folder / "preload/libqzsim-fastrandom.so");
    if (machine.osRelease)
        writeFile(folder / "os-release", *machine.osRelease);
    std::string processes;
    for (const std::string& name : machine.processes)
        processes += name + "\n";
    writeFile(folder / "processes", processes);
    if (machine.openCl.usesPocl && !machine.openCl.platforms.empty())
        copyOpenClLoader(folder, realOpenCl);
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2 || count == 3) {
        std::cerr << "usage: qzsim-layout FILE [FOLDER REAL_OPENCL [FAULT]...]\n";
        return 2;
    }
    try {
        Machine machine = readMachine(arguments[1]);
        for (int i = 4; i < count; ++i)
            addFaults(machine, arguments[i], "--fault");
        std::cout << machine.summary << "\n";
        if (count > 2)
            layOut(machine, arguments[2], arguments[3]);
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
