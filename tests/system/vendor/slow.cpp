// A driver that takes its time: it says so, and waits until the file that QZ_TEST_GO names is there. Then it
// lacks every entry point.
#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace {

struct Slow {
    Slow() {
        constexpr std::string_view text = "driver starts\n";
        const char* go = std::getenv("QZ_TEST_GO");
        if (write(STDOUT_FILENO, text.data(), text.size()) < 0 || go == nullptr)
            return;
        constexpr int tries = 2000;
        for (int i = 0; i < tries && access(go, F_OK) != 0; ++i)
            usleep(10 * 1000);
    }
} const slow;

} // namespace
