#ifndef ZQLMODULES_SWITCHEDLINES_P_H
#define ZQLMODULES_SWITCHEDLINES_P_H

#include "switchednumber_p.h"

#include <QByteArray>
#include <QDate>
#include <QHash>
#include <QString>
#include <QVariant>
#include <QVector>

// Files of "KEY value" lines whose settings are switched numbers (login.defs, useradd): a line
// carries its value while the setting is switched on and is emptied otherwise, and settings
// that no line carried are appended at the end. The two rewriters differ only in their tables.
namespace SwitchedLines {

const QDate DayZero(1970, 1, 1);
const QString DateFormat = QStringLiteral("yyyy-MM-dd");

struct Line
{
    QString fileKey;      // the key as the file spells it
    QString settingsKey;  // the key in the settings hash
    int seenBit;          // set once a line of the file carried the key
    QString lineFormat;   // the replacement of an existing line, without line end
    QString appendFormat; // what is appended when no line carried the key
    bool isDate;          // the value counts days since 1970-01-01 and is written as a date
};

// The setting of @p line as the file writes it, or a null text when it is absent, switched off
// or malformed.
inline QString valueText(const Line &line, const QHash<QString, QVariant> &settings)
{
    const auto it = settings.constFind(line.settingsKey);
    if (it == settings.constEnd())
        return {};
    const QJsonArray value = SwitchedNumber::toArray(it.value());
    if (!SwitchedNumber::isOn(value))
        return {};
    const qint64 number = SwitchedNumber::number(value);
    return line.isDate ? DayZero.addDays(number).toString(DateFormat) : QString::number(number);
}

// The new content of the line that carries @p fileKey (empty when its setting is off); marks
// the key as seen.
inline QString replacement(const QVector<Line> &table, const QString &fileKey,
                           const QHash<QString, QVariant> &settings, int *seen)
{
    for (const Line &line : table) {
        if (line.fileKey != fileKey)
            continue;
        *seen |= line.seenBit;
        const QString value = valueText(line, settings);
        return value.isNull() ? QString() : line.lineFormat.arg(value);
    }
    return {};
}

// The lines for switched-on settings that no line of the file carried.
inline QByteArray missing(const QVector<Line> &table, const QHash<QString, QVariant> &settings,
                          int seen)
{
    QByteArray tail;
    for (const Line &line : table) {
        if (seen & line.seenBit)
            continue;
        const QString value = valueText(line, settings);
        if (!value.isNull())
            tail += line.appendFormat.arg(value).toLocal8Bit();
    }
    return tail;
}

} // namespace SwitchedLines

#endif // ZQLMODULES_SWITCHEDLINES_P_H
