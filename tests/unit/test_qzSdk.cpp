#include <QTest>

#include "support/qzSdk.h"

namespace {
// As in a program of the suite: created before the entry point runs.
const __QZSDK startUp(true, qz_AppType(0), "qzGpuInfo", false);
} // namespace

class TestQzSdk : public QObject {
    Q_OBJECT

  private slots:
    void keepsWhatItIsTold() {
        QCOMPARE(int(qz_AppType_Default), 0);
        QCOMPARE(startUp.appType(), qz_AppType_Default);
        QCOMPARE(QString(startUp.name()), QStringLiteral("qzGpuInfo"));
    }

    void isOneOfAKind() {
        QVERIFY(!std::is_copy_constructible_v<__QZSDK> && !std::is_copy_assignable_v<__QZSDK>);
    }
};

QTEST_APPLESS_MAIN(TestQzSdk)
#include "test_qzSdk.moc"
