#ifndef ZQLTEST_PAMFIXTURE_H
#define ZQLTEST_PAMFIXTURE_H

#include <QByteArray>
#include <QString>
#include <QStringList>

// The PAM test rig: puts the simulated pam-auth-update (sim/layer/usr/lib/zql-sim/) in place of
// Debian's tool and sets how it behaves, creates users with known passwords, writes PAM service
// files and changes passwords through a service as a user running passwd would, so that a test
// sees whether the policy in the stack is really enforced. Every operation that changes the
// system refuses outside the sandbox (false, or PasswordChange::Outcome::NotRun, with a reason).
namespace ZqlTest {

/** The tool the library runs, on the search path and by its full path. */
extern const QString PamAuthUpdatePath; // "/usr/sbin/pam-auth-update"
/** The simulated tool, laid into the sandbox by sim/layer. */
extern const QString SimulatedPamAuthUpdatePath; // "/usr/lib/zql-sim/pam-auth-update"
/** Where Debian's own tool is kept while the simulated one stands in for it. */
extern const QString DebianPamAuthUpdatePath; // "/usr/lib/zql-sim/pam-auth-update.debian"
/** The simulated tool's state file: first line the behaviour, then the standard-error text. */
extern const QString PamAuthUpdateStatePath; // "/var/lib/zql-sim/pam-auth-update"
/** One line per run of the simulated tool: its arguments joined by blanks. */
extern const QString PamAuthUpdateCallsPath; // "/var/lib/zql-sim/pam-auth-update.calls"

/** Behaviours of the simulated pam-auth-update that take no parameters. */
enum class PamAuthUpdateBehaviour {
    Debian, ///< runs Debian's tool unchanged ("debian")
    Target, ///< Debian's tool keeping profiles that mention pam_tally, as the target's ("target")
    Hang,   ///< sleeps until killed ("hang")
    Crash,  ///< dies by SIGSEGV ("crash")
};

/**
 * Puts the simulated tool over /usr/sbin/pam-auth-update (keeping Debian's at
 * DebianPamAuthUpdatePath first) and gives it @p behaviour. Empties the list of calls.
 */
bool simulatePamAuthUpdate(PamAuthUpdateBehaviour behaviour, QString *error);

/**
 * The target's PAM stack: the simulated tool in its Target behaviour (it keeps the pam_tally
 * profile, as the target system's tool does), run once so that the stack holds every profile.
 */
bool useTargetPamStack(QString *error);

/**
 * Like simulatePamAuthUpdate(), but the tool writes @p standardError byte for byte and exits
 * with @p exitCode without regenerating anything ("exit N"). An exit code of 0 gives a warning
 * from a tool that did nothing.
 */
bool simulatePamAuthUpdateExit(int exitCode, const QByteArray &standardError, QString *error);

/**
 * Like simulatePamAuthUpdate(), but the tool regenerates the stack as the target's does, then
 * writes @p standardError byte for byte and exits with the tool's status, 0 normally ("warn").
 */
bool simulatePamAuthUpdateWarning(const QByteArray &standardError, QString *error);

/**
 * Puts Debian's own tool back at /usr/sbin/pam-auth-update and removes the state file and the
 * list of calls.
 */
bool restorePamAuthUpdate(QString *error);

/**
 * Removes pam-auth-update (keeping Debian's at DebianPamAuthUpdatePath), so that neither the
 * search path nor /usr/sbin/pam-auth-update finds it.
 */
bool removePamAuthUpdate(QString *error);

/** The arguments of each run of the simulated tool since it was put in place, in order. */
QStringList pamAuthUpdateCalls();

/** The service the rig changes passwords through, and its file's text. */
extern const QString PasswordCheckService;        // "zql-passwd-check"
extern const QByteArray PasswordCheckServiceText; // "#%PAM-1.0\n@include common-password\n"

/** Writes /etc/pam.d/@p service with @p text. */
bool writePamService(const QString &service, const QByteArray &text, QString *error);

/**
 * Creates the user @p name (no home directory) whose password is @p password, hashed here so
 * that no PAM stack is involved; minimum and maximum password age never stop a change.
 */
bool createUser(const QString &name, const QString &password, QString *error);

/** The password hash in /etc/shadow for @p user, or an empty array. */
QByteArray shadowHash(const QString &user);

/** What one password change through a service came to. */
struct PasswordChange
{
    enum class Outcome {
        Accepted,             ///< PAM_SUCCESS, and the shadow entry changed
        Refused,              ///< refused with a reason from a module ("BAD PASSWORD: ...")
        CurrentPasswordWrong, ///< the given current password is not the user's: PAM did not run
        StackFailed, ///< any other status, a silent refusal, or success that changed nothing
        NotRun,      ///< the change could not be tried (outside the sandbox, no user...)
    };
    Outcome outcome = Outcome::NotRun;
    /** The conversation, one "KIND: TEXT" line per message, then "result: <pam_strerror>". */
    QStringList messages;
    /** The messages with KIND "error", the modules' reasons. */
    QStringList errors() const;
    /** The outcome's name and the messages, for a failed check. */
    QString describe() const;
};

/**
 * Changes @p user's password from @p current to @p next through the PAM service @p service, as
 * the user running passwd would (real uid the user's, effective uid root's), with
 * tests/helpers' zql-pam-passwd. The retype prompt gets @p next again.
 */
PasswordChange changePassword(const QString &service, const QString &user, const QString &current,
                              const QString &next);

} // namespace ZqlTest

#endif // ZQLTEST_PAMFIXTURE_H
