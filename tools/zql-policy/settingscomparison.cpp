#include "settingscomparison.h"

#include <QStringList>

#include <algorithm>

namespace ZqlPolicy {

namespace {

bool isSwitchedNumber(const Json &value)
{
    return value.is_array() && value.size() == 2 && value[0].is_boolean() && value[1].is_number();
}

Json asJson(const QVariant &value)
{
    Json json;
    QString error;
    if (!PolicyJson::toJson(value, json, &error))
        return Json(error.toStdString()); // a value JSON cannot hold differs from any policy value
    return json;
}

void compare(const QString &key, const Json &policy, const Json *machine,
             QVector<KeyDifference> *found)
{
    if (policy.is_object() && machine && machine->is_object()) {
        for (auto member = policy.begin(); member != policy.end(); ++member) {
            const auto there = machine->find(member.key());
            compare(key + QLatin1Char('/') + QString::fromStdString(member.key()), member.value(),
                    there == machine->end() ? nullptr : &there.value(), found);
        }
        return;
    }
    if (machine && SettingsComparison::sameValue(policy, *machine))
        return;
    found->append({key, policy, machine ? *machine : Json(), machine != nullptr});
}

} // namespace

bool SettingsComparison::sameValue(const Json &policy, const Json &machine)
{
    if (isSwitchedNumber(policy) && isSwitchedNumber(machine)) {
        if (!policy[0].get<bool>() && !machine[0].get<bool>())
            return true;
        return policy[0] == machine[0] && policy[1] == machine[1];
    }
    if (policy.is_object() && machine.is_object()) {
        if (policy.size() != machine.size())
            return false;
        for (auto member = policy.begin(); member != policy.end(); ++member) {
            const auto there = machine.find(member.key());
            if (there == machine.end() || !sameValue(member.value(), there.value()))
                return false;
        }
        return true;
    }
    if (policy.is_array() && machine.is_array()) {
        if (policy.size() != machine.size())
            return false;
        for (size_t i = 0; i < policy.size(); ++i) {
            if (!sameValue(policy[i], machine[i]))
                return false;
        }
        return true;
    }
    return policy == machine; // numbers compare by value, 5 and 5.0 alike
}

QVector<KeyDifference> SettingsComparison::differences(const QHash<QString, QVariant> &policy,
                                                       const QHash<QString, QVariant> &machine,
                                                       const QHash<QString, QVariant> &defaults)
{
    QStringList keys = policy.keys();
    std::sort(keys.begin(), keys.end());
    QVector<KeyDifference> found;
    for (const QString &key : qAsConst(keys)) {
        const Json policyValue = asJson(policy.value(key));
        const auto there = machine.constFind(key);
        if (there != machine.constEnd()) {
            const Json machineValue = asJson(there.value());
            compare(key, policyValue, &machineValue, &found);
            continue;
        }
        const auto fallback = defaults.constFind(key);
        const Json defaultValue = fallback == defaults.constEnd() ? Json() : asJson(*fallback);
        if (fallback == defaults.constEnd() || !sameValue(policyValue, defaultValue))
            found.append({key, policyValue, defaultValue, false});
    }
    return found;
}

QHash<QString, QVariant>
SettingsComparison::withListsSorted(QHash<QString, QVariant> settings,
                                    const QHash<QString, QString> &sortKeys)
{
    for (auto sortKey = sortKeys.begin(); sortKey != sortKeys.end(); ++sortKey) {
        const auto there = settings.find(sortKey.key());
        if (there == settings.end() || !there->canConvert<QVariantList>())
            continue;
        QVariantList list = there->toList();
        const QString &member = sortKey.value();
        const auto memberOf = [&member](const QVariant &element) {
            return element.toMap().value(member);
        };
        std::stable_sort(list.begin(), list.end(),
                         [&memberOf](const QVariant &left, const QVariant &right) {
                             const QVariant a = memberOf(left);
                             const QVariant b = memberOf(right);
                             if (a.isValid() != b.isValid())
                                 return a.isValid();
                             return a.toString() < b.toString();
                         });
        *there = list;
    }
    return settings;
}

QString SettingsComparison::text(const Json &value)
{
    if (value.is_array()) {
        QStringList elements;
        for (const Json &element : value)
            elements.append(text(element));
        return QLatin1Char('[') + elements.join(QStringLiteral(", ")) + QLatin1Char(']');
    }
    if (value.is_object()) {
        QStringList members;
        for (auto member = value.begin(); member != value.end(); ++member) {
            members.append(QString::fromStdString(Json(member.key()).dump()) +
                           QStringLiteral(": ") + text(member.value()));
        }
        return QLatin1Char('{') + members.join(QStringLiteral(", ")) + QLatin1Char('}');
    }
    return QString::fromStdString(value.dump());
}

} // namespace ZqlPolicy
