#include <algorithm>
#include <cmath>

#include <dlfcn.h>
#include <link.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "support/DynamicLoader.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeLoader.h"
#include "tests/unit/testRows.h"

class TestDynamicLoader : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        FakeCalls::reset();
        FakeLoader::reset();
    }

    void openFirst_data() {
        const auto row = testColumns<QStringList, QString, QStringList>("present", "opened", "calls");
        const QString first = "dlopen(liba.so.1, 1)"; // RTLD_LAZY and nothing else
        const QString second = "dlopen(liba.so, 1)";
        row("both", {"liba.so.1", "liba.so"}, "liba.so.1", {first});
        row("the second only", {"liba.so"}, "liba.so", {first, second});
        row("neither", {"libb.so"}, "", {first, second});
    }

    void openFirst() {
        QFETCH(QStringList, present);
        for (const QString& file : present)
            FakeLoader::provide(file.toLatin1());
        void* library = FakeLoader::functions().openFirst({"liba.so.1", "liba.so"});
        QFETCH(QString, opened);
        QCOMPARE(library != nullptr ? static_cast<FakeLibrary*>(library)->file : QByteArray(""),
                 opened.toLatin1());
        QTEST(FakeCalls::all(), "calls");
    }

    void resolvesAndReportsWhatIsMissing() {
        FakeLoader::provide("liba.so").add("answer", +[] { return 42; });
        const DynamicLoader loader = FakeLoader::functions();
        void* library = loader.openFirst({"liba.so"});
        int (*answer)() = nullptr;
        QVERIFY(loader.resolve(library, "answer", answer));
        QCOMPARE(answer(), 42);
        QVERIFY(!loader.resolve(library, "question", answer));
        QVERIFY(answer == nullptr);
    }

    void systemLibrary() {
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

    void systemLibraryThatIsNoLibrary() {
        QTemporaryDir directory;
        QFile text(directory.filePath("libOpenCL.so.1"));
        QVERIFY(text.open(QIODevice::WriteOnly));
        text.write("not a library\n");
        text.close();
        const QByteArray path = text.fileName().toLocal8Bit();
        QVERIFY(DynamicLoader::system().open(path.constData(), RTLD_LAZY) == nullptr);
    }

    void sonameOfTheProgramItself() {
        void* program = dlopen(nullptr, RTLD_LAZY); // a loaded object without a soname
        QVERIFY(DynamicLoader::system().soname(program) == nullptr);
        dlclose(program);
    }

    /// Some linkers make such libraries; the addresses in them stay those of the file.
    void sonameBehindDynamicSectionThatCantBeWritten() {
        void* original = dlopen("libm.so.6", RTLD_LAZY);
        QVERIFY(original != nullptr);
        link_map* map = nullptr;
        QCOMPARE(dlinfo(original, RTLD_DI_LINKMAP, &map), 0);
        QFile library(QString::fromLocal8Bit(map->l_name));
        QVERIFY(library.open(QIODevice::ReadOnly));
        QByteArray bytes = library.readAll();
        auto* header = reinterpret_cast<ElfW(Ehdr)*>(bytes.data());
        auto* segments = reinterpret_cast<ElfW(Phdr)*>(bytes.data() + header->e_phoff);
        ElfW(Phdr)* const dynamic =
            std::find_if(segments, segments + header->e_phnum,
                         [](const ElfW(Phdr) & segment) { return segment.p_type == PT_DYNAMIC; });
        QVERIFY(dynamic != segments + header->e_phnum);
        dynamic->p_flags &= ~ElfW(Word)(PF_W);
        QTemporaryDir directory;
        QFile copy(directory.filePath("libcopy.so"));
        QVERIFY(copy.open(QIODevice::WriteOnly) && copy.write(bytes) == bytes.size());
        copy.close();

        const DynamicLoader loader = DynamicLoader::system();
        void* library2 = dlmopen(LM_ID_NEWLM, copy.fileName().toLocal8Bit().constData(), RTLD_LAZY);
        QVERIFY2(library2 != nullptr, dlerror());
        QCOMPARE(loader.soname(library2), "libm.so.6");
        QCOMPARE(loader.close(library2), 0);
        dlclose(original);
    }
};

QTEST_APPLESS_MAIN(TestDynamicLoader)
#include "test_DynamicLoader.moc"
