#include "Literals.h"

#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

/// The real program, in namespaces of its own: an empty /opt, no network.
class TestStartUp : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        QProcess probe;
        probe.start("unshare"_s, {"--map-root-user"_s, "--mount"_s, "--net"_s, "true"_s});
        if (!probe.waitForFinished() || probe.exitCode() != 0)
            QSKIP("this machine allows no namespaces");
    }

    void withoutAnyConfigurationItSaysWhoItIsAndRuns() {
        QProcess program;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("LC_ALL"_s, "C"_s);
        environment.insert("QT_MESSAGE_PATTERN"_s, "%{type} %{message}"_s);
        program.setProcessEnvironment(environment);
        program.start("unshare"_s, {"--map-root-user"_s, "--mount"_s, "--net"_s, "sh"_s, "-c"_s,
                                    "mount -t tmpfs none /opt && exec " KIVO_APPLIANCE ""_s});
        QByteArray output;
        const bool runs = QTest::qWaitFor(
            [&] {
                program.waitForReadyRead(10);
                output += program.readAllStandardError();
                return output.contains("debug [TCP] Connecting to \"voice.kivo.example\" : 8080\n");
            },
            10'000);
        program.terminate();
        QVERIFY(program.waitForFinished());
        QVERIFY2(runs, output.constData());

        QVERIFY2(output.startsWith("info ============================================\n"
                                   "info   Kivo Darvi Linux Appliance v \"4.1.7\"\n"
                                   "info   Mode: Headless (Arduino COS/PTT)\n"
                                   "info ============================================\n"
                                   "debug [Config] No config file, using defaults\n"),
                 output.constData());
        const QByteArray inOrder[] = {"debug [Audio] Engine created (Linux headless)\n",
                                      "warning [Appliance] Config device \"hw:1,0\" not available, auto-detecting...\n",
                                      "debug [Appliance] Auto-detected audio device: \"hw:1,0\"\n",
                                      "debug [Appliance] Audio device: \"hw:1,0\"\n",
                                      "warning [Arduino] Failed to open port: \"/dev/ttyUSB0\" — ",
                                      "info [Appliance] Kivo Darvi Appliance berjalan\n",
                                      "debug [Server] Menghubungi server...\n"};
        int position = 0;
        for (const QByteArray &line : inOrder) {
            position = output.indexOf(line, position);
            QVERIFY2(position >= 0, (line + " is missing in\n" + output).constData());
        }
    }
};

QTEST_GUILESS_MAIN(TestStartUp)
#include "tst_StartUp.moc"
