#include "policydocument.h"
#include "outputcapture.h"

#include <QDate>
#include <QJsonArray>
#include <QtTest>

#include <limits>

using ZqlPolicy::PolicyDocument;

namespace {

using Sections = QVector<QPair<QString, QVariantHash>>;

const QStringList KnownModules = {QStringLiteral("user-creation-policy"),
                                  QStringLiteral("password-policy"),
                                  QStringLiteral("account-lockout")};

const QByteArray Header = "{\"format\": \"zql-policy\", \"version\": 1";

QByteArray document(const QByteArray &members)
{
    QByteArray text = Header;
    if (!members.isEmpty())
        text += ", " + members;
    return text + '}';
}

// The settings with the type of every value, for comparisons that see an int where a
// qlonglong was expected.
QString typed(const QVariant &value)
{
    QStringList parts;
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return QStringLiteral("invalid");
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        for (const QVariant &element : list)
            parts.append(typed(element));
        return QStringLiteral("QVariantList(%1)").arg(parts.join(QStringLiteral(", ")));
    }
    case QMetaType::QStringList:
        return QStringLiteral("QStringList(%1)")
            .arg(value.toStringList().join(QStringLiteral(", ")));
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        const QVariantMap map = value.toMap();
        for (auto member = map.begin(); member != map.end(); ++member)
            parts.append(member.key() + QStringLiteral(": ") + typed(member.value()));
        return QStringLiteral("%1(%2)").arg(QString::fromLatin1(value.typeName()),
                                            parts.join(QStringLiteral(", ")));
    }
    case QMetaType::QJsonArray: {
        const QJsonArray array = value.toJsonArray();
        for (const QJsonValue &element : array)
            parts.append(element.toVariant().toString());
        return QStringLiteral("QJsonArray(%1)").arg(parts.join(QStringLiteral(", ")));
    }
    default:
        return QString::fromLatin1(value.typeName()) + QLatin1Char(' ') + value.toString();
    }
}

} // namespace

Q_DECLARE_METATYPE(Sections)

class PolicyDocumentTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void problems_data();
    void problems();
    void problemsAreAppended();
    void failedParseEmptiesTheDocument();
    void parseGoodDocument();
    void parseWithoutSections();
    void sectionLookup();
    void toText_data();
    void toText();
    void toTextThenParse();
    void toTextRefused_data();
    void toTextRefused();
    void notExported();
};

