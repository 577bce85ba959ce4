// Reference implementation of VelaUIDesktopEntry for stock Debian, on GLib's GKeyFile: GLib
// reads and writes the freedesktop desktop-entry format (escapes, lists, locale keys) and keeps
// comments, other groups and other locales of a file it did not change. The file is read when
// the object is constructed; save() writes it atomically under a lock on the directory.

#include "velaui/velauidesktopentry.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <glib.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace {
const char MainGroup[] = "Desktop Entry";
const QString TypeKey = QStringLiteral("Type");
const QString UrlKey = QStringLiteral("URL");
const QString NameKey = QStringLiteral("Name");
const QString GenericNameKey = QStringLiteral("GenericName");
const QString IconKey = QStringLiteral("Icon");
const QString CommentKey = QStringLiteral("Comment");
const QString OnlyShowInKey = QStringLiteral("OnlyShowIn");
const QString PathKey = QStringLiteral("Path");
const QString TryExecKey = QStringLiteral("TryExec");
const QString ExecKey = QStringLiteral("Exec");

// A desktop entry is a few kilobytes; anything this large is not one.
constexpr qint64 MaximumEntrySize = qint64(4) * 1024 * 1024;
constexpr GKeyFileFlags LoadFlags =
    GKeyFileFlags(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS);

struct KeyFileDeleter
{
    void operator()(GKeyFile *keyFile) const { g_key_file_unref(keyFile); }
};
using KeyFilePointer = std::unique_ptr<GKeyFile, KeyFileDeleter>;

QString takeGError(GError *error)
{
    QString text = error ? QString::fromUtf8(error->message) : QString();
    g_clear_error(&error);
    return text;
}

QString takeGString(gchar *text)
{
    QString value = text ? QString::fromUtf8(text) : QString();
    g_free(text);
    return value;
}

// A key of the main group as the format allows it: letters, digits and "-", optionally
// followed by a locale in brackets. GLib itself refuses other names with a critical warning.
bool isValidKeyName(const QString &key)
{
    const int bracket = key.indexOf(QLatin1Char('['));
    const int nameEnd = bracket < 0 ? key.size() : bracket;
    if (nameEnd == 0)
        return false;
    for (int i = 0; i < nameEnd; ++i) {
        const QChar c = key.at(i);
        if (c.unicode() > 127 || !(c.isLetterOrNumber() || c == QLatin1Char('-')))
            return false;
    }
    if (bracket < 0)
        return true;
    if (!key.endsWith(QLatin1Char(']')) || key.size() - bracket < 3)
        return false;
    for (int i = bracket + 1; i < key.size() - 1; ++i) {
        const QChar c = key.at(i);
        if (c.unicode() > 127 || !(c.isLetterOrNumber() || QStringLiteral("_.@-").contains(c)))
            return false;
    }
    return true;
}

// The process's message locale, as the format's rules name it: LC_ALL, then LC_MESSAGES,
// then LANG. The C and POSIX locales have no language.
QString messageLocale()
{
    for (const char *variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        QString value = QString::fromLocal8Bit(qgetenv(variable));
        if (value.isEmpty())
            continue;
        if (value == QLatin1String("C") || value == QLatin1String("POSIX") ||
            value.startsWith(QLatin1String("C.")))
            return QString();
        return value;
    }
    return QString();
}

// lang_COUNTRY@MODIFIER, lang_COUNTRY, lang@MODIFIER, lang: the keys a localized value is
// looked up under, best first. The encoding never takes part.
QStringList localeVariants(const QString &locale)
{
    QString rest = locale;
    QString modifier;
    const int at = rest.indexOf(QLatin1Char('@'));
    if (at >= 0) {
        modifier = rest.mid(at + 1);
        rest.truncate(at);
    }
    const int dot = rest.indexOf(QLatin1Char('.'));
    if (dot >= 0)
        rest.truncate(dot);
    QString country;
    const int underscore = rest.indexOf(QLatin1Char('_'));
    if (underscore >= 0) {
        country = rest.mid(underscore + 1);
        rest.truncate(underscore);
    }
    const QString &language = rest;
    QStringList variants;
    if (language.isEmpty())
        return variants;
    if (!country.isEmpty() && !modifier.isEmpty())
        variants << language + QLatin1Char('_') + country + QLatin1Char('@') + modifier;
    if (!country.isEmpty())
        variants << language + QLatin1Char('_') + country;
    if (!modifier.isEmpty())
        variants << language + QLatin1Char('@') + modifier;
    variants << language;
    return variants;
}

