#include "config/Settings.h"

#include <QJsonArray>
#include <QTest>

#include <functional>
#include <limits>

namespace {

using Reader = std::function<QVariant(const QJsonObject &)>;
using Setter = void (*)(QJsonObject &, const QString &);

QString text(const char *latin1) {
    return QString::fromLatin1(latin1);
}

} // namespace

Q_DECLARE_METATYPE(Reader)
Q_DECLARE_METATYPE(Setter)

class TestSettings : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsAValueAndStandsInForAMissingOrMalformedOne_data();
    void readsAValueAndStandsInForAMissingOrMalformedOne();
    void takesOnlyAPortThatExists_data();
    void takesOnlyAPortThatExists();
    void takesOnlyAPositiveBaudRate_data();
    void takesOnlyAPositiveBaudRate();
    void anEmptySerialPortIsNotAMissingOne();
    void readsTheThreeBandsOfEachTone();
    void setsAKeyInMemory_data();
    void setsAKeyInMemory();
};

void TestSettings::readsAValueAndStandsInForAMissingOrMalformedOne_data() {
    QTest::addColumn<Reader>("reader");
    QTest::addColumn<QVariant>("fallback");
    QTest::addColumn<QVariant>("value");

    const auto row = [](const char *key, auto reader, auto fallback, auto value) {
        QTest::newRow(key) << Reader([reader](const QJsonObject &config) { return QVariant(reader(config)); })
                           << QVariant(fallback) << QVariant(value);
    };
    row("server_address", Settings::serverAddress, text("voice.kivo.example"), text("10.0.0.1"));
    row("server_port", Settings::serverPort, 8080, 9000);
    row("audio_input", Settings::audioInput, text("hw:1,0"), text("hw:3,0"));
    row("serial_port", Settings::serialPort, text("/dev/ttyUSB0"), text("/dev/ttyACM1"));
    row("baudrate", Settings::baudRate, 9600, 115200);
    row("cos_logic_high", Settings::cosLogicHigh, true, false);
    row("ptt_invert", Settings::pttInvert, false, true);
    row("mic_gain", Settings::micGainPercent, 80, 250);
    row("speaker_gain", Settings::speakerGainPercent, 80, -5);
    row("agc_enabled", Settings::agcEnabled, false, true);
    row("tot_duration", Settings::totDurationSeconds, 0, 120);
    row("hwid", Settings::hwid, text(""), text("0123456789abcdef"));
    row("callsign", Settings::callsign, text(""), text("AB1CD"));
    row("password", Settings::password, text(""), text("sandi"));
    row("last_room", Settings::lastRoom, text(""), text("Ruang 1"));
    row("default_room", Settings::defaultRoom, text("Lobby"), text(""));
    row("gateway_name", Settings::gatewayName, text(""), text("Gerbang"));
    row("frequency", Settings::frequency, text(""), text("145.500"));
    row("location", Settings::location, text(""), text("Bandung"));
    row("whatsapp", Settings::whatsapp, text(""), text("+62 1"));
    row("responsible_name", Settings::responsibleName, text(""), text("Ani"));
    row("responsible_callsign", Settings::responsibleCallsign, text(""), text("AB2CD"));
    row("email", Settings::email, text(""), text("a@example.org"));
}

void TestSettings::readsAValueAndStandsInForAMissingOrMalformedOne() {
    QFETCH(Reader, reader);
    QFETCH(QVariant, fallback);
    QFETCH(QVariant, value);
    const QString key = text(QTest::currentDataTag());

    QCOMPARE(reader({}), fallback);
    QCOMPARE(reader({{key, QJsonValue::fromVariant(value)}}), value);
    const QJsonValue otherTypes[] = {QJsonValue(), QJsonObject(), QJsonArray()};
    for (const QJsonValue &malformed : otherTypes)
        QCOMPARE(reader({{key, malformed}}), fallback);
    const bool isText = value.type() == QVariant::String;
    QCOMPARE(reader({{key, isText ? QJsonValue(1) : QJsonValue(text("1"))}}), fallback);
}

