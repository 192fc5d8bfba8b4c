// What each kind of section means. parseMachine calls these, one a section.
#pragma once

#include "simulator/lib/Machine.h"
#include "simulator/lib/SectionReader.h"

namespace qzsim {

/// The library links as [libraries] tells them, before the defaults are filled in.
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
LibraryChoice readLibraries(SectionReader& section);

/// The links that the choice gives, with the defaults: all of NVIDIA's where there is an [nvidia] section
/// (CUDA runtime 12), OpenCL where there is an [opencl] or [platform] section. Throws DescriptionError.
std::vector<LibraryLink> chosenLibraries(const LibraryChoice& choice, bool hasNvidia, bool hasOpenCl);

/// `count = N` of a section: how often it is repeated, 1 to 64.
int repetitions(SectionReader& section);

/// `name` with "{i}" replaced, as text or as quoted bytes.
std::string numberedText(SectionReader& section, std::string_view key, std::string_view fallback, int index);

} // namespace qzsim