QString localizedKey(const QString &key, const QString &locale)
{
    return key + QLatin1Char('[') + locale + QLatin1Char(']');
}

// An exclusive flock on the entry's directory itself for the lifetime of the object: the
// directory is the lock file, so that no lock file lies among the entries that desktop
// sessions read.
class DirectoryLock
{
public:
    explicit DirectoryLock(const QString &directory)
    {
        const QByteArray path = QFile::encodeName(directory);
        m_descriptor = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (m_descriptor < 0) {
            m_error = QStringLiteral("cannot open the directory %1: %2")
                          .arg(directory, QString::fromLocal8Bit(strerror(errno)));
            return;
        }
        int result = 0;
        do {
            result = ::flock(m_descriptor, LOCK_EX);
        } while (result != 0 && errno == EINTR);
        if (result != 0) {
            m_error = QStringLiteral("cannot lock the directory %1: %2")
                          .arg(directory, QString::fromLocal8Bit(strerror(errno)));
        }
    }
    ~DirectoryLock()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor); // releases the lock
    }
    DirectoryLock(const DirectoryLock &) = delete;
    DirectoryLock &operator=(const DirectoryLock &) = delete;

    QString error() const { return m_error; }

private:
    int m_descriptor = -1;
    QString m_error;
};

// The file's bytes now: whether it exists, and what it holds.
struct DiskState
{
    bool exists = false;
    bool readable = false;
    QByteArray bytes;
    QString error;

    bool operator==(const DiskState &other) const
    {
        return exists == other.exists && readable == other.readable && bytes == other.bytes;
    }
};

DiskState readDiskState(const QString &fileName)
{
    DiskState state;
    QFile file(fileName);
    const QFileInfo info(fileName);
    state.exists = info.exists();
    if (!state.exists) {
        state.error = QStringLiteral("%1 does not exist").arg(fileName);
        return state;
    }
    if (!info.isFile()) {
        state.error = QStringLiteral("%1 is not a regular file").arg(fileName);
        return state;
    }
    if (info.size() > MaximumEntrySize) {
        state.error = QStringLiteral("%1 is larger than %2 bytes; not a desktop entry")
                          .arg(fileName)
                          .arg(MaximumEntrySize);
        return state;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        state.error = QStringLiteral("cannot read %1: %2").arg(fileName, file.errorString());
        return state;
    }
    state.bytes = file.read(MaximumEntrySize + 1);
    if (file.error() != QFileDevice::NoError || state.bytes.size() > MaximumEntrySize) {
        state.error = QStringLiteral("cannot read %1: %2").arg(fileName, file.errorString());
        state.bytes.clear();
        return state;
    }
    state.readable = true;
    return state;
}

} // namespace

struct VelaUIDesktopEntry::Private
{
    QString fileName;
    KeyFilePointer keyFile{g_key_file_new()};
    // The file as it was read: save() refuses to overwrite a change made in between.
    DiskState loaded;
    QString error;

    QByteArray key(const QString &name) const { return name.toUtf8(); }

    bool hasKey(const QString &name) const
    {
        return g_key_file_has_key(keyFile.get(), MainGroup, key(name).constData(), nullptr);
    }

    QString string(const QString &name) const
    {
        if (!isValidKeyName(name))
            return QString();
        return takeGString(
            g_key_file_get_string(keyFile.get(), MainGroup, key(name).constData(), nullptr));
    }

    void setString(const QString &name, const QString &value)
    {
        if (!isValidKeyName(name))
            return;
        if (value.isEmpty()) {
            g_key_file_remove_key(keyFile.get(), MainGroup, key(name).constData(), nullptr);
            return;
        }
        g_key_file_set_string(keyFile.get(), MainGroup, key(name).constData(),
                              value.toUtf8().constData());
    }

