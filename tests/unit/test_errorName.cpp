#include <map>

#include <QTest>

#include "opencl/errorName.h"
#include "tests/unit/testRows.h"

class TestErrorName : public QObject {
    Q_OBJECT

  private slots:
    void everyCode_data() {
        const std::map<int, const char*> named = {
            {0, "CL_SUCCESS"},
            {-1, "CL_DEVICE_NOT_FOUND"},
            {-2, "CL_DEVICE_NOT_AVAILABLE"},
            {-3, "CL_COMPILER_NOT_AVAILABLE"},
            {-4, "CL_MEM_OBJECT_ALLOCATION_FAILURE"},
            {-5, "CL_OUT_OF_RESOURCES"},
            {-6, "CL_OUT_OF_HOST_MEMORY"},
            {-11, "CL_BUILD_PROGRAM_FAILURE"},
            {-30, "CL_INVALID_VALUE"},
            {-31, "CL_INVALID_DEVICE_TYPE"},
            {-32, "CL_INVALID_PLATFORM"},
            {-33, "CL_INVALID_DEVICE"},
            {-34, "CL_INVALID_CONTEXT"},
            {-36, "CL_INVALID_COMMAND_QUEUE"},
            {-38, "CL_INVALID_MEM_OBJECT"},
            {-44, "CL_INVALID_PROGRAM"},
            {-45, "CL_INVALID_PROGRAM_EXECUTABLE"},
            {-46, "CL_INVALID_KERNEL_NAME"},
            {-48, "CL_INVALID_KERNEL"},
            {-51, "CL_INVALID_ARG_SIZE"},
            {-52, "CL_INVALID_KERNEL_ARGS"},
            {-53, "CL_INVALID_WORK_DIMENSION"},
            {-54, "CL_INVALID_WORK_GROUP_SIZE"},
            {-55, "CL_INVALID_WORK_ITEM_SIZE"},
            {-63, "CL_INVALID_GLOBAL_WORK_SIZE"},
        };
        testColumns<int, QByteArray>("code", "name");
        const auto add = [&named](int code) {
            const auto found = named.find(code);
            QTest::addRow("%d", code)
                << code << QByteArray(found != named.end() ? found->second : "CL_UNKNOWN_ERROR");
        };
        for (int code = -70; code <= 5; ++code)
            add(code);
        for (int code : {-1001, -9999, INT_MIN, INT_MAX})
            add(code);
    }

    void everyCode() {
        QFETCH(int, code);
        QFETCH(QByteArray, name);
        QCOMPARE(QByteArray(errorName(code)), name);
        QVERIFY2(errorName(code) == errorName(code), "the text is not static");
    }
};

QTEST_APPLESS_MAIN(TestErrorName)
#include "test_errorName.moc"
