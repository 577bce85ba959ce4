#include "policyjson.h"

#include <QDate>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QtTest>

#include <climits>
#include <cmath>
#include <limits>

using ZqlPolicy::Json;
using ZqlPolicy::PolicyJson;

namespace {

const double NotANumber = std::numeric_limits<double>::quiet_NaN();
const double Infinity = std::numeric_limits<double>::infinity();

QString quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

// A variant with the type of every value at every depth, so that a comparison sees an int
// where a qlonglong was expected (QVariant's own == converts numbers and would not).
QString typed(const QVariant &value)
{
    QStringList parts;
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return QStringLiteral("invalid");
    case QMetaType::Double:
        return QStringLiteral("double ") + QString::number(value.toDouble(), 'g', 17);
    case QMetaType::QString:
        return QStringLiteral("QString ") + quoted(value.toString());
    case QMetaType::QStringList: {
        const QStringList list = value.toStringList();
        for (const QString &element : list)
            parts.append(quoted(element));
        return QStringLiteral("QStringList(%1)").arg(parts.join(QStringLiteral(", ")));
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        for (const QVariant &element : list)
            parts.append(typed(element));
        return QStringLiteral("QVariantList(%1)").arg(parts.join(QStringLiteral(", ")));
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        for (auto member = map.begin(); member != map.end(); ++member)
            parts.append(quoted(member.key()) + QStringLiteral(": ") + typed(member.value()));
        return QStringLiteral("QVariantMap(%1)").arg(parts.join(QStringLiteral(", ")));
    }
    case QMetaType::QJsonArray: {
        const QJsonArray array = value.toJsonArray();
        for (const QJsonValue &element : array)
            parts.append(typed(QVariant::fromValue(element)));
        return QStringLiteral("QJsonArray(%1)").arg(parts.join(QStringLiteral(", ")));
    }
    case QMetaType::QJsonValue: {
        const QJsonValue element = value.toJsonValue();
        if (element.isDouble()) {
            return QStringLiteral("QJsonValue double ") +
                   QString::number(element.toDouble(), 'g', 17);
        }
        return QStringLiteral("QJsonValue ") + typed(element.toVariant());
    }
    default:
        return QString::fromLatin1(value.typeName()) + QLatin1Char(' ') + value.toString();
    }
}

QVariant nestedMap()
{
    return QVariantMap{{QStringLiteral("b"), QVariantMap{{QStringLiteral("c"), 1}}},
                       {QStringLiteral("a"), QVariantList{1, 2}}};
}

} // namespace

class PolicyJsonTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void variantToText_data();
    void variantToText();
    void qtCoreNumberBeyondDoublePrecision();
    void textToVariant_data();
    void textToVariant();
    void textRoundTrip_data();
    void textRoundTrip();
    void variantRoundTrip_data();
    void variantRoundTrip();
    void layoutKeepsDocumentOrder_data();
    void layoutKeepsDocumentOrder();
    void refusedValue_data();
    void refusedValue();
    void parseError_data();
    void parseError();
    void parseAccepted_data();
    void parseAccepted();
    void listOfEntryMaps_data();
    void listOfEntryMaps();
};

