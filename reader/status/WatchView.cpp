#include "reader/status/WatchView.h"

#include <algorithm>

namespace qzstatus {

namespace {

ViewOrder next(ViewOrder order) {
    switch (order) {
    case ViewOrder::List:
        return ViewOrder::Load;
    case ViewOrder::Load:
        return ViewOrder::Temperature;
    case ViewOrder::Temperature:
        return ViewOrder::Memory;
    case ViewOrder::Memory:
        return ViewOrder::List;
    }
    return ViewOrder::List;
}

void scroll(WatchView& view, const ShownPart& shown, int gpus) {
    view.first = std::clamp(view.first + gpus, 0, std::max(shown.highestFirst, 0));
}

} // namespace

const char* orderName(ViewOrder order) {
    switch (order) {
    case ViewOrder::List:
        return "list";
    case ViewOrder::Load:
        return "load";
    case ViewOrder::Temperature:
        return "temperature";
    case ViewOrder::Memory:
        return "memory";
    }
    return "list";
}

bool applyKey(Key key, WatchView& view, const ShownPart& shown) {
    if (key == Key::Quit)
        return false;
    if (view.help) {
        view.help = false;
        return true;
    }
    switch (key) {
    case Key::Up:
        scroll(view, shown, -shown.step);
        break;
    case Key::Down:
        scroll(view, shown, shown.step);
        break;
    case Key::PageUp:
        scroll(view, shown, -shown.gpus);
        break;
    case Key::PageDown:
        scroll(view, shown, shown.gpus);
        break;
    case Key::Order:
        view.order = next(view.order);
        view.first = 0;
        break;
    case Key::Body:
        view.body = shown.graphs ? ViewBody::Table : ViewBody::Graphs;
        break;
    case Key::Help:
        view.help = true;
        break;
    case Key::Quit:
    case Key::Other:
        break;
    }
    return true;
}

} // namespace qzstatus
