#include <QTest>

#include "gpu/shortGpuName.h"

class TestShortGpuName : public QObject {
    Q_OBJECT

  private slots:
    void shortened_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("result");
        const auto row = [](const char* name, const char* result) {
            QTest::newRow(name) << QString::fromUtf8(name) << QString::fromUtf8(result);
        };
        row("NVIDIA GeForce RTX 4090", "RTX4090");
        row("NVIDIA GeForce RTX 3080 Laptop GPU", "RTX3080");
        row("NVIDIA RTX 6000 Ada Generation", "RTX6000Ada");
        row("Tesla V100-SXM2-16GB", "V100-SXM2-16GB");
        row("AMD Radeon Pro W6800", "W6800");
        row("AMD Instinct MI210", "MI210");
        row("AMD Radeon RX 7900 XTX", "RX7900XTX");
        row("AMD Radeon(TM) Graphics", "RadeonGraphics");
        row("Apple M1 Max", "M1Max");
        row("nvidia geforce gtx 1080", "gtx1080");
        row("QUADRO RTX 5000", "RTX5000");
        row("", "");
        row(" ", "");
        row("NVIDIA GeForce ", "");
        row("Radeon(TM) Graphics", "RadeonGraphics");
        row("Some GeForce", "SomeGeForce");
        row("NVIDIA", "NVIDIA");

        // Each word where only its own removal can remove it.
        row("a NVIDIA b", "ab");
        row("a GeForce b", "ab");
        row("a Quadro b", "ab");
        row("a Tesla b", "ab");
        row("a TITAN b", "ab");
        row("a AMD b", "ab");
        row("a Radeon Pro b", "ab");
        row("a Radeon b", "ab");
        row("a Instinct b", "ab");
        row("a Apple b", "ab");
        row("a(TM) b", "ab");
        row("a(R) b", "ab");
        row("a Laptop GPU", "a");
        row("a Mobile", "a");
        row("a Graphics", "a");
        row("a Series", "a");
        row("Ada Generation", "Ada");
        row("ADA GENERATION x", "Adax");

        // Its blank is part of the word.
        row("a NVIDIA-b", "aNVIDIA-b");
        row("a GeForce-b", "aGeForce-b");
        row("a Quadro-b", "aQuadro-b");
        row("a Tesla-b", "aTesla-b");
        row("a TITAN-b", "aTITAN-b");
        row("a AMD-b", "aAMD-b");
        row("a Radeon Pro-b", "aPro-b");
        row("a Radeon-b", "aRadeon-b");
        row("a Instinct-b", "aInstinct-b");
        row("a Apple-b", "aApple-b");
        row("a(TM)b", "a(TM)b");
        row("a(R)b", "a(R)b");
        row("Laptop GPU a", "LaptopGPUa");
        row("Mobile a", "Mobilea");
        row("Graphics a", "Graphicsa");
        row("Series a", "Seriesa");
        row("AdaGeneration", "AdaGeneration");

        // Every occurrence is removed, inside of words too, in any case.
        row("nViDiA nvidia x", "x");
        row("gEFORCE GEFORCE x", "x");
        row("qUADRO x", "x");
        row("tESLA x", "x");
        row("Titan V", "V");
        row("aMd x", "x");
        row("rADEON pRO x", "x");
        row("rADEON x", "x");
        row("iNSTINCT x", "x");
        row("aPPLE x", "x");
        row("x(tm) y(Tm) z", "xyz");
        row("x(r) y(R) z", "xyz");
        row("x lAPTOP gpu", "x");
        row("x mOBILE MOBILE", "x");
        row("x gRAPHICS GRAPHICS", "x");
        row("x sERIES SERIES", "x");
        row("Mobility Mobiles", "Mobilitys");
        row("x-AMD y", "x-y");

        // The order of the steps: a word that another removal completes goes only if its turn is still to
        // come.
        row("GeFNVIDIA orce x", "x");
        row("NVIGeForce DIA x", "NVIDIAx");
        row("QuaGeForce dro x", "x");
        row("GeFQuadro orce x", "GeForcex");
        row("TesQuadro la x", "x");
        row("QuaTesla dro x", "Quadrox");
        row("TITTesla AN x", "x");
        row("TesTITAN la x", "Teslax");
        row("ATITAN MD x", "x");
        row("TITAMD AN x", "TITANx");
        row("RadAMD eon Pro x", "x");
        row("ARadeon Pro MD x", "AMDx");
        row("RadRadeon Pro eon x", "x");
        row("RadRadeon eon Pro x", "RadeonProx");
        row("InsRadeon tinct x", "x");
        row("RadInstinct eon x", "Radeonx");
        row("ApInstinct ple x", "x");
        row("InsApple tinct x", "Instinctx");
        row("(TApple M) x", "x");
        row("Ap(TM) ple x", "Applex");
        row("((TM) R) x", "x");
        row("((R) TM) x", "(TM)x");
        row("x Lap(R) top GPU", "x");
        row("x( Laptop GPUR) y", "x(R)y");
        row("x Mob Laptop GPUile", "x");
        row("x Laptop Mobile GPU", "xLaptopGPU");
        row("x Gra Mobilephics", "x");
        row("x Mob Graphicsile", "xMobile");
        row("x Ser Graphicsies", "x");
        row("x Gra Seriesphics", "xGraphics");
        row("Ada Series Generation", "Ada");
        row("x SerAda Generationies", "xSerAdaies");

        // Inside, only blanks are removed; at the ends, all white space is.
        row("a \t b", "a\tb");
        row("a\nb", "a\nb");
        row("\t\n a b \r\n", "ab");
        row("NVIDIA\tGeForce", "NVIDIA\tGeForce");
        row("\xc3\xa4 \xe2\x82\xac", "\xc3\xa4\xe2\x82\xac");
        row("AMD %1 %2", "%1%2");
    }

    void shortened() {
        QFETCH(QString, name);
        QFETCH(QString, result);
        QCOMPARE(shortGpuName(name), result);
    }

    void editsInPlace() {
        QString name("\tNVIDIA GeForce RTX 4090\n");
        QCOMPARE(shortGpuName(name), QString("RTX4090"));
        QCOMPARE(name, QString("\tRTX4090\n"));
    }
};

QTEST_APPLESS_MAIN(TestShortGpuName)
#include "test_shortGpuName.moc"
