#include "reader/status/footLine.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "reader/status/displayText.h"

namespace qzstatus {

namespace {

std::string ageText(double seconds) {
    char text[64];
    std::snprintf(text, sizeof text, "data %.1f s old", seconds);
    return text;
}

bool lacksScores(const StatusReport& report) {
    return !report.gpus.empty() && std::none_of(report.gpus.begin(), report.gpus.end(),
                                                [](const GpuView& gpu) { return gpu.speedGps.has_value(); });
}

} // namespace

TextLine footLine(const StatusReport& report, const WatchView& view, const ShownPart& shown, bool scrolls,
                  int columns) {
    const std::string order = view.order == ViewOrder::List ? "" : std::string(":") + orderName(view.order);
    std::vector<std::string> parts{"q quit", "s sort" + order, shown.graphs ? "g table" : "g graphs",
                                   "? help"};
    const std::string scrolling = "arrows PgUp PgDn scroll";
    if (scrolls)
        parts.push_back(scrolling);
    if (report.ageSeconds)
        parts.push_back(ageText(*report.ageSeconds));
    if (lacksScores(report))
        parts.emplace_back("no score: qzGpuInfo -bench");
    if (!scrolls)
        parts.push_back(scrolling);

    std::string text;
    for (const std::string& part : parts) {
        std::string longer = text;
        longer.append(text.empty() ? "" : "  ").append(part);
        if (displayText(longer).columns <= columns)
            text = std::move(longer);
    }
    return {{text, Tone::Heading}};
}

} // namespace qzstatus
