// Texts from drivers on their way into a record, a report and a comparison. The input: a name, then after a
// NUL byte a second one and the record's figures.
#include <cstring>
#include <string>

#include "amd/AmdOclCandidate.h"
#include "app/log/logLine.h"
#include "gpu/printGpuStatus.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

/// The output printed while it exists.
class Printed {
  public:
    Printed() : before(stdout), memory(open_memstream(&text, &length)) { stdout = memory; }
    ~Printed() {
        stdout = before;
        std::fclose(memory);
        std::free(text);
    }
    Printed(const Printed&) = delete;
    Printed& operator=(const Printed&) = delete;

    std::string_view all() const {
        std::fflush(memory);
        return {text, length};
    }

  private:
    char* text = nullptr;
    std::size_t length = 0;
    FILE* before;
    FILE* memory;
};

GpuDevice recordOf(const std::string& name, std::string_view figures) {
    GpuDevice record;
    std::memcpy(static_cast<void*>(&record), figures.data(), std::min(figures.size(), sizeof record));
    setGpuName(record, name.c_str());
    constexpr std::size_t most = sizeof record.name - 1;
    const std::string stored = name.substr(0, most);
    require(record.name == stored, "a record holds the name's beginning");
    for (std::size_t i = stored.size(); i < sizeof record.name; ++i)
        require(record.name[i] == '\0', "a record holds nothing behind the name");
    return record;
}

std::size_t linesOf(const GpuDevice& record) {
    const auto one = [](std::uint8_t marker) { return marker != 0 ? std::size_t{1} : std::size_t{0}; };
    return 2 + one(record.hasUsage) + one(record.hasTemperature) + one(record.hasMemTotal) +
           2 * one(record.hasMemUsage) + one(record.hasSpeed);
}

/// The text's line for a figure, without what is in front of the number's field.
bool shows(std::string_view text, const char* what, std::int32_t value) {
    char line[64] = {};
    std::snprintf(line, sizeof line, "%s%5d ", what, value);
    return text.find(line) != std::string_view::npos;
}

void checkFigures(const GpuDevice& record, std::string_view text) {
    require(!record.hasUsage || shows(text, ": Gpu Usage:   ", record.usagePercent), "the usage is shown");
    require(!record.hasTemperature || shows(text, ": Temperature: ", record.temperature),
            "the temperature is shown");
    require(!record.hasMemTotal || shows(text, ": Mem Total:   ", record.memTotalMb), "the memory is shown");
    require(!record.hasMemUsage || (shows(text, ": Mem Used:    ", record.memUsedMb) &&
                                    shows(text, ": Mem Free:    ", record.memFreeMb)),
            "the memory's use is shown");
}

void checkReport(const GpuDevice& record, int index) {
    const Printed printed;
    logLevel = 5;
    printGpuStatus(record, index);
    logLevel = -1;
    const std::string_view text = printed.all();
    require(text.substr(0, 5) == "---- " && text.size() > 3 && text.substr(text.size() - 3) == "\n \n",
            "a report begins with its header and ends with a blank line");
    checkFigures(record, text);
    const std::string_view name = record.name;
    if (name.find('\n') == std::string_view::npos)
        require(pieces(text, '\n').size() == linesOf(record) + 1,
                "a report has a line for each figure that is there");
    if (name.find('%') == std::string_view::npos)
        require(text.find("%1") == std::string_view::npos && text.find("%2") == std::string_view::npos,
                "no placeholder is left");
    const std::string summary = "---- " + std::string(name) + " ----\n";
    if (index > 89 && isAscii(name))
        require(text.substr(0, summary.size()) == summary, "the summary's name is printed as it is");
}

bool bothGo(const std::string& candidate, const std::string& gpu) {
    constexpr std::size_t significant = 6;
    const std::string end =
        candidate.size() > significant ? candidate.substr(candidate.size() - significant) : candidate;
    return candidate.find(gpu.substr(0, significant)) != std::string::npos ||
           gpu.find(end) != std::string::npos;
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), asciiLower);
    return text;
}

void checkPairing(const std::string& gpu, const std::string& device, std::int32_t bus) {
    AmdOclCandidate placed;
    placed.name = QString::fromLatin1(device.c_str());
    placed.busKnown = true;
    placed.bus = bus;
    AmdOclCandidate unplaced = placed;
    unplaced.busKnown = false;
    const std::vector<AmdOclCandidate> candidates{placed, unplaced};
    const AmdOclCandidate* byName = findCandidateByName(candidates, QString::fromLatin1(gpu.c_str()));
    require(byName == nullptr || byName == &candidates[1], "only a device without a bus is taken by name");
    if (isAscii(gpu) && isAscii(device))
        require((byName != nullptr) == bothGo(lower(device), lower(gpu)),
                "names go together by six characters");
    const auto low = static_cast<quint32>(bus) & 0xFFU;
    require(findCandidateByBus(candidates, low) == candidates.data() &&
                findCandidateByBus(candidates, low ^ 1U) == nullptr &&
                findCandidateByBus({unplaced}, low) == nullptr,
            "a device with a bus is taken by its low byte");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::string_view> parts = pieces(asText(data, size), '\0');
    const std::string name(parts[0]);
    const std::string second(parts.size() > 1 ? parts[1] : std::string_view());
    const std::size_t used = std::min(size, name.size() + second.size() + 2);
    const std::string_view figures = asText(data, size).substr(used);
    const GpuDevice record = recordOf(name, figures);
    checkReport(record, 0);
    checkReport(record, 99);
    checkPairing(name, second, record.temperature);
    return 0;
}
