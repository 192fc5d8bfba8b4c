// Stand-in for an OpenCL driver that the loader opens: it is there, or lets its faults happen. Its platforms
// are the loader's matter (clIcds.cpp).
#include "simulator/lib/Session.h"

namespace {

const qzsim::LibraryPresence presence(QZSIM_ICD);

} // namespace
