#ifndef ZQLMODULES_DIGSIGCONFIG_H
#define ZQLMODULES_DIGSIGCONFIG_H

#include "zqlmodules_export.h"

#include <QCoreApplication>
#include <QString>
#include <QStringList>

/**
 * The signature-checking configuration: "/etc/digsig/digsig_initramfs.conf" (four KEY=VALUE
 * options) and "/etc/digsig/xattr_control" (free text of attribute templates), as one record.
 *
 * A record read from the files carries every problem found in `errors`; reading never throws.
 * The functions of the namespace DigSig write a record back, check and remount "/boot" and
 * rebuild the initial RAM disks. Nothing here keeps state between calls.
 */
class ZQLMODULES_EXPORT DigSigConfig
{
    Q_DECLARE_TR_FUNCTIONS(DigSigConfig)

public:
    /** Checking modes of executables and of extended attributes. */
    enum Mode : int {
        Unknown = 0, ///< unknown or invalid
        On = 1,
        Off = 2,
        Debug = 3,
    };

    /** Where a record comes from. */
    enum Source {
        NewRecord, ///< both modes 0, both flags false, empty text, no errors
        ReadFiles, ///< read from the two files; problems go to `errors`
    };

    /** A new record, or (@p source ReadFiles) the record the two files hold. */
    explicit DigSigConfig(Source source = NewRecord);

    int elfMode = Unknown;        ///< DIGSIG_ELF_MODE
    int xattrMode = Unknown;      ///< DIGSIG_XATTR_MODE
    bool ignoreXattrKeys = false; ///< DIGSIG_IGNORE_XATTR_KEYS
    bool ignoreGost2001 = false;  ///< DIGSIG_IGNORE_GOST2001
    QString xattrControl;         ///< the whole text of "/etc/digsig/xattr_control"
    QStringList errors;           ///< problems found while reading, in the order found

    /** @return "On", "Off" or "Debug" for @p mode 1, 2 or 3; an empty string otherwise. */
    static QString modeName(int mode);

    /** @return the mode named exactly (case-sensitive) by @p name; Unknown (0) otherwise. */
    static int modeOfName(const QString &name);

private:
    void readOptions();
    void readXattrControl();
};

namespace DigSig {

/**
 * Writes @p config to both files, each replaced whole and atomically. xattr_control is not
 * written when the options file failed.
 * @return the problems, empty on success.
 */
ZQLMODULES_EXPORT QStringList writeDigSigConfig(const DigSigConfig &config);

/**
 * Whether "/boot" is a mount point with the option "ro" in "/etc/mtab".
 * @throws std::runtime_error when the mount table cannot be read.
 */
ZQLMODULES_EXPORT bool isBootReadOnly();

/** Remounts "/boot" read-write (@p writable) or read-only. @return whether mount exited with 0. */
ZQLMODULES_EXPORT bool remountBoot(bool writable);

/**
 * Rebuilds every initial RAM disk with "update-initramfs -u -k all", waiting without a limit.
 * @return the tool's known harmless warnings (at most one text), empty when it said nothing.
 * @throws std::runtime_error when it did not start or finish, exited with another code than 0,
 *         or wrote anything else on standard error.
 */
ZQLMODULES_EXPORT QStringList runUpdateInitramfs();

} // namespace DigSig

#endif // ZQLMODULES_DIGSIGCONFIG_H
