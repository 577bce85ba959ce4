#include "policyjson.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>
#include <QVector>

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

QString joinPath(const QString &path, const QString &step)
{
    return path.isEmpty() ? step : path + QLatin1Char('/') + step;
}

bool refuse(const QString &path, const QString &reason, QString *error)
{
    *error =
        path.isEmpty() ? reason : QStringLiteral("%1: %2").arg(PolicyJson::quoted(path), reason);
    return false;
}

bool toJsonAt(const QVariant &value, Json &json, const QString &path, QString *error);

bool objectToJson(const QStringList &keys, const std::function<QVariant(const QString &)> &valueOf,
                  Json &json, const QString &path, QString *error)
{
    json = Json::object();
    for (const QString &key : keys) {
        Json member;
        if (!toJsonAt(valueOf(key), member, joinPath(path, key), error))
            return false;
        json[utf8(key)] = std::move(member);
    }
    return true;
}

bool listToJson(const QVariantList &list, Json &json, const QString &path, QString *error)
{
    json = Json::array();
    for (int i = 0; i < list.size(); ++i) {
        Json element;
        if (!toJsonAt(list.at(i), element, joinPath(path, QString::number(i)), error))
            return false;
        json.push_back(std::move(element));
    }
    return true;
}

// [bool, integer]. QJsonArray keeps its numbers as doubles, so only integers a double holds
// exactly (|n| <= 2^53) become one; a larger pair stays a QVariantList and keeps every bit.
bool isSwitchedNumber(const Json &json)
{
    if (!json.is_array() || json.size() != 2 || !json[0].is_boolean() ||
        !json[1].is_number_integer())
        return false;
    const std::uint64_t exactLimit = std::uint64_t(1) << 53;
    if (json[1].is_number_unsigned())
        return json[1].get<std::uint64_t>() <= exactLimit;
    const std::int64_t number = json[1].get<std::int64_t>();
    return number >= -static_cast<std::int64_t>(exactLimit) &&
           number <= static_cast<std::int64_t>(exactLimit);
}

} // namespace

bool PolicyJson::toJson(const QVariant &value, Json &json, QString *error)
{
    return toJsonAt(value, json, QString(), error);
}

namespace {

bool toJsonAt(const QVariant &value, Json &json, const QString &path, QString *error)
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
            return refuse(
                path, QStringLiteral("the number %1 cannot be written as JSON").arg(number), error);
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
        return listToJson(value.toList(), json, path, error);
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        return objectToJson(
            map.keys(), [&map](const QString &key) { return map.value(key); }, json, path, error);
    }
    case QMetaType::QVariantHash: {
        const QVariantHash hash = value.toHash();
        QStringList keys = hash.keys();
        std::sort(keys.begin(), keys.end());
        return objectToJson(
            keys, [&hash](const QString &key) { return hash.value(key); }, json, path, error);
    }
    case QMetaType::QJsonValue: {
        const QJsonValue jsonValue = value.toJsonValue();
        if (jsonValue.isArray())
            return toJsonAt(jsonValue.toArray(), json, path, error);
        if (jsonValue.isObject())
            return toJsonAt(jsonValue.toObject(), json, path, error);
        // Qt 5.15 gives an integral number as a qlonglong.
        return toJsonAt(jsonValue.toVariant(), json, path, error);
    }
    case QMetaType::QJsonArray: {
        QVariantList list;
        const QJsonArray array = value.toJsonArray();
        for (const QJsonValue &element : array)
            list.append(QVariant::fromValue(element));
        return listToJson(list, json, path, error);
    }
    case QMetaType::QJsonObject: {
        QVariantMap map;
        const QJsonObject object = value.toJsonObject();
        for (auto member = object.begin(); member != object.end(); ++member)
            map.insert(member.key(), QVariant::fromValue(member.value()));
        return toJsonAt(map, json, path, error);
    }
    default:
        return refuse(path,
                      QStringLiteral("a value of type %1 cannot be written as JSON")
                          .arg(QString::fromLatin1(value.typeName())),
                      error);
    }
}

} // namespace

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
    // A NUL byte is no part of a JSON text; a C string reader would stop at it and take what
    // follows for nothing.
    const int nul = text.indexOf('\0');
    if (nul >= 0) {
        *error = QStringLiteral("a NUL byte at byte %1").arg(nul);
        return false;
    }
    // The object or array being read, innermost last: its name in the path, and the keys seen
    // so far (objects) or the index of the next element (arrays).
    struct Level
    {
        bool array = false;
        std::string name;
        size_t nextIndex = 0;
        std::set<std::string> keys;
    };
    std::vector<Level> levels;
    std::string lastKey;
    QString duplicate;
    // Thrown from the parser's callback: the only way to stop it at once.
    struct TooDeep
    {
    };
    auto enter = [&](bool array) {
        if (levels.size() >= static_cast<size_t>(MaximumDepth))
            throw TooDeep();
        Level level;
        level.array = array;
        if (!levels.empty())
            level.name = levels.back().array ? std::to_string(levels.back().nextIndex++) : lastKey;
        levels.push_back(std::move(level));
    };
    auto watchKeys = [&](int, Json::parse_event_t event, Json &parsed) {
        switch (event) {
        case Json::parse_event_t::object_start:
            enter(false);
            break;
        case Json::parse_event_t::array_start:
            enter(true);
            break;
        case Json::parse_event_t::object_end:
        case Json::parse_event_t::array_end:
            levels.pop_back();
            break;
        case Json::parse_event_t::key:
            lastKey = parsed.get<std::string>();
            if (!levels.back().keys.insert(lastKey).second && duplicate.isEmpty()) {
                QStringList where;
                for (size_t i = 1; i < levels.size(); ++i)
                    where.append(fromUtf8(levels[i].name));
                const QString key = quoted(fromUtf8(lastKey));
                duplicate = where.isEmpty() ? QStringLiteral("the key %1 appears twice").arg(key)
                                            : QStringLiteral("the key %1 appears twice in %2")
                                                  .arg(key, quoted(where.join(QLatin1Char('/'))));
            }
            break;
        case Json::parse_event_t::value:
            // A scalar element of an array (objects and arrays count themselves in enter()).
            if (!levels.empty() && levels.back().array)
                ++levels.back().nextIndex;
            break;
        }
        return true;
    };
    try {
        json = Json::parse(text.constData(), text.constData() + text.size(), watchKeys);
    } catch (const TooDeep &) {
        *error = QStringLiteral("nested deeper than %1 levels").arg(MaximumDepth);
        return false;
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

QString PolicyJson::quoted(const QString &text)
{
    QString out = QStringLiteral("\"");
    const QVector<uint> codes = text.toUcs4();
    for (const uint code : codes) {
        if (code == '"' || code == '\\') {
            out += QLatin1Char('\\') + QChar(code);
        } else if (code == '\n') {
            out += QStringLiteral("\\n");
        } else if (code == '\r') {
            out += QStringLiteral("\\r");
        } else if (code == '\t') {
            out += QStringLiteral("\\t");
        } else if (code < 0x20 || (code >= 0x7F && code <= 0x9F) || code == 0x2028 ||
                   code == 0x2029) {
            out += QStringLiteral("\\u") +
                   QString::number(code, 16).rightJustified(4, QLatin1Char('0'));
        } else {
            out += QString::fromUcs4(&code, 1);
        }
    }
    return out + QLatin1Char('"');
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
