#include "outputcapture.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QFileInfo>

// Run once under a locale that has a catalogue (ru) and once under one that has none (en): the
// library's start-up routine must have installed the right catalogue when the application
// object was created.
class TranslationTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void runnerMessage();
    void engineMessage();
    void kioskMessage();

private:
    bool m_russian = false;
};

void TranslationTest::initTestCase()
{
    const QByteArray expected = qgetenv("ZQL_EXPECTED_LANGUAGE");
    QVERIFY2(expected == "ru" || expected == "en", "ZQL_EXPECTED_LANGUAGE must be ru or en");
    m_russian = expected == "ru";
    QVERIFY2(QFileInfo::exists(QStringLiteral("/usr/share/vela/translations/libzql-modules_ru.qm")),
             "the catalogue is not in the catalogue directory of the sandbox");
}

void TranslationTest::runnerMessage()
{
    QString errors;
    QVERIFY(!runProcess(QStringLiteral("/nonexistent/tool"), {QStringLiteral("a")}, errors));
    const QString expected =
        m_russian ? QString::fromUtf8("Процесс: \"/nonexistent/tool a\". Ошибка: execvp: No such "
                                      "file or directory.\n\"Не запущен\"")
                  : QStringLiteral("Process: \"/nonexistent/tool a\". Error: execvp: No such "
                                   "file or directory.\n\"Not started\"");
    QCOMPARE(errors, expected);
}

void TranslationTest::engineMessage()
{
    struct Handler : RegExpHandler
    {
        Handler()
            : RegExpHandler(QStringLiteral("x"))
        {}
        bool handleLine(QByteArray *) override { return false; }
    } handler;
    QString errors;
    QVERIFY(!readFileWithHandler(QStringLiteral("/nonexistent/file"), handler, errors));
    QCOMPARE(errors, m_russian ? QString::fromUtf8("\"/nonexistent/file\" не существует")
                               : QStringLiteral("\"/nonexistent/file\" not exists"));
}

void TranslationTest::kioskMessage()
{
    const QString autostart = QStringLiteral("/etc/xdg/autostart");
    QVERIFY(QDir().mkpath(autostart));
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(autostart, &error), qPrintable(error));
    ZqlTest::OutputCapture capture;
    KioskGlobalModule module;
    const bool failed =
        module.setSettings({{QStringLiteral("autostartApps"),
                             QVariantList{QVariantMap{{QStringLiteral("desktopFileName"),
                                                       QStringLiteral("x.desktop")}}}}});
    capture.finish();
    QVERIFY(ZqlTest::unmount(autostart, &error));
    QVERIFY(failed);
    QCOMPARE(QString::fromUtf8(capture.standardError()),
             m_russian ? QString::fromUtf8(
                             "kiosk-global : Не удалось записать файлы в \"/etc/xdg/autostart\"\n")
                       : QStringLiteral(
                             "kiosk-global : Unable to write files to \"/etc/xdg/autostart\"\n"));
}

ZQL_SANDBOXED_TEST_MAIN(TranslationTest)
#include "translationtest.moc"
