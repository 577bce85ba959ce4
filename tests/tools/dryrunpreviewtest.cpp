// DryRunPreview: the summary's counts and layout, the grouping into configuration and
// backups or tool state, which diff blocks are shown, and git's colours.
#include "dryrunpreview.h"

#include <QtTest>

using ZqlPolicy::DryRunPreview;
using ZqlPolicy::FileDiff;

namespace {

const QByteArray LoginDefsBlock = "diff --git a/etc/login.defs b/etc/login.defs\n"
                                  "--- a/etc/login.defs\n"
                                  "+++ b/etc/login.defs\n"
                                  "@@ -1,3 +1,3 @@\n"
                                  " # comment\n"
                                  "-PASS_MAX_DAYS\t99999\n"
                                  "+PASS_MAX_DAYS 90\n"
                                  " UMASK 022\n"
                                  "@@ -10 +10,2 @@\n"
                                  "--- a line that starts with dashes\n"
                                  "+++ a line that starts with pluses\n"
                                  "+\n"
                                  "\\ No newline at end of file\n";

const QByteArray BackupBlock = "diff --git a/etc/login.defs.bak b/etc/login.defs.bak\n"
                               "new file mode 100644\n"
                               "--- /dev/null\n"
                               "+++ b/etc/login.defs.bak\n"
                               "@@ -0,0 +1,2 @@\n"
                               "+# comment\n"
                               "+PASS_MAX_DAYS\t99999\n";

const QByteArray StateBlock = "diff --git a/var/lib/pam/auth b/var/lib/pam/auth\n"
                              "Binary files a/var/lib/pam/auth and b/var/lib/pam/auth differ\n";

const QByteArray ModeBlock = "diff --git a/etc/shadow b/etc/shadow\n"
                             "old mode 100640\n"
                             "new mode 100600\n";

QVector<FileDiff> changedFiles()
{
    return {DryRunPreview::fromBlock(QStringLiteral("/etc/login.defs"), LoginDefsBlock),
            DryRunPreview::fromBlock(QStringLiteral("/etc/login.defs.bak"), BackupBlock),
            DryRunPreview::fromBlock(QStringLiteral("/etc/shadow"), ModeBlock),
            DryRunPreview::fromBlock(QStringLiteral("/var/lib/pam/auth"), StateBlock)};
}

const QByteArray Summary = "Configuration files the policy changes:\n"
                           " /etc/login.defs     |   5 +++--\n"
                           " /etc/shadow         |   0\n"
                           " 2 files changed, 3 insertions(+), 2 deletions(-)\n";
const QByteArray StateSummary = " /etc/login.defs.bak |   2 ++\n"
                                " /var/lib/pam/auth   | Bin\n"
                                " 2 files changed, 2 insertions(+)\n";

} // namespace

class DryRunPreviewTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void backupOrState_data();
    void backupOrState();
    void counts();
    void configurationDiffOnly();
    void summaryOnly();
    void full();
    void nothingChanged();
    void onlyBackups();
    void largeChangesAreScaledPerGroup();
    void colours();
    void colouredSummary();
};

void DryRunPreviewTest::backupOrState_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("state");
    QTest::newRow("configuration") << QStringLiteral("/etc/login.defs") << false;
    QTest::newRow("profile") << QStringLiteral("/usr/share/pam-configs/tally") << false;
    QTest::newRow(".bak") << QStringLiteral("/etc/adduser.conf.bak") << true;
    QTest::newRow(".pam-old") << QStringLiteral("/etc/pam.d/common-auth.pam-old") << true;
    QTest::newRow("under /var") << QStringLiteral("/var/lib/pam/auth") << true;
    QTest::newRow("debconf") << QStringLiteral("/var/cache/debconf/config.dat") << true;
    QTest::newRow("bak inside a name") << QStringLiteral("/etc/bakery.conf") << false;
    QTest::newRow("variables") << QStringLiteral("/variables") << false;
}

void DryRunPreviewTest::backupOrState()
{
    QFETCH(QString, path);
    QFETCH(bool, state);
    QCOMPARE(DryRunPreview::isBackupOrState(path), state);
}

void DryRunPreviewTest::counts()
{
    const QVector<FileDiff> files = changedFiles();
    // Header lines do not count; hunk lines that start with "---" or "+++" do.
    QCOMPARE(files.at(0).added, 3);
    QCOMPARE(files.at(0).removed, 2);
    QCOMPARE(files.at(0).state, false);
    QCOMPARE(files.at(1).added, 2);
    QCOMPARE(files.at(1).removed, 0);
    QCOMPARE(files.at(1).state, true);
    QCOMPARE(files.at(2).added + files.at(2).removed, 0);
    QCOMPARE(files.at(3).binary, true);
    QCOMPARE(files.at(3).state, true);
}

