#pragma once

#include "net/TcpClient.h"

class ReplyFields;

/// What the server may say and what the client does then.
///
/// A row of the table is a reply: its log line comes first, with a field of the reply behind it where one is named,
/// then the handler with its state and signals, then the command that asks for what the reply has changed.
class TcpClient::Replies {
public:
    /// Handles one reply line other than the heartbeat's answer and the server's greeting.
    static void handle(TcpClient &client, const QString &line);

private:
    struct Row {
        const char *keyword = nullptr;
        void (*handler)(TcpClient &client, const ReplyFields &reply) = nullptr;
        const char *note = nullptr;
        int notedField = 0; ///< 0 for none
        QStringView followUp = {};
    };
    static const Row table[];

    static const Row *find(const QString &keyword);

    static void loginOk(TcpClient &client, const ReplyFields &reply);
    static void loginFailed(TcpClient &client, const ReplyFields &reply);
    static void registerOk(TcpClient &client, const ReplyFields &reply);
    static void registerFailed(TcpClient &client, const ReplyFields &reply);
    static void rooms(TcpClient &client, const ReplyFields &reply);
    static void joinOk(TcpClient &client, const ReplyFields &reply);
    static void joinFailed(TcpClient &client, const ReplyFields &reply);
    static void leaveOk(TcpClient &client, const ReplyFields &reply);
    static void moved(TcpClient &client, const ReplyFields &reply);
    static void userList(TcpClient &client, const ReplyFields &reply);
    static void online(TcpClient &client, const ReplyFields &reply);
    static void transmitOk(TcpClient &client, const ReplyFields &reply);
    static void transmitFailed(TcpClient &client, const ReplyFields &reply);
    static void transmitStopped(TcpClient &client, const ReplyFields &reply);
    static void passwordChanged(TcpClient &client, const ReplyFields &reply);
    static void passwordRefused(TcpClient &client, const ReplyFields &reply);
    static void notification(TcpClient &client, const ReplyFields &reply);
    static void muted(TcpClient &client, const ReplyFields &reply);
    static void userMuted(TcpClient &client, const ReplyFields &reply);
    static void hwidReset(TcpClient &client, const ReplyFields &reply);
    static void quality(TcpClient &client, const ReplyFields &reply);
    static void error(TcpClient &client, const ReplyFields &reply);
    static void kicked(TcpClient &client, const ReplyFields &reply);
    static void banned(TcpClient &client, const ReplyFields &reply);

    static void enterRoom(TcpClient &client, const QString &room, const QString &roomKey);

    /// Hands the reply's JSON object, or the objects of its JSON array, on as the signal.
    template <auto signal>
    static void emitObject(TcpClient &client, const ReplyFields &reply);
    template <auto signal>
    static void emitObjects(TcpClient &client, const ReplyFields &reply);
};
