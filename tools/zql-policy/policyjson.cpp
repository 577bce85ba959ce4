#include "policyjson.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace ZqlPolicy {

namespace {

std::string utf8(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    return std::string(bytes.constData(), static_cast<size_t>(bytes.size()));
}

QString fromUtf8(const std::string &text)
{
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

bool objectToJson(const QStringList &keys, const std::function<QVariant(const QString &)> &valueOf,
                  Json &json, QString *error)
{
    json = Json::object();
    for (const QString &key : keys) {
        Json member;
        if (!PolicyJson::toJson(valueOf(key), member, error)) {
            *error = QStringLiteral("\"%1\": %2").arg(key, *error);
            return false;
        }
        json[utf8(key)] = std::move(member);
    }
    return true;
}

bool listToJson(const QVariantList &list, Json &json, QString *error)
{
    json = Json::array();
    for (int i = 0; i < list.size(); ++i) {
        Json element;
        if (!PolicyJson::toJson(list.at(i), element, error)) {
            *error = QStringLiteral("[%1]: %2").arg(i).arg(*error);
            return false;
        }
        json.push_back(std::move(element));
    }
    return true;
}

// QtCore's JSON has a single number type, double; an integral one is an integer of the
// policy (a switched number's value, for one).
QVariant fromQtJson(const QJsonValue &value)
{
    QVariant variant = value.toVariant();
    if (variant.userType() == QMetaType::Double) {
        const double number = variant.toDouble();
        const double exactLimit = 9007199254740992.0; // 2^53
        if (std::isfinite(number) && std::trunc(number) == number &&
            std::fabs(number) <= exactLimit)
            return static_cast<qlonglong>(number);
    }
    return variant;
}

bool isSwitchedNumber(const Json &json)
{
    return json.is_array() && json.size() == 2 && json[0].is_boolean() &&
           (json[1].is_number_integer());
}

} // namespace

bool PolicyJson::toJson(const QVariant &value, Json &json, QString *error)
{
    switch (static_cast<QMetaType::Type>(value.userType())) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        json = nullptr;
        return true;
    case QMetaType::Bool:
        json = value.toBool();
        return true;
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::SChar:
        json = static_cast<std::int64_t>(value.toLongLong());
        return true;
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UChar:
        json = static_cast<std::uint64_t>(value.toULongLong());
        return true;
    case QMetaType::Double:
    case QMetaType::Float: {
        const double number = value.toDouble();
        if (!std::isfinite(number)) {
            *error = QStringLiteral("the number %1 cannot be written as JSON").arg(number);
            return false;
        }
        json = number;
        return true;
    }
    case QMetaType::QString:
        json = utf8(value.toString());
        return true;
    case QMetaType::QStringList: {
        json = Json::array();
        const QStringList list = value.toStringList();
        for (const QString &element : list)
            json.push_back(utf8(element));
        return true;
    }
    case QMetaType::QVariantList:
        return listToJson(value.toList(), json, error);
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        return objectToJson(
            map.keys(), [&map](const QString &key) { return map.value(key); }, json, error);
    }
    case QMetaType::QVariantHash: {
        const QVariantHash hash = value.toHash();
        QStringList keys = hash.keys();
        std::sort(keys.begin(), keys.end());
        return objectToJson(
            keys, [&hash](const QString &key) { return hash.value(key); }, json, error);
    }
    case QMetaType::QJsonValue: {
        const QJsonValue jsonValue = value.toJsonValue();
        if (jsonValue.isArray())
            return toJson(jsonValue.toArray(), json, error);
        if (jsonValue.isObject())
            return toJson(jsonValue.toObject(), json, error);
        return toJson(fromQtJson(jsonValue), json, error);
    }
    case QMetaType::QJsonArray: {
        QVariantList list;
        const QJsonArray array = value.toJsonArray();
        for (const QJsonValue &element : array)
            list.append(QVariant::fromValue(element));
        return listToJson(list, json, error);
    }
    case QMetaType::QJsonObject: {
        QVariantMap map;
        const QJsonObject object = value.toJsonObject();
        for (auto member = object.begin(); member != object.end(); ++member)
            map.insert(member.key(), QVariant::fromValue(member.value()));
        return toJson(map, json, error);
    }
    default:
        *error = QStringLiteral("a value of type %1 cannot be written as JSON")
                     .arg(QString::fromLatin1(value.typeName()));
        return false;
    }
}