void TestSettings::takesOnlyAPortThatExists_data() {
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<int>("port");

    QTest::newRow("lowest") << QJsonValue(1) << 1;
    QTest::newRow("highest") << QJsonValue(65535) << 65535;
    QTest::newRow("zero") << QJsonValue(0) << 8080;
    QTest::newRow("negative") << QJsonValue(-1) << 8080;
    QTest::newRow("one too many") << QJsonValue(65536) << 8080;
    QTest::newRow("beyond an int") << QJsonValue(1e12) << 8080;
    QTest::newRow("broken") << QJsonValue(80.5) << 8080;
}

void TestSettings::takesOnlyAPortThatExists() {
    QFETCH(QJsonValue, value);
    QTEST(Settings::serverPort({{text("server_port"), value}}), "port");
}

void TestSettings::takesOnlyAPositiveBaudRate_data() {
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<int>("baudRate");

    QTest::newRow("slowest") << QJsonValue(1) << 1;
    QTest::newRow("unusual") << QJsonValue(31250) << 31250;
    QTest::newRow("largest") << QJsonValue(std::numeric_limits<int>::max()) << std::numeric_limits<int>::max();
    QTest::newRow("zero") << QJsonValue(0) << 9600;
    QTest::newRow("negative") << QJsonValue(-9600) << 9600;
    QTest::newRow("text") << QJsonValue(text("abc")) << 9600;
}

void TestSettings::takesOnlyAPositiveBaudRate() {
    QFETCH(QJsonValue, value);
    QTEST(Settings::baudRate({{text("baudrate"), value}}), "baudRate");
}

void TestSettings::anEmptySerialPortIsNotAMissingOne() {
    QCOMPARE(Settings::serialPort({{text("serial_port"), text("")}}), text(""));
}

void TestSettings::readsTheThreeBandsOfEachTone() {
    const QJsonObject config = {{text("tx_bass"), 1.5}, {text("tx_mid"), -2},   {text("tx_treble"), 3.25},
                                {text("rx_bass"), -12}, {text("rx_mid"), 0.75}, {text("rx_treble"), text("loud")}};
    const Settings::Tone tx = Settings::txTone(config);
    QCOMPARE(tx.bass, 1.5);
    QCOMPARE(tx.mid, -2.0);
    QCOMPARE(tx.treble, 3.25);
    const Settings::Tone rx = Settings::rxTone(config);
    QCOMPARE(rx.bass, -12.0);
    QCOMPARE(rx.mid, 0.75);
    QCOMPARE(rx.treble, 0.0);
    QCOMPARE(Settings::txTone({}).bass, 0.0);
}

void TestSettings::setsAKeyInMemory_data() {
    QTest::addColumn<Setter>("setter");

    QTest::newRow("hwid") << Setter(Settings::setHwid);
    QTest::newRow("gateway_name") << Setter(Settings::setGatewayName);
    QTest::newRow("frequency") << Setter(Settings::setFrequency);
    QTest::newRow("location") << Setter(Settings::setLocation);
    QTest::newRow("whatsapp") << Setter(Settings::setWhatsapp);
    QTest::newRow("responsible_name") << Setter(Settings::setResponsibleName);
    QTest::newRow("responsible_callsign") << Setter(Settings::setResponsibleCallsign);
    QTest::newRow("email") << Setter(Settings::setEmail);
}

void TestSettings::setsAKeyInMemory() {
    QFETCH(Setter, setter);
    QJsonObject config = {{text("other"), 1}};
    setter(config, text("new"));
    QCOMPARE(config, (QJsonObject{{text("other"), 1}, {text(QTest::currentDataTag()), text("new")}}));
}

QTEST_APPLESS_MAIN(TestSettings)
#include "tst_Settings.moc"
