#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>

#include <QTest>

#include "support/qzString.h"
#include "tests/unit/testRows.h"

class TestQzString : public QObject {
    Q_OBJECT

  private slots:
    void fromText_data() {
        const auto row = testColumns<QByteArray, QByteArray>("given", "held");
        row("empty", "", "");
        row("short", "-bench", "-bench");
        row("one below the capacity", QByteArray(24, 'x'), QByteArray(24, 'x'));
        row("exactly the capacity", QByteArray(25, 'x'), QByteArray(25, 'x'));
        row("one above the capacity", QByteArray(25, 'x') + "y", QByteArray(25, 'x'));
        row("10000 characters", QByteArray(10000, 'x'), QByteArray(25, 'x'));
        row("bytes above 0x7f", QByteArray("\xc3\xa4\xff"), QByteArray("\xc3\xa4\xff"));
        row("cut inside a character", QByteArray(24, 'x') + "\xc3\xa4", QByteArray(24, 'x') + "\xc3");
        row("embedded NUL", QByteArray("ab\0cd", 5), "ab");
    }

    void fromText() {
        QFETCH(QByteArray, given);
        QFETCH(QByteArray, held);
        const _qzString8_allSize<25> text(given.constData());
        QCOMPARE(QByteArray(text.c_str()), held);
        QCOMPARE(text.length(), std::size_t(held.size()));
    }

    /// The terminator has its own room. With these capacities no padding follows a string
    /// that lacks it.
    void theTerminatorHasItsRoom() {
        struct Neighbours {
            _qzString8_allSize<8> narrow;
            std::uint64_t behindNarrow = ~std::uint64_t(0);
            _qzString<2> wide;
            std::uint64_t behindWide = ~std::uint64_t(0);
        };
        for (int length = 0; length < 20; ++length) {
            const QByteArray given(length, 'x');
            Neighbours strings;
            new (&strings.narrow) _qzString8_allSize<8>(given.constData());
            new (&strings.wide) _qzString<2>(given.constData());
            QCOMPARE(strings.behindNarrow, ~std::uint64_t(0));
            QCOMPARE(strings.behindWide, ~std::uint64_t(0));
            QCOMPARE(std::strlen(strings.narrow.c_str()), std::size_t(qMin(length, 8)));
            QCOMPARE(std::wcslen(strings.wide.c_str()), std::size_t(qMin(length, 2)));
        }
    }