void PolicyDocumentTest::problems_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("problems");

    const QString missingFormat =
        QStringLiteral("\"format\" is missing; a policy document has \"format\": \"zql-policy\"");
    const QString unknownModule =
        QStringLiteral("\"%1\" is not a module of this library (the modules: user-creation-policy, "
                       "password-policy, account-lockout)");

    QTest::newRow("missing format") << QByteArray("{\"version\": 1}") << QStringList{missingFormat};
    QTest::newRow("wrong format") << QByteArray("{\"format\": \"zql-policies\", \"version\": 1}")
                                  << QStringList{QStringLiteral(
                                         "\"format\" is \"zql-policies\", not \"zql-policy\"")};
    QTest::newRow("format in capitals")
        << QByteArray("{\"format\": \"ZQL-POLICY\", \"version\": 1}")
        << QStringList{QStringLiteral("\"format\" is \"ZQL-POLICY\", not \"zql-policy\"")};
    QTest::newRow("format is a number")
        << QByteArray("{\"format\": 1, \"version\": 1}")
        << QStringList{QStringLiteral("\"format\" is 1, not \"zql-policy\"")};
    QTest::newRow("format is null")
        << QByteArray("{\"format\": null, \"version\": 1}")
        << QStringList{QStringLiteral("\"format\" is null, not \"zql-policy\"")};
    QTest::newRow("format is a list")
        << QByteArray("{\"format\": [\"zql-policy\"], \"version\": 1}")
        << QStringList{QStringLiteral("\"format\" is [\"zql-policy\"], not \"zql-policy\"")};
    QTest::newRow("missing version") << QByteArray("{\"format\": \"zql-policy\"}")
                                     << QStringList{QStringLiteral("\"version\" is missing")};
    QTest::newRow("version 2") << QByteArray("{\"format\": \"zql-policy\", \"version\": 2}")
                               << QStringList{QStringLiteral(
                                      "\"version\" is 2; this program reads version 1")};
    QTest::newRow("version 0") << QByteArray("{\"format\": \"zql-policy\", \"version\": 0}")
                               << QStringList{QStringLiteral(
                                      "\"version\" is 0; this program reads version 1")};
    QTest::newRow("version -1") << QByteArray("{\"format\": \"zql-policy\", \"version\": -1}")
                                << QStringList{QStringLiteral(
                                       "\"version\" is -1; this program reads version 1")};
    QTest::newRow("version beyond 64 bits signed")
        << QByteArray("{\"format\": \"zql-policy\", \"version\": 18446744073709551615}")
        << QStringList{
               QStringLiteral("\"version\" is 18446744073709551615; this program reads version 1")};
    QTest::newRow("version \"1\"")
        << QByteArray("{\"format\": \"zql-policy\", \"version\": \"1\"}")
        << QStringList{QStringLiteral("\"version\" is \"1\"; this program reads version 1")};
    QTest::newRow("version 1.0") << QByteArray("{\"format\": \"zql-policy\", \"version\": 1.0}")
                                 << QStringList{QStringLiteral(
                                        "\"version\" is 1.0; this program reads version 1")};
    QTest::newRow("version \"%1\"")
        << QByteArray("{\"format\": \"zql-policy\", \"version\": \"%1\"}")
        << QStringList{QStringLiteral("\"version\" is \"%1\"; this program reads version 1")};
    QTest::newRow("not-exported is not a list")
        << document("\"not-exported\": \"account-lockout\"")
        << QStringList{QStringLiteral("\"not-exported\" must be a list of module names")};
    QTest::newRow("not-exported names no module")
        << document("\"not-exported\": [\"nosuch\", 3]")
        << QStringList{
               QStringLiteral("\"not-exported\" must be a list of module names, not \"nosuch\""),
               QStringLiteral("\"not-exported\" must be a list of module names, not 3")};
    QTest::newRow("not-exported and exported")
        << document("\"not-exported\": [\"account-lockout\"], \"account-lockout\": {}")
        << QStringList{
               QStringLiteral("account-lockout is both exported and named in \"not-exported\"")};
    QTest::newRow("unknown module")
        << document("\"sudo-policy\": {}")
        << QStringList{unknownModule.arg(QStringLiteral("sudo-policy"))};
    QTest::newRow("module name in capitals")
        << document("\"Password-Policy\": {\"minlen\": 8}")
        << QStringList{unknownModule.arg(QStringLiteral("Password-Policy"))};
    QTest::newRow("section is a list")
        << document("\"password-policy\": [1, 2]")
        << QStringList{
               QStringLiteral("password-policy: the settings must be a JSON object, not array")};
    QTest::newRow("section is a string")
        << document("\"password-policy\": \"strict\"")
        << QStringList{
               QStringLiteral("password-policy: the settings must be a JSON object, not string")};
    QTest::newRow("section is a number")
        << document("\"account-lockout\": 5")
        << QStringList{
               QStringLiteral("account-lockout: the settings must be a JSON object, not number")};
    QTest::newRow("section is a boolean")
        << document("\"account-lockout\": true")
        << QStringList{
               QStringLiteral("account-lockout: the settings must be a JSON object, not boolean")};
    QTest::newRow("section is null")
        << document("\"account-lockout\": null")
        << QStringList{
               QStringLiteral("account-lockout: the settings must be a JSON object, not null")};
    QTest::newRow("not JSON") << QByteArray("format: zql-policy\n")
                              << QStringList{QStringLiteral(
                                     "not a JSON document: parse error at line 1, column 2: "
                                     "syntax error while parsing value - invalid literal; last "
                                     "read: 'fo'")};
    QTest::newRow("empty file")
        << QByteArray()
        << QStringList{
               QStringLiteral("not a JSON document: parse error at line 1, column 1: syntax "
                              "error while parsing value - unexpected end of input; expected "
                              "'[', '{', or a literal")};
    QTest::newRow("truncated") << QByteArray(Header + ", \"password-policy\": {")
                               << QStringList{QStringLiteral(
                                      "not a JSON document: parse error at line 1, column 60: "
                                      "syntax error while parsing object key - unexpected end of "
                                      "input; expected string literal")};
    QTest::newRow("a section twice")
        << document("\"account-lockout\": {}, \"account-lockout\": {\"deny\": [true, 5]}")
        << QStringList{
               QStringLiteral("not a JSON document: the key \"account-lockout\" appears twice")};
    QTest::newRow("a key twice in a section")
        << document("\"account-lockout\": {\"deny\": [true, 5], \"deny\": [false, 0]}")
        << QStringList{QStringLiteral(
               "not a JSON document: the key \"deny\" appears twice in \"account-lockout\"")};
    QTest::newRow("top-level array")
        << QByteArray("[{\"format\": \"zql-policy\", \"version\": 1}]")
        << QStringList{QStringLiteral("the document is not a JSON object")};
    QTest::newRow("top-level string")
        << QByteArray("\"zql-policy\"")
        << QStringList{QStringLiteral("the document is not a JSON object")};
    QTest::newRow("top-level null")
        << QByteArray("null") << QStringList{QStringLiteral("the document is not a JSON object")};
    QTest::newRow("several problems at once, all reported in document order")
        << QByteArray("{\"sudo-policy\": {}, \"version\": 2, \"password-policy\": [], "
                      "\"account-lockout\": {\"deny\": [true, 5]}, \"zz\": 1}")
        << QStringList{
               missingFormat, QStringLiteral("\"version\" is 2; this program reads version 1"),
               unknownModule.arg(QStringLiteral("sudo-policy")),
               QStringLiteral("password-policy: the settings must be a JSON object, not array"),
               unknownModule.arg(QStringLiteral("zz"))};
}