void PolicyJsonTest::variantToText_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("true") << QVariant(true) << QByteArray("true\n");
    QTest::newRow("false") << QVariant(false) << QByteArray("false\n");
    QTest::newRow("zero") << QVariant(0) << QByteArray("0\n");
    QTest::newRow("negative int") << QVariant(-42) << QByteArray("-42\n");
    QTest::newRow("INT_MAX") << QVariant(INT_MAX) << QByteArray("2147483647\n");
    QTest::newRow("INT_MIN") << QVariant(INT_MIN) << QByteArray("-2147483648\n");
    QTest::newRow("qlonglong min")
        << QVariant(std::numeric_limits<qlonglong>::min()) << QByteArray("-9223372036854775808\n");
    QTest::newRow("qlonglong max")
        << QVariant(std::numeric_limits<qlonglong>::max()) << QByteArray("9223372036854775807\n");
    QTest::newRow("qulonglong max")
        << QVariant(std::numeric_limits<qulonglong>::max()) << QByteArray("18446744073709551615\n");
    QTest::newRow("uint max") << QVariant(std::numeric_limits<uint>::max())
                              << QByteArray("4294967295\n");
    QTest::newRow("short") << QVariant::fromValue(short(-300)) << QByteArray("-300\n");
    QTest::newRow("unsigned char")
        << QVariant::fromValue(static_cast<uchar>(200)) << QByteArray("200\n");
    QTest::newRow("double 0.1") << QVariant(0.1) << QByteArray("0.1\n");
    QTest::newRow("double 1.5") << QVariant(1.5) << QByteArray("1.5\n");
    QTest::newRow("integral double keeps its point") << QVariant(2.0) << QByteArray("2.0\n");
    QTest::newRow("float 0.5") << QVariant::fromValue(0.5F) << QByteArray("0.5\n");
    QTest::newRow("string with non-ASCII, quotes and backslash")
        << QVariant(QString::fromUtf8("Grüße \"Ω\" C:\\tmp 😀"))
        << QByteArray("\"Grüße \\\"Ω\\\" C:\\\\tmp 😀\"\n");
    QTest::newRow("string with a line feed and a control character")
        << QVariant(QStringLiteral("a\nb\x01"
                                   "c"))
        << QByteArray("\"a\\nb\\u0001c\"\n");
    QTest::newRow("empty string") << QVariant(QString()) << QByteArray("\"\"\n");
    QTest::newRow("string list") << QVariant(QStringList{QStringLiteral("a"), QStringLiteral("b")})
                                 << QByteArray("[\"a\", \"b\"]\n");
    QTest::newRow("empty string list") << QVariant(QStringList()) << QByteArray("[]\n");
    QTest::newRow("mixed list") << QVariant(
                                       QVariantList{1, QStringLiteral("x"), true, 1.5, QVariant()})
                                << QByteArray("[1, \"x\", true, 1.5, null]\n");
    QTest::newRow("empty list") << QVariant(QVariantList()) << QByteArray("[]\n");
    QTest::newRow("switched number on")
        << QVariant(QJsonArray{true, 5}) << QByteArray("[true, 5]\n");
    QTest::newRow("switched number off")
        << QVariant(QJsonArray{false, 0}) << QByteArray("[false, 0]\n");
    QTest::newRow("switched number at 2^53")
        << QVariant(QJsonArray{true, QJsonValue(qint64(9007199254740992))})
        << QByteArray("[true, 9007199254740992]\n");
    QTest::newRow("switched negative number")
        << QVariant(QJsonArray{true, -7}) << QByteArray("[true, -7]\n");
    QTest::newRow("QtCore JSON fraction") << QVariant(QJsonArray{0.25}) << QByteArray("[0.25]\n");
    QTest::newRow("QtCore JSON value")
        << QVariant::fromValue(QJsonValue(QStringLiteral("v"))) << QByteArray("\"v\"\n");
    QTest::newRow("nested map") << nestedMap()
                                << QByteArray("{\n"
                                              "    \"a\": [1, 2],\n"
                                              "    \"b\": {\n"
                                              "        \"c\": 1\n"
                                              "    }\n"
                                              "}\n");
    QTest::newRow("empty map") << QVariant(QVariantMap()) << QByteArray("{}\n");
    QTest::newRow("map with empty members")
        << QVariant(QVariantMap{{QStringLiteral("l"), QVariantList()},
                                {QStringLiteral("m"), QVariantMap()}})
        << QByteArray("{\n    \"l\": [],\n    \"m\": {}\n}\n");
    QTest::newRow("hash, keys sorted") << QVariant(QVariantHash{{QStringLiteral("zeta"), 1},
                                                                {QStringLiteral("alpha"), 2},
                                                                {QStringLiteral("Mid"), 3},
                                                                {QStringLiteral("beta"), 4}})
                                       << QByteArray("{\n"
                                                     "    \"Mid\": 3,\n"
                                                     "    \"alpha\": 2,\n"
                                                     "    \"beta\": 4,\n"
                                                     "    \"zeta\": 1\n"
                                                     "}\n");
    QTest::newRow("list of maps") << QVariant(QVariantList{
                                         QVariantMap{{QStringLiteral("a"), 1}},
                                         QVariantMap{{QStringLiteral("b"),
                                                      QStringList{QStringLiteral("x")}}}})
                                  << QByteArray("[\n"
                                                "    {\n"
                                                "        \"a\": 1\n"
                                                "    },\n"
                                                "    {\n"
                                                "        \"b\": [\"x\"]\n"
                                                "    }\n"
                                                "]\n");
    QTest::newRow("list of lists")
        << QVariant(QVariantList{QVariantList{1, 2}, QJsonArray{true, 3}})
        << QByteArray("[\n    [1, 2],\n    [true, 3]\n]\n");
    QTest::newRow("invalid variant is null") << QVariant() << QByteArray("null\n");
    QTest::newRow("JSON object") << QVariant(
                                        QJsonObject{{QStringLiteral("b"), true},
                                                    {QStringLiteral("a"), QStringLiteral("x")},
                                                    {QStringLiteral("c"), QJsonArray{false, 2}}})
                                 << QByteArray("{\n"
                                               "    \"a\": \"x\",\n"
                                               "    \"b\": true,\n"
                                               "    \"c\": [false, 2]\n"
                                               "}\n");
}

