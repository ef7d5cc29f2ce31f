#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <variant>

/// A binary block of the control stream: "AUDIO <user id> <length>\r\n" and that many bytes.
struct AudioBlock {
    int userId = 0;
    QByteArray payload;
};

/// A whole unit of the control stream: a reply line or an audio block.
using ReplyUnit = std::variant<QString, AudioBlock>;

/// Cuts the server's byte stream into reply lines and binary audio blocks.
///
/// Feed it whatever arrived; it hands out whole units in order and keeps the rest. A line ends at LF and is trimmed of
/// white space at both ends; empty lines are skipped. An audio header with fewer than three fields, or with a length
/// that is negative or no 32-bit number, is discarded. Consumes in amortised linear time however the bytes are split,
/// and a block takes no more memory than the bytes that have arrived, whatever length it announces. Neither lines nor
/// the buffer have a size limit. Pure: no socket, no clock.
class ReplyFramer {
public:
    void append(const QByteArray &bytes);

    /// The next whole unit, or nothing when more bytes are needed. The unit is consumed before the call returns, so the
    /// framer may be fed, read or cleared while it is being handled.
    std::optional<ReplyUnit> next();

    /// Forgets everything, as for a new connection.
    void clear();

    /// Bytes searched or moved so far. Stays within a small multiple of the bytes fed.
    qint64 bytesWorked() const;

private:
    struct AudioHeader {
        int userId;
        int length;
    };

    static std::optional<AudioHeader> parseAudioHeader(const QByteArray &header);
    bool atAudioHeader() const;
    bool takeAudioHeader();
    std::optional<ReplyUnit> takeAudioBlock();
    std::optional<QString> takeLine();
    int findLineFeed();
    int findCrLf();
    void consumeUpTo(int position);

    QByteArray m_buffer;
    int m_start = 0;                    ///< first byte not yet consumed
    int m_searched = 0;                 ///< no line feed that counts lies between m_start and here
    std::optional<AudioHeader> m_audio; ///< header taken, payload not yet complete
    qint64 m_bytesWorked = 0;
};
