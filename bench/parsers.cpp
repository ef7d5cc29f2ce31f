// The server's long lists: one long list against ten that are a tenth as long, which costs the same where parsing is
// linear.

#include "Figures.h"
#include "net/ReplyFields.h"
#include "net/ReplyFramer.h"
#include "net/ReplyValues.h"

#include <QByteArray>

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>

namespace {

constexpr int parts = 10;

QByteArray number(int i) {
    return QByteArray::number(i);
}

QByteArray column(int members, QByteArray (*item)(int)) {
    QByteArray text;
    for (int i = 0; i < members; ++i)
        text += (i > 0 ? "," : "") + item(i);
    return text;
}

QByteArray roomList(int members) {
    const auto callsign = [](int i) -> QByteArray { return "YB" + number(i % 10) + "ABC" + number(i); };
    const auto name = [](int i) -> QByteArray { return "Operator Number " + number(i); };
    const auto state = [](int i) -> QByteArray { return i == 3 ? "TX" : "RX"; };
    const auto one = [](int) -> QByteArray { return "1"; };
    const auto zero = [](int) -> QByteArray { return "0"; };
    return "USER_LIST|Lobby|" + column(members, number) + '|' + column(members, callsign) + '|' +
           column(members, name) + '|' + column(members, state) + '|' + column(members, one) + '|' +
           column(members, zero) + "\n";
}

QByteArray onlineList(int users) {
    QByteArray text = "ONLINE_USERS|";
    for (int i = 0; i < users; ++i)
        text += number(i) + ",YB" + number(i) + "XYZ,Operator Number " + number(i) + ",Lobby,False;";
    return text + '\n';
}

QByteArray directory(int records) {
    QByteArray text = "ADMIN_ALL_USERS|[";
    for (int i = 0; i < records; ++i) {
        text += (i > 0 ? "," : "") + QByteArray("{\"user_id\":") + number(i) + ",\"callsign\":\"YB" + number(i) +
                "XYZ\",\"name\":\"Operator Number " + number(i) +
                "\",\"city\":\"Bandung\",\"approved\":true,\"is_muted\":0,\"is_admin\":false}";
    }
    return text + "]\n";
}

qsizetype roomRecords(const ReplyFields &reply) {
    return roomUsers(reply).size();
}

qsizetype onlineRecords(const ReplyFields &reply) {
    const auto users = onlineUsers(reply);
    return users ? users->size() : 0;
}

qsizetype directoryRecords(const ReplyFields &reply) {
    const auto users = jsonObjects(reply);
    return users ? users->size() : 0;
}

struct List {
    QByteArray (*write)(int records);
    qsizetype (*read)(const ReplyFields &reply);
    int records;
};

constexpr List room{roomList, roomRecords, 200};
constexpr List online{onlineList, onlineRecords, 2000};
constexpr List allUsers{directory, directoryRecords, 10000};

// As it comes from the network, in pieces.
qsizetype recordsIn(const QByteArray &line, qsizetype (*read)(const ReplyFields &)) {
    constexpr int pieceBytes = 1400;
    ReplyFramer framer;
    qsizetype records = 0;
    for (int at = 0; at < line.size(); at += pieceBytes) {
        framer.append(line.mid(at, pieceBytes));
        while (const auto unit = framer.next())
            records += read(ReplyFields(std::get<QString>(*unit)));
    }
    return records;
}

void parse(benchmark::State &state, const List &list, int lists) {
    const QByteArray line = list.write(list.records / lists);
    while (state.KeepRunning()) {
        qsizetype records = 0;
        for (int i = 0; i < lists; ++i)
            records += recordsIn(line, list.read);
        if (records != list.records)
            state.SkipWithError("not all records were read");
    }
}

void roomWhole(benchmark::State &state) {
    parse(state, room, 1);
}
BENCHMARK(roomWhole);

void roomParts(benchmark::State &state) {
    parse(state, room, parts);
}
BENCHMARK(roomParts);

void onlineWhole(benchmark::State &state) {
    parse(state, online, 1);
}
BENCHMARK(onlineWhole);

void onlineParts(benchmark::State &state) {
    parse(state, online, parts);
}
BENCHMARK(onlineParts);

void directoryWhole(benchmark::State &state) {
    parse(state, allUsers, 1);
}
BENCHMARK(directoryWhole);

void directoryParts(benchmark::State &state) {
    parse(state, allUsers, parts);
}
BENCHMARK(directoryParts);

constexpr double linear = 1.3;

constexpr std::array figures{
    Figure{"room user list of 200; ten of 20", "roomWhole", "roomParts", linear},
    Figure{"online list of 2,000; ten of 200", "onlineWhole", "onlineParts", linear},
    Figure{"directory of 10,000; ten of 1,000", "directoryWhole", "directoryParts", linear},
    Figure{"directory of 10,000, milliseconds", "directoryWhole", nullptr, 20.0},
};

} // namespace

int main(int argc, char **argv) {
    return runFigures(argc, argv, figures);
}
