#ifndef ZQLMODULES_KIOSKGLOBALMODULE_H
#define ZQLMODULES_KIOSKGLOBALMODULE_H

#include "moduleinterface.h"
#include "zqlmodules_export.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>

/**
 * The "kiosk-global" module: the applications that start in the kiosk session and its screen
 * locker, as the settings "autostartApps" (a list of entry maps) and "screenLock" (bool).
 *
 * The applications are the autostart desktop entries in "/etc/xdg/autostart" whose OnlyShowIn
 * list names "vela-kiosk"; each is read and written through the platform's VelaUIDesktopEntry.
 * Other entries of the directory are never changed or removed. The locker is switched by
 * replacing "/etc/vela-kiosk/.config/lockerrc/lockerrc" with its ".on" or ".off" variant.
 * The module has no members.
 */
class ZQLMODULES_EXPORT KioskGlobalModule : public ModuleInterface
{
public:
    KioskGlobalModule();
    ~KioskGlobalModule() override;

    /** @return status 0 with the kiosk entries under "autostartApps" and "screenLock". */
    SettingsReply getSettings() override;

    /**
     * Replaces the kiosk entries with "autostartApps" (absent: none), then switches the locker
     * to "screenLock" (absent: off) unless an entry could not be written.
     * @return `true` when an entry could not be written.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;

    /** @return "kiosk-global". */
    QString getName() override;

    /** @return `true`: the module is offered in every security mode. */
    bool isAvailable() override;

    /** @return an empty list: the module takes any keys. */
    QStringList isParametersCorrect(QSet<QString> parameters) override;

    /**
     * The entries of the autostart directory as maps, in the directory's order.
     * @param kioskOnly keep only the entries whose OnlyShowIn names "vela-kiosk"
     */
    QList<QVariant> getDesktopEntries(bool kioskOnly);

    /**
     * Writes the entry named by "desktopFileName" in the autostart directory from @p entry.
     * @return whether the file was saved.
     */
    bool setDesktopEntry(const QMap<QString, QVariant> &entry);

    /**
     * Removes every kiosk entry, then writes each of @p entries (each a map) in order; a failed
     * entry does not stop the others. @return `true` when every entry was saved.
     */
    bool setDesktopEntries(const QList<QVariant> &entries);

    /** Deletes every entry of the autostart directory whose OnlyShowIn names "vela-kiosk". */
    void removeDesktopEntries();

    /**
     * @return `false` only when the locker's "Variables/ScreenSaverDelay" is 0; a missing file
     * or key, or any other number, means on.
     */
    bool getScreenLockState();

    /** Replaces the locker's file with its ".on" (@p on) or ".off" variant; nothing is checked. */
    void setScreenLockState(bool on);
};

#endif // ZQLMODULES_KIOSKGLOBALMODULE_H
