// The checks, one file per group. Each takes the facts and adds at least one finding.
#pragma once

#include "doctor/Finding.h"
#include "doctor/facts/Facts.h"

namespace doctor {

void judgeDistribution(const Facts& facts, Findings& findings);
void judgeContainer(const Facts& facts, Findings& findings);
void judgeUser(const Facts& facts, Findings& findings);
void judgeDevices(const Facts& facts, Findings& findings);
void judgeEnvironment(const Facts& facts, Findings& findings);
void judgeSharedMemory(const Facts& facts, Findings& findings);
void judgeMemory(const Facts& facts, Findings& findings);

void judgePciDevices(const Facts& facts, Findings& findings);
void judgePciDrivers(const Facts& facts, Findings& findings);

void judgeNvidiaModule(const Facts& facts, Findings& findings);
void judgeNvmlLibrary(const Facts& facts, Findings& findings);
void judgeNvmlStart(const Facts& facts, Findings& findings);
void judgeNvidiaVersions(const Facts& facts, Findings& findings);
void judgeNvmlDevices(const Facts& facts, Findings& findings);
void judgeNvmlQueries(const Facts& facts, Findings& findings);
void judgeNvmlEnd(const Facts& facts, Findings& findings);
void judgeCudaLibrary(const Facts& facts, Findings& findings);
void judgeCudaDevices(const Facts& facts, Findings& findings);

void judgeAmdModule(const Facts& facts, Findings& findings);
void judgeAmdCards(const Facts& facts, Findings& findings);
void judgeAmdFiles(const Facts& facts, Findings& findings);
void judgeAmdPower(const Facts& facts, Findings& findings);

void judgeOpenCLLoader(const Facts& facts, Findings& findings);
void judgeIcdFiles(const Facts& facts, Findings& findings);
void judgePlatforms(const Facts& facts, Findings& findings);
void judgeOpenCLDevices(const Facts& facts, Findings& findings);
void judgeOpenCLRoom(const Facts& facts, Findings& findings);

void judgeProgramRun(const Facts& facts, Findings& findings);
void judgePairing(const Facts& facts, Findings& findings);
void judgeBuses(const Facts& facts, Findings& findings);
void judgeListing(const Facts& facts, Findings& findings);

void judgeQueryGpu(const Facts& facts, Findings& findings);
void judgeQueryNvCuda(const Facts& facts, Findings& findings);
void judgeQueryNvOptix(const Facts& facts, Findings& findings);
void judgeQueryAmdRt(const Facts& facts, Findings& findings);
void judgeScore(const Facts& facts, Findings& findings);

void judgeSegmentState(const Facts& facts, Findings& findings);
void judgeSegmentOwner(const Facts& facts, Findings& findings);
void judgeCompanion(const Facts& facts, Findings& findings);

} // namespace doctor
