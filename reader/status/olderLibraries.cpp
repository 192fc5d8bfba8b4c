// What CLI11 takes from the C and C++ libraries under names that only those of recent systems have. What is
// built there has to run beside older ones.
#include <ios>

// Under other names here, since the headers declare those themselves, and may give strtoll the recent one.
// NOLINTBEGIN(misc-use-internal-linkage): symbols of other objects
long long plainStrtoll(const char* text, char** end, int base) __asm__("strtoll");
[[gnu::visibility("hidden")]] long long recentStrtoll(const char* text, char** end,
                                                      int base) __asm__("__isoc23_strtoll");
[[gnu::visibility("hidden")]] void iosBaseLibraryInit() __asm__("_ZSt21ios_base_library_initv");

/// Without binary constants such as 0b1, which only recent systems read.
long long recentStrtoll(const char* text, char** end, int base) {
    return plainStrtoll(text, end, base);
}

/// Never called: referred to, it demands a library that makes the standard streams itself.
void iosBaseLibraryInit() {}
// NOLINTEND(misc-use-internal-linkage)

namespace {

const std::ios_base::Init standardStreams;

} // namespace
