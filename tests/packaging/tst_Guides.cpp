#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

namespace {

QString source(const QString &path) {
    QFile file(QStringLiteral(KIVO_SOURCE "/") + path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

/// What the first group of the expression matches, over and over.
QStringList all(const QString &text, const QString &expression) {
    QStringList found;
    for (auto match = QRegularExpression(expression).globalMatch(text); match.hasNext();)
        found += match.next().captured(1);
    return found;
}

/// Every text of the sources that begins with a "[Tag]": the fixed part of a log line.
QStringList logTexts() {
    QStringList texts;
    for (const char *room : {"app", "audio", "base", "config", "net", "radio"}) {
        QDirIterator files(QStringLiteral(KIVO_SOURCE "/") + QLatin1String(room), {QStringLiteral("*.cpp")});
        while (files.hasNext()) {
            files.next();
            texts += all(source(QLatin1String(room) + QLatin1Char('/') + files.fileName()),
                         QStringLiteral("\"(\\[[A-Z]\\w*\\][^\"]*?) *\""));
        }
    }
    texts.removeDuplicates();
    return texts;
}

/// Log lines as the guide has them, each in a code span of its own.
QStringList linesOfGuide() {
    const QString guide = source(QStringLiteral("docs/operating.md"));
    return all(guide.mid(guide.indexOf(QStringLiteral("## 9. "))), QStringLiteral("`(\\[[A-Z]\\w*\\][^`]*)`"));
}

} // namespace

/// What the package brings to be read agrees with what it does.
class TestGuides : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyLogLineIsExplained();
    void noLogLineIsExplainedThatIsNone();
    void everyKeyOfTheConfigurationIsExplained();
    void theVersionIsTheSameEverywhere();
};

void TestGuides::everyLogLineIsExplained() {
    const QStringList explained = linesOfGuide();
    const QStringList texts = logTexts();
    QVERIFY(texts.size() > 150);
    for (const QString &text : texts) {
        const auto begins = [&](const QString &line) { return line.startsWith(text); };
        QVERIFY2(std::any_of(explained.begin(), explained.end(), begins), qPrintable(text));
    }
}

void TestGuides::noLogLineIsExplainedThatIsNone() {
    const QStringList texts = logTexts();
    for (const QString &line : linesOfGuide()) {
        const auto begins = [&](const QString &text) { return line.startsWith(text); };
        QVERIFY2(std::any_of(texts.begin(), texts.end(), begins), qPrintable(line));
    }
}

void TestGuides::everyKeyOfTheConfigurationIsExplained() {
    const QString settings = source(QStringLiteral("config/Settings.cpp"));
    const QJsonObject shipped =
        QJsonDocument::fromJson(source(QStringLiteral("packaging/config.json")).toUtf8()).object();
    const QStringList keys = all(settings, QStringLiteral("config, \"(\\w+)\"")) + shipped.keys();
    QVERIFY(keys.size() > 30);
    const QString guide = source(QStringLiteral("docs/configuration.md"));
    for (const QString &key : keys)
        QVERIFY2(guide.contains(QLatin1Char('`') + key + QLatin1Char('`')), qPrintable(key));
}

void TestGuides::theVersionIsTheSameEverywhere() {
    const QString version =
        all(source(QStringLiteral("CMakeLists.txt")), QStringLiteral("VERSION ([\\d.]+) LANG")).value(0);
    QVERIFY(!version.isEmpty());
    QVERIFY(source(QStringLiteral("debian/changelog")).startsWith(QStringLiteral("kivo-appliance (%1)").arg(version)));
    QVERIFY(source(QStringLiteral("packaging/kivo-appliance.8"))
                .contains(QStringLiteral("\"kivo-appliance %1\"").arg(version)));
    for (const char *guide : {"README.md", "docs/operating.md"})
        QCOMPARE(all(source(QLatin1String(guide)), QStringLiteral("kivo-appliance_([\\d.]+)_")), QStringList(version));
}

QTEST_APPLESS_MAIN(TestGuides)
#include "tst_Guides.moc"
