#include "settingsschema.h"

#include <QRegularExpression>

#include <algorithm>

#include <cstdint>
#include <limits>

namespace ZqlPolicy {

namespace {

// The characters the check refuses in every text (see PolicyChecker), as a JSON Schema
// pattern, so that an editor refuses them too.
const char PrintableText[] = "^[^\\u0000-\\u001F\\u007F-\\u009F\\u2028\\u2029]*$";
const char PrintableLines[] = "^[^\\u0000-\\u0008\\u000B-\\u001F\\u007F-\\u009F\\u2028\\u2029]*$";
const char PrintablePath[] = "^/[^\\u0000-\\u001F\\u007F-\\u009F\\u2028\\u2029]*$";

QString joinPath(const QString &path, const QString &key)
{
    return path.isEmpty() ? key : path + QLatin1Char('/') + key;
}

// The value as the policy has it, cut short for a message.
QString shown(const Json &value)
{
    QString text = QString::fromStdString(value.dump());
    if (text.size() > 60)
        text = text.left(57) + QStringLiteral("...");
    return text;
}

bool integerInRange(const Json &value, qint64 minimum, qint64 maximum)
{
    if (!value.is_number_integer())
        return false;
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        return maximum >= 0 && number <= static_cast<std::uint64_t>(maximum) &&
               (minimum <= 0 || number >= static_cast<std::uint64_t>(minimum));
    }
    const auto number = value.get<std::int64_t>();
    return number >= minimum && number <= maximum;
}

QString quotedList(const QStringList &words)
{
    QStringList quoted;
    for (const QString &word : words)
        quoted.append(PolicyJson::quoted(word));
    return quoted.join(QStringLiteral(", "));
}

} // namespace

ValueRule::ValueRule(Kind kind)
    : m_kind(kind)
{}

ValueRule ValueRule::any()
{
    return ValueRule(Kind::Any);
}

ValueRule ValueRule::boolean()
{
    return ValueRule(Kind::Boolean);
}

ValueRule ValueRule::integer(qint64 minimum, qint64 maximum)
{
    ValueRule rule(Kind::Integer);
    rule.m_minimum = minimum;
    rule.m_maximum = maximum;
    return rule;
}

ValueRule ValueRule::unsignedMask()
{
    return ValueRule(Kind::UnsignedMask);
}

ValueRule ValueRule::text()
{
    return ValueRule(Kind::Text);
}

ValueRule ValueRule::multiLineText()
{
    return ValueRule(Kind::MultiLineText);
}

ValueRule ValueRule::absolutePath()
{
    return ValueRule(Kind::AbsolutePath);
}

ValueRule ValueRule::choice(const QStringList &words)
{
    ValueRule rule(Kind::Choice);
    rule.m_words = words;
    return rule;
}

ValueRule ValueRule::switchedNumber(qint64 minimum, qint64 maximum)
{
    ValueRule rule(Kind::SwitchedNumber);
    rule.m_minimum = minimum;
    rule.m_maximum = maximum;
    return rule;
}

ValueRule ValueRule::table(const QVector<KeyRule> &members)
{
    ValueRule rule(Kind::Table);
    rule.m_members = std::make_shared<const QVector<KeyRule>>(members);
    return rule;
}

ValueRule ValueRule::textList()
{
    return ValueRule(Kind::TextList);
}

ValueRule ValueRule::tableList(const QVector<KeyRule> &members)
{
    ValueRule rule(Kind::TableList);
    rule.m_members = std::make_shared<const QVector<KeyRule>>(members);
    return rule;
}

ValueRule ValueRule::fileName()
{
    return ValueRule(Kind::FileName);
}

ValueRule ValueRule::openTable(const QString &keyMeaning, const QString &keyPattern,
                               const ValueRule &rule)
{
    ValueRule table(Kind::OpenTable);
    table.m_words = QStringList{keyMeaning, keyPattern};
    table.m_members =
        std::make_shared<const QVector<KeyRule>>(QVector<KeyRule>{KeyRule{QString(), rule, false}});
    return table;
}

const QVector<KeyRule> &ValueRule::members() const
{
    static const QVector<KeyRule> none;
    return m_members ? *m_members : none;
}

QString ValueRule::expectation() const
{
    switch (m_kind) {
    case Kind::Any:
        return QStringLiteral("any value");
    case Kind::Boolean:
        return QStringLiteral("true or false");
    case Kind::Integer:
        return QStringLiteral("an integer from %1 to %2").arg(m_minimum).arg(m_maximum);
    case Kind::UnsignedMask:
        return QStringLiteral("an integer from 0 to 18446744073709551615");
    case Kind::Text:
        return QStringLiteral("a string");
    case Kind::MultiLineText:
        return QStringLiteral("a string (of lines)");
    case Kind::AbsolutePath:
        return QStringLiteral("an absolute path (a string that starts with \"/\")");
    case Kind::Choice:
        return QStringLiteral("one of %1").arg(quotedList(m_words));
    case Kind::SwitchedNumber:
        return QStringLiteral("a switched number: [true or false, an integer from %1 to %2]")
            .arg(m_minimum)
            .arg(m_maximum);
    case Kind::Table:
    case Kind::TableList: {
        QStringList keys;
        for (const KeyRule &member : members())
            keys.append(member.key);
        const QString format = m_kind == Kind::Table
                                   ? QStringLiteral("an object with the keys %1")
                                   : QStringLiteral("a list of objects with the keys %1");
        return format.arg(quotedList(keys));
    }
    case Kind::TextList:
        return QStringLiteral("a list of strings");
    case Kind::OpenTable:
        return QStringLiteral("an object whose keys are each %1 and whose values are each %2")
            .arg(m_words.value(0), members().first().rule.expectation());
    case Kind::FileName:
        return QStringLiteral("a file name (not empty, not \".\" or \"..\", without \"/\")");
    }
    return QString();
}

