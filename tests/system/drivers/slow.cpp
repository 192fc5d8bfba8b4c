// A driver that takes its time to start. Then it lacks every entry point.
#include "waitForGo.h"

namespace {

struct Slow {
    Slow() { waitForGo("driver starts\n"); }
} const slow;

} // namespace