    // The localized key that holds the value for the process's locale, or an empty text when
    // the value comes from the key without a locale.
    QString matchingLocalizedKey(const QString &name) const
    {
        const QStringList variants = localeVariants(messageLocale());
        for (const QString &variant : variants) {
            QString candidate = localizedKey(name, variant);
            if (hasKey(candidate))
                return candidate;
        }
        return QString();
    }

    QString localString(const QString &name) const
    {
        const QString localized = matchingLocalizedKey(name);
        return string(localized.isEmpty() ? name : localized);
    }

    // Writes where localString() reads from. A value that is already there changes nothing,
    // so an entry read and written back keeps its keys. Without a localized key yet, the value
    // gets the locale's most specific key; the C locale has none, so nothing is written there.
    void setLocalString(const QString &name, const QString &value)
    {
        if (value == localString(name))
            return;
        const QString localized = matchingLocalizedKey(name);
        if (!localized.isEmpty()) {
            setString(localized, value);
            return;
        }
        const QStringList variants = localeVariants(messageLocale());
        if (variants.isEmpty() || value.isEmpty())
            return;
        setString(localizedKey(name, variants.first()), value);
    }

    void reset() { keyFile.reset(g_key_file_new()); }
};

VelaUIDesktopEntry::VelaUIDesktopEntry(const QString &fileName)
    : d(std::make_unique<Private>())
{
    d->fileName = fileName;
    load();
}

VelaUIDesktopEntry::~VelaUIDesktopEntry() = default;

bool VelaUIDesktopEntry::load()
{
    d->reset();
    d->loaded = readDiskState(d->fileName);
    d->error = d->loaded.error;
    if (!d->loaded.readable)
        return false;
    const QByteArray &bytes = d->loaded.bytes;
    // The format is UTF-8 throughout; GLib would only notice bad bytes in a value when it is
    // read, and write them back unchanged.
    if (!g_utf8_validate(bytes.constData(), bytes.size(), nullptr)) {
        d->error = QStringLiteral("%1 is not UTF-8 text").arg(d->fileName);
        return false;
    }
    GError *error = nullptr;
    if (!g_key_file_load_from_data(d->keyFile.get(), bytes.constData(), gsize(bytes.size()),
                                   LoadFlags, &error)) {
        d->error =
            QStringLiteral("%1 is not a desktop entry: %2").arg(d->fileName, takeGError(error));
        d->reset();
        return false;
    }
    return true;
}

bool VelaUIDesktopEntry::save()
{
    const QFileInfo info(d->fileName);
    const DirectoryLock lock(info.absolutePath());
    if (!lock.error().isEmpty()) {
        d->error = lock.error();
        return false;
    }
    const DiskState now = readDiskState(d->fileName);
    if (!(now == d->loaded)) {
        d->error = QStringLiteral("%1 was changed by someone else since it was read; not written")
                       .arg(d->fileName);
        return false;
    }
    gsize length = 0;
    gchar *data = g_key_file_to_data(d->keyFile.get(), &length, nullptr);
    const QByteArray bytes(data, int(length));
    g_free(data);

    QSaveFile file(d->fileName);
    file.setDirectWriteFallback(false);
    if (!file.open(QIODevice::WriteOnly)) {
        d->error = QStringLiteral("cannot write %1: %2").arg(d->fileName, file.errorString());
        return false;
    }
    // A commit on a full file system can report success and leave an empty file: check the
    // writes first.
    if (file.write(bytes) != bytes.size() || !file.flush() ||
        file.error() != QFileDevice::NoError || !file.commit()) {
        d->error = QStringLiteral("cannot write %1: %2").arg(d->fileName, file.errorString());
        file.cancelWriting();
        return false;
    }
    d->loaded = DiskState{true, true, bytes, QString()};
    d->error.clear();
    return true;
}

void VelaUIDesktopEntry::copyFrom(const VelaUIDesktopEntry &other)
{
    if (&other == this)
        return;
    gsize length = 0;
    gchar *data = g_key_file_to_data(other.d->keyFile.get(), &length, nullptr);
    d->reset();
    g_key_file_load_from_data(d->keyFile.get(), data, length, LoadFlags, nullptr);
    g_free(data);
}

QString VelaUIDesktopEntry::fileName() const
{
    return d->fileName;
}