void PolicyJsonTest::variantToText()
{
    QFETCH(QVariant, value);
    QFETCH(QByteArray, text);

    Json json;
    QString error = QStringLiteral("untouched");
    QVERIFY2(PolicyJson::toJson(value, json, &error), qPrintable(error));
    QCOMPARE(error, QStringLiteral("untouched"));
    QCOMPARE(PolicyJson::dump(json), text);
}

void PolicyJsonTest::qtCoreNumberBeyondDoublePrecision()
{
    // Qt 5.15 keeps a lone QJsonValue(qint64) exact, but stores the elements of a QJsonArray
    // as doubles: 2^53 + 1 is 2^53 as soon as it is put into the array, before PolicyJson
    // sees it. The text can only say what is left; beyond 2^53 a value reaches JSON exactly as
    // a QJsonValue of its own or in a QVariantList.
    const qint64 beyond = 9007199254740993;
    const QJsonArray array{true, QJsonValue(beyond)};
    QCOMPARE(array.at(1).toVariant().toLongLong(), beyond - 1);

    Json json;
    QString error;
    QVERIFY2(PolicyJson::toJson(array, json, &error), qPrintable(error));
    QCOMPARE(PolicyJson::dump(json), QByteArray("[true, 9007199254740992]\n"));

    QVERIFY2(PolicyJson::toJson(QVariant::fromValue(QJsonValue(beyond)), json, &error),
             qPrintable(error));
    QCOMPARE(PolicyJson::dump(json), QByteArray("9007199254740993\n"));

    QVERIFY2(PolicyJson::toJson(QVariantList{true, beyond}, json, &error), qPrintable(error));
    QCOMPARE(PolicyJson::dump(json), QByteArray("[true, 9007199254740993]\n"));
}

