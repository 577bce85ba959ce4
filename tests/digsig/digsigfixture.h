#ifndef ZQLTEST_DIGSIGFIXTURE_H
#define ZQLTEST_DIGSIGFIXTURE_H

#include "scratchmounts.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace ZqlTest {

/** The signature files and the simulated update-initramfs's state, at their system paths. */
extern const QString OptionsPath;
extern const QString XattrControlPath;
extern const QString DigSigDir;
extern const QString InitramfsStateDir;
/** The image the simulated tool writes for the simulated system's one kernel. */
extern const QString InitramfsImage;

/**
 * Puts the simulated system's signature files, /boot and the simulated update-initramfs back
 * before each test, and shapes what the tests need: a /boot of its own (read-only or not), a
 * misbehaving tool, a mount table of the test's own.
 */
class DigSigFixture
{
public:
    /** Remembers the two files as the simulated system holds them. */
    bool snapshot(QString *error);
    /** Unmounts what the test mounted, writes the files back, resets the tool and /etc/mtab. */
    bool reset(QString *error);

    QByteArray originalOptions() const { return m_options; }
    QByteArray originalXattrControl() const { return m_xattrControl; }

    /** Mounts a small tmpfs on /boot, then remounts it read-only when @p readOnly. */
    bool mountBoot(bool readOnly, QString *error);
    /** Mounts a tmpfs of @p options on /etc/digsig holding the two files as they are now. */
    bool mountDigSigDir(const QString &options, QString *error);
    /** Mounts @p path read-only (a bind onto itself). */
    bool bindReadOnly(const QString &path, QString *error);

    /** The first line of the tool's behaviour file ("exit 3", "hang", ...). */
    static bool setToolBehaviour(const QByteArray &behaviour);
    /** Bytes the tool writes to standard error after its run. */
    static bool setToolStandardError(const QByteArray &text);
    /** Starts the tool's call log; calls() then lists one line per run. */
    static bool startCallLog();
    static QStringList calls();

    /** Replaces the mount table /etc/mtab (normally a link to the kernel's) with @p content. */
    static bool writeMountTable(const QByteArray &content);

    /** Whether the kernel's own mount table has /boot with the option "ro". */
    static bool bootMountedReadOnly();

private:
    QByteArray m_options;
    QByteArray m_xattrControl;
    ScratchMounts m_mounts;
};

} // namespace ZqlTest

#endif // ZQLTEST_DIGSIGFIXTURE_H
