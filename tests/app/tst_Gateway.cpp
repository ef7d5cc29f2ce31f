#include "TestGateway.h"
#include "config/Settings.h"

class TestGatewayState : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aConfiguredGainIsBroughtIntoRange_data() {
        QTest::addColumn<QJsonObject>("config");
        QTest::addColumn<int>("percent");
        QTest::newRow("missing") << QJsonObject() << 80;
        QTest::newRow("text") << QJsonObject{{"mic_gain"_s, "100"_s}} << 80;
        QTest::newRow("below") << QJsonObject{{"mic_gain"_s, -5}} << 0;
        QTest::newRow("lowest") << QJsonObject{{"mic_gain"_s, 0}} << 0;
        QTest::newRow("highest") << QJsonObject{{"mic_gain"_s, 200}} << 200;
        QTest::newRow("above") << QJsonObject{{"mic_gain"_s, 250}} << 200;
    }
    void aConfiguredGainIsBroughtIntoRange() {
        QFETCH(QJsonObject, config);
        QTEST(Gateway::gainPercent(Settings::micGainPercent(config)), "percent");
    }

    void withoutComponentsNothingIsOpenOrKnown() {
        const TestRoot root;
        Gateway gateway(root.paths());
        gateway.session.connected = true;
        QVERIFY(!gateway.online());
        QVERIFY(!gateway.radioOpen());
        QCOMPARE(gateway.userId(), 0);
        QVERIFY(!gateway.isAdmin());
        gateway.setTransmitting(true);
        QVERIFY(gateway.session.transmitting);
    }

    void aKnownIdentityIsKept() {
        TestGateway test({{"hwid"_s, "h1"_s}});
        QVERIFY(!test.gateway.ensureHardwareId());
        QCOMPARE(Settings::hwid(test.gateway.config.object()), "h1"_s);
    }

    void aMissingIdentityIsComputed() {
        TestGateway test;
        QVERIFY(test.gateway.ensureHardwareId());
        QVERIFY(QRegularExpression("^[0-9a-f]{32}$"_s).match(Settings::hwid(test.gateway.config.object())).hasMatch());
    }
};

QTEST_GUILESS_MAIN(TestGatewayState)
#include "tst_Gateway.moc"
