#include "sim/wire/SealedFrame.h"

#include <QTest>

using namespace sim;

class TestSealedFrame : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void opensThePublishedVector();
    void opensWhatItSealed();
    void sealsDifferentlyEveryTime();
    void opensNothingThatWasTouched();
    void opensNothingTooShort();
    void passesEverythingWithoutAKey();
};

/// The secretbox example of the NaCl paper ("Cryptography in NaCl", section 10).
void TestSealedFrame::opensThePublishedVector() {
    const QByteArray key = QByteArray::fromHex("1b27556473e985d462cd51197a9a46c76009549eac6474f206c4ee0844f68389");
    const QByteArray nonce = QByteArray::fromHex("69696ee955b62b73cd62bda875fc73d68219e0036b7a0b37");
    const QByteArray message = QByteArray::fromHex(
        "be075fc53c81f2d5cf141316ebeb0c7b5228c52a4c62cbd44b66849b64244ffce5ecbaaf33bd751a1ac728d45e6c61296cdc3c0123"
        "3561f41db66cce314adb310e3be8250c46f06dceea3a7fa1348057e2f6556ad6b1318a024a838f21af1fde048977eb48f59ffd4924"
        "ca1c60902e52f0a089bc76897040e082f937763848645e0705");
    const QByteArray box = QByteArray::fromHex(
        "f3ffc7703f9400e52a7dfb4b3d3305d98e993b9f48681273c29650ba32fc76ce48332ea7164d96a4476fb8c531a1186ac0dfc17c98"
        "dce87b4da7f011ec48c97271d2c20f9b928fe2270d6fb863d51738b48eeee314a7cc8ab932164548e526ae90224368517acfeabd6b"
        "b3732bc0e9da99832b61ca01b6de56244a9e88d5f9b37973f622a43d14a6599b1f654cb45a74e355a5");
    const std::optional<QByteArray> packet = opened(nonce + box, key);
    QVERIFY(packet);
    QCOMPARE(*packet, message);
}

void TestSealedFrame::opensWhatItSealed() {
    const QByteArray key(32, 'k');
    const QByteArray packet(60, 'p');
    const QByteArray frame = sealed(packet, key);
    QCOMPARE(frame.size(), 100);
    QCOMPARE(opened(frame, key).value_or(QByteArray()), packet);
    QVERIFY(!opened(frame, QByteArray(32, 'l')));
}

void TestSealedFrame::sealsDifferentlyEveryTime() {
    const QByteArray key(32, 'k');
    QVERIFY(sealed("packet", key).left(24) != sealed("packet", key).left(24));
}

void TestSealedFrame::opensNothingThatWasTouched() {
    const QByteArray key(32, 'k');
    const QByteArray frame = sealed("packet", key);
    for (int at = 0; at < frame.size(); ++at) {
        QByteArray touched = frame;
        touched[at] = char(touched.at(at) ^ 1);
        QVERIFY(!opened(touched, key));
    }
}

void TestSealedFrame::opensNothingTooShort() {
    const QByteArray key(32, 'k');
    const QByteArray frame = sealed("p", key);
    for (int length = 0; length < frame.size(); ++length)
        QVERIFY(!opened(frame.left(length), key));
}

void TestSealedFrame::passesEverythingWithoutAKey() {
    QCOMPARE(sealed("packet", {}), QByteArray("packet"));
    QCOMPARE(opened("packet", {}).value_or(QByteArray()), QByteArray("packet"));
}

QTEST_APPLESS_MAIN(TestSealedFrame)
#include "tst_SealedFrame.moc"