void PolicyJsonTest::textToVariant_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("5 is an int") << QByteArray("5") << QVariant(5);
    QTest::newRow("-5 is an int") << QByteArray("-5") << QVariant(-5);
    QTest::newRow("INT_MAX is an int") << QByteArray("2147483647") << QVariant(INT_MAX);
    QTest::newRow("INT_MIN is an int") << QByteArray("-2147483648") << QVariant(INT_MIN);
    QTest::newRow("2^31 is a qlonglong")
        << QByteArray("2147483648") << QVariant(qlonglong(2147483648LL));
    QTest::newRow("-2^31 - 1 is a qlonglong")
        << QByteArray("-2147483649") << QVariant(qlonglong(-2147483649LL));
    QTest::newRow("qlonglong min")
        << QByteArray("-9223372036854775808") << QVariant(std::numeric_limits<qlonglong>::min());
    QTest::newRow("qlonglong max")
        << QByteArray("9223372036854775807") << QVariant(std::numeric_limits<qlonglong>::max());
    QTest::newRow("2^63 is a qulonglong")
        << QByteArray("9223372036854775808") << QVariant(qulonglong(9223372036854775808ULL));
    QTest::newRow("qulonglong max")
        << QByteArray("18446744073709551615") << QVariant(std::numeric_limits<qulonglong>::max());
    QTest::newRow("1.5 is a double") << QByteArray("1.5") << QVariant(1.5);
    QTest::newRow("1e3 is a double") << QByteArray("1e3") << QVariant(1000.0);
    QTest::newRow("2.0 is a double") << QByteArray("2.0") << QVariant(2.0);
    QTest::newRow("-0.1 is a double") << QByteArray("-0.1") << QVariant(-0.1);
    QTest::newRow("true") << QByteArray("true") << QVariant(true);
    QTest::newRow("false") << QByteArray("false") << QVariant(false);
    QTest::newRow("string") << QByteArray("\"Gr\\u00fc\\u00dfe \\\"x\\\" 😀\"")
                            << QVariant(QString::fromUtf8("Grüße \"x\" 😀"));
    QTest::newRow("empty string") << QByteArray("\"\"") << QVariant(QString(QLatin1String("")));
    QTest::newRow("[true, 5] is a switched number")
        << QByteArray("[true, 5]") << QVariant(QJsonArray{true, 5});
    QTest::newRow("[false, -3] is a switched number")
        << QByteArray("[false, -3]") << QVariant(QJsonArray{false, -3});
    QTest::newRow("[true, 5, 1] is a list")
        << QByteArray("[true, 5, 1]") << QVariant(QVariantList{true, 5, 1});
    QTest::newRow("[5, true] is a list")
        << QByteArray("[5, true]") << QVariant(QVariantList{5, true});
    QTest::newRow("[true, 1.5] is a list")
        << QByteArray("[true, 1.5]") << QVariant(QVariantList{true, 1.5});
    QTest::newRow("[true, false] is a list")
        << QByteArray("[true, false]") << QVariant(QVariantList{true, false});
    QTest::newRow("[true] is a list") << QByteArray("[true]") << QVariant(QVariantList{true});
    QTest::newRow("strings are a string list")
        << QByteArray("[\"a\", \"b\"]")
        << QVariant(QStringList{QStringLiteral("a"), QStringLiteral("b")});
    QTest::newRow("string and number are a list")
        << QByteArray("[\"a\", 1]") << QVariant(QVariantList{QStringLiteral("a"), 1});
    QTest::newRow("[] is a list") << QByteArray("[]") << QVariant(QVariantList());
    QTest::newRow("64-bit integers in a list")
        << QByteArray("[-9223372036854775808, 18446744073709551615, 7]")
        << QVariant(QVariantList{std::numeric_limits<qlonglong>::min(),
                                 std::numeric_limits<qulonglong>::max(), 7});
    QTest::newRow("list of string lists")
        << QByteArray("[[\"a\"], []]")
        << QVariant(QVariantList{QStringList{QStringLiteral("a")}, QVariantList()});
    QTest::newRow("nested object")
        << QByteArray("{\"a\": {\"b\": [1]}}")
        << QVariant(QVariantMap{
               {QStringLiteral("a"), QVariantMap{{QStringLiteral("b"), QVariantList{1}}}}});
    QTest::newRow("object with every kind")
        << QByteArray("{\"s\": \"x\", \"n\": null, \"d\": [true, 2], \"big\": 4294967296}")
        << QVariant(QVariantMap{{QStringLiteral("s"), QStringLiteral("x")},
                                {QStringLiteral("n"), QVariant()},
                                {QStringLiteral("d"), QJsonArray{true, 2}},
                                {QStringLiteral("big"), qlonglong(4294967296LL)}});
    QTest::newRow("{} is a map") << QByteArray("{}") << QVariant(QVariantMap());
    QTest::newRow("null is invalid") << QByteArray("null") << QVariant();
}

void PolicyJsonTest::textToVariant()
{
    QFETCH(QByteArray, text);
    QFETCH(QVariant, value);

    Json json;
    QString error;
    QVERIFY2(PolicyJson::parse(text, json, &error), qPrintable(error));
    const QVariant variant = PolicyJson::toVariant(json);
    QCOMPARE(variant.userType(), value.userType());
    QCOMPARE(typed(variant), typed(value));
    QCOMPARE(variant, value);
}

