#include "../support/LogCapture.h"
#include "Literals.h"
#include "app/SoundDeviceChoice.h"

#include <QtTest>

class TestSoundDeviceChoice : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theFirstDeviceThatOpensIsChosen_data() {
        QTest::addColumn<QString>("configured");
        QTest::addColumn<QStringList>("present");
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QStringList>("probed");

        QTest::newRow("configured card opens")
            << "hw:1,0" << QStringList{"hw:0,0"_s, "hw:1,0"_s} << "hw:1,0" << QStringList{"hw:1,0"_s};
        QTest::newRow("configured name is of another kind")
            << "plughw:CARD=Codec" << QStringList{"hw:0,0"_s, "plughw:CARD=Codec"_s} << "plughw:CARD=Codec"
            << QStringList{"plughw:CARD=Codec"_s};
        QTest::newRow("only card 2 is there") << "hw:5,0" << QStringList{"hw:2,0"_s, "hw:3,0"_s} << "hw:2,0"
                                              << QStringList{"hw:5,0"_s, "hw:0,0"_s, "hw:1,0"_s, "hw:2,0"_s};
        QTest::newRow("card 4 is not looked for")
            << "hw:5,0" << QStringList{"hw:4,0"_s} << "hw:1,0"
            << QStringList{"hw:5,0"_s, "hw:0,0"_s, "hw:1,0"_s, "hw:2,0"_s, "hw:3,0"_s};
        QTest::newRow("no card at all") << "hw:1,0" << QStringList{} << "hw:1,0"
                                        << QStringList{"hw:1,0"_s, "hw:0,0"_s, "hw:1,0"_s, "hw:2,0"_s, "hw:3,0"_s};
    }
    void theFirstDeviceThatOpensIsChosen() {
        QFETCH(QString, configured);
        QFETCH(QStringList, present);
        QFETCH(QStringList, probed);
        QStringList asked;
        const auto probe = [&](const QString &device) {
            asked.append(device);
            return present.contains(device);
        };
        QTEST(chooseSoundDevice(configured, probe), "chosen");
        QCOMPARE(asked, probed);
    }

    void aConfiguredDeviceThatOpensIsLoggedAsSuch() {
        LogCapture log;
        chooseSoundDevice("hw:2,0"_s, [](const QString &) { return true; });
        QCOMPARE(log.take(), QStringList{"debug [Appliance] Audio device from config: \"hw:2,0\""_s});
    }

    void aDetectedDeviceIsLoggedAfterTheMissingOne() {
        LogCapture log;
        chooseSoundDevice("hw:7,0"_s, [](const QString &device) { return device == "hw:3,0"_s; });
        QCOMPARE(log.take(),
                 (QStringList{"warning [Appliance] Config device \"hw:7,0\" not available, auto-detecting..."_s,
                              "debug [Appliance] Auto-detected audio device: \"hw:3,0\""_s}));
    }

    void theRealProbeTellsDevicesFromNonsense() {
        QVERIFY(opensForCapture("null"_s));
        QVERIFY(!opensForCapture("no such device"_s));
    }
};

QTEST_APPLESS_MAIN(TestSoundDeviceChoice)
#include "tst_SoundDeviceChoice.moc"
