#include "sim/site/Radio.h"

#include <QTest>

using namespace sim;

namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t start = 5 * second;

using Keyings = std::vector<Board::Keying>;
using Samples = std::vector<std::int16_t>;

} // namespace

Q_DECLARE_METATYPE(Keyings)

class TestRadio : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void onlyWhatPassesWhileKeyedGoesOnTheAir_data();
    void onlyWhatPassesWhileKeyedGoesOnTheAir();
};

void TestRadio::onlyWhatPassesWhileKeyedGoesOnTheAir_data() {
    QTest::addColumn<Keyings>("keyings");
    QTest::addColumn<Samples>("onAir");
    QTest::newRow("never keyed") << Keyings{} << Samples{0, 0, 0, 0, 0};
    QTest::newRow("keyed long before and since") << Keyings{{second, true}} << Samples{1, 2, 3, 4, 5};
    QTest::newRow("keyed for its middle")
        << Keyings{{start + second, true}, {start + 3 * second, false}} << Samples{0, 2, 3, 0, 0};
    QTest::newRow("keyed before, let go within")
        << Keyings{{start - second, true}, {start + 2 * second, false}} << Samples{1, 2, 0, 0, 0};
    QTest::newRow("keyed twice") << Keyings{{start, true},
                                            {start + second, false},
                                            {start + 4 * second, true},
                                            {start + 9 * second, false}}
                                 << Samples{1, 0, 0, 0, 5};
    QTest::newRow("over before") << Keyings{{second, true}, {2 * second, false}} << Samples{0, 0, 0, 0, 0};
    QTest::newRow("keyed only afterwards") << Keyings{{start + 8 * second, true}} << Samples{0, 0, 0, 0, 0};
    QTest::newRow("told twice") << Keyings{{start + second, true}, {start + 2 * second, true}}
                                << Samples{0, 2, 3, 4, 5};
}

void TestRadio::onlyWhatPassesWhileKeyedGoesOnTheAir() {
    QFETCH(Keyings, keyings);
    QFETCH(Samples, onAir);
    QCOMPARE(whileKeyed({1, {1, 2, 3, 4, 5}}, start, keyings).samples, onAir);
}

QTEST_APPLESS_MAIN(TestRadio)
#include "tst_Radio.moc"
