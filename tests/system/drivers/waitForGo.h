// Lets a test decide when a stand-in continues.
#pragma once

#include <cstdlib>
#include <string_view>

#include <unistd.h>

/// Prints a line, and waits (20 s at most) until the file that QZ_TEST_GO names exists.
inline void waitForGo(std::string_view line) {
    const char* go = std::getenv("QZ_TEST_GO");
    if (write(STDOUT_FILENO, line.data(), line.size()) < 0 || go == nullptr)
        return;
    constexpr int tries = 2000;
    for (int i = 0; i < tries && access(go, F_OK) != 0; ++i)
        usleep(10 * 1000);
}