void PolicyDocumentTest::problems()
{
    QFETCH(QByteArray, text);
    QFETCH(QStringList, problems);

    ZqlTest::OutputCapture capture;
    PolicyDocument policy;
    QStringList found;
    const bool parsed = policy.parse(text, KnownModules, &found);
    capture.finish();
    QVERIFY(!parsed);
    // The version is put in with a second arg(), which fills a "%1" of the version's text.
    QCOMPARE(found, problems);
    QVERIFY(policy.sections().isEmpty());
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(capture.standardError(), QByteArray());
}

void PolicyDocumentTest::problemsAreAppended()
{
    PolicyDocument policy;
    QStringList problems{QStringLiteral("an earlier line")};
    QVERIFY(policy.parse(document("\"account-lockout\": {}"), KnownModules, &problems));
    QCOMPARE(problems, QStringList{QStringLiteral("an earlier line")});
    QCOMPARE(policy.sections().size(), 1);

    QVERIFY(!policy.parse("{\"version\": 1}", KnownModules, &problems));
    QCOMPARE(problems, (QStringList{QStringLiteral("an earlier line"),
                                    QStringLiteral("\"format\" is missing; a policy document has "
                                                   "\"format\": \"zql-policy\"")}));
}

void PolicyDocumentTest::failedParseEmptiesTheDocument()
{
    PolicyDocument policy;
    policy.addSection(QStringLiteral("password-policy"), {{QStringLiteral("minlen"), 8}});
    QStringList problems;
    QVERIFY(policy.parse(document("\"account-lockout\": {\"a\": 1}"), KnownModules, &problems));
    QCOMPARE(policy.sections().size(), 1);
    QCOMPARE(policy.sections().first().module, QStringLiteral("account-lockout"));

    // A document with one bad section keeps none of the good ones.
    QVERIFY(!policy.parse(document("\"account-lockout\": {\"a\": 1}, \"password-policy\": 1"),
                          KnownModules, &problems));
    QCOMPARE(problems.size(), 1);
    QVERIFY(policy.sections().isEmpty());
    QCOMPARE(policy.section(QStringLiteral("account-lockout")), nullptr);
}

