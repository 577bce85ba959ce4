#include "pamfixture.h"
#include "pamsnapshot.h"
#include "pamtestsupport.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

namespace {
using Outcome = ZqlTest::PasswordChange::Outcome;
using Settings = QHash<QString, QVariant>;

const QString CommonPassword = QStringLiteral("/etc/pam.d/common-password");
// Passwords that pass pwquality's dictionary check and pam_unix's "obscure" checks, and do not
// resemble each other.
const QString FirstPassword = QStringLiteral("Kx7#mPq2vLw9"); // 12 characters
const QString TenCharacters = QStringLiteral("Tz4$nb8RwQ");
const QString SixteenCharacters = QStringLiteral("Hq3@vZp8Lm2#Wr5j");
const QString OtherSixteen = QStringLiteral("Bn6%rTq9Xs4!Yd7c");
} // namespace

// The policy the password-policy module writes is the policy PAM enforces: a change through
// Debian's real password stack (pam_pwquality, pam_pwhistory, pam_unix) made as a user running
// passwd is refused where the policy forbids it and accepted where it allows it.
class PasswordEnforcementTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void minimumLengthIsEnforced();
    void locallyEditedMinimumLengthIsRepaired();
    void historyRefusesReuse();
    void removedHistoryAllowsReuse();
    void roundTripKeepsTheStackWorking();

private:
    QString createUser();
    ZqlTest::PasswordChange change(const QString &user, const QString &from, const QString &to);
    Settings policy(const Settings &complexity, const Settings &history);

    ZqlTest::PamSnapshot m_snapshot;
    int m_users = 0;
};

void PasswordEnforcementTest::initTestCase()
{
    QString error;
    QVERIFY2(m_snapshot.take(&error), qPrintable(error));
}

void PasswordEnforcementTest::init()
{
    QString error;
    QVERIFY2(m_snapshot.restore(&error), qPrintable(error));
}

QString PasswordEnforcementTest::createUser()
{
    QString name = QStringLiteral("zqlpolicy%1").arg(++m_users);
    QString error;
    if (!ZqlTest::createUser(name, FirstPassword, &error) ||
        !ZqlTest::writePamService(ZqlTest::PasswordCheckService, ZqlTest::PasswordCheckServiceText,
                                  &error)) {
        qWarning("%s", qPrintable(error));
        return {};
    }
    return name;
}

ZqlTest::PasswordChange PasswordEnforcementTest::change(const QString &user, const QString &from,
                                                        const QString &to)
{
    return ZqlTest::changePassword(ZqlTest::PasswordCheckService, user, from, to);
}

// A whole record as a host sends it: the validity period as the system has it.
Settings PasswordEnforcementTest::policy(const Settings &complexity, const Settings &history)
{
    PasswordPolicyModule reader;
    Settings record = reader.getSettings().second;
    record.insert(QStringLiteral("complexity"), complexity);
    if (history.isEmpty())
        record.remove(QStringLiteral("history"));
    else
        record.insert(QStringLiteral("history"), history);
    return record;
}

void PasswordEnforcementTest::minimumLengthIsEnforced()
{
    const QString user = createUser();
    QVERIFY(!user.isEmpty());
    PasswordPolicyModule module;
    QVERIFY(!module.setSettings(policy({{QStringLiteral("minlen"), ZqlTest::pair(true, 14)}}, {})));

    const ZqlTest::PasswordChange tooShort = change(user, FirstPassword, TenCharacters);
    QVERIFY2(tooShort.outcome == Outcome::Refused, qPrintable(tooShort.describe()));
    QVERIFY2(tooShort.errors().contains(
                 QStringLiteral("BAD PASSWORD: The password is shorter than 14 characters")),
             qPrintable(tooShort.describe()));

    const ZqlTest::PasswordChange compliant = change(user, FirstPassword, SixteenCharacters);
    QVERIFY2(compliant.outcome == Outcome::Accepted, qPrintable(compliant.describe()));

    // Switched off, the option leaves the stack and pwquality's own default applies again.
    QVERIFY(
        !module.setSettings(policy({{QStringLiteral("minlen"), ZqlTest::pair(false, 14)}}, {})));
    const ZqlTest::PasswordChange shorter = change(user, SixteenCharacters, TenCharacters);
    QVERIFY2(shorter.outcome == Outcome::Accepted, qPrintable(shorter.describe()));
}

