// One JSON object: its members, their order, and the texts and numbers that need care in that format.
#include <cfloat>

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include "StatusReports.h"
#include "reader/status/forms.h"
#include "tests/unit/testRows.h"

namespace {

const char wholeObject[] = R"({
  "formatVersion": 1,
  "state": "ok",
  "message": "the GPU list was read",
  "segment": "/dev/shm/qzGpuInfo_v2",
  "writerAttached": true,
  "published": true,
  "measuring": false,
  "ageSeconds": 1.25,
  "publishedAt": 1700000000.5,
  "gpus": [
    {
      "index": 0,
      "name": "NVIDIA GeForce RTX 4090",
      "kind": "Cuda",
      "kindCode": 1,
      "deviceIndex": 0,
      "listed": true,
      "figuresValid": true,
      "openclMatched": true,
      "optixCapable": true,
      "amdRayTracing": false,
      "usagePercent": 45,
      "temperatureCelsius": 60,
      "memoryTotalMiB": 24576,
      "memoryUsedMiB": 1024,
      "memoryFreeMiB": 23552,
      "speedGps": 123.45
    },
    {
      "index": 1,
      "name": "NVIDIA Tesla",
      "kind": "Cuda",
      "kindCode": 1,
      "deviceIndex": 1,
      "listed": true,
      "figuresValid": true,
      "openclMatched": false,
      "optixCapable": false,
      "amdRayTracing": false,
      "usagePercent": 0,
      "temperatureCelsius": 0,
      "memoryTotalMiB": 8192,
      "memoryUsedMiB": 0,
      "memoryFreeMiB": 8192,
      "speedGps": 0.0
    },
    {
      "index": 2,
      "name": "Navi 31",
      "kind": "AMD",
      "kindCode": 2,
      "deviceIndex": 0,
      "listed": true,
      "figuresValid": false,
      "openclMatched": false,
      "optixCapable": false,
      "amdRayTracing": true,
      "usagePercent": null,
      "temperatureCelsius": null,
      "memoryTotalMiB": 16384,
      "memoryUsedMiB": null,
      "memoryFreeMiB": null,
      "speedGps": null
    },
    {
      "index": 3,
      "name": "Bare",
      "kind": "Other",
      "kindCode": 0,
      "deviceIndex": -1,
      "listed": false,
      "figuresValid": false,
      "openclMatched": false,
      "optixCapable": false,
      "amdRayTracing": false,
      "usagePercent": null,
      "temperatureCelsius": null,
      "memoryTotalMiB": null,
      "memoryUsedMiB": null,
      "memoryFreeMiB": null,
      "speedGps": null
    }
  ],
  "summary": {
    "usagePercent": 45,
    "temperatureCelsius": 60,
    "memoryTotalMiB": 24576,
    "memoryUsedMiB": 1024,
    "memoryFreeMiB": 23552,
    "speedGps": 123.45
  },
  "totals": {
    "meanUsagePercent": 22.5,
    "totalMemoryMiB": 49152,
    "usedMemoryMiB": 1024,
    "hottestCelsius": 60
  }
}
)";

const char emptyObject[] = R"({
  "formatVersion": 1,
  "state": "missing",
  "message": "there is no segment",
  "segment": "/dev/shm/qzGpuInfo_v2",
  "writerAttached": false,
  "published": false,
  "measuring": false,
  "ageSeconds": null,
  "publishedAt": null,
  "gpus": [],
  "summary": null,
  "totals": null
}
)";

} // namespace

class TestJsonForm : public QObject {
    Q_OBJECT

  private slots:
    void objects_data() {
        const auto row = testColumns<StatusReport, QString>("report", "text");
        row("four GPUs", with(mixedReport(), [](StatusReport& report) { report.summary = busyGpu(); }),
            wholeObject);
        row("no segment", missingReport(), emptyObject);
    }
    void objects() {
        QFETCH(StatusReport, report);
        QTEST(QString::fromStdString(jsonForm(report)), "text");
    }

