#ifndef ZQLTEST_MICFIXTURE_H
#define ZQLTEST_MICFIXTURE_H

#include <QByteArray>
#include <QString>
#include <QStringList>

// The simulated integrity-control system the MIC suites work on, at its system paths inside
// the sandbox: the boot files, fs-ilev.conf, the simulated kernel's levels and the simulated
// tools' state (sim/README.md).
namespace MicTest {

extern const QString GrubFile;
extern const QString FsIlevConf;
extern const QString MaxIlevFile;
extern const QString IlevsFile;
extern const QString ToolStateDir;
extern const QString SecurityModeFile;

/**
 * Puts the simulated system back before each test: the files above as they came, no boot file
 * beside the GRUB defaults, no fault, no warning text, an empty call log, filesystem
 * protection off; unmounts what a test mounted.
 */
class MicFixture
{
public:
    /** Remembers the files as the simulated system holds them. */
    bool snapshot(QString *error);
    /** Unmounts, removes what tests added and writes the remembered files back. */
    bool reset(QString *error);
    /** A remembered file's bytes. */
    QByteArray original(const QString &path) const;

    /** Mounts @p options tmpfs on @p dir and remembers to unmount it. */
    bool mountTmpfs(const QString &dir, const QString &options, QString *error);
    /** Binds @p path read-only and remembers to unmount it. */
    bool bindReadOnly(const QString &path, QString *error);

private:
    QStringList m_paths;
    QList<QByteArray> m_contents;
    QStringList m_mounts;
};

/** Writes @p bytes to @p path, creating its directories. */
bool writeFile(const QString &path, const QByteArray &bytes);
/** Makes @p tool fail: @p line is "OPERATION ACTION [ARG]" (sim/layer/usr/lib/zql-sim/mic-tool). */
bool setFault(const QString &tool, const QByteArray &line);
/** Text that @p tool writes to standard error on every run. */
bool setToolStderr(const QString &tool, const QByteArray &text);
/** The filesystem protection state of the simulated set-fs-ilev: enabled, partly, disabled. */
bool setFsState(const QByteArray &state);
/** The running kernel's maximum level of the simulated kernel. */
bool setRunningLevel(int level);
/** One line "TOOL ARGUMENTS" per run of a simulated MIC tool since the last reset. */
QStringList toolCalls();
/** Sets the integrity level attribute of @p path (0 removes it). */
bool setPathLevel(const QString &path, int level);

} // namespace MicTest

#endif // ZQLTEST_MICFIXTURE_H
