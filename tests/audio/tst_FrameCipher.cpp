#include "../support/LogCapture.h"
#include "audio/FrameCipher.h"

#include <QTest>

#include <algorithm>
#include <sodium.h>

namespace {

const unsigned char *bytesOf(const QByteArray &array) {
    return reinterpret_cast<const unsigned char *>(array.constData());
}

std::span<const unsigned char> spanOf(const QByteArray &array) {
    return {bytesOf(array), size_t(array.size())};
}

const QByteArray roomKey(32, 'k');
const QByteArray packet60 = QByteArray(59, 'p') + 'q';

FrameCipher withKey(const QByteArray &key) {
    FrameCipher cipher;
    cipher.setKey(key.toBase64());
    return cipher;
}

// The secretbox example of the NaCl documentation: Alice's and Bob's first key, nonce, message, and the box of them.
const QByteArray naclKey = QByteArray::fromHex("1b27556473e985d462cd51197a9a46c76009549eac6474f206c4ee0844f68389");
const QByteArray naclNonce = QByteArray::fromHex("69696ee955b62b73cd62bda875fc73d68219e0036b7a0b37");
const QByteArray naclMessage = QByteArray::fromHex("be075fc53c81f2d5cf141316ebeb0c7b5228c52a4c62cbd44b66849b64244ffc"
                                                   "e5ecbaaf33bd751a1ac728d45e6c61296cdc3c01233561f41db66cce314adb31"
                                                   "0e3be8250c46f06dceea3a7fa1348057e2f6556ad6b1318a024a838f21af1fde"
                                                   "048977eb48f59ffd4924ca1c60902e52f0a089bc76897040e082f93776384864"
                                                   "5e0705");
const QByteArray naclBox = QByteArray::fromHex("f3ffc7703f9400e52a7dfb4b3d3305d98e993b9f48681273c29650ba32fc76ce"
                                               "48332ea7164d96a4476fb8c531a1186ac0dfc17c98dce87b4da7f011ec48c972"
                                               "71d2c20f9b928fe2270d6fb863d51738b48eeee314a7cc8ab932164548e526ae"
                                               "90224368517acfeabd6bb3732bc0e9da99832b61ca01b6de56244a9e88d5f9b3"
                                               "7973f622a43d14a6599b1f654cb45a74e355a5");

} // namespace

class TestFrameCipher : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { cryptoBinding() = m_system; }
    void passesPacketsWithoutAKey();
    void isSwitchedByTheLengthOfTheKey_data();
    void isSwitchedByTheLengthOfTheKey();
    void addsFortyBytesAndAFreshNonce();
    void sealsWhatTheLibraryOpens();
    void agreesWithThePublishedExample();
    void opensNothingThatWasTamperedWith();
    void opensNothingShorterThanAPacket_data();
    void opensNothingShorterThanAPacket();
    void opensNothingOfAnotherKey();
    void keepsTheOldKeyWhenSwitchedOff();
    void initialisesTheLibraryOnce();
    void staysInClearWhileTheLibraryFails();
    void triesAFailedLibraryAgainWithTheNextKey();

private:
    const CryptoBinding m_system = cryptoBinding();
};

void TestFrameCipher::passesPacketsWithoutAKey() {
    const FrameCipher cipher;
    QVERIFY(!cipher.isOn());
    QCOMPARE(cipher.seal(spanOf(packet60)), packet60);
    QCOMPARE(cipher.open(packet60), packet60);
}

void TestFrameCipher::isSwitchedByTheLengthOfTheKey_data() {
    QTest::addColumn<QByteArray>("base64");
    QTest::addColumn<bool>("on");
    QTest::newRow("44 characters of 32 bytes") << QByteArray("AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=") << true;
    QTest::newRow("nothing") << QByteArray() << false;
    QTest::newRow("31 bytes") << QByteArray(31, 'x').toBase64() << false;
    QTest::newRow("33 bytes") << QByteArray(33, 'x').toBase64() << false;
    QTest::newRow("43 bytes") << QByteArray(43, 'x').toBase64() << false;
    QTest::newRow("no Base64 at all") << QByteArray("!?!?") << false;
}

void TestFrameCipher::isSwitchedByTheLengthOfTheKey() {
    QFETCH(QByteArray, base64);
    QFETCH(bool, on);
    FrameCipher cipher;
    cipher.setKey(base64);
    QCOMPARE(cipher.isOn(), on);
    FrameCipher used = withKey(roomKey);
    used.setKey(base64);
    QCOMPARE(used.isOn(), on);
}

