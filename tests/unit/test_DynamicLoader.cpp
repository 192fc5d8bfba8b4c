#include <cmath>

#include <QtTest>

#include <dlfcn.h>

#include "support/DynamicLoader.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeLoader.h"

class TestDynamicLoader : public QObject {
    Q_OBJECT

  private slots:
    void init();
    void openFirst_data();
    void openFirst();
    void resolvesAndTellsWhatIsMissing();
    void systemLibrary();
    void systemLibraryThatIsNoLibrary();
    void sonameOfTheProgramItself();
};

void TestDynamicLoader::init() {
    FakeCalls::reset();
    FakeLoader::reset();
}

void TestDynamicLoader::openFirst_data() {
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<QString>("opened");
    QTest::addColumn<QStringList>("calls");
    const QString first = "dlopen(liba.so.1, 1)"; // RTLD_LAZY and nothing else
    const QString second = "dlopen(liba.so, 1)";
    QTest::newRow("both") << QStringList{"liba.so.1", "liba.so"} << "liba.so.1" << QStringList{first};
    QTest::newRow("the second only") << QStringList{"liba.so"} << "liba.so" << QStringList{first, second};
    QTest::newRow("neither") << QStringList{"libb.so"} << "" << QStringList{first, second};
}

void TestDynamicLoader::openFirst() {
    QFETCH(QStringList, present);
    for (const QString& file : present)
        FakeLoader::provide(file.toLatin1());
    void* library = FakeLoader::functions().openFirst({"liba.so.1", "liba.so"});
    QFETCH(QString, opened);
    QCOMPARE(library != nullptr ? static_cast<FakeLibrary*>(library)->file : QByteArray(""),
             opened.toLatin1());
    QTEST(FakeCalls::all(), "calls");
}

void TestDynamicLoader::resolvesAndTellsWhatIsMissing() {
    FakeLoader::provide("liba.so").add(
        "answer", +[] { return 42; });
    const DynamicLoader loader = FakeLoader::functions();
    void* library = loader.openFirst({"liba.so"});
    int (*answer)() = nullptr;
    QVERIFY(loader.resolve(library, "answer", answer));
    QCOMPARE(answer(), 42);
    QVERIFY(!loader.resolve(library, "question", answer));
    QVERIFY(answer == nullptr);
}

void TestDynamicLoader::systemLibrary() {
    const DynamicLoader loader = DynamicLoader::system();
    void* library = loader.openFirst({"libthere-is-no-such.so.1", "libm.so.6"});
    QVERIFY(library != nullptr);
    QCOMPARE(loader.soname(library), "libm.so.6");
    double (*cosine)(double) = nullptr;
    QVERIFY(loader.resolve(library, "cos", cosine));
    QCOMPARE(cosine(0.0), 1.0);
    double (*missing)(double) = cosine;
    QVERIFY(!loader.resolve(library, "there_is_no_such", missing));
    QVERIFY(missing == nullptr);
    QCOMPARE(loader.close(library), 0);
}

void TestDynamicLoader::systemLibraryThatIsNoLibrary() {
    QTemporaryDir directory;
    QFile text(directory.filePath("libOpenCL.so.1"));
    QVERIFY(text.open(QIODevice::WriteOnly));
    text.write("not a library\n");
    text.close();
    const QByteArray path = text.fileName().toLocal8Bit();
    QVERIFY(DynamicLoader::system().open(path.constData(), RTLD_LAZY) == nullptr);
}

void TestDynamicLoader::sonameOfTheProgramItself() {
    void* program = dlopen(nullptr, RTLD_LAZY); // a loaded object without a soname
    QVERIFY(DynamicLoader::system().soname(program) == nullptr);
    dlclose(program);
}

QTEST_APPLESS_MAIN(TestDynamicLoader)
#include "test_DynamicLoader.moc"
