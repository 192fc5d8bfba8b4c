// What the person before the watched view has chosen, and the keys that choose.
#pragma once

namespace qzstatus {

enum class ViewOrder { List, Load, Temperature, Memory };

enum class ViewBody {
    Fitting, ///< graphs where there is room for those of all GPUs, else the table
    Table,
    Graphs,
};

struct WatchView {
    ViewOrder order = ViewOrder::List;
    ViewBody body = ViewBody::Fitting;
    int first = 0; ///< the first GPU that is shown, counted in the view's order
    bool help = false;
};

/// What was shown last, as far as keys need to know.
struct ShownPart {
    int gpus = 0;         ///< that fit at once
    int highestFirst = 0; ///< the first GPU when scrolled to the end
    int step = 1;         ///< GPUs that one arrow scrolls by
    bool graphs = false;
};

enum class Key { Up, Down, PageUp, PageDown, Order, Body, Help, Quit, Other };

/// Changes the view as the key wants; false when it ends the view. While the help is shown, each other key
/// only closes it.
bool applyKey(Key key, WatchView& view, const ShownPart& shown);

/// The order's name, for instance "load".
const char* orderName(ViewOrder order);

} // namespace qzstatus
