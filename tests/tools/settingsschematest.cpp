// The settings schemas of the library's modules: every module has one, and every wrong value
// of every key is refused with a problem that names the key.
#include "settingsschema.h"
#include "moduleregistry.h"
#include "policytool.h"

#include <QJsonArray>
#include <QtTest>

#include <cctype>

#include <cstdint>
#include <limits>

using ZqlPolicy::Json;
using ZqlPolicy::KeyRule;
using ZqlPolicy::ModuleRegistry;
using ZqlPolicy::SettingsSchema;
using ZqlPolicy::ValueRule;
using Settings = QHash<QString, QVariant>;

namespace {

// Wrong values for a rule: every JSON type it does not take, and the values next to its range.
QList<QPair<QString, Json>> wrongValues(const ValueRule &rule)
{
    QList<QPair<QString, Json>> values;
    auto add = [&](const char *name, const Json &value) {
        values.append({QString::fromLatin1(name), value});
    };
    const Json object = Json::object({{"a", 1}});
    switch (rule.kind()) {
    case ValueRule::Kind::Any:
        break;
    case ValueRule::Kind::Boolean:
        for (const char *word : {"no", "off", "yes", "true", "false"})
            add(word, word);
        add("0", 0);
        add("1", 1);
        add("null", nullptr);
        add("[true]", Json::array({true}));
        add("object", object);
        break;
    case ValueRule::Kind::Integer:
    case ValueRule::Kind::SwitchedNumber: {
        const bool switched = rule.kind() == ValueRule::Kind::SwitchedNumber;
        auto number = [&](const Json &n) { return switched ? Json::array({true, n}) : n; };
        const Json range = rule.jsonSchema();
        const Json limits = switched ? range["prefixItems"][1] : range;
        const auto minimum = limits["minimum"].get<std::int64_t>();
        const auto maximum = limits["maximum"].get<std::int64_t>();
        add("below the minimum", number(minimum - 1));
        add("above the maximum", number(maximum + 1));
        add("1e30", number(1e30));
        add("2^64 - 1", number(std::numeric_limits<std::uint64_t>::max()));
        add("-2^63", number(std::numeric_limits<std::int64_t>::min()));
        add("a fraction", number(1.5));
        add("a string of digits", number("5"));
        add("null", number(nullptr));
        if (switched) {
            add("a plain number", 5);
            add("a number as the switch", Json::array({1, 5}));
            add("one element", Json::array({true}));
            add("three elements", Json::array({true, 5, 6}));
            add("empty array", Json::array());
            add("the string \"5\"", "5");
        } else {
            add("a switched number", Json::array({true, 5}));
            add("users", "users");
            add("true", true);
        }
        add("object", object);
        break;
    }
    case ValueRule::Kind::UnsignedMask:
        add("negative", -1);
        add("1e30", 1e30);
        add("a fraction", 1.5);
        add("a string of digits", "5");
        add("null", nullptr);
        add("true", true);
        break;
    case ValueRule::Kind::Text:
    case ValueRule::Kind::MultiLineText:
    case ValueRule::Kind::AbsolutePath:
        add("a number", 5);
        add("null", nullptr);
        add("true", true);
        add("a list", Json::array({"/a"}));
        if (rule.kind() == ValueRule::Kind::AbsolutePath) {
            add("a relative path", "bin/sh");
            add("empty", "");
        }
        break;
    case ValueRule::Kind::Choice: {
        const Json words = rule.jsonSchema()["enum"];
        for (const Json &word : words) {
            const std::string text = word.get<std::string>();
            std::string other = text;
            const auto first = static_cast<unsigned char>(other[0]);
            other[0] =
                static_cast<char>(std::isupper(first) ? std::tolower(first) : std::toupper(first));
            values.append({QString::fromStdString(text + " in the other case"), other});
            values.append({QString::fromStdString(text + " with a blank"), text + " "});
        }
        add("empty", "");
        add("a number", 5);
        add("null", nullptr);
        break;
    }
    case ValueRule::Kind::TextList:
        add("a string", "x");
        add("a list of numbers", Json::array({1}));
        add("a list with null", Json::array({"a", nullptr}));
        add("null", nullptr);
        add("object", object);
        break;
    case ValueRule::Kind::FileName:
        add("empty", "");
        add("dot", ".");
        add("dot dot", "..");
        add("a path", "/etc/shadow");
        add("a relative path", "../shadow");
        add("a number", 5);
        add("null", nullptr);
        break;
    case ValueRule::Kind::OpenTable:
        add("a string", "x");
        add("a list", Json::array());
        add("null", nullptr);
        add("a key out of range", Json::object({{"300", "x"}}));
        add("a key that is no number", Json::object({{"x", "x"}}));
        add("a value of the wrong type", Json::object({{"1", 5}}));
        break;
    case ValueRule::Kind::TableList:
        add("an object", object);
        add("a string", "x");
        add("a list of numbers", Json::array({5}));
        add("null", nullptr);
        break;
    case ValueRule::Kind::Table:
        add("a string", "x");
        add("a list", Json::array());
        add("a number", 5);
        add("null", nullptr);
        break;
    }
    return values;
}

// A value the rule takes.
Json goodValue(const ValueRule &rule)
{
    switch (rule.kind()) {
    case ValueRule::Kind::Boolean:
        return true;
    case ValueRule::Kind::Integer:
        return rule.jsonSchema()["minimum"];
    case ValueRule::Kind::SwitchedNumber:
        return Json::array({false, rule.jsonSchema()["prefixItems"][1]["minimum"]});
    case ValueRule::Kind::Text:
    case ValueRule::Kind::MultiLineText:
    case ValueRule::Kind::AbsolutePath:
        return "/a";
    case ValueRule::Kind::Choice:
        return rule.jsonSchema()["enum"][0];
    case ValueRule::Kind::Table:
        return Json::object();
    case ValueRule::Kind::TableList:
        return Json::array();
    case ValueRule::Kind::OpenTable:
        return Json::object();
    case ValueRule::Kind::TextList:
        return Json::array({"a"});
    case ValueRule::Kind::FileName:
        return "a.desktop";
    case ValueRule::Kind::UnsignedMask:
        return 0;
    case ValueRule::Kind::Any:
        break;
    }
    return nullptr;
}

// The settings with every required key given a good value, and @p path set to @p value.
QHash<QString, QVariant> settingsWith(const SettingsSchema &schema, const QStringList &path,
                                      const Json &value)
{
    Json settings = Json::object();
    for (const KeyRule &rule : schema.keys()) {
        if (rule.required)
            settings[rule.key.toStdString()] = goodValue(rule.rule);
    }
    Json *at = &settings;
    for (int i = 0; i + 1 < path.size(); ++i) {
        Json &next = (*at)[path.at(i).toStdString()];
        if (!next.is_object())
            next = Json::object();
        at = &next;
    }
    (*at)[path.last().toStdString()] = value;
    QHash<QString, QVariant> hash;
    for (auto member = settings.begin(); member != settings.end(); ++member)
        hash.insert(QString::fromStdString(member.key()),
                    ZqlPolicy::PolicyJson::toVariant(member.value()));
    return hash;
}

// A module's settings from JSON text, as a policy document hands them over.
Settings settingsOf(const QByteArray &text)
{
    const Json json = Json::parse(text.constData());
    Settings settings;
    for (auto member = json.begin(); member != json.end(); ++member)
        settings.insert(QString::fromStdString(member.key()),
                        ZqlPolicy::PolicyJson::toVariant(member.value()));
    return settings;
}

void addRows(const QString &module, const SettingsSchema &schema, const QStringList &path,
             const QVector<KeyRule> &rules)
{
    for (const KeyRule &rule : rules) {
        const QStringList keyPath = path + QStringList{rule.key};
        for (const auto &wrong : wrongValues(rule.rule)) {
            QTest::addRow("%s %s: %s", qPrintable(module),
                          qPrintable(keyPath.join(QLatin1Char('/'))), qPrintable(wrong.first))
                << module << settingsWith(schema, keyPath, wrong.second)
                << keyPath.join(QLatin1Char('/'));
        }
        if (rule.rule.kind() == ValueRule::Kind::TableList) {
            // One element, its required members good, the member under test wrong.
            for (const KeyRule &member : rule.rule.members()) {
                for (const auto &wrong : wrongValues(member.rule)) {
                    Json element = Json::object();
                    for (const KeyRule &other : rule.rule.members()) {
                        if (other.required)
                            element[other.key.toStdString()] = goodValue(other.rule);
                    }
                    element[member.key.toStdString()] = wrong.second;
                    const QString elementPath =
                        keyPath.join(QLatin1Char('/')) + QStringLiteral("/0/") + member.key;
                    QTest::addRow("%s %s: %s", qPrintable(module), qPrintable(elementPath),
                                  qPrintable(wrong.first))
                        << module << settingsWith(schema, keyPath, Json::array({element}))
                        << elementPath;
                }
            }
        }
        if (rule.rule.kind() == ValueRule::Kind::Table) {
            const QStringList unknown =
                keyPath + QStringList{rule.rule.members().first().key + QStringLiteral("x")};
            QTest::addRow("%s %s: unknown key", qPrintable(module),
                          qPrintable(unknown.join(QLatin1Char('/'))))
                << module << settingsWith(schema, unknown, 1) << unknown.join(QLatin1Char('/'));
            addRows(module, schema, keyPath, rule.rule.members());
        }
    }
}

} // namespace

class SettingsSchemaTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyLibraryModuleHasItsSchema();
    void wrongValueIsRefused_data();
    void wrongValueIsRefused();
    void exportedShapesAreAccepted_data();
    void exportedShapesAreAccepted();
    void messages_data();
    void messages();
    void missingRequiredKey();
    void jsonSchemaNamesEveryModule();
};

// A module cannot join the registry without saying what its settings are.
void SettingsSchemaTest::everyLibraryModuleHasItsSchema()
{
    const ModuleRegistry registry = ModuleRegistry::libraryModules();
    QVERIFY(!registry.names().isEmpty());
    for (const QString &name : registry.names()) {
        const SettingsSchema &schema = registry.schema(name);
        QVERIFY2(!schema.isAny(), qPrintable(name + QStringLiteral(" has no settings schema")));
        QVERIFY2(schema.hasOpenKeys() || !schema.keys().isEmpty(), qPrintable(name));
    }
}

void SettingsSchemaTest::wrongValueIsRefused_data()
{
    QTest::addColumn<QString>("module");
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QString>("path");

    const ModuleRegistry registry = ModuleRegistry::libraryModules();
    for (const QString &name : registry.names()) {
        const SettingsSchema &schema = registry.schema(name);
        if (schema.hasOpenKeys()) {
            // The switches: any script name, each on or off.
            for (const auto &wrong : wrongValues(ValueRule::boolean()))
                QTest::addRow("%s console-tty-lock: %s", qPrintable(name), qPrintable(wrong.first))
                    << name
                    << settingsWith(schema, {QStringLiteral("console-tty-lock")}, wrong.second)
                    << QStringLiteral("console-tty-lock");
            QTest::addRow("%s: a key that is no script name", qPrintable(name))
                << name << settingsWith(schema, {QStringLiteral("a b")}, true)
                << QStringLiteral("a b");
            continue;
        }
        addRows(name, schema, {}, schema.keys());
    }
}