void PolicyDocumentTest::parseGoodDocument()
{
    // Sections in another order than the known modules, format and version after them.
    const QByteArray text = "{\n"
                            "    \"account-lockout\": {\n"
                            "        \"deny\": [true, 5],\n"
                            "        \"unlock_time\": 4294967296,\n"
                            "        \"even_deny_root\": false\n"
                            "    },\n"
                            "    \"user-creation-policy\": {},\n"
                            "    \"password-policy\": {\n"
                            "        \"minlen\": 12,\n"
                            "        \"mask\": 18446744073709551615,\n"
                            "        \"ratio\": 0.5,\n"
                            "        \"names\": [\"a\", \"b\"],\n"
                            "        \"mixed\": [1, \"x\"],\n"
                            "        \"rules\": {\"inner\": [true, 1, 2], \"none\": null},\n"
                            "        \"text\": \"Grüße\"\n"
                            "    },\n"
                            "    \"version\": 1,\n"
                            "    \"format\": \"zql-policy\"\n"
                            "}\n";
    PolicyDocument policy;
    QStringList problems;
    QVERIFY2(policy.parse(text, KnownModules, &problems),
             qPrintable(problems.join(QLatin1Char('\n'))));
    QCOMPARE(problems, QStringList());

    const QVector<PolicyDocument::Section> &sections = policy.sections();
    QCOMPARE(sections.size(), 3);
    QCOMPARE(sections.at(0).module, QStringLiteral("account-lockout"));
    QCOMPARE(sections.at(1).module, QStringLiteral("user-creation-policy"));
    QCOMPARE(sections.at(2).module, QStringLiteral("password-policy"));

    QCOMPARE(typed(QVariant(sections.at(0).settings)),
             typed(QVariantHash{{QStringLiteral("deny"), QJsonArray{true, 5}},
                                {QStringLiteral("unlock_time"), qlonglong(4294967296LL)},
                                {QStringLiteral("even_deny_root"), false}}));
    QCOMPARE(sections.at(1).settings, QVariantHash());
    const QVariantHash passwordPolicy{
        {QStringLiteral("minlen"), 12},
        {QStringLiteral("mask"), std::numeric_limits<qulonglong>::max()},
        {QStringLiteral("ratio"), 0.5},
        {QStringLiteral("names"), QStringList{QStringLiteral("a"), QStringLiteral("b")}},
        {QStringLiteral("mixed"), QVariantList{1, QStringLiteral("x")}},
        {QStringLiteral("rules"), QVariantMap{{QStringLiteral("inner"), QVariantList{true, 1, 2}},
                                              {QStringLiteral("none"), QVariant()}}},
        {QStringLiteral("text"), QString::fromUtf8("Grüße")}};
    QCOMPARE(typed(QVariant(sections.at(2).settings)), typed(QVariant(passwordPolicy)));
    QCOMPARE(sections.at(2).settings, passwordPolicy);
    QCOMPARE(sections.at(2).settings.value(QStringLiteral("mask")).userType(),
             int(QMetaType::ULongLong));
}

void PolicyDocumentTest::parseWithoutSections()
{
    PolicyDocument policy;
    QStringList problems;
    QVERIFY(policy.parse(Header + '}', KnownModules, &problems));
    QCOMPARE(problems, QStringList());
    QVERIFY(policy.sections().isEmpty());

    // Without known modules any section is a problem; the list says there are none.
    QVERIFY(!policy.parse(document("\"account-lockout\": {}"), QStringList(), &problems));
    QCOMPARE(problems, QStringList{QStringLiteral("\"account-lockout\" is not a module of this "
                                                  "library (the modules: )")});
}