void PolicyJsonTest::textRoundTrip_data()
{
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("null") << QByteArray("null\n");
    QTest::newRow("true") << QByteArray("true\n");
    QTest::newRow("int") << QByteArray("-17\n");
    QTest::newRow("2^31") << QByteArray("2147483648\n");
    QTest::newRow("qlonglong min") << QByteArray("-9223372036854775808\n");
    QTest::newRow("qlonglong max") << QByteArray("9223372036854775807\n");
    QTest::newRow("2^63") << QByteArray("9223372036854775808\n");
    QTest::newRow("qulonglong max") << QByteArray("18446744073709551615\n");
    QTest::newRow("double") << QByteArray("0.1\n");
    QTest::newRow("integral double") << QByteArray("1000.0\n");
    QTest::newRow("string") << QByteArray("\"Grüße \\\"x\\\" \\\\ \\t 😀\"\n");
    QTest::newRow("empty string") << QByteArray("\"\"\n");
    QTest::newRow("string list") << QByteArray("[\"a\", \"b\"]\n");
    QTest::newRow("empty list") << QByteArray("[]\n");
    QTest::newRow("mixed list") << QByteArray("[1, \"x\", false, null, 2.5]\n");
    QTest::newRow("64-bit extremes in a list")
        << QByteArray("[-9223372036854775808, 18446744073709551615]\n");
    QTest::newRow("switched number") << QByteArray("[true, 5]\n");
    QTest::newRow("switched number off") << QByteArray("[false, 0]\n");
    QTest::newRow("switched number at 2^53") << QByteArray("[true, 9007199254740992]\n");
    QTest::newRow("switched number beyond 2^53") << QByteArray("[true, 9007199254740993]\n");
    QTest::newRow("switched number below -2^53") << QByteArray("[true, -9007199254740993]\n");
    QTest::newRow("switched qlonglong min") << QByteArray("[true, -9223372036854775808]\n");
    QTest::newRow("switched qulonglong max") << QByteArray("[false, 18446744073709551615]\n");
    QTest::newRow("empty map") << QByteArray("{}\n");
    QTest::newRow("nested map") << QByteArray("{\n"
                                              "    \"a\": {\n"
                                              "        \"b\": [1],\n"
                                              "        \"c\": {}\n"
                                              "    },\n"
                                              "    \"d\": [true, 5],\n"
                                              "    \"e\": [\n"
                                              "        {\n"
                                              "            \"f\": 18446744073709551615\n"
                                              "        },\n"
                                              "        [\"g\"]\n"
                                              "    ],\n"
                                              "    \"h\": -9223372036854775808\n"
                                              "}\n");
}

void PolicyJsonTest::textRoundTrip()
{
    QFETCH(QByteArray, text);

    Json json;
    QString error;
    QVERIFY2(PolicyJson::parse(text, json, &error), qPrintable(error));
    const QVariant variant = PolicyJson::toVariant(json);
    Json written;
    QVERIFY2(PolicyJson::toJson(variant, written, &error), qPrintable(error));
    // A switched number becomes a QJsonArray, whose elements are doubles in Qt 5.15: beyond
    // 2^53 the value is no longer the one read, and an unsigned one beyond qint64 wraps first.
    QCOMPARE(PolicyJson::dump(written), text);
}

void PolicyJsonTest::variantRoundTrip_data()
{
    QTest::addColumn<QVariant>("value");

    QTest::newRow("invalid") << QVariant();
    QTest::newRow("bool") << QVariant(false);
    QTest::newRow("int") << QVariant(INT_MIN);
    QTest::newRow("qlonglong") << QVariant(std::numeric_limits<qlonglong>::min());
    QTest::newRow("qulonglong") << QVariant(std::numeric_limits<qulonglong>::max());
    QTest::newRow("double") << QVariant(0.1);
    QTest::newRow("integral double") << QVariant(-3.0);
    QTest::newRow("string") << QVariant(QString::fromUtf8("Grüße\t\"x\""));
    QTest::newRow("string list") << QVariant(QStringList{QStringLiteral("a"), QString()});
    QTest::newRow("list") << QVariant(QVariantList{
        1, QStringLiteral("x"), QVariant(), 2.5, QVariantList{}, QStringList{QStringLiteral("y")}});
    QTest::newRow("switched number") << QVariant(QJsonArray{true, 5});
    QTest::newRow("map") << QVariant(
        QVariantMap{{QStringLiteral("n"), nestedMap()},
                    {QStringLiteral("u"), std::numeric_limits<qulonglong>::max()},
                    {QStringLiteral("d"), QJsonArray{false, 0}},
                    {QStringLiteral("l"), QVariantList{QVariantMap()}}});
}

