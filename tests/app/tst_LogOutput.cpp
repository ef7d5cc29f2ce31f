#include "Literals.h"
#include "app/LogOutput.h"

#include <QTextCodec>
#include <QtTest>

#include <cerrno>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

/// Stands in for standard error while it lives; keeps each write apart from the next.
class StandardError {
public:
    StandardError() : m_original(::dup(STDERR_FILENO)) {
        int ends[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends) != 0)
            qFatal("no socket pair");
        m_far = ends[1];
        ::dup2(ends[0], STDERR_FILENO);
        ::close(ends[0]);
    }
    ~StandardError() {
        ::dup2(m_original, STDERR_FILENO);
        ::close(m_original);
        ::close(m_far);
    }
    StandardError(const StandardError &) = delete;
    StandardError &operator=(const StandardError &) = delete;

    QList<QByteArray> writes() const {
        QList<QByteArray> all;
        QByteArray bytes(1 << 16, Qt::Uninitialized);
        for (ssize_t count = 0; (count = ::recv(m_far, bytes.data(), size_t(bytes.size()), 0)) >= 0;)
            all.append(bytes.left(static_cast<int>(count)));
        return all;
    }

    /// "device:inode", as a service manager names the stream that leads to the journal.
    static QByteArray name() {
        struct stat status = {};
        if (::fstat(STDERR_FILENO, &status) != 0)
            qFatal("no status of standard error");
        return QByteArray::number(qulonglong(status.st_dev)) + ':' + QByteArray::number(qulonglong(status.st_ino));
    }

private:
    int m_original;
    int m_far = -1;
};

/// The environment of a service whose errors go to the journal through the named stream, while it lives.
class JournalStream {
public:
    explicit JournalStream(const QByteArray &name) : m_before(qgetenv(variable)) { qputenv(variable, name); }
    ~JournalStream() {
        if (m_before.isNull())
            qunsetenv(variable);
        else
            qputenv(variable, m_before);
    }
    JournalStream(const JournalStream &) = delete;
    JournalStream &operator=(const JournalStream &) = delete;

private:
    static constexpr const char *variable = "JOURNAL_STREAM";
    const QByteArray m_before;
};

class TestLogOutput : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void eachLineIsOneWrite() {
        QCOMPARE(written([] {
                     qDebug() << "[UDP] Siap";
                     qInfo() << "[Room]"
                             << "AA1"_s
                             << "join";
                     qWarning() << "[COS] ACTIVE";
                 }),
                 (QList<QByteArray>{"[UDP] Siap\n", "[Room] \"AA1\" join\n", "[COS] ACTIVE\n"}));
    }

    void itIsUtf8WhateverTheLocale() {
        QTextCodec *const before = QTextCodec::codecForLocale();
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
        const auto lines = written([] {
            qInfo() << "TX —"
                    << "Röom →"_s;
        });
        QTextCodec::setCodecForLocale(before);
        QCOMPARE(lines, QList<QByteArray>{"TX \xe2\x80\x94 \"R\xc3\xb6om \xe2\x86\x92\"\n"});
    }

    void aLineEndsSomewhere() {
        const auto lines = written([] {
            qDebug().noquote() << QString(4096, u'x');
            qDebug().noquote() << QString(10 << 20, u'x');
        });
        const QByteArray line = QByteArray(4096, 'x') + '\n';
        QCOMPARE(lines, (QList<QByteArray>{line, line}));
    }

    void theMessagePatternIsKept() {
        qSetMessagePattern("<%{type}> %{message}"_s);
        const auto lines = written([] { qWarning() << "text"; });
        qSetMessagePattern("%{message}"_s);
        QCOMPARE(lines, QList<QByteArray>{"<warning> text\n"});
    }

    void theJournalIsToldTheLevelOfEachLine() {
        const StandardError standardError;
        JournalStream journal(standardError.name());
        QCOMPARE(writtenTo(standardError,
                           [] {
                               qDebug() << "d";
                               qInfo() << "i";
                               qWarning() << "w";
                               qCritical() << "c";
                           }),
                 (QList<QByteArray>{"<7>d\n", "<6>i\n", "<4>w\n", "<3>c\n"}));
    }

    void aServicesErrorsLedElsewhereAreNotTakenForTheJournal() {
        const StandardError standardError;
        JournalStream journal("8:" + standardError.name());
        QCOMPARE(writtenTo(standardError, [] { qInfo() << "i"; }), QList<QByteArray>{"i\n"});
    }

    void aLineBreakInAValueStaysInItsLine() {
        QCOMPARE(written([] { qInfo() << "a\nb"_s; }), QList<QByteArray>{"\"a\\nb\"\n"});
    }

private:
    static QList<QByteArray> written(void (*log)()) { return writtenTo(StandardError(), log); }

    static QList<QByteArray> writtenTo(const StandardError &standardError, void (*log)()) {
        const QtMessageHandler before = qInstallMessageHandler(nullptr);
        installLogOutput();
        log();
        qInstallMessageHandler(before);
        return standardError.writes();
    }
};

QTEST_APPLESS_MAIN(TestLogOutput)
#include "tst_LogOutput.moc"
