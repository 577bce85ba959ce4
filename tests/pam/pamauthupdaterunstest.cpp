#include "pamfixture.h"
#include "pamsnapshot.h"
#include "pamtestsupport.h"
#include "searchpathfront.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QStandardPaths>

namespace {
const QString Tool = QStringLiteral("pam-auth-update");
const QString HistoryProfile = QStringLiteral("/usr/share/pam-configs/pwhistory");

// The operations of the PAM modules that run pam-auth-update.
enum Operation {
    LockoutRemove, // AccountLockoutModule::pamAuthUpdate(false)
    LockoutEnable, // AccountLockoutModule::pamAuthUpdate(true)
    Complexity,    // PasswordPolicyModule::setComplexity, after rewriting the profiles
    HistoryEnable, // PasswordPolicyModule::setHistory with options, no profile yet
    HistoryRemove, // PasswordPolicyModule::setHistory with nothing, over an existing profile
};

// Runs @p operation; @return whether it reported success.
bool run(Operation operation)
{
    switch (operation) {
    case LockoutRemove:
    case LockoutEnable:
        return AccountLockoutModule().pamAuthUpdate(operation == LockoutEnable).isEmpty();
    case Complexity:
        return PasswordPolicyModule().setComplexity({}) == 0;
    case HistoryEnable:
        return PasswordPolicyModule().setHistory(
                   {{QStringLiteral("remember"), ZqlTest::pair(true, 3)}}) == 0;
    case HistoryRemove:
        return ZqlTest::writeBytes(HistoryProfile, "Name: old\n") &&
               PasswordPolicyModule().setHistory({}) == 0;
    }
    return false;
}
} // namespace

Q_DECLARE_METATYPE(Operation)

// How the PAM modules run pam-auth-update: which one they find (through the search path or by
// its full path) and how long they wait for it unless told otherwise.
class PamAuthUpdateRunsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void defaultLimits();
    void whichTool_data();
    void whichTool();

private:
    ZqlTest::PamSnapshot m_snapshot;
};

void PamAuthUpdateRunsTest::initTestCase()
{
    QString error;
    QVERIFY2(m_snapshot.take(&error), qPrintable(error));
}

void PamAuthUpdateRunsTest::init()
{
    // The one at /usr/sbin/pam-auth-update logs its arguments and exits 0, changing nothing.
    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdateExit(0, "", &error), qPrintable(error));
}

void PamAuthUpdateRunsTest::cleanup()
{
    QString error;
    QVERIFY2(ZqlTest::restorePamAuthUpdate(&error), qPrintable(error));
    QVERIFY2(m_snapshot.restore(&error), qPrintable(error));
}

void PamAuthUpdateRunsTest::defaultLimits()
{
    const PamToolLimits limits;
    QCOMPARE(limits.startTimeoutMs, 30000);
    QCOMPARE(limits.finishTimeoutMs, 30000);
    QCOMPARE(limits.historySwitchTimeoutMs, -1);
}

void PamAuthUpdateRunsTest::whichTool_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QStringList>("fromSearchPath");
    QTest::addColumn<QStringList>("fromFullPath");

    QTest::newRow("account lockout removal: search path")
        << LockoutRemove
        << QStringList{QStringLiteral("path pam-auth-update --package --remove tally --force")}
        << QStringList();
    QTest::newRow("account lockout enabling: search path")
        << LockoutEnable
        << QStringList{QStringLiteral("path pam-auth-update --package --enable tally --force")}
        << QStringList();
    QTest::newRow("complexity update: search path")
        << Complexity << QStringList{QStringLiteral("path pam-auth-update --package")}
        << QStringList();
    QTest::newRow("history enabling: /usr/sbin/pam-auth-update")
        << HistoryEnable << QStringList()
        << QStringList{QStringLiteral("--package --enable pwhistory --force")};
    QTest::newRow("history removal: /usr/sbin/pam-auth-update")
        << HistoryRemove << QStringList()
        << QStringList{QStringLiteral("--package --remove pwhistory --force")};
}

void PamAuthUpdateRunsTest::whichTool()
{
    QFETCH(Operation, operation);
    QFETCH(QStringList, fromSearchPath);
    QFETCH(QStringList, fromFullPath);

    // A different pam-auth-update in front of the search path, which only logs its run.
    ZqlTest::SearchPathFront front;
    QString error;
    QVERIFY2(front.isValid(&error), qPrintable(error));
    QVERIFY(front.addTool(Tool));
    QCOMPARE(QStandardPaths::findExecutable(Tool), front.directory() + QLatin1Char('/') + Tool);

    bool succeeded = false;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { succeeded = run(operation); });
    QVERIFY2(succeeded, streams.error.constData());
    QCOMPARE(front.runs(), fromSearchPath);
    QCOMPARE(ZqlTest::pamAuthUpdateCalls(), fromFullPath);
}

ZQL_SANDBOXED_TEST_MAIN(PamAuthUpdateRunsTest)
#include "pamauthupdaterunstest.moc"
