#ifndef ZQLMODULES_SWITCHEDNUMBER_P_H
#define ZQLMODULES_SWITCHEDNUMBER_P_H

#include <QHash>
#include <QJsonArray>
#include <QJsonValue>
#include <QLocale>
#include <QObject>
#include <QString>
#include <QVariant>

#include <cmath>

// A switched number is a PAM or account option carried as the JSON array [enabled, value]:
// the host can show an option as switched off and still keep its number.
namespace SwitchedNumber {

// [enabled, value] as the readers store it.
inline QVariant make(bool enabled, qint64 value)
{
    return QVariant(QJsonArray{enabled, value});
}

// What a missing key reads as: [false, 0].
inline QVariant off()
{
    return make(false, 0);
}

// The value as a JSON array. Hosts that built the hash from JSON may hand a variant list.
inline QJsonArray toArray(const QVariant &value)
{
    if (value.userType() == QMetaType::QJsonArray)
        return value.toJsonArray();
    if (value.userType() == QMetaType::QJsonValue)
        return value.toJsonValue().toArray();
    if (value.userType() == QMetaType::QVariantList)
        return QJsonArray::fromVariantList(value.toList());
    return {};
}

// The setting under @p key as a JSON array, [false, 0] when the key is absent.
inline QJsonArray setting(const QHash<QString, QVariant> &settings, const QString &key)
{
    const auto it = settings.constFind(key);
    return it == settings.constEnd() ? QJsonArray{false, 0} : toArray(it.value());
}

// Whether @p array asks for its option to be written: exactly two elements, the first the
// JSON boolean true. A first element that is the number 1 is not true.
inline bool isOn(const QJsonArray &array)
{
    return array.size() == 2 && array.at(0).isBool() && array.at(0).toBool();
}

// The largest magnitude a JSON number (a double) holds exactly: 2^53.
constexpr double ExactLimit = 9007199254740992.0;

// Whether the number of @p array (its second element) can be written: a whole number of at
// most 2^53 either way. An array without a number there has none to write.
inline bool hasWholeNumber(const QJsonArray &array)
{
    if (array.size() < 2 || !array.at(1).isDouble())
        return true;
    const double value = array.at(1).toDouble();
    return std::isfinite(value) && std::trunc(value) == value && std::fabs(value) <= ExactLimit;
}

// The number of a switched number, whole (JSON numbers are doubles); 0 for a number that
// hasWholeNumber() refuses, which the modules never write.
inline qint64 number(const QJsonArray &array)
{
    if (!hasWholeNumber(array))
        return 0;
    return static_cast<qint64>(array.at(1).toDouble());
}

// The message for the first key of @p keys in @p settings whose number cannot be written, or a
// null text. A setting such as [true, 1e30] would otherwise reach the files as a number that
// nobody chose.
inline QString unusableNumber(const QHash<QString, QVariant> &settings, const QStringList &keys)
{
    for (const QString &key : keys) {
        const auto it = settings.constFind(key);
        if (it == settings.constEnd())
            continue;
        const QJsonArray array = toArray(it.value());
        if (!hasWholeNumber(array))
            return QObject::tr("\"%1\" holds %2: a switched number needs a whole number from "
                               "-9007199254740992 to 9007199254740992")
                .arg(key,
                     QString::number(array.at(1).toDouble(), 'g', QLocale::FloatingPointShortest));
    }
    return QString();
}

} // namespace SwitchedNumber

#endif // ZQLMODULES_SWITCHEDNUMBER_P_H
