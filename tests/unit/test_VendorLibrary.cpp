#include <QTest>

#include "support/VendorLibrary.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeLoader.h"

namespace {

struct Table {
    int (*one)() = nullptr;
    int (*two)() = nullptr;
    int (*three)() = nullptr;

    template <class Visit>
    void walk(Visit visit) {
        visit("one", one, EntryPoint::Required);
        visit("two", two, EntryPoint::Optional);
        visit("three", three, EntryPoint::Required);
    }
};

int answerOne() {
    return 1;
}

int answerThree() {
    return 3;
}

const QStringList open = {"dlopen(libv.so.1, 1)"};
const QStringList lookUps = {"dlsym(libv.so.1, one)", "dlsym(libv.so.1, two)", "dlsym(libv.so.1, three)"};
const QStringList closed = {"dlclose(libv.so.1)"};

/// Writes a failure into the record of the calls.
void report(LoadFailure failure) {
    FakeCalls::enter("report", {failure == LoadFailure::NotFound ? "not found" : "incomplete"});
}

bool load(VendorLibrary<Table>& library) {
    return library.load({"libv.so.1"}, FakeLoader::functions(), report);
}

} // namespace

class TestVendorLibrary : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        FakeCalls::reset();
        FakeLoader::reset();
        FakeLibrary& library = FakeLoader::provide("libv.so.1");
        library.add("one", answerOne);
        library.add("three", answerThree);
    }

    void loadsWithoutAnOptionalEntryPoint() {
        VendorLibrary<Table> library;
        QVERIFY(!library.isLoaded());
        QVERIFY(load(library));
        QVERIFY(library.isLoaded());
        QCOMPARE(library.table().one(), 1);
        QVERIFY(library.table().two == nullptr);
        QCOMPARE(library.table().three(), 3);
        QCOMPARE(FakeCalls::all(), open + lookUps);
    }

    void incompleteIsReportedAndThenClosed() {
        FakeLoader::library("libv.so.1").symbols.erase("one");
        VendorLibrary<Table> library;
        QVERIFY(!load(library));
        QVERIFY(!library.isLoaded());
        QVERIFY(library.table().three == nullptr);
        QCOMPARE(FakeCalls::all(), open + lookUps + QStringList("report(incomplete)") + closed);
    }

    void notFound() {
        VendorLibrary<Table> library;
        QVERIFY(!library.load({"libw.so.1", "libw.so"}, FakeLoader::functions(), report));
        QVERIFY(!library.isLoaded());
        library.unload();
        QCOMPARE(FakeCalls::all(),
                 QStringList({"dlopen(libw.so.1, 1)", "dlopen(libw.so, 1)", "report(not found)"}));
    }

    void loadsOnce() {
        VendorLibrary<Table> library;
        load(library);
        FakeCalls::reset();
        QVERIFY(load(library));
        QCOMPARE(FakeCalls::all(), QStringList());
    }

    void unloadWithoutLoad() {
        VendorLibrary<Table> library;
        library.unload();
        QVERIFY(!library.isLoaded());
        QCOMPARE(FakeCalls::all(), QStringList());
    }

    void loadUnloadLoad() {
        VendorLibrary<Table> library;
        load(library);
        library.unload();
        QVERIFY(!library.isLoaded());
        QVERIFY(library.table().one == nullptr && library.table().three == nullptr);
        library.unload();
        QVERIFY(load(library));
        QCOMPARE(library.table().three(), 3);
        QCOMPARE(FakeCalls::all(), open + lookUps + closed + open + lookUps);
    }

    void closesWithTheLoaderThatOpened() {
        VendorLibrary<Table> library;
        load(library);
        library.load({"libv.so.1"}, DynamicLoader::system(),
                     report); // loaded already: nothing is taken from it
        library.unload();
        QCOMPARE(FakeLoader::library("libv.so.1").timesOpen, 0);
    }

    void doesNotUnloadByItself() {
        {
            VendorLibrary<Table> library;
            load(library);
        }
        QCOMPARE(FakeLoader::library("libv.so.1").timesOpen, 1);
    }
};

QTEST_APPLESS_MAIN(TestVendorLibrary)
#include "test_VendorLibrary.moc"