    void readsNothingBeyondTheCapacity() {
        const char unterminated[25] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm',
                                       'n', 'o', 'p', 'q', 'r', 's', 't', 'u', 'v', 'w', 'x', 'y'};
        QCOMPARE(QByteArray(_qzString8_allSize<25>(unterminated).c_str()), QByteArray(unterminated, 25));
    }

    void nullAndDefaultAreEmpty() {
        const char* null = nullptr;
        QCOMPARE(_qzString8_allSize<100>(null).length(), std::size_t(0));
        QCOMPARE(QByteArray(_qzString8_allSize<100>(null).c_str()), QByteArray(""));
        QCOMPARE(_qzString8_allSize<100>().length(), std::size_t(0));
        QCOMPARE(QString(_qzString8_allSize<100>()), QString());
        QCOMPARE(_qzString<50>(null).length(), std::size_t(0));
        QCOMPARE(_qzString<50>().length(), std::size_t(0));
    }

    void fromQString() {
        QCOMPARE(QByteArray(_qzString8_allSize<25>(QStringLiteral("render")).c_str()), QByteArray("render"));
        QCOMPARE(QByteArray(_qzString8_allSize<25>(QString::fromUtf8("\xc3\xa4")).c_str()),
                 QByteArray("\xc3\xa4"));
        QCOMPARE(_qzString8_allSize<25>(QString(26, QLatin1Char('x'))).length(), std::size_t(25));
        QCOMPARE(_qzString8_allSize<25>(QString()).length(), std::size_t(0));
    }

    void toQString_data() {
        const auto row = testColumns<QString>("text");
        row("plain", QStringLiteral("qzGpuInfo_v2"));
        row("beyond ASCII", QString::fromUtf8("Gr\xc3\xb6\xc3\x9f"
                                              "e \xe2\x82\xac"));
        row("beyond 16 bits", QString::fromUtf8("\xf0\x9f\x98\x80!"));
    }

    void toQString() {
        QFETCH(QString, text);
        QCOMPARE(QString(_qzString8_allSize<100>(text.toUtf8().constData())), text);
        QCOMPARE(QString(_qzString8_allSize<250>(text.toUtf8().constData())), text);
        QCOMPARE(QString(_qzString<500>(text.toUtf8().constData())), text);
        QCOMPARE(QString(_qzString<500>(text)), text);
    }

    void isEqual_data() {
        const auto row = testColumns<QByteArray, QByteArray, bool>("left", "right", "equal");
        row("same", "-v", "-v", true);
        row("both empty", QByteArray(), QByteArray(), true);
        row("other case", "-v", "-V", false);
        row("beginning", "-bench", "-benchShort", false);
        row("longer", "-benchShort", "-bench", false);
        row("empty and not", QByteArray(), "-v", false);
        row("cut at 100", QByteArray(101, 'x'), QByteArray(100, 'x'), true);
        row("option and more", QByteArray("-v") + QByteArray(200, ' '), "-v", false);
    }

    void isEqual() {
        QFETCH(QByteArray, left);
        QFETCH(QByteArray, right);
        QFETCH(bool, equal);
        QCOMPARE(_qzString8_allSize<100>(left.constData()).isEqual(right.constData()), equal);
    }

    void startsWith() {
        QVERIFY(_qzString8_allSize<100>("-bench").startsWith('-'));
        QVERIFY(!_qzString8_allSize<100>("render-").startsWith('-'));
        QVERIFY(!_qzString8_allSize<100>("").startsWith('-'));
        QVERIFY(!_qzString8_allSize<100>("").startsWith('\0'));
    }

    void plus_data() {
        const auto row = testColumns<QByteArray, QByteArray, QByteArray>("left", "right", "sum");
        row("both", "11-21 03:24:10", "| ", "11-21 03:24:10| ");
        row("nothing added", "a", "", "a");
        row("to nothing", "", "b", "b");
        row("fills", QByteArray(249, 'x'), "y", QByteArray(249, 'x') + "y");
        row("cut", QByteArray(249, 'x'), "yz", QByteArray(249, 'x') + "y");
        row("no room", QByteArray(250, 'x'), "y", QByteArray(250, 'x'));
    }

    void plus() {
        QFETCH(QByteArray, left);
        QFETCH(QByteArray, right);
        QFETCH(QByteArray, sum);
        const _qzString8_allSize<250> text(left.constData());
        QCOMPARE(QByteArray((text + right.constData()).c_str()), sum);
        QCOMPARE(QByteArray(text.c_str()), left);
    }

    void plusNull() {
        const char* null = nullptr;
        QCOMPARE(QByteArray((_qzString8_allSize<250>("a") + null).c_str()), QByteArray("a"));
    }

    void wide_data() {
        const auto row = testColumns<QString, QString>("given", "held");
        row("exactly the capacity", QString(50, QLatin1Char('x')), QString(50, QLatin1Char('x')));
        row("above it", QString(51, QLatin1Char('x')), QString(50, QLatin1Char('x')));
        row("characters, not bytes", QString(51, QChar(0x20ac)), QString(50, QChar(0x20ac)));
    }

    void wide() {
        QFETCH(QString, given);
        QFETCH(QString, held);
        const _qzString<50> text(given.toUtf8().constData());
        QCOMPARE(QString(text), held);
        QCOMPARE(text.length(), std::size_t(50));
        QCOMPARE(std::wcslen(text.c_str()), std::size_t(50));
    }

    void wideHoldsOneCodePointACharacter() {
        const _qzString<50> text("\xf0\x9f\x98\x80");
        QCOMPARE(text.length(), std::size_t(1));
        QCOMPARE(quint32(text.c_str()[0]), quint32(0x1f600));
    }

    void storedInline() {
        QVERIFY(sizeof(_qzString8_allSize<250>) > 250);
        QVERIFY(std::is_trivially_copyable_v<_qzString8_allSize<250>>);
        QVERIFY(std::is_trivially_copyable_v<_qzString<500>>);
    }
};

QTEST_APPLESS_MAIN(TestQzString)
#include "test_qzString.moc"
