// Readers for each kind of section, called by parseMachine.
#pragma once

#include "simulator/lib/Machine.h"
#include "simulator/lib/SectionReader.h"

namespace qzsim {

/// The library links as [libraries] states them, before the defaults are filled in.
struct LibraryChoice {
    std::optional<std::string> nvml;
    std::optional<std::vector<std::string>> cudart;
    std::optional<std::string> plainCudart;
    std::optional<bool> cuda;
    std::optional<std::string> openCl;
    Place place;
};

void readNvidia(SectionReader& section, Machine& machine);
void readCudaDevice(SectionReader& section, Machine& machine);
void readOpenCl(SectionReader& section, Machine& machine);
void readPlatform(SectionReader& section, Machine& machine);
void readClDevice(SectionReader& section, Machine& machine);
void readCard(SectionReader& section, Machine& machine);
void readIcd(SectionReader& section, Machine& machine);
void readPciDevice(SectionReader& section, Machine& machine);
void readNode(SectionReader& section, Machine& machine);
void readProc(SectionReader& section, Machine& machine);
LibraryChoice readLibraries(SectionReader& section);

/// The links for that choice, with the defaults: all of NVIDIA's where there is an [nvidia] section
/// (CUDA runtime 12), OpenCL where there is an [opencl] or [platform] section. Throws DescriptionError.
std::vector<LibraryLink> chosenLibraries(const LibraryChoice& choice, bool hasNvidia, bool hasOpenCl);

/// Adds the PCI devices of the GPUs and cards; before [pci] sections, which change them.
void derivePciDevices(Machine& machine);

/// Adds the modules of the drivers that are bound; after [pci] sections.
void deriveModules(Machine& machine);

/// Adds the files that register the platforms' drivers; before [icd] sections.
void registerDrivers(Machine& machine);

/// Adds the device nodes of the drivers and /proc/driver/nvidia/version; before [node] and [proc] sections.
void deriveNodes(Machine& machine);
void deriveProcFiles(Machine& machine);

/// A file's text, bytes or kind ("@missing") as the description gives it.
SysfsFile readSysfsFile(const Entry& entry, std::string path, int index);

/// Takes the keys "FOLDER/PATH" of one folder as files at `place` + PATH. Throws DescriptionError for a path
/// that leaves the folder.
void readFilesBelow(SectionReader& section, const std::string& folder, const std::string& place, int index,
                    std::vector<SysfsFile>& files);

/// Whether it is a valid file name.
bool isFileName(const std::string& name);

/// 0000:41:00.0; empty for an address that no PCI bus can have.
std::string addressOf(const PciPlace& place);

/// 0000:04:00.0 for 0000:03:00.0 and index 1; a text of another form stays.
std::string numberedAddress(const std::string& address, int index);

/// `count = N` of a section: how often it is repeated, 1 to 64.
int repetitions(SectionReader& section);

/// `name` with "{i}" replaced, as text or as quoted bytes.
std::string numberedText(SectionReader& section, std::string_view key, std::string_view fallback, int index);

} // namespace qzsim