QString VelaUIDesktopEntry::errorString() const
{
    return d->error;
}

QString VelaUIDesktopEntry::getType() const
{
    return d->string(TypeKey);
}

void VelaUIDesktopEntry::setType(const QString &type)
{
    d->setString(TypeKey, type);
}

QString VelaUIDesktopEntry::getURL() const
{
    return d->string(UrlKey);
}

QString VelaUIDesktopEntry::getName() const
{
    return d->string(NameKey);
}

void VelaUIDesktopEntry::setName(const QString &name)
{
    d->setString(NameKey, name);
}

QString VelaUIDesktopEntry::getLocalName() const
{
    return d->localString(NameKey);
}

void VelaUIDesktopEntry::setLocalName(const QString &name)
{
    d->setLocalString(NameKey, name);
}

QString VelaUIDesktopEntry::getGenericName() const
{
    return d->string(GenericNameKey);
}

void VelaUIDesktopEntry::setGenericName(const QString &name)
{
    d->setString(GenericNameKey, name);
}

QString VelaUIDesktopEntry::getLocalGenericName() const
{
    return d->localString(GenericNameKey);
}

void VelaUIDesktopEntry::setLocalGenericName(const QString &name)
{
    d->setLocalString(GenericNameKey, name);
}

QString VelaUIDesktopEntry::getIcon() const
{
    return d->string(IconKey);
}

void VelaUIDesktopEntry::setIcon(const QString &icon)
{
    d->setString(IconKey, icon);
}

QString VelaUIDesktopEntry::getLocalIcon() const
{
    return d->localString(IconKey);
}

void VelaUIDesktopEntry::setLocalIcon(const QString &icon)
{
    d->setLocalString(IconKey, icon);
}

QString VelaUIDesktopEntry::getComment() const
{
    return d->string(CommentKey);
}

void VelaUIDesktopEntry::setComment(const QString &comment)
{
    d->setString(CommentKey, comment);
}

QString VelaUIDesktopEntry::getLocalComment() const
{
    return d->localString(CommentKey);
}

void VelaUIDesktopEntry::setLocalComment(const QString &comment)
{
    d->setLocalString(CommentKey, comment);
}

QStringList VelaUIDesktopEntry::getOnlyShowIn() const
{
    gsize length = 0;
    gchar **list = g_key_file_get_string_list(d->keyFile.get(), MainGroup,
                                              d->key(OnlyShowInKey).constData(), &length, nullptr);
    QStringList desktops;
    for (gsize i = 0; list && i < length; ++i)
        desktops << QString::fromUtf8(list[i]);
    g_strfreev(list);
    return desktops;
}

void VelaUIDesktopEntry::setOnlyShowIn(const QStringList &desktops)
{
    const QByteArray key = d->key(OnlyShowInKey);
    if (desktops.isEmpty()) {
        g_key_file_remove_key(d->keyFile.get(), MainGroup, key.constData(), nullptr);
        return;
    }
    QList<QByteArray> texts;
    std::vector<const gchar *> pointers;
    for (const QString &desktop : desktops)
        texts << desktop.toUtf8();
    for (const QByteArray &text : qAsConst(texts))
        pointers.push_back(text.constData());
    g_key_file_set_string_list(d->keyFile.get(), MainGroup, key.constData(), pointers.data(),
                               pointers.size());
}

QString VelaUIDesktopEntry::getPath() const
{
    return d->string(PathKey);
}

void VelaUIDesktopEntry::setPath(const QString &path)
{
    d->setString(PathKey, path);
}

QString VelaUIDesktopEntry::getTryExec() const
{
    return d->string(TryExecKey);
}

void VelaUIDesktopEntry::setTryExec(const QString &program)
{
    d->setString(TryExecKey, program);
}

QString VelaUIDesktopEntry::getExec() const
{
    return d->string(ExecKey);
}

void VelaUIDesktopEntry::setExec(const QString &command)
{
    d->setString(ExecKey, command);
}

QString VelaUIDesktopEntry::getEntry(const QString &key) const
{
    return d->string(key);
}

void VelaUIDesktopEntry::setEntry(const QString &key, const QString &value)
{
    d->setString(key, value);
}