void PolicyDocumentTest::sectionLookup()
{
    PolicyDocument policy;
    QCOMPARE(policy.section(QStringLiteral("account-lockout")), nullptr);
    policy.addSection(QStringLiteral("account-lockout"), {{QStringLiteral("a"), 1}});
    policy.addSection(QStringLiteral("password-policy"), {{QStringLiteral("b"), 2}});
    const PolicyDocument::Section *section = policy.section(QStringLiteral("password-policy"));
    QVERIFY(section);
    QCOMPARE(section, &policy.sections().at(1));
    QCOMPARE(section->settings, (QVariantHash{{QStringLiteral("b"), 2}}));
    QCOMPARE(policy.section(QStringLiteral("Password-Policy")), nullptr);
    QCOMPARE(policy.section(QString()), nullptr);
}

void PolicyDocumentTest::toText_data()
{
    QTest::addColumn<Sections>("sections");
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("no section") << Sections()
                                << QByteArray("{\n"
                                              "    \"format\": \"zql-policy\",\n"
                                              "    \"version\": 1\n"
                                              "}\n");
    QTest::newRow("empty section") << Sections{{QStringLiteral("login-local"), {}}}
                                   << QByteArray("{\n"
                                                 "    \"format\": \"zql-policy\",\n"
                                                 "    \"version\": 1,\n"
                                                 "    \"login-local\": {}\n"
                                                 "}\n");
    QTest::newRow("sections in added order, keys sorted, switched numbers inline")
        << Sections{{QStringLiteral("password-policy"),
                     {{QStringLiteral("retry"), 3},
                      {QStringLiteral("minlen"), QJsonArray{true, 12}},
                      {QStringLiteral("enforce"), true},
                      {QStringLiteral("dictionaries"),
                       QStringList{QStringLiteral("en"), QStringLiteral("de")}}}},
                    {QStringLiteral("account-lockout"),
                     {{QStringLiteral("unlock_time"), std::numeric_limits<qulonglong>::max()},
                      {QStringLiteral("deny"), QJsonArray{false, 0}},
                      {QStringLiteral("audit"), QVariantMap{{QStringLiteral("z"), QVariant()},
                                                            {QStringLiteral("a"), 0.5}}}}},
                    {QStringLiteral("user-creation-policy"),
                     {{QStringLiteral("shell"), QString::fromUtf8("/bin/bäsh")}}}}
        << QByteArray("{\n"
                      "    \"format\": \"zql-policy\",\n"
                      "    \"version\": 1,\n"
                      "    \"password-policy\": {\n"
                      "        \"dictionaries\": [\"en\", \"de\"],\n"
                      "        \"enforce\": true,\n"
                      "        \"minlen\": [true, 12],\n"
                      "        \"retry\": 3\n"
                      "    },\n"
                      "    \"account-lockout\": {\n"
                      "        \"audit\": {\n"
                      "            \"a\": 0.5,\n"
                      "            \"z\": null\n"
                      "        },\n"
                      "        \"deny\": [false, 0],\n"
                      "        \"unlock_time\": 18446744073709551615\n"
                      "    },\n"
                      "    \"user-creation-policy\": {\n"
                      "        \"shell\": \"/bin/bäsh\"\n"
                      "    }\n"
                      "}\n");
}

void PolicyDocumentTest::toText()
{
    QFETCH(Sections, sections);
    QFETCH(QByteArray, text);

    PolicyDocument policy;
    for (const auto &section : qAsConst(sections))
        policy.addSection(section.first, section.second);
    QByteArray written;
    QString error = QStringLiteral("untouched");
    QVERIFY2(policy.toText(&written, &error), qPrintable(error));
    QCOMPARE(error, QStringLiteral("untouched"));
    QCOMPARE(written, text);
}

