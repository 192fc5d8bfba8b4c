// How the command waits for a fresh list.
#include <sys/inotify.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "reader/status/StatusReport.h"
#include "support/FileDescriptor.h"
#include "tests/unit/testRows.h"

using namespace qzstatus;
using namespace std::chrono_literals;

namespace {

/// Counts how often a file is opened. Closing is watched too, since equal events in a row count once.
class Openings {
  public:
    explicit Openings(const QString& path) : events(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (inotify_add_watch(events.get(), QFile::encodeName(path).constData(), IN_OPEN | IN_CLOSE) < 0)
            qFatal("the file can't be watched");
    }

    int count() const {
        int opened = 0;
        inotify_event event{};
        while (read(events.get(), &event, sizeof event) == static_cast<ssize_t>(sizeof event))
            opened += (event.mask & IN_OPEN) != 0;
        return opened;
    }

  private:
    FileDescriptor events;
};

} // namespace

class TestStatusReport : public QObject {
    Q_OBJECT

  private slots:
    void waitingPausesBetweenReadings_data() {
        const auto row = testColumns<int, int, int>("waitMs", "fewest", "most");
        row("no wait", 0, 1, 1);
        row("less than a pause", 30, 2, 2);
        row("three pauses", 350, 2, 5); // every 100 ms, and at the end
    }
    void waitingPausesBetweenReadings() {
        QFETCH(int, waitMs);
        QFETCH(int, fewest);
        QFETCH(int, most);
        const QTemporaryDir folder;
        QFile segment(folder.filePath(segmentKey));
        QVERIFY(segment.open(QIODevice::WriteOnly) && segment.resize(sizeof(GpuInfoBlock)));
        segment.close();
        QVERIFY(segment.setPermissions(QFile::ReadOwner | QFile::WriteOwner));
        const Openings openings(segment.fileName());
        const StatusReport report = readReport(GpuSegmentReader(folder.path().toStdString()), 1800.0,
                                               std::chrono::milliseconds(waitMs));
        const int opened = openings.count();
        QVERIFY(report.state == ReportState::NotReady);
        QVERIFY2(opened >= fewest && opened <= most, qPrintable(QString::number(opened)));
    }
};

QTEST_APPLESS_MAIN(TestStatusReport)
#include "test_StatusReport.moc"
