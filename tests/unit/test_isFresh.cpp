// Which lists count as fresh: by their publisher, their age and what a caller allows.
#include <limits>
#include <optional>

#include <QTest>

#include "reader/isFresh.h"
#include "tests/unit/testRows.h"

Q_DECLARE_METATYPE(Freshness)

namespace {

constexpr double any = -1.0; ///< no limit of the caller's

std::optional<double> limitOf(double maxAge) {
    return maxAge < 0.0 ? std::nullopt : std::optional(maxAge);
}

} // namespace

class TestIsFresh : public QObject {
    Q_OBJECT

  private slots:
    void judged_data() {
        // age: below 0: ahead of the clock
        const auto row =
            testColumns<QString, double, double, Freshness>("flags", "age", "maxAge", "judgement");

        row("just published", "published", 0.0, any, Freshness::Fresh);
        row("five cycles", "published", 20.0, any, Freshness::Fresh);
        row("past five cycles", "published", 20.1, any, Freshness::TooOld);
        row("five cycles, measuring", "published measuring", 20.1, any, Freshness::Fresh);
        row("half an hour, measuring", "published measuring", 1800.0, any, Freshness::Fresh);
        row("past half an hour, measuring", "published measuring", 1800.1, any, Freshness::TooOld);
        row("not published", "", 0.0, any, Freshness::Unpublished);
        row("not published, measuring", "measuring", 0.0, any, Freshness::Unpublished);
        row("not published, any age allowed", "", 0.0, 0.0, Freshness::Unpublished);
        row("up to the caller's limit", "published", 100.0, 100.0, Freshness::Fresh);
        row("past the caller's limit", "published", 5.1, 5.0, Freshness::TooOld);
        row("past the caller's limit, measuring", "published measuring", 5.1, 5.0, Freshness::TooOld);
        row("past half an hour, any age allowed", "published", 1e9, 0.0, Freshness::Fresh);
        row("a little ahead", "published", -10.0, any, Freshness::Fresh);
        row("far ahead", "published", -10.1, any, Freshness::Ahead);
        row("far ahead, any age allowed", "published", -10.1, 0.0, Freshness::Ahead);
        row("far ahead, measuring", "published measuring", -10.1, any, Freshness::Ahead);
        row("far ahead, not published", "", -10.1, any, Freshness::Unpublished);
    }
    void judged() {
        QFETCH(QString, flags);
        QFETCH(double, age);
        QFETCH(double, maxAge);
        QFETCH(Freshness, judgement);
        GpuSnapshot snapshot;
        snapshot.published = flags.contains("published");
        snapshot.measuring = flags.contains("measuring");
        snapshot.ageSeconds = std::max(0.0, age);
        snapshot.aheadSeconds = std::max(0.0, -age);
        QCOMPARE(freshness(snapshot, limitOf(maxAge)), judgement);
        QCOMPARE(isFresh(snapshot, limitOf(maxAge)), judgement == Freshness::Fresh);
    }

    void limits() {
        GpuSnapshot snapshot;
        QCOMPARE(ageLimit(snapshot), 20.0);
        QCOMPARE(ageLimit(snapshot, 7.5), 7.5);
        QCOMPARE(ageLimit(snapshot, 0.0), std::numeric_limits<double>::infinity());
        snapshot.measuring = true;
        QCOMPARE(ageLimit(snapshot), 1800.0);
        QCOMPARE(ageLimit(snapshot, 7.5), 7.5);
    }
};

QTEST_GUILESS_MAIN(TestIsFresh)
#include "test_isFresh.moc"
