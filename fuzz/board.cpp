#include "Board.h"

#include "Fuzz.h"
#include "Pieces.h"
#include "Promise.h"
#include "Script.h"
#include "SignalCounter.h"
#include "Surroundings.h"
#include "radio/ArduinoController.h"
#include "radio/SerialLines.h"

#include <algorithm>
#include <array>

using namespace std::chrono_literals;

namespace {

/// The radio interface on a line to a board that says whatever a script tells it to:
///
///   b  the board says the bytes, x  it vanishes
///   p  the transmitter is keyed or released, u  the polarities change, by the first byte
///   o  the port is opened anew
///   t  time passes, how long tells the first byte
class Interface {
public:
    explicit Interface(std::uint8_t cutting) : m_pieces(cutting) {
        QObject::connect(&m_radio, &ArduinoController::cosChanged, [this](bool active) { m_cosActive = active; });
        open();
        promise(m_radio.isOpen(), "the port opens");
    }

    void play(const Step &step) {
        constexpr std::array spans{100ms, 200ms, 500ms, 2000ms, 5000ms};
        const std::uint8_t number = step.bytes.isEmpty() ? 0 : static_cast<std::uint8_t>(step.bytes[0]);
        switch (step.what) {
        case 'b':
            say(step.bytes);
            break;
        case 'x':
            vanish();
            break;
        case 'p':
            m_radio.setPtt((number & 1U) != 0);
            break;
        case 'u':
            m_radio.updateConfig((number & 1U) != 0, (number & 2U) != 0);
            break;
        case 'o':
            open();
            break;
        case 't':
            m_time.pass(spans[number % spans.size()]);
            break;
        default:
            break;
        }
        m_time.settle();
    }

    void finish() {
        checkOrders(m_board.heard());
        m_radio.setPtt(true);
        m_radio.closePort();
        m_time.settle();
        promise(!m_board.isKeyed(), "a port that closes releases the transmitter");
    }

private:
    void open() { m_radio.openPort(m_board.portName(), 9600, true, false); }

    void say(const QByteArray &bytes) {
        for (int said = 0; said < bytes.size() && m_radio.isOpen();) {
            const int size = m_pieces.next(bytes.size() - said);
            m_board.say(bytes.mid(said, size));
            m_time.settle();
            said += size;
        }
        promise(m_radio.isOpen() == m_board.isThere(), "nothing that a board says closes its port");
    }

    void vanish() {
        m_board.vanish();
        m_time.settle();
        promise(!m_radio.isOpen(), "the loss of the board is noticed");
        promise(!m_cosActive, "a board that is gone holds no squelch open");
    }

    static void checkOrders(const QByteArray &heard) {
        static constexpr std::array orders{"PING",
                                           "PTT:0",
                                           "PTT:1",
                                           "CONFIG:COS_HIGH:0",
                                           "CONFIG:COS_HIGH:1",
                                           "CONFIG:PTT_INVERT:0",
                                           "CONFIG:PTT_INVERT:1",
                                           ""};
        for (const QByteArray &line : heard.split('\n'))
            promise(std::find(orders.begin(), orders.end(), line) != orders.end(), "a board is told known orders only");
    }

    VirtualTime &m_time = Surroundings::instance().time();
    Pieces m_pieces;
    Board m_board;
    ArduinoController m_radio;
    SignalCounter m_signals{m_radio};
    bool m_cosActive = false;
};

QStringList linesOf(const QByteArray &bytes, Pieces pieces) {
    QStringList lines;
    SerialLines assembler;
    for (int fed = 0; fed < bytes.size();) {
        const int size = pieces.next(bytes.size() - fed);
        lines += assembler.feed(bytes.mid(fed, size));
        fed += size;
    }
    return lines;
}

/// A chunk is decoded by itself and ends at a zero byte, so only plain text is the same however it is cut.
void checkLines(QByteArray bytes, Pieces pieces) {
    std::replace_if(
        bytes.begin(), bytes.end(), [](char c) { return c <= 0; }, '?');
    const QStringList lines = linesOf(bytes, Pieces(0));
    promise(lines == linesOf(bytes, pieces), "how a line is cut does not change it");
    for (const QString &line : lines)
        promise(line.size() <= SerialLines::maxLineLength, "no line is longer than the longest");
}

} // namespace

/// What the board says over the serial line. The first byte tells how it is cut into pieces.
void fuzz(const QByteArray &input) {
    checkLines(input.mid(1), Pieces(firstByte(input)));
    Interface radio(firstByte(input) == '0' ? 0 : firstByte(input));
    for (const Step &step : scriptOf(input.mid(1), 'b'))
        radio.play(step);
    radio.finish();
}
