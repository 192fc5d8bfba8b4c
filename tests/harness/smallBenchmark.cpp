// Linked into the program: its benchmark runs on two work-groups and buffers of two kilobytes instead of half
// a gibibyte, so that what happens around it can be tried ten thousand times.
#include "opencl/benchmarkSettings.h"

namespace {

// Runs before main(), and after the setting has its own value, which is known at compile time.
const bool isSmall = [] {
    benchmarkGeometry = {{512, 1}, {256, 1}};
    return true;
}();

} // namespace