void DryRunPreviewTest::configurationDiffOnly()
{
    QCOMPARE(DryRunPreview::render(changedFiles(), DryRunPreview::Detail::Configuration, false),
             Summary + "Backups and tool state (their diff: --full):\n" + StateSummary + '\n' +
                 LoginDefsBlock + ModeBlock);
}

void DryRunPreviewTest::summaryOnly()
{
    QCOMPARE(DryRunPreview::render(changedFiles(), DryRunPreview::Detail::Summary, false),
             Summary + "Backups and tool state:\n" + StateSummary);
}

void DryRunPreviewTest::full()
{
    QCOMPARE(DryRunPreview::render(changedFiles(), DryRunPreview::Detail::Full, false),
             Summary + "Backups and tool state:\n" + StateSummary + '\n' + LoginDefsBlock +
                 BackupBlock + ModeBlock + StateBlock);
}

void DryRunPreviewTest::nothingChanged()
{
    QCOMPARE(DryRunPreview::render({}, DryRunPreview::Detail::Full, true), QByteArray());
}

void DryRunPreviewTest::onlyBackups()
{
    const QVector<FileDiff> files{
        DryRunPreview::fromBlock(QStringLiteral("/etc/login.defs.bak"), BackupBlock)};
    // No configuration file: no heading for it and no diff.
    QCOMPARE(DryRunPreview::render(files, DryRunPreview::Detail::Configuration, false),
             QByteArray("Backups and tool state (their diff: --full):\n"
                        " /etc/login.defs.bak | 2 ++\n"
                        " 1 file changed, 2 insertions(+)\n"));
}

void DryRunPreviewTest::largeChangesAreScaledPerGroup()
{
    FileDiff big;
    big.path = QStringLiteral("/etc/big.bak");
    big.state = true;
    big.added = 400;
    FileDiff small;
    small.path = QStringLiteral("/etc/small");
    small.added = 3;
    small.removed = 3;
    const QByteArray text =
        DryRunPreview::render({small, big}, DryRunPreview::Detail::Summary, false, 40);
    // 40 columns: " /etc/big.bak | 400 " leaves 20 for the graph.
    QCOMPARE(text, QByteArray("Configuration files the policy changes:\n"
                              " /etc/small   |   6 +++---\n"
                              " 1 file changed, 3 insertions(+), 3 deletions(-)\n"
                              "Backups and tool state:\n"
                              " /etc/big.bak | 400 ") +
                       QByteArray(20, '+') + "\n 1 file changed, 400 insertions(+)\n");
}

void DryRunPreviewTest::colours()
{
    QCOMPARE(DryRunPreview::colourBlock(LoginDefsBlock),
             QByteArray("\033[1mdiff --git a/etc/login.defs b/etc/login.defs\033[m\n"
                        "\033[1m--- a/etc/login.defs\033[m\n"
                        "\033[1m+++ b/etc/login.defs\033[m\n"
                        "\033[36m@@ -1,3 +1,3 @@\033[m\n"
                        " # comment\n"
                        "\033[31m-PASS_MAX_DAYS\t99999\033[m\n"
                        "\033[32m+PASS_MAX_DAYS 90\033[m\n"
                        " UMASK 022\n"
                        "\033[36m@@ -10 +10,2 @@\033[m\n"
                        "\033[31m--- a line that starts with dashes\033[m\n"
                        "\033[32m+++ a line that starts with pluses\033[m\n"
                        "\033[32m+\033[m\n"
                        "\\ No newline at end of file\n"));
}

void DryRunPreviewTest::colouredSummary()
{
    const QVector<FileDiff> files{
        DryRunPreview::fromBlock(QStringLiteral("/etc/login.defs"), LoginDefsBlock)};
    QCOMPARE(DryRunPreview::render(files, DryRunPreview::Detail::Summary, true),
             QByteArray("Configuration files the policy changes:\n"
                        " /etc/login.defs | 5 \033[32m+++\033[m\033[31m--\033[m\n"
                        " 1 file changed, 3 insertions(+), 2 deletions(-)\n"));
}

QTEST_GUILESS_MAIN(DryRunPreviewTest)
#include "dryrunpreviewtest.moc"