void PolicyDocumentTest::toTextThenParse()
{
    PolicyDocument policy;
    const QVariantHash lockout{{QStringLiteral("deny"), QJsonArray{true, 5}},
                               {QStringLiteral("big"), std::numeric_limits<qlonglong>::min()},
                               {QStringLiteral("names"), QStringList{QStringLiteral("x")}}};
    const QVariantHash password{{QStringLiteral("minlen"), 8}};
    policy.addSection(QStringLiteral("password-policy"), password);
    policy.addSection(QStringLiteral("account-lockout"), lockout);
    QByteArray text;
    QString error;
    QVERIFY2(policy.toText(&text, &error), qPrintable(error));

    PolicyDocument read;
    QStringList problems;
    QVERIFY2(read.parse(text, KnownModules, &problems),
             qPrintable(problems.join(QLatin1Char('\n'))));
    QCOMPARE(read.sections().size(), 2);
    QCOMPARE(read.sections().at(0).module, QStringLiteral("password-policy"));
    QCOMPARE(typed(QVariant(read.sections().at(0).settings)), typed(QVariant(password)));
    QCOMPARE(read.sections().at(1).module, QStringLiteral("account-lockout"));
    QCOMPARE(typed(QVariant(read.sections().at(1).settings)), typed(QVariant(lockout)));

    QByteArray again;
    QVERIFY2(read.toText(&again, &error), qPrintable(error));
    QCOMPARE(again, text);
}

void PolicyDocumentTest::toTextRefused_data()
{
    QTest::addColumn<QVariantHash>("settings");
    QTest::addColumn<QString>("error");

    const double nan = std::numeric_limits<double>::quiet_NaN();
    QTest::newRow("NaN") << QVariantHash{{QStringLiteral("a"), 1}, {QStringLiteral("ratio"), nan}}
                         << QStringLiteral(
                                "account-lockout: \"ratio\": the number nan cannot be written as "
                                "JSON");
    QTest::newRow("infinity in a map")
        << QVariantHash{{QStringLiteral("rules"),
                         QVariantMap{
                             {QStringLiteral("limit"), std::numeric_limits<double>::infinity()}}}}
        << QStringLiteral(
               "account-lockout: \"rules/limit\": the number inf cannot be written as JSON");
    QTest::newRow("date")
        << QVariantHash{{QStringLiteral("expires"), QDate(2030, 1, 1)}}
        << QStringLiteral(
               "account-lockout: \"expires\": a value of type QDate cannot be written as JSON");
}

void PolicyDocumentTest::toTextRefused()
{
    QFETCH(QVariantHash, settings);
    QFETCH(QString, error);

    PolicyDocument policy;
    policy.addSection(QStringLiteral("password-policy"), {{QStringLiteral("minlen"), 8}});
    policy.addSection(QStringLiteral("account-lockout"), settings);
    QByteArray text = "before";
    QString message;
    QVERIFY(!policy.toText(&text, &message));
    QCOMPARE(message, error);
    QCOMPARE(text, QByteArray("before"));
}

void PolicyDocumentTest::notExported()
{
    PolicyDocument written;
    written.addSection(QStringLiteral("account-lockout"), {{QStringLiteral("per_user"), true}});
    written.setNotExported({QStringLiteral("password-policy")});
    QByteArray text;
    QString error;
    QVERIFY(written.toText(&text, &error));
    QCOMPARE(text, QByteArray("{\n"
                              "    \"format\": \"zql-policy\",\n"
                              "    \"version\": 1,\n"
                              "    \"not-exported\": [\"password-policy\"],\n"
                              "    \"account-lockout\": {\n"
                              "        \"per_user\": true\n"
                              "    }\n"
                              "}\n"));

    // Read back: a module left out, not an empty section.
    PolicyDocument read;
    QStringList problems;
    QVERIFY(read.parse(text, KnownModules, &problems));
    QCOMPARE(problems, QStringList());
    QCOMPARE(read.notExported(), QStringList{QStringLiteral("password-policy")});
    QCOMPARE(read.sections().size(), 1);
    QVERIFY(!read.section(QStringLiteral("password-policy")));
}

QTEST_GUILESS_MAIN(PolicyDocumentTest)
#include "policydocumenttest.moc"