QVariant PolicyJson::toVariant(const Json &json)
{
    switch (json.type()) {
    case Json::value_t::null:
    case Json::value_t::discarded:
        return QVariant();
    case Json::value_t::boolean:
        return json.get<bool>();
    case Json::value_t::number_integer: {
        const std::int64_t number = json.get<std::int64_t>();
        if (number >= INT_MIN && number <= INT_MAX)
            return static_cast<int>(number);
        return static_cast<qlonglong>(number);
    }
    case Json::value_t::number_unsigned: {
        const std::uint64_t number = json.get<std::uint64_t>();
        if (number <= static_cast<std::uint64_t>(INT_MAX))
            return static_cast<int>(number);
        if (number <= static_cast<std::uint64_t>(LLONG_MAX))
            return static_cast<qlonglong>(number);
        return static_cast<qulonglong>(number);
    }
    case Json::value_t::number_float:
        return json.get<double>();
    case Json::value_t::string:
        return fromUtf8(json.get_ref<const std::string &>());
    case Json::value_t::array: {
        if (isSwitchedNumber(json)) {
            const Json &number = json[1];
            const qint64 value = number.is_number_unsigned()
                                     ? static_cast<qint64>(number.get<std::uint64_t>())
                                     : number.get<std::int64_t>();
            return QJsonArray{json[0].get<bool>(), QJsonValue(value)};
        }
        const bool allStrings =
            !json.empty() && std::all_of(json.begin(), json.end(),
                                         [](const Json &element) { return element.is_string(); });
        if (allStrings) {
            QStringList list;
            for (const Json &element : json)
                list.append(fromUtf8(element.get_ref<const std::string &>()));
            return list;
        }
        QVariantList list;
        for (const Json &element : json)
            list.append(toVariant(element));
        return list;
    }
    case Json::value_t::object: {
        QVariantMap map;
        for (auto member = json.begin(); member != json.end(); ++member)
            map.insert(fromUtf8(member.key()), toVariant(member.value()));
        return map;
    }
    case Json::value_t::binary:
        break;
    }
    return QVariant();
}

bool PolicyJson::parse(const QByteArray &text, Json &json, QString *error)
{
    // The keys seen so far in each object being read, innermost last, and the path to it.
    std::vector<std::set<std::string>> seenKeys;
    std::vector<std::string> path;
    std::string lastKey;
    QString duplicate;
    auto watchKeys = [&](int, Json::parse_event_t event, Json &parsed) {
        switch (event) {
        case Json::parse_event_t::object_start:
            seenKeys.emplace_back();
            path.push_back(lastKey);
            lastKey.clear();
            break;
        case Json::parse_event_t::object_end:
            seenKeys.pop_back();
            path.pop_back();
            lastKey.clear();
            break;
        case Json::parse_event_t::key:
            lastKey = parsed.get<std::string>();
            if (!seenKeys.back().insert(lastKey).second && duplicate.isEmpty()) {
                QStringList where;
                for (size_t i = 1; i < path.size(); ++i)
                    where.append(fromUtf8(path[i]));
                duplicate =
                    where.isEmpty()
                        ? QStringLiteral("the key \"%1\" appears twice").arg(fromUtf8(lastKey))
                        : QStringLiteral("the key \"%1\" appears twice in \"%2\"")
                              .arg(fromUtf8(lastKey), where.join(QLatin1Char('/')));
            }
            break;
        case Json::parse_event_t::array_start:
        case Json::parse_event_t::array_end:
        case Json::parse_event_t::value:
            break;
        }
        return true;
    };
    try {
        json = Json::parse(text.constData(), text.constData() + text.size(), watchKeys);
    } catch (const Json::exception &failure) {
        QString message = QString::fromUtf8(failure.what());
        // "[json.exception.parse_error.101] parse error at line 1, ..." without the tag.
        const int tagEnd = message.indexOf(QLatin1String("] "));
        if (message.startsWith(QLatin1Char('[')) && tagEnd > 0)
            message = message.mid(tagEnd + 2);
        *error = message;
        return false;
    }
    if (!duplicate.isEmpty()) {
        *error = duplicate;
        return false;
    }
    return true;
}

namespace {

bool isScalar(const Json &json)
{
    return !json.is_array() && !json.is_object();
}

// Four-space indentation, like nlohmann's dump(4), except that an array of scalars (a switched
// number, a list of names) stays on one line: "deny": [true, 5].
void write(const Json &json, int depth, std::string &out)
{
    const std::string indent(static_cast<size_t>(depth + 1) * 4, ' ');
    const std::string closing(static_cast<size_t>(depth) * 4, ' ');
    if (json.is_object() && !json.empty()) {
        out += "{\n";
        bool first = true;
        for (auto member = json.begin(); member != json.end(); ++member) {
            out += first ? "" : ",\n";
            first = false;
            out += indent + Json(member.key()).dump() + ": ";
            write(member.value(), depth + 1, out);
        }
        out += '\n' + closing + '}';
    } else if (json.is_array() && !json.empty()) {
        const bool inline_ = std::all_of(json.begin(), json.end(), isScalar);
        out += inline_ ? "[" : "[\n";
        bool first = true;
        for (const Json &element : json) {
            out += first ? "" : (inline_ ? ", " : ",\n");
            first = false;
            if (!inline_)
                out += indent;
            write(element, depth + 1, out);
        }
        out += inline_ ? "]" : '\n' + closing + ']';
    } else {
        out += json.dump();
    }
}

} // namespace

QByteArray PolicyJson::dump(const Json &json)
{
    std::string text;
    write(json, 0, text);
    text += '\n';
    return QByteArray(text.data(), static_cast<int>(text.size()));
}

} // namespace ZqlPolicy