void SettingsSchemaTest::wrongValueIsRefused()
{
    QFETCH(QString, module);
    QFETCH(Settings, settings);
    QFETCH(QString, path);

    const ModuleRegistry registry = ModuleRegistry::libraryModules();
    const QStringList problems = registry.schema(module).validate(module, settings);
    QCOMPARE(problems.size(), 1);
    const QString named = module + QStringLiteral(": ");
    QVERIFY2(problems.first().startsWith(named), qPrintable(problems.first()));
    // The key itself, or an element inside it ("autostartApps/0").
    QVERIFY2(problems.first().contains(ZqlPolicy::PolicyJson::quoted(path)) ||
                 problems.first().contains(QLatin1Char('"') + path + QLatin1Char('/')),
             qPrintable(problems.first()));
}

// The values the modules read back: the check never refuses what an export wrote.
void SettingsSchemaTest::exportedShapesAreAccepted_data()
{
    QTest::addColumn<QString>("module");
    QTest::addColumn<QByteArray>("settings");

    QTest::newRow("account-lockout") << QStringLiteral("account-lockout")
                                     << QByteArray(R"({"deny": [true, 3], "lock_time": [false, 0],
        "magic_root": false, "no_reset": false, "per_user": true, "unlock_time": [true, 600]})");
    QTest::newRow("account-lockout, the largest numbers")
        << QStringLiteral("account-lockout")
        << QByteArray(R"({"deny": [true, 65535], "lock_time": [true, 2147483647],
                          "unlock_time": [false, 0]})");
    QTest::newRow("password-policy")
        << QStringLiteral("password-policy")
        << QByteArray(R"({"complexity": {"dcredit": [true, -1], "enforce_for_root": true,
        "gecoscheck": false, "lcredit": [false, 0], "minlen": [true, 12], "ocredit": [true, -512],
        "reject_username": true, "ucredit": [true, 512]},
        "validity-period": {"expireDate": [true, 2932896], "inactiveInterval": [true, -1],
        "maxInterval": [true, 99999], "minInterval": [false, 0], "warningInterval": [true, 7]},
        "history": {"enforce_for_root": false, "remember": [true, 400]}})");
    QTest::newRow("password-policy, empty tables")
        << QStringLiteral("password-policy")
        << QByteArray(R"({"complexity": {}, "validity-period": {}})");
    QTest::newRow("user-creation-policy")
        << QStringLiteral("user-creation-policy")
        << QByteArray(R"({"DHOME": "/home", "DSHELL": "/bin/bash", "SKEL": "/etc/skel",
        "USERGROUPS": true, "USERS_GID": 100})");
    QTest::newRow("user-creation-policy, nothing")
        << QStringLiteral("user-creation-policy") << QByteArray("{}");
    for (const char *word : {"all", "admin", "no"})
        QTest::addRow("login-local %s", word)
            << QStringLiteral("login-local")
            << QByteArray(R"({"login_state": ")") + word + QByteArray("\"}");
    QTest::newRow("console-policy")
        << QStringLiteral("console-policy")
        << QByteArray(R"({"console-su-restrict": true, "console-tty-lock": false})");
    QTest::newRow("system-parameters, no switch")
        << QStringLiteral("system-parameters") << QByteArray("{}");
}

