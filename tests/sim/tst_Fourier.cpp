#include "sim/sound/Fourier.h"

#include <QTest>

#include <array>
#include <cmath>

using namespace sim;

namespace {

using Complex = std::complex<double>;

bool isNear(Complex actual, Complex expected) {
    return std::abs(actual - expected) < 1e-9;
}

} // namespace

class TestFourier : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fourValuesByHand();
    void aCosineIsTwoLines();
    void correlationByHand();
    void shiftsBeyondBothSignalsCorrelateToNothing();
};

void TestFourier::fourValuesByHand() {
    std::vector<Complex> values{1.0, 2.0, 3.0, 4.0};
    transform(values);
    const std::array<Complex, 4> expected{Complex(10, 0), Complex(-2, 2), Complex(-2, 0), Complex(-2, -2)};
    for (std::size_t i = 0; i < expected.size(); ++i)
        QVERIFY(isNear(values[i], expected[i]));
}

void TestFourier::aCosineIsTwoLines() {
    std::vector<Complex> values;
    for (int i = 0; i < 64; ++i)
        values.emplace_back(std::cos(2 * std::acos(-1.0) * 5 * i / 64));
    transform(values);
    for (std::size_t i = 0; i < values.size(); ++i)
        QVERIFY(isNear(values[i], i == 5 || i == 59 ? 32.0 : 0.0));
}

void TestFourier::correlationByHand() {
    const std::vector<double> a{1, 2, 3};
    const std::vector<double> b{4, 5};
    // Shift -2: 3*4; -1: 2*4 + 3*5; 0: 1*4 + 2*5; 1: 1*5; 2: nothing meets.
    const std::array<double, 5> expected{12, 23, 14, 5, 0};
    const std::vector<double> found = crossCorrelation(a, b, 2);
    QCOMPARE(found.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        QVERIFY(isNear(found[i], expected[i]));
}

void TestFourier::shiftsBeyondBothSignalsCorrelateToNothing() {
    const std::vector<double> signal{1, 1};
    const std::vector<double> found = crossCorrelation(signal, signal, 9);
    QCOMPARE(found.size(), std::size_t(19));
    for (std::size_t i = 0; i < found.size(); ++i) {
        const double expected = i == 9 ? 2.0 : (i == 8 || i == 10) ? 1.0 : 0.0;
        QVERIFY(isNear(found[i], expected));
    }
}

QTEST_APPLESS_MAIN(TestFourier)
#include "tst_Fourier.moc"
