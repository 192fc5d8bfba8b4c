#include "reader/status/WatchFrame.h"

#include <algorithm>
#include <numeric>

#include "reader/status/displayText.h"
#include "reader/status/footLine.h"
#include "reader/status/forms.h"
#include "reader/status/graphLines.h"

namespace qzstatus {

namespace {

constexpr int fewRows = 10;           ///< up to here each row is worth more to a GPU than to the keys
constexpr int graphColumns = 80;      ///< that a GPU with graphs has at least, where the terminal has them
constexpr int rowsForGraphs = 30;     ///< of a terminal that shows graphs unless asked for the table
constexpr int shortestBlock = 3;      ///< rows of a GPU with graphs: its figures, load and memory
constexpr int rowsForTemperature = 7; ///< of a GPU that has a third graph, each of at least two rows
constexpr int labelColumns = 5;

/// What the GPUs are sorted by, the highest first and those without it last.
std::optional<double> rankOf(const GpuView& gpu, ViewOrder order) {
    switch (order) {
    case ViewOrder::Load:
        return gpu.usagePercent;
    case ViewOrder::Temperature:
        return gpu.temperatureCelsius;
    case ViewOrder::Memory:
        return gpu.memoryUsedMiB ? std::optional<double>(memoryRatio(gpu)) : std::nullopt;
    case ViewOrder::List:
        break;
    }
    return std::nullopt;
}

/// The GPUs' places in the report, in the chosen order.
std::vector<std::size_t> orderOf(const StatusReport& report, ViewOrder order) {
    std::vector<std::size_t> places(report.gpus.size());
    std::iota(places.begin(), places.end(), std::size_t{0});
    std::stable_sort(places.begin(), places.end(), [&](std::size_t a, std::size_t b) {
        return rankOf(report.gpus[a], order) > rankOf(report.gpus[b], order);
    });
    return places;
}

TextLine headLine(const StatusReport& report, int hidden, const FrameSize& size) {
    const Tone tone = report.state == ReportState::Ok ? Tone::Heading : Tone::Stale;
    const std::string more =
        hidden > 0 ? (size.ascii ? " ... " : " … ") + std::to_string(hidden) + " more" : "";
    const int left = size.columns - displayText(more).columns;
    if (left <= 0)
        return {{displayText(headline(report), size.columns).text, tone}};
    return {{displayText(headline(report), left).text, tone}, {more, Tone::Heading}};
}

std::vector<TextLine> helpLines() {
    return {{{"Keys", Tone::Heading}},
            {{"  q                     end"}},
            {{"  arrows, Page keys     scroll"}},
            {{"  s                     sort by load, temperature, memory, or as listed"}},
            {{"  g                     graphs or table"}},
            {{"  ?                     this help"}},
            {},
            {{"Meaning", Tone::Heading}},
            {{"  "}, {"hot", Tone::Hot}, {"                   85 C or more"}},
            {{"  "}, {"full", Tone::Full}, {"                  95 % of the memory or more"}},
            {{"  "}, {"no answer", Tone::Lost}, {"             the GPU is lost: its driver gives no figure"}},
            {{"  "}, {"STALE", Tone::Stale}, {"                 nobody refreshes the figures"}},
            {},
            {{"Any key goes back."}}};
}

/// How the GPUs with graphs are arranged.
struct Grid {
    int across = 1;
    int down = 1; ///< rows of GPUs that fit
    int bodyRows = 0;