void PolicyJsonTest::variantRoundTrip()
{
    QFETCH(QVariant, value);

    Json json;
    QString error;
    QVERIFY2(PolicyJson::toJson(value, json, &error), qPrintable(error));
    Json read;
    QVERIFY2(PolicyJson::parse(PolicyJson::dump(json), read, &error), qPrintable(error));
    const QVariant variant = PolicyJson::toVariant(read);
    QCOMPARE(typed(variant), typed(value));
    QCOMPARE(variant, value);
}

void PolicyJsonTest::layoutKeepsDocumentOrder_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("dumped");

    QTest::newRow("compact object keeps its order")
        << QByteArray("{\"z\":1,\"a\":[true,5],\"m\":{\"y\":\"v\",\"b\":[]}}")
        << QByteArray("{\n"
                      "    \"z\": 1,\n"
                      "    \"a\": [true, 5],\n"
                      "    \"m\": {\n"
                      "        \"y\": \"v\",\n"
                      "        \"b\": []\n"
                      "    }\n"
                      "}\n");
    QTest::newRow("array of arrays and objects") << QByteArray("[[1],{\"k\":[\"a\",\"b\"]},3]")
                                                 << QByteArray("[\n"
                                                               "    [1],\n"
                                                               "    {\n"
                                                               "        \"k\": [\"a\", \"b\"]\n"
                                                               "    },\n"
                                                               "    3\n"
                                                               "]\n");
    QTest::newRow("escapes become UTF-8, control characters stay escaped")
        << QByteArray("{\"\\u00e9\\n\":\"\\u2028\\u001b\\/\"}")
        << QByteArray("{\n    \"é\\n\": \"\u2028\\u001b/\"\n}\n");
}

void PolicyJsonTest::layoutKeepsDocumentOrder()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, dumped);

    Json json;
    QString error;
    QVERIFY2(PolicyJson::parse(text, json, &error), qPrintable(error));
    QCOMPARE(PolicyJson::dump(json), dumped);
}

void PolicyJsonTest::refusedValue_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("error");

    const QString nan = QStringLiteral("the number nan cannot be written as JSON");
    QTest::newRow("NaN") << QVariant(NotANumber) << nan;
    QTest::newRow("infinity") << QVariant(Infinity)
                              << QStringLiteral("the number inf cannot be written as JSON");
    QTest::newRow("minus infinity")
        << QVariant(-Infinity) << QStringLiteral("the number -inf cannot be written as JSON");
    QTest::newRow("float NaN") << QVariant::fromValue(std::numeric_limits<float>::quiet_NaN())
                               << nan;
    QTest::newRow("date") << QVariant(QDate(2024, 2, 29))
                          << QStringLiteral("a value of type QDate cannot be written as JSON");
    QTest::newRow("byte array") << QVariant(QByteArray("x"))
                                << QStringLiteral(
                                       "a value of type QByteArray cannot be written as JSON");
    QTest::newRow("NaN nested in a map")
        << QVariant(QVariantMap{
               {QStringLiteral("fine"), 1},
               {QStringLiteral("outer"), QVariantMap{{QStringLiteral("inner"), NotANumber}}}})
        << QStringLiteral("\"outer/inner\": ") + nan;
    QTest::newRow("NaN in a list in a hash")
        << QVariant(QVariantHash{{QStringLiteral("list"), QVariantList{1, 2, NotANumber}}})
        << QStringLiteral("\"list/2\": ") + nan;
    QTest::newRow("date in a map in a list")
        << QVariant(QVariantList{QVariantMap{{QStringLiteral("when"), QDate(2024, 1, 1)}}})
        << QStringLiteral("\"0/when\": a value of type QDate cannot be written as JSON");
    QTest::newRow("NaN in a QtCore JSON array")
        << QVariant(QJsonArray{true, NotANumber}) << QStringLiteral("\"1\": ") + nan;
}

void PolicyJsonTest::refusedValue()
{
    QFETCH(QVariant, value);
    QFETCH(QString, error);

    Json json;
    QString message;
    QVERIFY(!PolicyJson::toJson(value, json, &message));
    QCOMPARE(message, error);
}

