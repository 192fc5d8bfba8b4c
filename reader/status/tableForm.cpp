#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

#include "reader/status/displayText.h"
#include "reader/status/forms.h"
#include "reader/status/tableLines.h"

namespace qzstatus {

namespace {

struct Column {
    const char* title;
    int need; ///< the lowest goes first when the line is too wide
    bool alignRight;
    std::function<std::string(std::size_t, const GpuView&)> cell;
    Tone (*tone)(const GpuView&) = nullptr; ///< null: always plain
};

constexpr int nameNeed = 100;     ///< never dropped, shortened instead
constexpr int essentialNeed = 80; ///< from here on a column is worth more than a readable name

/// Columns that a name keeps before the column that is needed least has to go.
int shortestName(int leastNeed) {
    return leastNeed < essentialNeed ? 16 : 8;
}

std::string bar(double ratio) {
    constexpr int length = 10;
    const int filled = static_cast<int>(std::lround(std::clamp(ratio, 0.0, 1.0) * length));
    return "[" + std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(length - filled), ' ') + "]";
}

std::string features(const GpuView& gpu) {
    std::string text;
    const auto add = [&text](bool has, const char* name) {
        if (has)
            text += (text.empty() ? "" : " ") + std::string(name);
    };
    add(gpu.openclMatched, "OpenCL");
    add(gpu.optixCapable, "OptiX");
    add(gpu.amdRayTracing, "RT");
    return text.empty() ? "-" : text;
}

std::string speedCell(const GpuView& gpu) {
    if (!gpu.speedGps)
        return "-";
    char text[64];
    std::snprintf(text, sizeof text, "%.2f", static_cast<double>(*gpu.speedGps));
    return text;
}

Tone loadTone(const GpuView& gpu) {
    return gpu.answering ? Tone::Plain : Tone::Lost;
}

Tone temperatureTone(const GpuView& gpu) {
    return gpu.temperatureCelsius ? heatTone(*gpu.temperatureCelsius) : Tone::Plain;
}

Tone usedTone(const GpuView& gpu) {
    return memoryTone(memoryRatio(gpu));
}

std::vector<Column> allColumns(bool bars) {
    std::vector<Column> columns{
        {"#", 99, true, [](std::size_t index, const GpuView&) { return std::to_string(index); }},
        {"KIND", 30, false, [](std::size_t, const GpuView& gpu) { return kindText(gpu); }},
        {"NAME", nameNeed, false, [](std::size_t, const GpuView& gpu) { return gpu.name; }},
        {"LOAD", 90, true,
         [](std::size_t, const GpuView& gpu) {
             return gpu.answering ? figureText(gpu.usagePercent, "%") : "no answer";
         },
         loadTone},
        {"", 60, false,
         [](std::size_t, const GpuView& gpu) {
             return gpu.usagePercent ? bar(static_cast<double>(*gpu.usagePercent) / 100.0) : "";
         }},
        {"TEMP", 80, true,
         [](std::size_t, const GpuView& gpu) { return figureText(gpu.temperatureCelsius, "C"); },
         temperatureTone},
        {"MEMORY", 70, true, [](std::size_t, const GpuView& gpu) { return memoryText(gpu); }, usedTone},
        {"", 50, false,
         [](std::size_t, const GpuView& gpu) {
             return gpu.memoryUsedMiB && gpu.memoryTotalMiB ? bar(memoryRatio(gpu)) : "";
         },
         usedTone},
        {"SPEED", 20, true, [](std::size_t, const GpuView& gpu) { return speedCell(gpu); }},
        {"FEATURES", 10, false, [](std::size_t, const GpuView& gpu) { return features(gpu); }},
    };
    if (!bars)
        columns.erase(std::remove_if(columns.begin(), columns.end(),
                                     [](const Column& column) { return *column.title == '\0'; }),
                      columns.end());
    return columns;
}

/// A column with its texts, the title first.
struct Cells {
    int need;
    bool alignRight;
    int width;
    std::vector<TextRun> runs;
};

std::vector<Cells> fill(const StatusReport& report, bool bars) {
    std::vector<Cells> table;
    for (const Column& column : allColumns(bars)) {
        Cells cells{column.need, column.alignRight, 0, {{column.title, Tone::Heading}}};
        for (std::size_t i = 0; i < report.gpus.size(); ++i) {
            const GpuView& gpu = report.gpus[i];
            cells.runs.push_back({column.cell(i, gpu), column.tone ? column.tone(gpu) : Tone::Plain});
        }
        for (const TextRun& run : cells.runs)
            cells.width = std::max(cells.width, displayText(run.text).columns);
        if (cells.width > 0) // no GPU has anything to draw a bar of
            table.push_back(std::move(cells));
    }
    return table;
}

int lineWidth(const std::vector<Cells>& table) {
    int width = static_cast<int>(table.size()) - 1; // a blank between two columns
    for (const Cells& cells : table)
        width += cells.width;
    return width;
}

Cells& nameOf(std::vector<Cells>& table) {
    return *std::find_if(table.begin(), table.end(),
                         [](const Cells& cells) { return cells.need == nameNeed; });
}

/// Drops columns until the line fits with a name of at least its shortest length, then shortens the name.
void fitInto(std::vector<Cells>& table, int width) {
    while (table.size() > 1) {
        const auto least = std::min_element(table.begin(), table.end(),
                                            [](const Cells& a, const Cells& b) { return a.need < b.need; });
        const int name = nameOf(table).width;
        if (lineWidth(table) - name + std::min(name, shortestName(least->need)) <= width)
            break;
        table.erase(least);
    }
    Cells& name = nameOf(table);
    name.width = std::max(std::min(name.width, name.width - (lineWidth(table) - width)), 1);
}

} // namespace

std::string plainText(const TextLine& line) {
    std::string text;
    for (const TextRun& run : line)
        text += run.text;
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

Tone heatTone(double celsius) {
    constexpr double hotCelsius = 85.0;
    return celsius >= hotCelsius ? Tone::Hot : Tone::Plain;
}

Tone memoryTone(double ratio) {
    constexpr double fullRatio = 0.95;
    return ratio >= fullRatio ? Tone::Full : Tone::Plain;
}

std::string headline(const StatusReport& report) {
    if (report.state != ReportState::Ok)
        return std::string(report.gpus.empty() ? "" : "STALE: ") + report.message;
    char text[96];
    std::snprintf(text, sizeof text, "%zu %s, published %.1f s ago%s", report.gpus.size(),
                  report.gpus.size() == 1 ? "GPU" : "GPUs", report.ageSeconds.value_or(0.0),
                  report.measuring ? ", measuring" : "");
    return text;
}

std::vector<TextLine> tableLines(const StatusReport& report, int width, bool bars) {
    if (report.gpus.empty())
        return {};
    std::vector<Cells> table = fill(report, bars);
    fitInto(table, width);
    std::vector<TextLine> lines(report.gpus.size() + 1);
    for (std::size_t row = 0; row < lines.size(); ++row) {
        for (const Cells& cells : table) {
            const TextRun& run = cells.runs[row];
            if (!lines[row].empty())
                lines[row].push_back({" "});
            lines[row].push_back({padded(run.text, cells.width, cells.alignRight), run.tone});
        }
    }
    return lines;
}

std::string tableForm(const StatusReport& report, int width, bool bars) {
    const int limit = width > 0 ? width : 1 << 20;
    std::string text = displayText(headline(report), limit).text + "\n";
    for (const TextLine& line : tableLines(report, limit, bars))
        text += plainText(line) + "\n";
    return text;
}

} // namespace qzstatus
