// Text from outside, prepared for people and formats by displayText and its neighbours.
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <QTest>

#include "reader/status/displayText.h"
#include "reader/status/forms.h"
#include "tests/unit/testRows.h"

using namespace qzstatus;

class TestStatusText : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() { QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr); }

    void decoding_data() {
        const auto row = testColumns<QByteArray, QString>("bytes", "text");
        const QString bad(QChar(0xFFFD));
        row("ASCII", "GPU 1", QStringLiteral("GPU 1"));
        row("two bytes, lowest", "\xc2\x80", QString(QChar(0x80)));
        row("two bytes, highest", "\xdf\xbf", QString(QChar(0x7FF)));
        row("three bytes, lowest", "\xe0\xa0\x80", QString(QChar(0x800)));
        row("below the surrogates", "\xed\x9f\xbf", QString(QChar(0xD7FF)));
        row("above the surrogates", "\xee\x80\x80", QString(QChar(0xE000)));
        row("four bytes, lowest", "\xf0\x90\x80\x80", QString::fromUcs4(U"\U00010000", 1));
        row("four bytes, highest", "\xf4\x8f\xbf\xbf", QString::fromUcs4(U"\U0010FFFF", 1));
        row("over-long in two", "\xc1\xbf", bad + bad);
        row("over-long in three", "\xe0\x9f\xbf", bad + bad + bad);
        row("over-long in four", "\xf0\x8f\xbf\xbf", bad + bad + bad + bad);
        row("surrogate", "\xed\xa0\x80", bad + bad + bad);
        row("above the last", "\xf4\x90\x80\x80", bad + bad + bad + bad);
        row("five bytes", "\xf8\x80", bad + bad);
        row("continuation alone", "\x80z", bad + "z");
        row("cut after one of three", "\xe2z", bad + "z");
        row("cut after two of three", "\xe2\x82z", bad + "z");
        row("cut at the end", "a\xf0\x9f\x98", "a" + bad);
        row("a byte above the continuations", "\xc3\xc0z", bad + bad + "z");
        row("a byte below the continuations", "\xc3\x7fz", bad + "\x7fz");
        row("a byte above them in the middle", "\xe2\x82\xc0z", bad + bad + "z");
        row("started again", "\xe2\xe2\x82\xac", bad + QChar(0x20AC));
    }
    void decoding() {
        QFETCH(QByteArray, bytes);
        const std::u32string decoded =
            decodeUtf8({bytes.constData(), static_cast<std::size_t>(bytes.size())});
        QTEST(QString::fromUcs4(decoded.data(), static_cast<int>(decoded.size())), "text");
        std::string again;
        for (const char32_t codePoint : decoded)
            appendUtf8(again, codePoint);
        QTEST(QString::fromStdString(again), "text");
    }

    void cutting_data() {
        const auto row = testColumns<QString, int, QString, int>("text", "limit", "shown", "columns");
        row("fits exactly", "abcd", 4, "abcd", 4);
        row("one too long", "abcd", 3, QStringLiteral("ab…"), 3);
        row("to one column", "abcd", 1, QStringLiteral("…"), 1);
        row("to none", "abcd", 0, "", 0);
        row("below none", "abcd", -3, "", 0);
        row("wide fits", QStringLiteral("日本"), 4, QStringLiteral("日本"), 4);
        row("wide cut at its edge", QStringLiteral("日本"), 3, QStringLiteral("日…"), 3);
        row("wide cut in its middle", QStringLiteral("日本"), 2, QStringLiteral("…"), 1);
        row("escape", "\x1b[31m", 10, QStringLiteral("\uFFFD[31m"), 5);
        row("combining", QStringLiteral("e\u0301"), 10, QStringLiteral("e\uFFFD"), 2);
        row("right to left override", QStringLiteral("\u202Ex"), 10, QStringLiteral("\uFFFDx"), 2);
        row("line break", "a\nb\rc\td", 10, QStringLiteral("a\uFFFDb\uFFFDc\uFFFDd"), 7);
    }
    void cutting() {
        QFETCH(QString, text);
        QFETCH(int, limit);
        const DisplayText result = displayText(text.toStdString(), limit);
        QTEST(QString::fromStdString(result.text), "shown");
        QTEST(result.columns, "columns");
    }

    void padding() {
        QCOMPARE(padded("ab", 4, false), std::string("ab  "));
        QCOMPARE(padded("ab", 4, true), std::string("  ab"));
        QCOMPARE(padded("abcde", 4, true), std::string("abc\u2026"));
        QCOMPARE(padded("\u65e5\u672c", 3, false), std::string("\u65e5\u2026"));
        QCOMPARE(padded("\u65e5\u672c", 2, false), std::string("\u2026 "));
    }

    void shortestNumbers_data() {
        const auto row = testColumns<float, QString>("value", "text");
        row("zero", 0.0F, "0");
        row("hundredths", 123.45F, "123.45");
        row("needs nine digits", 16777.217F, "16777.217");
        row("below zero", -1.5F, "-1.5");
        row("largest", std::numeric_limits<float>::max(), "3.4028235e+38");
    }
    void shortestNumbers() {
        QFETCH(float, value);
        QTEST(QString::fromStdString(shortestText(value)), "text");
        const float again = std::strtof(shortestText(value).c_str(), nullptr);
        QVERIFY(std::memcmp(&value, &again, sizeof value) == 0);
    }

    void memoryRatios_data() {
        const auto row = testColumns<int, int, double>("used", "total", "ratio");
        row("half", 512, 1024, 0.5);
        row("used above total", 2048, 1024, 1.0);
        row("below zero", -5, 1024, 0.0);
        row("of 1 MiB", 1, 1, 1.0);
        row("no total", 5, 0, 0.0);
        row("total below zero", -5, -10, 0.0);
    }
    void memoryRatios() {
        QFETCH(int, used);
        QFETCH(int, total);
        GpuView gpu;
        QCOMPARE(memoryRatio(gpu), 0.0);
        gpu.memoryTotalMiB = total;
        QCOMPARE(memoryRatio(gpu), 0.0);
        gpu.memoryUsedMiB = used;
        QTEST(memoryRatio(gpu), "ratio");
    }
};

QTEST_GUILESS_MAIN(TestStatusText)
#include "test_StatusText.moc"
