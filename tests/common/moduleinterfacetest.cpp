#include "diagnosticstreams_p.h"
#include "outputcapture.h"

#include <zql-modules/modules.h>

#include <QtTest>

#include <type_traits>

namespace {
const QString KeyDeny = QStringLiteral("deny");
const QString KeyUnlockTime = QStringLiteral("unlock_time");
const QSet<QString> KnownKeys{KeyDeny, KeyUnlockTime};

// A module that keeps its known keys like the library's modules do, and whose read fails when
// told to, writing its diagnostic the library's way.
class SampleModule : public ModuleInterface
{
public:
    bool failRead = false;

    SettingsReply getSettings() override
    {
        if (failRead) {
            writeDiagnostic(errorStream, formatOutput(QStringLiteral("\"/etc/x\" not exists")));
            return {StatusFailure, {}};
        }
        return {StatusSuccess, {{KeyDeny, 3}}};
    }
    bool setSettings(QHash<QString, QVariant> settings) override
    {
        Q_UNUSED(settings)
        return false;
    }
    QString getName() override { return QStringLiteral("sample"); }
    bool isAvailable() override { return true; }
    QStringList isParametersCorrect(QSet<QString> parameters) override
    {
        return unknownKeys(parameters, KnownKeys);
    }
};

class RenamedModule : public SampleModule
{
public:
    QString getName() override { return QStringLiteral("renamed"); }
};
} // namespace

class ModuleInterfaceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void settingsReplyShape();
    void formatOutput_data();
    void formatOutput();
    void formatOutputUsesTheSubclassName();
    void isParametersCorrect_data();
    void isParametersCorrect();
    void isParametersCorrectSharedKnownSet();
    void checkRestrictionsBaseAcceptsAll();
    void failedReadReportsStatusAndDiagnostic();
    void diagnosticsReachBothStreamsInOrder();
};

void ModuleInterfaceTest::settingsReplyShape()
{
    static_assert(std::is_same<decltype(SettingsReply::first), qint32>::value,
                  "the status is a 32-bit integer");
    static_assert(std::is_same<decltype(SettingsReply::second), QHash<QString, QVariant>>::value,
                  "the settings are a hash of variants");
    static_assert(std::has_virtual_destructor<ModuleInterface>::value, "virtual destructor");
    static_assert(std::is_abstract<ModuleInterface>::value, "abstract");
    static_assert(std::is_empty<ModuleInterface>::value == false &&
                      sizeof(ModuleInterface) == sizeof(void *),
                  "no data members besides the virtual table");
    QCOMPARE(ModuleInterface::StatusSuccess, 0);
    QCOMPARE(ModuleInterface::StatusFailure, 1);
}

void ModuleInterfaceTest::formatOutput_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain") << QStringLiteral("text") << QStringLiteral("sample : text\n");
    QTest::newRow("empty") << QString() << QStringLiteral("sample : \n");
    QTest::newRow("block of several lines gets the key once")
        << QStringLiteral("first\nsecond") << QStringLiteral("sample : first\nsecond\n");
    QTest::newRow("placeholders in the message stay literal")
        << QStringLiteral("%1 and %2") << QStringLiteral("sample : %1 and %2\n");
}

void ModuleInterfaceTest::formatOutput()
{
    QFETCH(QString, message);
    QFETCH(QString, expected);
    SampleModule module;
    QCOMPARE(module.formatOutput(message), expected);
}

void ModuleInterfaceTest::formatOutputUsesTheSubclassName()
{
    RenamedModule module;
    ModuleInterface &base = module;
    QCOMPARE(base.formatOutput(QStringLiteral("m")), QStringLiteral("renamed : m\n"));
}

void ModuleInterfaceTest::isParametersCorrect_data()
{
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("unknown");
    QTest::newRow("empty set") << QStringList() << QStringList();
    QTest::newRow("exactly the known keys") << QStringList{KeyDeny, KeyUnlockTime} << QStringList();
    QTest::newRow("absent known keys are not reported") << QStringList{KeyDeny} << QStringList();
    QTest::newRow("one unknown key")
        << QStringList{KeyDeny, QStringLiteral("bogus")} << QStringList{QStringLiteral("bogus")};
    QTest::newRow("names are case-sensitive")
        << QStringList{QStringLiteral("Deny")} << QStringList{QStringLiteral("Deny")};
}

void ModuleInterfaceTest::isParametersCorrect()
{
    QFETCH(QStringList, given);
    QFETCH(QStringList, unknown);
    SampleModule module;
    QStringList result = module.isParametersCorrect(QSet<QString>(given.begin(), given.end()));
    result.sort();
    QCOMPARE(result, unknown);
}

void ModuleInterfaceTest::isParametersCorrectSharedKnownSet()
{
    SampleModule module;
    QCOMPARE(module.isParametersCorrect(KnownKeys), QStringList());
    const QSet<QString> many{QStringLiteral("a"), QStringLiteral("b"), KeyDeny};
    QStringList result = module.isParametersCorrect(many);
    result.sort();
    QCOMPARE(result, (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
}

void ModuleInterfaceTest::checkRestrictionsBaseAcceptsAll()
{
    SampleModule module;
    QVERIFY(module.checkRestrictions({}));
    QVERIFY(module.checkRestrictions(
        {{KeyDeny, QStringLiteral("anything")}, {QStringLiteral("x"), 1}}));
}

void ModuleInterfaceTest::failedReadReportsStatusAndDiagnostic()
{
    SampleModule module;
    module.failRead = true;
    ZqlTest::OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(capture.standardError(), QByteArray("sample : \"/etc/x\" not exists\n"));
    QCOMPARE(capture.standardOutput(), QByteArray());

    module.failRead = false;
    const SettingsReply good = module.getSettings();
    QCOMPARE(good.first, 0);
    QCOMPARE(good.second.value(KeyDeny), QVariant(3));
}

void ModuleInterfaceTest::diagnosticsReachBothStreamsInOrder()
{
    // Each diagnostic is flushed as it is written, so a reader of both streams sees them in
    // the order the module wrote them.
    SampleModule module;
    ZqlTest::OutputCapture capture(ZqlTest::OutputCapture::MergedChannels);
    writeDiagnostic(errorStream, module.formatOutput(QStringLiteral("first error")));
    writeDiagnostic(outputStream, module.formatOutput(QStringLiteral("a note")));
    writeDiagnostic(errorStream, module.formatOutput(QStringLiteral("second error")));
    capture.finish();
    QCOMPARE(capture.standardOutput(),
             QByteArray("sample : first error\nsample : a note\nsample : second error\n"));
}

QTEST_GUILESS_MAIN(ModuleInterfaceTest)
#include "moduleinterfacetest.moc"