void SettingsSchemaTest::exportedShapesAreAccepted()
{
    QFETCH(QString, module);
    QFETCH(QByteArray, settings);

    const Settings hash = settingsOf(settings);
    const ModuleRegistry registry = ModuleRegistry::libraryModules();
    QCOMPARE(registry.schema(module).validate(module, hash), QStringList());
}

void SettingsSchemaTest::messages_data()
{
    QTest::addColumn<QString>("module");
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QString>("problem");

    QTest::newRow("a word the module does not know")
        << QStringLiteral("login-local") << QByteArray(R"({"login_state": "Admin"})")
        << QStringLiteral("login-local: \"login_state\" is \"Admin\"; expected one of \"all\", "
                          "\"admin\", \"no\"");
    QTest::newRow("a number where a switched number belongs")
        << QStringLiteral("account-lockout") << QByteArray(R"({"deny": 5})")
        << QStringLiteral("account-lockout: \"deny\" is 5; expected a switched number: [true or "
                          "false, an integer from 0 to 65535]");
    QTest::newRow("2^64 - 1")
        << QStringLiteral("account-lockout")
        << QByteArray(R"({"deny": [true, 18446744073709551615]})")
        << QStringLiteral("account-lockout: \"deny\" is [true,18446744073709551615]; expected a "
                          "switched number: [true or false, an integer from 0 to 65535]");
    QTest::newRow("a misspelt nested key")
        << QStringLiteral("password-policy")
        << QByteArray(R"({"complexity": {"minlenx": [true, 8]}, "validity-period": {}})")
        << QStringLiteral("password-policy: unknown key \"complexity/minlenx\"");
    QTest::newRow("a string where a table belongs")
        << QStringLiteral("password-policy")
        << QByteArray(R"({"complexity": "x", "validity-period": {}})")
        << QStringLiteral("password-policy: \"complexity\" is \"x\"; expected an object with the "
                          "keys \"reject_username\", \"gecoscheck\", \"enforce_for_root\", "
                          "\"minlen\", \"lcredit\", \"ucredit\", \"dcredit\", \"ocredit\"");
    QTest::newRow("a group id beyond 32 bits")
        << QStringLiteral("user-creation-policy") << QByteArray(R"({"USERS_GID": 4294967296})")
        << QStringLiteral("user-creation-policy: \"USERS_GID\" is 4294967296; expected an "
                          "integer from 0 to 2147483647");
    QTest::newRow("yes and no are not booleans")
        << QStringLiteral("user-creation-policy") << QByteArray(R"({"USERGROUPS": "no"})")
        << QStringLiteral("user-creation-policy: \"USERGROUPS\" is \"no\"; expected true or false");
    QTest::newRow("a long value is cut short")
        << QStringLiteral("login-local")
        << QByteArray(
               R"({"login_state": "abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz0123456789"})")
        << QStringLiteral("login-local: \"login_state\" is "
                          "\"abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz0123...; expected "
                          "one of \"all\", \"admin\", \"no\"");
    QTest::newRow("a switch given a word")
        << QStringLiteral("system-parameters") << QByteArray(R"({"param-swap-wipe": "off"})")
        << QStringLiteral(
               "system-parameters: \"param-swap-wipe\" is \"off\"; expected true or false");
}