    /// Where a row of GPUs begins; those below `down` give the end.
    int top(int row) const { return bodyRows * row / down; }
};

Grid gridFor(int gpus, int columns, int bodyRows) {
    Grid grid;
    grid.across = std::clamp(columns / graphColumns, 1, std::max(gpus, 1));
    const int needed = (gpus + grid.across - 1) / grid.across;
    grid.down = std::clamp(bodyRows / shortestBlock, 1, std::max(needed, 1));
    grid.bodyRows = bodyRows;
    return grid;
}

std::vector<std::optional<GraphPoint>> pointsOf(const std::deque<Sample>& samples,
                                                std::optional<double> Sample::* figure) {
    std::vector<std::optional<GraphPoint>> points;
    for (const Sample& sample : samples) {
        const std::optional<double>& value = sample.*figure;
        if (!value)
            points.emplace_back();
        else if (figure == &Sample::temperature)
            points.emplace_back(GraphPoint{*value / 100.0, heatTone(*value)});
        else
            points.emplace_back(
                GraphPoint{*value, figure == &Sample::memory ? memoryTone(*value) : Tone::Plain});
    }
    return points;
}

/// The graphs below a GPU's figures, in so many rows.
std::vector<TextLine> graphsOf(const std::deque<Sample>& samples, int columns, int rows, bool ascii) {
    struct Graph {
        const char* label;
        std::optional<double> Sample::* figure;
    };
    const Graph graphs[] = {
        {"load ", &Sample::load}, {"mem  ", &Sample::memory}, {"temp ", &Sample::temperature}};
    const int count = rows + 1 >= rowsForTemperature ? 3 : 2;
    std::vector<TextLine> lines;
    for (int i = 0; i < count; ++i) {
        // The upper ones get what can't be divided.
        const int height = rows / count + (i < rows % count ? 1 : 0);
        bool labelled = false;
        for (TextLine& line :
             graphLines(pointsOf(samples, graphs[i].figure), columns - labelColumns, height, ascii)) {
            line.insert(line.begin(), {labelled ? "     " : graphs[i].label, Tone::Heading});
            labelled = true;
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

/// Puts a line into a column of the grid: what is there is filled up to where it begins.
void place(TextLine& line, const TextLine& part, int column) {
    int columns = 0;
    for (const TextRun& run : line)
        columns += displayText(run.text).columns;
    if (column > columns)
        line.push_back({std::string(static_cast<std::size_t>(column - columns), ' ')});
    line.insert(line.end(), part.begin(), part.end());
}

class Layout {
  public:
    Layout(const StatusReport& read, const WatchHistory& remembered, const WatchView& chosen,
           const FrameSize& available)
        : report(read), history(remembered), view(chosen), size(available),
          places(orderOf(read, chosen.order)),
          bodyRows(std::max(available.rows - 1 - (hasFoot() ? 1 : 0), 0)) {}

    WatchFrame frame() {
        const int gpus = static_cast<int>(places.size());
        result.shown.graphs = showsGraphs();
        if (view.help)
            body = helpLines();
        else if (result.shown.graphs)
            layOutGraphs();
        else
            layOutTable();
        const int hidden = view.help ? 0 : std::max(gpus - result.shown.gpus, 0);
        result.lines.push_back(headLine(report, hidden, size));
        body.resize(static_cast<std::size_t>(bodyRows));
        result.lines.insert(result.lines.end(), body.begin(), body.end());
        if (hasFoot())
            result.lines.push_back(footLine(report, view, result.shown, hidden > 0, size.columns));
        if (size.ascii)
            makeAscii();
        return std::move(result);
    }

  private:
    bool hasFoot() const { return size.rows > fewRows; }

    bool showsGraphs() const {
        const int gpus = static_cast<int>(places.size());
        if (gpus == 0 || view.body == ViewBody::Table)
            return false;
        if (view.body == ViewBody::Graphs)
            return bodyRows > shortestBlock && size.columns > 2 * labelColumns;
        const Grid grid = gridFor(gpus, size.columns, bodyRows - 1);
        return size.rows >= rowsForGraphs && size.columns >= graphColumns && grid.across * grid.down >= gpus;
    }

    /// Where the shown part begins, once it is known how many GPUs fit.
    int firstOf(int fitting, int step) {
        const int gpus = static_cast<int>(places.size());
        const int beyond = std::max(gpus - fitting, 0);
        result.shown.step = step;
        result.shown.highestFirst = (beyond + step - 1) / step * step;
        const int first = std::clamp(view.first, 0, result.shown.highestFirst) / step * step;
        result.shown.gpus = std::min(fitting, gpus - first);
        return first;
    }

    void layOutTable() {
        const std::vector<TextLine> table = tableLines(report, size.columns, true);
        if (table.empty())
            return;
        const int first = firstOf(std::max(bodyRows - 1, 0), 1);
        body.push_back(table.front());
        for (int i = first; i < first + result.shown.gpus; ++i)
            body.push_back(table[places[static_cast<std::size_t>(i)] + 1]);
    }

    void layOutGraphs() {
        const Grid grid = gridFor(static_cast<int>(places.size()), size.columns, bodyRows - 1);
        const int first = firstOf(grid.across * grid.down, grid.across);
        const int width = (size.columns - (grid.across - 1)) / grid.across; // a blank between two
        const std::vector<TextLine> table = tableLines(report, width, true);
        body.resize(static_cast<std::size_t>(bodyRows));
        for (int i = 0; i < result.shown.gpus; ++i) {
            const std::size_t gpu = places[static_cast<std::size_t>(first) + static_cast<std::size_t>(i)];
            const int column = i % grid.across * (width + 1);
            const int top = grid.top(i / grid.across);
            const int graphRows = grid.top(i / grid.across + 1) - top - 1;
            std::vector<TextLine> block{table[gpu + 1]};
            for (TextLine& line : graphsOf(history.of(report, gpu), width, graphRows, size.ascii))
                block.push_back(std::move(line));
            if (i < grid.across)
                place(body.front(), table.front(), column);
            for (std::size_t row = 0; row < block.size(); ++row)
                place(body[static_cast<std::size_t>(top) + 1 + row], block[row], column);
        }
    }

    void makeAscii() {
        for (TextLine& line : result.lines)
            for (TextRun& run : line)
                run.text = asciiText(run.text);
    }

    const StatusReport& report;
    const WatchHistory& history;
    const WatchView& view;
    const FrameSize& size;
    std::vector<std::size_t> places;
    int bodyRows;
    std::vector<TextLine> body;
    WatchFrame result;
};

} // namespace

WatchFrame layOut(const StatusReport& report, const WatchHistory& history, const WatchView& view,
                  const FrameSize& size) {
    return Layout(report, history, view, size).frame();
}

} // namespace qzstatus
