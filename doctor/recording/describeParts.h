// The parts of a recorded machine's description, one file per vendor.
#pragma once

#include "doctor/facts/Facts.h"
#include "doctor/recording/DescriptionText.h"
#include "doctor/recording/NumberedCalls.h"

namespace doctor {

void describeLibraries(DescriptionText& text, const Facts& facts);
void describeNvml(DescriptionText& text, const NumberedCalls& calls);
void describeCuda(DescriptionText& text, const NumberedCalls& calls, const Facts& facts);
void describeOpenCL(DescriptionText& text, const NumberedCalls& calls);
void describeCards(DescriptionText& text, const NumberedCalls& calls, const Places& places);

/// Output of drivers, slow calls, and the call in which the run ended.
void describeEvents(DescriptionText& text, const NumberedCalls& calls, const StepOutcome& outcome);

/// "FUNCTION#DEVICE", or the target alone for a call that is about no device.
QString faultTarget(const NumberedCall& call);

} // namespace doctor
