#include "app/banner.h"

#include <string>

#include "app/log/output.h"
#include "app/version.h"

void printLongBanner() {
    const std::string rule = ". " + std::string(64, '-');
    printLine(rule.c_str());
    printShortBanner();
    printLine((". " + std::string(legalNotice)).c_str());
    printLine(rule.c_str());
}

void printShortBanner() {
    printLine((". qzGpuInfo  " + std::string(versionText)).c_str());
}

void printVerboseNotice() {
    printLine(". Verbose enabled");
}
