#ifndef ZQLMODULES_SETTINGLINESHANDLER_P_H
#define ZQLMODULES_SETTINGLINESHANDLER_P_H

#include <QByteArray>
#include <QHash>
#include <QRegExp>
#include <QString>
#include <QVariant>
#include <QVector>

// Files of "KEY value" lines in which each line carries one setting: /etc/login.defs,
// /etc/default/useradd and /etc/adduser.conf. One reader serves all three, and one rewriter the
// two files whose settings are switched numbers; the exported handlers are named wrappers over
// them, and a file is a table of keys (settinglineshandler.cpp).
namespace SettingLines {

// How the value of a line becomes a setting, and back.
enum class Kind {
    Days,      // a switched number [enabled, days]; a line reads as [true, N], N 0 when no number
    Date,      // a switched number of days since 1970-01-01, "yyyy-MM-dd" in the file; an empty or
               // invalid date reads as nothing
    Text,      // the value as it stands
    YesNo,     // true exactly for "yes" (case-sensitive), written "yes" or "no"
    Integer,   // an int; a value that is not one reads as nothing
    Unmanaged, // the line matches but carries no setting
};

struct Key
{
    QString fileKey;      // the key as the file spells it
    QString settingsKey;  // the key in the settings hash
    Kind kind;            // what the value is
    QString lineFormat;   // the replacement of an existing line, without line end
    QString appendFormat; // what is appended when no line carried the key
    QVariant toolDefault; // plain values: what the tool assumes when the file has no line
};

// A file's lines: capture 1 of the line pattern is one of the keys, capture 2 is the value.
// Key i has the seen bit 1 << i.
struct File
{
    QString valuePattern; // what follows the key, capture 2 the value
    QVector<Key> keys;    // the keys, in the order they are appended
};

// /etc/login.defs: the password ageing defaults.
extern const File LoginDefs;
// /etc/default/useradd: the account defaults of new users.
extern const File UserAddDefaults;
// /etc/adduser.conf: the defaults for new users.
extern const File AddUserConf;

// The line pattern of @p file.
QString linePattern(const File &file);

// The index in file.keys of the key that @p line captured, or -1.
int indexOf(const File &file, const QRegExp &line);

// The seen bit of the key at @p index.
inline int seenBit(int index)
{
    return 1 << index;
}

// The seen bits of all keys of @p file.
inline int allSeen(const File &file)
{
    return seenBit(file.keys.size()) - 1;
}

// Stores what a switched setting of @p file reads as when no line carries it, [false, 0]. Plain
// settings stay absent.
void storeDefaults(const File &file, QHash<QString, QVariant> &result);

// Stores the setting that one line carries; @p line holds the captures of its match. @return
// true, as a reader's handleLine() does.
bool readLine(const File &file, const QRegExp &line, QHash<QString, QVariant> &result);

// Switched settings only. Puts into @p content (when not null) the line that carries the setting
// while it is switched on, or an empty line; marks the key as seen. @return true.
bool rewriteSwitchedLine(const File &file, const QRegExp &line,
                         const QHash<QString, QVariant> &settings, int *seen, QByteArray *content);

// Switched settings only. Puts into @p tail the lines of the switched-on settings whose key is
// not in @p seen. @return false when every key was seen.
bool appendSwitched(const File &file, const QHash<QString, QVariant> &settings, int seen,
                    QByteArray *tail);

} // namespace SettingLines

#endif // ZQLMODULES_SETTINGLINESHANDLER_P_H