void TestFrameCipher::addsFortyBytesAndAFreshNonce() {
    const FrameCipher cipher = withKey(roomKey);
    QSet<QByteArray> nonces;
    for (int i = 0; i < 100; ++i) {
        const QByteArray frame = cipher.seal(spanOf(packet60));
        QCOMPARE(frame.size(), 100);
        nonces.insert(frame.left(24));
        QCOMPARE(cipher.open(frame), packet60);
    }
    QCOMPARE(nonces.size(), 100);
}

void TestFrameCipher::sealsWhatTheLibraryOpens() {
    const QByteArray frame = withKey(roomKey).seal(spanOf(packet60));
    QByteArray opened(60, '\0');
    QCOMPARE(crypto_secretbox_open_easy(reinterpret_cast<unsigned char *>(opened.data()), bytesOf(frame) + 24, 76,
                                        bytesOf(frame), bytesOf(roomKey)),
             0);
    QCOMPARE(opened, packet60);
}

void TestFrameCipher::agreesWithThePublishedExample() {
    const FrameCipher cipher = withKey(naclKey);
    cryptoBinding().randomBytes = [](void *buffer, size_t size) {
        std::copy_n(naclNonce.constData(), size, static_cast<char *>(buffer));
    };
    QCOMPARE(cipher.seal(spanOf(naclMessage)).toHex(), (naclNonce + naclBox).toHex());
    QCOMPARE(cipher.open(naclNonce + naclBox).toHex(), naclMessage.toHex());
}

void TestFrameCipher::opensNothingThatWasTamperedWith() {
    const FrameCipher cipher = withKey(roomKey);
    const QByteArray frame = cipher.seal(spanOf(packet60));
    for (int bit = 0; bit < frame.size() * 8; ++bit) {
        QByteArray flipped = frame;
        flipped[bit / 8] = char(flipped[bit / 8] ^ (1 << bit % 8));
        QVERIFY2(cipher.open(flipped).isEmpty(), qPrintable(QString::number(bit)));
    }
    QVERIFY(cipher.open(frame.left(99)).isEmpty());
    QVERIFY(cipher.open(frame + 'x').isEmpty());
}

void TestFrameCipher::opensNothingShorterThanAPacket_data() {
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("1 byte") << QByteArray(1, 'x');
    QTest::newRow("39 bytes") << QByteArray(39, 'x');
    QTest::newRow("40 bytes") << QByteArray(40, 'x');
    QTest::newRow("an authentic empty packet") << withKey(roomKey).seal({});
}

void TestFrameCipher::opensNothingShorterThanAPacket() {
    QFETCH(QByteArray, frame);
    QVERIFY(withKey(roomKey).open(frame).isEmpty());
}

void TestFrameCipher::opensNothingOfAnotherKey() {
    FrameCipher cipher = withKey(roomKey);
    const QByteArray frame = cipher.seal(spanOf(packet60));
    cipher.setKey(QByteArray(32, 'l').toBase64());
    QVERIFY(cipher.open(frame).isEmpty());
    QVERIFY(cipher.open(packet60).isEmpty());
}

void TestFrameCipher::keepsTheOldKeyWhenSwitchedOff() {
    FrameCipher cipher = withKey(roomKey);
    const QByteArray frame = cipher.seal(spanOf(packet60));
    cipher.setKey("short");
    QVERIFY(!cipher.isOn());
    QCOMPARE(cipher.open(frame), packet60);
}

void TestFrameCipher::initialisesTheLibraryOnce() {
    LogCapture log;
    FrameCipher first = withKey(roomKey);
    first.setKey(roomKey.toBase64());
    const FrameCipher second = withKey(roomKey);
    QVERIFY(cryptoInit());
    QCOMPARE(log.take(), QStringList{QStringLiteral("info [Sodium] Linux mode - using system libsodium")});
}

void TestFrameCipher::staysInClearWhileTheLibraryFails() {
    cryptoBinding().sodiumInit = [] { return -1; };
    LogCapture log;
    const FrameCipher cipher = withKey(roomKey);
    QCOMPARE(log.take(), QStringList{QStringLiteral("warning [Sodium] Init failed!")});
    QVERIFY(cipher.isOn());
    QCOMPARE(cipher.seal(spanOf(packet60)), packet60);
    QCOMPARE(cipher.open(packet60), packet60);
}

void TestFrameCipher::triesAFailedLibraryAgainWithTheNextKey() {
    cryptoBinding().sodiumInit = [] { return -1; };
    FrameCipher cipher = withKey(roomKey);
    cryptoBinding().sodiumInit = m_system.sodiumInit;
    cipher.setKey(roomKey.toBase64());
    QCOMPARE(cipher.seal(spanOf(packet60)).size(), 100);
}

QTEST_APPLESS_MAIN(TestFrameCipher)
#include "tst_FrameCipher.moc"
