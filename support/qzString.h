// Strings of a fixed capacity, stored inline. Longer text is truncated at the capacity, and the string does
// not record that it was. A text ends at its first NUL. Both classes bear the suite's names.
#pragma once

#include <cstddef>
#include <cstring>
#include <cwchar>
#include <string>

#include <QByteArray>
#include <QString>

/// 8-bit text of at most `Capacity` bytes, UTF-8 where it comes from or goes to a `QString`.
template <std::size_t Capacity>
class _qzString8_allSize {
  public:
    static constexpr std::size_t capacity = Capacity;

    _qzString8_allSize() = default;

    /// A null pointer gives an empty text. Reads no byte beyond the terminating NUL or the capacity.
    _qzString8_allSize(const char* other) { append(other); } // NOLINT(google-explicit-constructor)

    explicit _qzString8_allSize(const QString& other) { append(other.toUtf8().constData()); }

    /// Exact, case-sensitive equality.
    bool isEqual(const _qzString8_allSize& other) const {
        return size == other.size && std::memcmp(text, other.text, size) == 0;
    }

    /// False for an empty text, whatever the character.
    bool startsWith(char first) const { return size > 0 && text[0] == first; }

    /// This text followed by `more` (null: nothing), cut at the capacity.
    _qzString8_allSize operator+(const char* more) const {
        _qzString8_allSize sum = *this;
        sum.append(more);
        return sum;
    }

    operator QString() const { // NOLINT(google-explicit-constructor)
        return QString::fromUtf8(text, static_cast<int>(size));
    }

    /// Always NUL-terminated.
    const char* c_str() const { return text; }

    /// Bytes without the terminating NUL, 0 to `Capacity`.
    std::size_t length() const { return size; }

  private:
    void append(const char* more) {
        if (more == nullptr)
            return;
        const std::size_t added = strnlen(more, Capacity - size);
        std::memcpy(text + size, more, added);
        size += added;
        text[size] = '\0';
    }

    std::size_t size = 0;
    char text[Capacity + 1] = {};
};

/// Wide text of at most `Capacity` characters, one Unicode code point each.
template <std::size_t Capacity>
class _qzString {
  public:
    static constexpr std::size_t capacity = Capacity;

    _qzString() = default;

    /// Widens UTF-8 text; a null pointer gives an empty text.
    // NOLINTNEXTLINE(google-explicit-constructor)
    _qzString(const char* other) : _qzString(QString::fromUtf8(other)) {}

    explicit _qzString(const QString& other) {
        const std::wstring wide = other.toStdWString();
        size = wcsnlen(wide.c_str(), Capacity);
        std::wmemcpy(text, wide.c_str(), size);
    }

    operator QString() const { // NOLINT(google-explicit-constructor)
        return QString::fromWCharArray(text, static_cast<int>(size));
    }

    /// Always NUL-terminated.
    const wchar_t* c_str() const { return text; }

    /// Characters without the terminating NUL, 0 to `Capacity`.
    std::size_t length() const { return size; }

  private:
    std::size_t size = 0;
    wchar_t text[Capacity + 1] = {};
};
