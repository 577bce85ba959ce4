#ifndef ZQLMODULES_MICFS_H
#define ZQLMODULES_MICFS_H

#include "zqlmodules_export.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

namespace Mic {

/** Path (without a trailing "/") to level word ("max", "high", "min", "low", "0b101", "63"). */
using MicItemHash = QHash<QString, QString>;

struct MicFsPrivate;

/**
 * The process-wide model of the filesystem's integrity protection: the directories that are to
 * carry a level and the excepted paths, kept in "/etc/tessel/fs-ilev.conf", and whether the
 * files on disk carry their levels, measured in the background by "set-fs-ilev status".
 *
 * It applies and removes the protection through "/usr/sbin/set-fs-ilev" and
 * "/usr/sbin/unset-fs-ilev" and resets the labels of a path through "/usr/sbin/kdxl-file". It
 * reports through signals; the status query's results arrive through the event loop of the
 * thread the model lives on.
 */
class ZQLMODULES_EXPORT MicFs : public QObject
{
    Q_OBJECT

public:
    /** What the status query measured. */
    enum Status { Loading, Enabled, Disabled, EnabledPartly };
    Q_ENUM(Status)

    /** The level word that, in an update, takes a path's level away. */
    static const QString NoLevelWord;
    /** How long the default configuration may take to be printed, in milliseconds. */
    static constexpr int DefaultDefconfigTimeoutMs = 30000;

    /** The one instance of the process, created on first use and destroyed at exit. */
    static MicFs *instance();

    /**
     * A model of its own (hosts and tests that want a fresh one; the modules use instance()).
     * Reads the default configuration (waiting at most @p defconfigTimeoutMs for it) and runs
     * update().
     */
    explicit MicFs(QObject *parent = nullptr, int defconfigTimeoutMs = DefaultDefconfigTimeoutMs);
    ~MicFs() override;

    Status status() const;
    QString statusDescription() const;
    /** Whether the files are protected: status Enabled or EnabledPartly. */
    bool isEnabled() const;
    /**
     * The enabled flag of the last status other than Loading (a measurement, or enable() and
     * disable()); false before the first.
     */
    bool lastKnownEnabled() const;
    /** Whether a status query is running now. */
    bool isQueryRunning() const;

    /** The items of the configuration file, as last read or written. */
    MicItemHash currentItems() const;
    /** The exceptions of the configuration file, as last read or written. */
    QStringList exceptionList() const;
    /** The built-in directories at "max" merged with what "set-fs-ilev defconfig" printed. */
    MicItemHash defaultItems() const;
    /** The built-in exceptions followed by those "set-fs-ilev defconfig" printed. */
    QStringList defaultExceptions() const;

    /** How long enable(), disable() and a label reset may take; -1 (default): no limit. */
    int toolTimeoutMs() const;
    void setToolTimeoutMs(int timeoutMs);

    /** @return the integrity level that @p path carries now (0 when it has no label). */
    static int pathLevel(const QString &path);

Q_SIGNALS:
    void error(QString description);
    void warning(QString description);
    void statusChanged(Mic::MicFs::Status status);
    void statusDescriptionChanged(QString description);
    void enabledChanged(bool enabled);
    void currentItemsChanged(Mic::MicItemHash items);
    void exceptionListChanged(QStringList exceptions);

public Q_SLOTS:
    /** Re-reads the configuration file and starts the status query. */
    void update();
    /** Applies the protection ("set-fs-ilev") and measures it again. */
    void enable();
    /** Removes the protection ("unset-fs-ilev"). */
    void disable();
    /** Writes @p itemHash into the configuration; "—" takes a path's level away. */
    void updateConfig(Mic::MicItemHash itemHash);
    /** Replaces the configuration's exceptions with @p exceptionList. */
    void updateConfig(QStringList exceptionList);

private:
    void setStatus(Status status);
    void startStatusQuery();
    void readConfig();
    void readDefaultConfig(int timeoutMs);
    bool switchProtection(const QString &program, Status success);
    bool saveConfigLines(const QStringList &lines);
    void resetLabels(const QString &path);

    std::unique_ptr<MicFsPrivate> d;
};

} // namespace Mic

#endif // ZQLMODULES_MICFS_H
