#ifndef ZQLMODULES_PLATFORM_VELAUI_VELAUIDESKTOPENTRY_H
#define ZQLMODULES_PLATFORM_VELAUI_VELAUIDESKTOPENTRY_H

#include <QString>
#include <QStringList>

#include <memory>

// The maker's desktop-entry class, as the modules call it: one freedesktop desktop-entry file,
// read when the object is constructed and written back whole by save(). Built either against
// the open reference implementation in platform/reference/ or against the maker's library.
//
// The getters and setters work on the main group "[Desktop Entry]"; every other group, key,
// locale and comment of the file is kept as it was. A setter given an empty text (or list)
// removes the key. The Local variants use the process's locale (LC_ALL, LC_MESSAGES, LANG).
class VelaUIDesktopEntry
{
public:
    /** An entry for the file @p fileName, read at once (see load()). */
    explicit VelaUIDesktopEntry(const QString &fileName);
    ~VelaUIDesktopEntry();
    VelaUIDesktopEntry(const VelaUIDesktopEntry &) = delete;
    VelaUIDesktopEntry &operator=(const VelaUIDesktopEntry &) = delete;

    /**
     * Reads the file again, dropping unsaved changes. A missing, unreadable or damaged file
     * leaves the entry empty. @return whether the file was read.
     */
    bool load();

    /** Writes the entry to its file atomically. @return whether the file was written. */
    bool save();

    /** Takes every group and key of @p other; the entry keeps its own file name. */
    void copyFrom(const VelaUIDesktopEntry &other);

    /** @return the file the entry reads and writes. */
    QString fileName() const;

    /** @return why the last load() or save() failed (empty after a success). */
    QString errorString() const;

    QString getType() const;
    void setType(const QString &type);
    QString getURL() const;

    QString getName() const;
    void setName(const QString &name);
    QString getLocalName() const;
    void setLocalName(const QString &name);
    QString getGenericName() const;
    void setGenericName(const QString &name);
    QString getLocalGenericName() const;
    void setLocalGenericName(const QString &name);
    QString getIcon() const;
    void setIcon(const QString &icon);
    QString getLocalIcon() const;
    void setLocalIcon(const QString &icon);
    QString getComment() const;
    void setComment(const QString &comment);
    QString getLocalComment() const;
    void setLocalComment(const QString &comment);

    QStringList getOnlyShowIn() const;
    void setOnlyShowIn(const QStringList &desktops);

    QString getPath() const;
    void setPath(const QString &path);
    QString getTryExec() const;
    void setTryExec(const QString &program);
    QString getExec() const;
    void setExec(const QString &command);

    /** @return the text of @p key in the main group (empty when absent or not a valid key). */
    QString getEntry(const QString &key) const;
    /** Sets @p key of the main group to @p value; an invalid key name is ignored. */
    void setEntry(const QString &key, const QString &value);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

#endif // ZQLMODULES_PLATFORM_VELAUI_VELAUIDESKTOPENTRY_H