    void names_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const char* bytes, const char* text) {
            QTest::newRow(name) << QByteArray(bytes) << QString::fromUtf8(text);
        };
        row("empty", "", R"("")");
        row("quotes", "a \"b\" 'c'", "\"a \\\"b\\\" 'c'\"");
        row("backslash", R"(a\n)", R"("a\\n")");
        row("slash", "a/b", R"("a/b")");
        row("line break", "a\nb", R"("a\nb")");
        row("lowest control character", "\x01", R"("\u0001")");
        row("highest control character", "\x1f ", R"("\u001f ")");
        row("delete", "~\x7f", R"("~\u007f")");
        row("C1 control characters", "a\xc2\x80\xc2\x9b\xc2\x9f\xc2\xa0", R"("a\u0080\u009b\u009f\u00a0")");
        row("two, three and four bytes", "ß€😀", R"("\u00df\u20ac\ud83d\ude00")");
        row("no UTF-8", "\xff!\xe2\x82", R"("\ufffd!\ufffd")");
    }
    void names() {
        QFETCH(QByteArray, name);
        QFETCH(QString, text);
        const StatusReport report =
            freshReport({with(amdGpu(), [&](GpuView& gpu) { gpu.name = name.toStdString(); })});
        const QByteArray json = QByteArray::fromStdString(jsonForm(report));
        QVERIFY2(json.contains("\"name\": " + text.toUtf8() + ",\n"), json);
        QVERIFY(QJsonDocument::fromJson(json).isObject());
    }

    void members_data() {
        const auto row = testColumns<StatusReport, QString>("report", "member");
        const auto gpu = [row](const char* name, const auto& edit, const char* member) {
            row(name, freshReport({with(amdGpu(), edit)}), member);
        };
        gpu(
            "unknown kind", [](GpuView& view) { view = unknownGpu(); },
            "\"kind\": \"unknown\",\n      \"kindCode\": 7,\n      \"deviceIndex\": 3,\n");
        gpu(
            "lowest", [](GpuView& view) { view.usagePercent = INT32_MIN; },
            R"("usagePercent": -2147483648,)");
        gpu(
            "highest", [](GpuView& view) { view.memoryUsedMiB = INT32_MAX; },
            R"("memoryUsedMiB": 2147483647,)");
        gpu("largest score", [](GpuView& view) { view.speedGps = FLT_MAX; }, "\"speedGps\": 3.4028235e+38\n");
        gpu(
            "smallest score", [](GpuView& view) { view.speedGps = FLT_MIN; },
            "\"speedGps\": 1.1754944e-38\n");
        row("measuring", measuringReport(), "\"published\": true,\n  \"measuring\": true,\n");
        row("age to a millisecond",
            with(freshReport(), [](StatusReport& report) { report.ageSeconds = 0.0006; }),
            R"("ageSeconds": 0.001,)");
    }
    void members() {
        QFETCH(StatusReport, report);
        QFETCH(QString, member);
        const QByteArray json = QByteArray::fromStdString(jsonForm(report));
        QVERIFY2(json.contains(member.toUtf8()), json);
        QVERIFY(QJsonDocument::fromJson(json).isObject());
    }

    void states_data() {
        QTest::addColumn<int>("state");
        QTest::addColumn<QString>("name");
        const auto row = [](ReportState state, const char* name) {
            QTest::newRow(name) << static_cast<int>(state) << name;
        };
        row(ReportState::Ok, "ok");
        row(ReportState::Stale, "stale");
        row(ReportState::Missing, "missing");
        row(ReportState::NotReady, "notReady");
        row(ReportState::Foreign, "foreign");
        row(ReportState::TooSmall, "tooSmall");
        row(ReportState::Locked, "locked");
        row(ReportState::PermissionDenied, "permissionDenied");
        row(ReportState::IoError, "ioError");
    }
    void states() {
        QFETCH(int, state);
        StatusReport report = missingReport();
        report.state = static_cast<ReportState>(state);
        const auto json = QJsonDocument::fromJson(QByteArray::fromStdString(jsonForm(report))).object();
        QTEST(json["state"].toString(), "name");
    }
};

QTEST_GUILESS_MAIN(TestJsonForm)
#include "test_jsonForm.moc"
