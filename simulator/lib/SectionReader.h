// Reads the entries of one section by key and type, and rejects entries that were not read.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/lib/Description.h"
#include "simulator/lib/Figure.h"

namespace qzsim {

/// Every getter returns the fallback (or nothing) if the key is absent, and throws DescriptionError if the
/// value has the wrong type or is out of range.
class SectionReader {
  public:
    /// Throws DescriptionError if a key occurs twice.
    explicit SectionReader(const Section& section);

    std::optional<std::string> text(std::string_view key);
    std::string text(std::string_view key, std::string_view fallback);
    std::optional<std::int64_t> number(std::string_view key, std::int64_t least, std::int64_t most);
    double real(std::string_view key, double fallback, double least, double most);
    bool flag(std::string_view key, bool fallback);
    Figure figure(std::string_view key, std::int64_t fallback, std::int64_t least, std::int64_t most);
    std::vector<std::string> list(std::string_view key);

    /// The raw entry, for values of other types.
    const Entry* take(std::string_view key);

    const Section& section() const { return source; }

    /// Throws if a key was never read, since it is unknown.
    void finish() const;

  private:
    const Section& source;
    std::set<std::string> taken;
};

constexpr std::int64_t maxU32 = 0xffffffff;

} // namespace qzsim