Json ValueRule::jsonSchema() const
{
    Json schema = Json::object();
    switch (m_kind) {
    case Kind::Any:
        break;
    case Kind::Boolean:
        schema["type"] = "boolean";
        break;
    case Kind::Integer:
        schema["type"] = "integer";
        schema["minimum"] = m_minimum;
        schema["maximum"] = m_maximum;
        break;
    case Kind::UnsignedMask:
        schema["type"] = "integer";
        schema["minimum"] = 0;
        schema["maximum"] = std::numeric_limits<std::uint64_t>::max();
        break;
    case Kind::Text:
        schema["type"] = "string";
        schema["pattern"] = PrintableText;
        break;
    case Kind::MultiLineText:
        schema["type"] = "string";
        schema["pattern"] = PrintableLines;
        break;
    case Kind::AbsolutePath:
        schema["type"] = "string";
        schema["pattern"] = PrintablePath;
        break;
    case Kind::Choice: {
        Json words = Json::array();
        for (const QString &word : m_words)
            words.push_back(word.toStdString());
        schema["enum"] = words;
        break;
    }
    case Kind::SwitchedNumber: {
        Json number = Json::object();
        number["type"] = "integer";
        number["minimum"] = m_minimum;
        number["maximum"] = m_maximum;
        schema["type"] = "array";
        schema["prefixItems"] = Json::array({Json{{"type", "boolean"}}, number});
        schema["items"] = false;
        schema["minItems"] = 2;
        break;
    }
    case Kind::OpenTable:
        schema["type"] = "object";
        schema["propertyNames"] = Json{{"pattern", m_words.value(1).toStdString()}};
        schema["additionalProperties"] = members().first().rule.jsonSchema();
        break;
    case Kind::TextList:
        schema["type"] = "array";
        schema["items"] = Json{{"type", "string"}, {"pattern", PrintableText}};
        break;
    case Kind::FileName:
        schema["type"] = "string";
        schema["pattern"] = "^[^/\\u0000-\\u001F\\u007F-\\u009F\\u2028\\u2029]+$";
        schema["not"] = Json{{"enum", Json::array({".", ".."})}};
        break;
    case Kind::TableList: {
        ValueRule element = table(members());
        schema["type"] = "array";
        schema["items"] = element.jsonSchema();
        break;
    }
    case Kind::Table: {
        Json properties = Json::object();
        Json required = Json::array();
        for (const KeyRule &member : members()) {
            properties[member.key.toStdString()] = member.rule.jsonSchema();
            if (member.required)
                required.push_back(member.key.toStdString());
        }
        schema["type"] = "object";
        schema["properties"] = properties;
        if (!required.empty())
            schema["required"] = required;
        schema["additionalProperties"] = false;
        break;
    }
    }
    schema["description"] = expectation().toStdString();
    return schema;
}