void SettingsSchemaTest::messages()
{
    QFETCH(QString, module);
    QFETCH(QByteArray, settings);
    QFETCH(QString, problem);

    const Settings hash = settingsOf(settings);
    const ModuleRegistry registry = ModuleRegistry::libraryModules();
    QCOMPARE(registry.schema(module).validate(module, hash), QStringList{problem});
}

// Without "complexity" the module would fail without a word.
void SettingsSchemaTest::missingRequiredKey()
{
    const ModuleRegistry registry = ModuleRegistry::libraryModules();
    const QString module = QStringLiteral("password-policy");
    const QStringList problems = registry.schema(module).validate(
        module, {{QStringLiteral("validity-period"), QVariantMap()}});
    QCOMPARE(problems,
             QStringList{QStringLiteral(
                 "password-policy: \"complexity\" is missing; expected an object with the keys "
                 "\"reject_username\", \"gecoscheck\", \"enforce_for_root\", \"minlen\", "
                 "\"lcredit\", \"ucredit\", \"dcredit\", \"ocredit\"")});
}

void SettingsSchemaTest::jsonSchemaNamesEveryModule()
{
    const ModuleRegistry registry = ModuleRegistry::libraryModules();
    const Json schema = ZqlPolicy::PolicyTool(registry).jsonSchema();
    QCOMPARE(schema["$schema"].get<std::string>(),
             std::string("https://json-schema.org/draft/2020-12/schema"));
    QCOMPARE(schema["additionalProperties"].get<bool>(), false);
    for (const QString &name : registry.names())
        QVERIFY2(schema["properties"].contains(name.toStdString()), qPrintable(name));
}

QTEST_GUILESS_MAIN(SettingsSchemaTest)
#include "settingsschematest.moc"
