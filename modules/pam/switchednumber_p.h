#ifndef ZQLMODULES_SWITCHEDNUMBER_P_H
#define ZQLMODULES_SWITCHEDNUMBER_P_H

#include <QHash>
#include <QJsonArray>
#include <QJsonValue>
#include <QString>
#include <QVariant>

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

// The number of a switched number, whole (JSON numbers are doubles).
inline qint64 number(const QJsonArray &array)
{
    return static_cast<qint64>(array.at(1).toDouble());
}

} // namespace SwitchedNumber

#endif // ZQLMODULES_SWITCHEDNUMBER_P_H
