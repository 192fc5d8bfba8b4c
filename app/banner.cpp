#include "app/banner.h"

#include <cstdio>
#include <string>

#include "app/version.h"

void printLongBanner() {
    const std::string rule = ". " + std::string(64, '-');
    std::puts(rule.c_str());
    printShortBanner();
    std::printf(". %s\n", legalNotice);
    std::puts(rule.c_str());
}

void printShortBanner() {
    std::printf(". qzGpuInfo  %s\n", versionText);
}

void printVerboseNotice() {
    std::puts(". Verbose enabled");
}