void PolicyJsonTest::parseError_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("error");

    QTest::newRow("not JSON") << QByteArray("format = zql-policy\n")
                              << QStringLiteral("parse error at line 1, column 2: syntax error "
                                                "while parsing value - invalid literal; last "
                                                "read: 'fo'");
    QTest::newRow("empty") << QByteArray()
                           << QStringLiteral("parse error at line 1, column 1: syntax error while "
                                             "parsing value - unexpected end of input; expected "
                                             "'[', '{', or a literal");
    QTest::newRow("truncated") << QByteArray("{\n    \"a\": [1, 2")
                               << QStringLiteral("parse error at line 2, column 15: syntax error "
                                                 "while parsing array - unexpected end of input; "
                                                 "expected ']'");
    QTest::newRow("trailing text") << QByteArray("{} {}")
                                   << QStringLiteral("parse error at line 1, column 4: syntax "
                                                     "error while parsing value - unexpected '{'; "
                                                     "expected end of input");
    QTest::newRow("duplicate key at the top level")
        << QByteArray("{\"format\": \"zql-policy\", \"version\": 1, \"format\": \"x\"}")
        << QStringLiteral("the key \"format\" appears twice");
    QTest::newRow("duplicate key nested")
        << QByteArray("{\"m\": {\"n\": {\"k\": 1, \"j\": 2, \"k\": 1}}, \"o\": 1}")
        << QStringLiteral("the key \"k\" appears twice in \"m/n\"");
    QTest::newRow("duplicate key after a closed object")
        << QByteArray("{\"m\": {\"x\": 1, \"n\": {\"k\": 1}, \"x\": 2}}")
        << QStringLiteral("the key \"x\" appears twice in \"m\"");
    QTest::newRow("duplicate key in an object in a list")
        << QByteArray("{\"a\": [{\"y\": 1}, {\"x\": 1, \"x\": 2}]}")
        << QStringLiteral("the key \"x\" appears twice in \"a/1\"");
    QTest::newRow("first of two duplicates is named")
        << QByteArray("{\"b\": 1, \"b\": 2, \"a\": 1, \"a\": 2}")
        << QStringLiteral("the key \"b\" appears twice");
    QTest::newRow("syntax error wins over a duplicate")
        << QByteArray("{\"b\": 1, \"b\": 2,")
        << QStringLiteral("parse error at line 1, column 17: syntax error while parsing object "
                          "key - unexpected end of input; expected string literal");
    QTest::newRow("invalid UTF-8 in a string")
        << QByteArray("{\"a\": \"x\xff\"}")
        << QStringLiteral("parse error at line 1, column 9: syntax error while parsing value - "
                          "invalid string: ill-formed UTF-8 byte; last read: '\"x\uFFFD'");
    QTest::newRow("invalid UTF-8 in a key")
        << QByteArray("{\"\xc3\x28\": 1}")
        << QStringLiteral("parse error at line 1, column 4: syntax error while parsing object key "
                          "- invalid string: ill-formed UTF-8 byte; last read: '\"\uFFFD('; "
                          "expected string literal");
    QTest::newRow("raw line feed in a string")
        << QByteArray("\"a\nb\"")
        << QStringLiteral("parse error at line 2, column 0: syntax error while parsing value - "
                          "invalid string: control character U+000A (LF) must be escaped to "
                          "\\u000A or \\n; last read: '\"a<U+000A>'");
}

void PolicyJsonTest::parseError()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, error);

    Json json;
    QString message;
    QVERIFY(!PolicyJson::parse(text, json, &message));
    // The duplicate in a list is named by the list's key and the element's index.
    QCOMPARE(message, error);
}

void PolicyJsonTest::parseAccepted_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("same key in two objects")
        << QByteArray("{\"a\": {\"k\": 1}, \"b\": {\"k\": 2}}")
        << QVariant(QVariantMap{{QStringLiteral("a"), QVariantMap{{QStringLiteral("k"), 1}}},
                                {QStringLiteral("b"), QVariantMap{{QStringLiteral("k"), 2}}}});
    QTest::newRow("same key inside and outside")
        << QByteArray("{\"k\": {\"k\": {\"k\": 1}}}")
        << QVariant(QVariantMap{
               {QStringLiteral("k"),
                QVariantMap{{QStringLiteral("k"), QVariantMap{{QStringLiteral("k"), 1}}}}}});
    QTest::newRow("same key in objects of a list")
        << QByteArray("[{\"k\": 1}, {\"k\": 2}]")
        << QVariant(QVariantList{QVariantMap{{QStringLiteral("k"), 1}},
                                 QVariantMap{{QStringLiteral("k"), 2}}});
    QTest::newRow("byte order mark") << QByteArray("\xef\xbb\xbf{\"k\": true}")
                                     << QVariant(QVariantMap{{QStringLiteral("k"), true}});
}