void ValueRule::validate(const QString &module, const QString &path, const Json &value,
                         QStringList *problems) const
{
    bool fits = true;
    switch (m_kind) {
    case Kind::Any:
        break;
    case Kind::Boolean:
        fits = value.is_boolean();
        break;
    case Kind::Integer:
        fits = integerInRange(value, m_minimum, m_maximum);
        break;
    case Kind::UnsignedMask:
        fits = value.is_number_unsigned() ||
               (value.is_number_integer() && value.get<std::int64_t>() >= 0);
        break;
    case Kind::Text:
    case Kind::MultiLineText:
        fits = value.is_string();
        break;
    case Kind::AbsolutePath:
        fits = value.is_string() && value.get<std::string>().rfind('/', 0) == 0;
        break;
    case Kind::Choice:
        fits =
            value.is_string() && m_words.contains(QString::fromStdString(value.get<std::string>()));
        break;
    case Kind::SwitchedNumber:
        fits = value.is_array() && value.size() == 2 && value[0].is_boolean() &&
               integerInRange(value[1], m_minimum, m_maximum);
        break;
    case Kind::OpenTable: {
        if (!value.is_object()) {
            fits = false;
            break;
        }
        const QRegularExpression keyPattern(m_words.value(1));
        for (auto member = value.begin(); member != value.end(); ++member) {
            const QString key = QString::fromStdString(member.key());
            if (!keyPattern.match(key).hasMatch())
                problems->append(
                    QStringLiteral("%1: the key %2 is not %3")
                        .arg(module, PolicyJson::quoted(joinPath(path, key)), m_words.value(0)));
            else
                members().first().rule.validate(module, joinPath(path, key), member.value(),
                                                problems);
        }
        return;
    }
    case Kind::TextList:
        fits = value.is_array() &&
               std::all_of(value.begin(), value.end(), [](const Json &e) { return e.is_string(); });
        break;
    case Kind::FileName: {
        const std::string name = value.is_string() ? value.get<std::string>() : std::string();
        fits = value.is_string() && !name.empty() && name != "." && name != ".." &&
               name.find('/') == std::string::npos;
        break;
    }
    case Kind::TableList: {
        if (!value.is_array()) {
            fits = false;
            break;
        }
        const ValueRule element = table(members());
        for (size_t i = 0; i < value.size(); ++i)
            element.validate(module, joinPath(path, QString::number(i)), value[i], problems);
        return;
    }
    case Kind::Table: {
        if (!value.is_object()) {
            fits = false;
            break;
        }
        for (auto member = value.begin(); member != value.end(); ++member) {
            const QString key = QString::fromStdString(member.key());
            const KeyRule *rule = nullptr;
            for (const KeyRule &known : members()) {
                if (known.key == key)
                    rule = &known;
            }
            if (!rule)
                problems->append(QStringLiteral("%1: unknown key %2")
                                     .arg(module, PolicyJson::quoted(joinPath(path, key))));
            else
                rule->rule.validate(module, joinPath(path, key), member.value(), problems);
        }
        for (const KeyRule &known : members()) {
            if (known.required && !value.contains(known.key.toStdString()))
                problems->append(QStringLiteral("%1: %2 is missing; expected %3")
                                     .arg(module, PolicyJson::quoted(joinPath(path, known.key)),
                                          known.rule.expectation()));
        }
        return;
    }
    }
    if (!fits)
        problems->append(QStringLiteral("%1: %2 is %3; expected %4")
                             .arg(module, PolicyJson::quoted(path), shown(value), expectation()));
}

SettingsSchema SettingsSchema::any()
{
    SettingsSchema schema;
    schema.m_any = true;
    return schema;
}

SettingsSchema::SettingsSchema(const QVector<KeyRule> &keys)
    : m_keys(keys)
{}

SettingsSchema SettingsSchema::openKeys(const QString &keyMeaning, const QString &keyPattern,
                                        const ValueRule &rule)
{
    SettingsSchema schema;
    schema.m_keyMeaning = keyMeaning;
    schema.m_keyPattern = keyPattern;
    schema.m_openRule = std::make_shared<const ValueRule>(rule);
    return schema;
}

QStringList SettingsSchema::validate(const QString &module,
                                     const QHash<QString, QVariant> &settings,
                                     const QSet<QString> &unjudged) const
{
    QStringList problems;
    if (m_any)
        return problems;
    QStringList keys = settings.keys();
    std::sort(keys.begin(), keys.end());
    const QRegularExpression keyPattern(m_keyPattern);
    for (const QString &key : qAsConst(keys)) {
        if (unjudged.contains(key))
            continue;
        Json value;
        QString error;
        if (!PolicyJson::toJson(settings.value(key), value, &error)) {
            problems.append(
                QStringLiteral("%1: %2: %3").arg(module, PolicyJson::quoted(key), error));
            continue;
        }
        if (hasOpenKeys()) {
            if (!keyPattern.match(key).hasMatch())
                problems.append(QStringLiteral("%1: the key %2 is not %3")
                                    .arg(module, PolicyJson::quoted(key), m_keyMeaning));
            else
                m_openRule->validate(module, key, value, &problems);
            continue;
        }
        for (const KeyRule &rule : m_keys) {
            if (rule.key == key)
                rule.rule.validate(module, key, value, &problems);
        }
    }
    for (const KeyRule &rule : m_keys) {
        if (rule.required && !settings.contains(rule.key))
            problems.append(
                QStringLiteral("%1: %2 is missing; expected %3")
                    .arg(module, PolicyJson::quoted(rule.key), rule.rule.expectation()));
    }
    return problems;
}

Json SettingsSchema::jsonSchema() const
{
    Json schema = Json::object();
    schema["type"] = "object";
    if (m_any)
        return schema;
    if (hasOpenKeys()) {
        schema["propertyNames"] = Json{{"pattern", m_keyPattern.toStdString()},
                                       {"description", m_keyMeaning.toStdString()}};
        schema["additionalProperties"] = m_openRule->jsonSchema();
        return schema;
    }
    Json properties = Json::object();
    Json required = Json::array();
    for (const KeyRule &rule : m_keys) {
        properties[rule.key.toStdString()] = rule.rule.jsonSchema();
        if (rule.required)
            required.push_back(rule.key.toStdString());
    }
    schema["properties"] = properties;
    if (!required.empty())
        schema["required"] = required;
    schema["additionalProperties"] = false;
    return schema;
}

} // namespace ZqlPolicy
