// Stand-in for an OpenCL driver that the loader opens. It only applies its faults: the OpenCL stand-in
// answers for its platforms (clIcds.cpp).
#include "simulator/lib/Session.h"

namespace {

const qzsim::LibraryPresence presence(QZSIM_ICD);

} // namespace