// An administrator had put minlen=8 into the stack by hand; pam-auth-update keeps it beside the
// profile's value and pwquality would take the later, weaker one. The written policy still holds.
void PasswordEnforcementTest::locallyEditedMinimumLengthIsRepaired()
{
    QByteArray stack = ZqlTest::readBytes(CommonPassword);
    QVERIFY(stack.contains("pam_pwquality.so retry=3\n"));
    QVERIFY(
        ZqlTest::writeBytes(CommonPassword, stack.replace("pam_pwquality.so retry=3\n",
                                                          "pam_pwquality.so retry=3 minlen=8\n")));
    const QString user = createUser();
    QVERIFY(!user.isEmpty());
    PasswordPolicyModule module;
    QVERIFY(!module.setSettings(policy({{QStringLiteral("minlen"), ZqlTest::pair(true, 14)}}, {})));

    const ZqlTest::PasswordChange tooShort = change(user, FirstPassword, TenCharacters);
    QVERIFY2(tooShort.outcome == Outcome::Refused, qPrintable(tooShort.describe()));
    const ZqlTest::PasswordChange compliant = change(user, FirstPassword, SixteenCharacters);
    QVERIFY2(compliant.outcome == Outcome::Accepted, qPrintable(compliant.describe()));
}

void PasswordEnforcementTest::historyRefusesReuse()
{
    const QString user = createUser();
    QVERIFY(!user.isEmpty());
    PasswordPolicyModule module;
    QVERIFY(
        !module.setSettings(policy({}, {{QStringLiteral("remember"), ZqlTest::pair(true, 3)}})));

    const ZqlTest::PasswordChange first = change(user, FirstPassword, SixteenCharacters);
    QVERIFY2(first.outcome == Outcome::Accepted, qPrintable(first.describe()));
    const ZqlTest::PasswordChange reuse = change(user, SixteenCharacters, FirstPassword);
    QVERIFY2(reuse.outcome == Outcome::Refused, qPrintable(reuse.describe()));
    QVERIFY2(
        reuse.errors().contains(QStringLiteral("Password has been already used. Choose another.")),
        qPrintable(reuse.describe()));
    const ZqlTest::PasswordChange fresh = change(user, SixteenCharacters, OtherSixteen);
    QVERIFY2(fresh.outcome == Outcome::Accepted, qPrintable(fresh.describe()));
}

// Without "history" the module removes the history policy: reuse is allowed again, and the stack
// still accepts changes.
void PasswordEnforcementTest::removedHistoryAllowsReuse()
{
    const QString user = createUser();
    QVERIFY(!user.isEmpty());
    PasswordPolicyModule module;
    QVERIFY(
        !module.setSettings(policy({}, {{QStringLiteral("remember"), ZqlTest::pair(true, 3)}})));
    QVERIFY(!module.setSettings(policy({}, {})));

    const ZqlTest::PasswordChange first = change(user, FirstPassword, SixteenCharacters);
    QVERIFY2(first.outcome == Outcome::Accepted, qPrintable(first.describe()));
    const ZqlTest::PasswordChange reuse = change(user, SixteenCharacters, FirstPassword);
    QVERIFY2(reuse.outcome == Outcome::Accepted, qPrintable(reuse.describe()));
}

// Reading the policy and writing it back keeps it enforced and never leaves a stack that
// refuses every change.
void PasswordEnforcementTest::roundTripKeepsTheStackWorking()
{
    const QString user = createUser();
    QVERIFY(!user.isEmpty());
    PasswordPolicyModule module;
    QVERIFY(!module.setSettings(policy({{QStringLiteral("minlen"), ZqlTest::pair(true, 14)},
                                        {QStringLiteral("enforce_for_root"), true}},
                                       {{QStringLiteral("remember"), ZqlTest::pair(true, 2)}})));
    for (int round = 0; round < 2; ++round)
        QVERIFY(!module.setSettings(module.getSettings().second));

    const ZqlTest::PasswordChange tooShort = change(user, FirstPassword, TenCharacters);
    QVERIFY2(tooShort.outcome == Outcome::Refused, qPrintable(tooShort.describe()));
    const ZqlTest::PasswordChange compliant = change(user, FirstPassword, SixteenCharacters);
    QVERIFY2(compliant.outcome == Outcome::Accepted, qPrintable(compliant.describe()));
    const ZqlTest::PasswordChange reuse = change(user, SixteenCharacters, FirstPassword);
    QVERIFY2(reuse.outcome == Outcome::Refused, qPrintable(reuse.describe()));
}

ZQL_SANDBOXED_TEST_MAIN(PasswordEnforcementTest)
#include "passwordenforcementtest.moc"