void PolicyJsonTest::parseAccepted()
{
    QFETCH(QByteArray, text);
    QFETCH(QVariant, value);

    Json json;
    QString error = QStringLiteral("untouched");
    QVERIFY2(PolicyJson::parse(text, json, &error), qPrintable(error));
    QCOMPARE(error, QStringLiteral("untouched"));
    QCOMPARE(typed(PolicyJson::toVariant(json)), typed(value));
}

void PolicyJsonTest::listOfEntryMaps_data()
{
    QTest::addColumn<QVariant>("apps");

    // kiosk-global's "autostartApps": a list of tables with texts, lists of texts, a number and
    // a boolean, as the module returns it.
    const auto entry = [](const QString &name, const QString &localName,
                          const QStringList &sandboxArgs, int delay) -> QVariant {
        QVariantMap map;
        map.insert(QStringLiteral("desktopFileName"), QString(name + QStringLiteral(".desktop")));
        map.insert(QStringLiteral("Name"), name);
        map.insert(QStringLiteral("LocalName"), localName);
        map.insert(QStringLiteral("OnlyShowIn"), QStringList{QStringLiteral("vela-kiosk")});
        map.insert(QStringLiteral("Exec"), QStringLiteral("app --kiosk %u"));
        map.insert(QStringLiteral("X-VELA-Delay"), delay);
        map.insert(QStringLiteral("X-GNOME-Autostart-Phase"), QStringLiteral("Applications"));
        map.insert(QStringLiteral("sandbox"), !sandboxArgs.isEmpty());
        map.insert(QStringLiteral("sandboxArgs"), sandboxArgs);
        return map;
    };
    QTest::newRow("empty list") << QVariant(QVariantList());
    QTest::newRow("one entry with sandbox options") << QVariant(QVariantList{
        entry(QStringLiteral("browser"), QStringLiteral("Browser"),
              QStringList{QStringLiteral("--private"), QStringLiteral("--net=none")}, 5)});
    QTest::newRow("entries without options, non-ASCII names") << QVariant(
        QVariantList{entry(QString::fromUtf8("браузер"), QString::fromUtf8("Браузер «Киоск» 😀"),
                           QStringList(), 0),
                     entry(QString::fromUtf8("tastatur-ä"), QString::fromUtf8("Bildschirmtastatur"),
                           QStringList{QStringLiteral("--private")}, -1)});
}

void PolicyJsonTest::listOfEntryMaps()
{
    QFETCH(QVariant, apps);

    Json json;
    QString error;
    QVERIFY2(PolicyJson::toJson(apps, json, &error), qPrintable(error));
    Json read;
    QVERIFY2(PolicyJson::parse(PolicyJson::dump(json), read, &error), qPrintable(error));
    const QVariant variant = PolicyJson::toVariant(read);
    // Every element arrives as a table holding the same values, read as the module reads them.
    QCOMPARE(variant.userType(), int(QMetaType::QVariantList));
    const QVariantList sent = apps.toList();
    const QVariantList arrived = variant.toList();
    QCOMPARE(arrived.size(), sent.size());
    for (int i = 0; i < sent.size(); ++i) {
        QCOMPARE(arrived.at(i).userType(), int(QMetaType::QVariantMap));
        const QVariantMap before = sent.at(i).toMap();
        const QVariantMap after = arrived.at(i).toMap();
        QCOMPARE(after.keys(), before.keys());
        for (const QString &key : before.keys()) {
            const QVariant &value = before.value(key);
            if (value.userType() == QMetaType::QStringList)
                QCOMPARE(after.value(key).toStringList(), value.toStringList());
            else
                QCOMPARE(typed(after.value(key)), typed(value));
        }
    }
    // The text is the same when written again.
    Json again;
    QVERIFY2(PolicyJson::toJson(variant, again, &error), qPrintable(error));
    QCOMPARE(PolicyJson::dump(again), PolicyJson::dump(json));
}

QTEST_GUILESS_MAIN(PolicyJsonTest)
#include "policyjsontest.moc"
