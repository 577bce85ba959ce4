#ifndef ZQLTEST_TESSELFIXTURE_H
#define ZQLTEST_TESSELFIXTURE_H

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QStringList>

namespace ZqlTest {

/** The configuration file the login tests work on, at its system path inside the sandbox. */
extern const QString TesselConfPath;
/** Its directory. */
extern const QString TesselConfDir;

/** How the configuration file is made to fail. */
enum TesselFailure {
    MissingFile,       // there is no file
    DirectoryAsFile,   // a directory stands at its path
    ReadOnlyFile,      // the file is on a read-only bind
    ReadOnlyDirectory, // its directory is on a read-only bind
    FullDisk,          // its directory is a full tmpfs
};

/**
 * Puts the simulated configuration file back before each test and shapes failures around
 * it; everything it mounted is unmounted by reset().
 */
class TesselFixture
{
public:
    /** Remembers the file as the simulated system holds it. */
    bool snapshot(QString *error);
    /** Unmounts what failures mounted and writes the remembered file back. */
    bool reset(QString *error);
    /** The file as the simulated system holds it. */
    QByteArray original() const { return m_original; }
    /** Makes the file fail as @p failure says, with @p content where a file stays. */
    bool shape(TesselFailure failure, const QByteArray &content, QString *error);

private:
    QByteArray m_original;
    QStringList m_mounts;
};

} // namespace ZqlTest

Q_DECLARE_METATYPE(ZqlTest::TesselFailure)

#endif // ZQLTEST_TESSELFIXTURE_H
