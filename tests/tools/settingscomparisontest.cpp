// SettingsComparison: a policy's settings against the machine's, by value and key by key.
#include "settingscomparison.h"

#include <QJsonArray>
#include <QtTest>

using ZqlPolicy::Json;
using ZqlPolicy::KeyDifference;
using ZqlPolicy::SettingsComparison;

namespace {

using Settings = QHash<QString, QVariant>;

QVariant switched(bool on, int value)
{
    return QJsonArray{on, value};
}

// "key: policy -> machine" per difference, for comparing whole results at once.
QStringList described(const QVector<KeyDifference> &differences)
{
    QStringList lines;
    for (const KeyDifference &difference : differences) {
        lines.append(difference.key + QStringLiteral(": ") +
                     SettingsComparison::text(difference.policy) + QStringLiteral(" -> ") +
                     (difference.onMachine ? SettingsComparison::text(difference.machine)
                                           : QStringLiteral("(not set)")));
    }
    return lines;
}

} // namespace

class SettingsComparisonTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void differences_data();
    void differences();
    void text();
    void listsSortedByMember();
};

void SettingsComparisonTest::differences_data()
{
    QTest::addColumn<Settings>("policy");
    QTest::addColumn<Settings>("machine");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("equal") << Settings{{QStringLiteral("a"), QStringLiteral("x")}}
                           << Settings{{QStringLiteral("a"), QStringLiteral("x")}} << QStringList();
    QTest::newRow("string differs")
        << Settings{{QStringLiteral("login_state"), QStringLiteral("admin")}}
        << Settings{{QStringLiteral("login_state"), QStringLiteral("all")}}
        << QStringList{QStringLiteral("login_state: \"admin\" -> \"all\"")};
    QTest::newRow("switched number: both off, numbers differ")
        << Settings{{QStringLiteral("deny"), switched(false, 7)}}
        << Settings{{QStringLiteral("deny"), switched(false, 0)}} << QStringList();
    QTest::newRow("switched number: value differs")
        << Settings{{QStringLiteral("deny"), switched(true, 3)}}
        << Settings{{QStringLiteral("deny"), switched(true, 5)}}
        << QStringList{QStringLiteral("deny: [true, 3] -> [true, 5]")};
    QTest::newRow("switched number: on and off")
        << Settings{{QStringLiteral("deny"), switched(true, 0)}}
        << Settings{{QStringLiteral("deny"), switched(false, 0)}}
        << QStringList{QStringLiteral("deny: [true, 0] -> [false, 0]")};
    QTest::newRow("switched number as a list, same value")
        << Settings{{QStringLiteral("deny"), QVariantList{true, 5}}}
        << Settings{{QStringLiteral("deny"), switched(true, 5)}} << QStringList();
    QTest::newRow("number types") << Settings{{QStringLiteral("n"), 5}}
                                  << Settings{{QStringLiteral("n"), 5.0}} << QStringList();
    QTest::newRow("text is not a number")
        << Settings{{QStringLiteral("n"), QStringLiteral("5")}}
        << Settings{{QStringLiteral("n"), 5}} << QStringList{QStringLiteral("n: \"5\" -> 5")};
    QTest::newRow("lists by element")
        << Settings{{QStringLiteral("l"), QStringList{QStringLiteral("a"), QStringLiteral("b")}}}
        << Settings{{QStringLiteral("l"), QVariantList{QStringLiteral("a"), QStringLiteral("b")}}}
        << QStringList();
    QTest::newRow("list order counts")
        << Settings{{QStringLiteral("l"), QStringList{QStringLiteral("a"), QStringLiteral("b")}}}
        << Settings{{QStringLiteral("l"), QStringList{QStringLiteral("b"), QStringLiteral("a")}}}
        << QStringList{QStringLiteral("l: [\"a\", \"b\"] -> [\"b\", \"a\"]")};
    QTest::newRow("nested table member by member")
        << Settings{{QStringLiteral("complexity"),
                     QVariantMap{{QStringLiteral("minlen"), switched(true, 12)},
                                 {QStringLiteral("dcredit"), switched(false, 1)}}}}
        << Settings{{QStringLiteral("complexity"),
                     QVariantMap{{QStringLiteral("minlen"), switched(true, 8)},
                                 {QStringLiteral("dcredit"), switched(false, 0)},
                                 {QStringLiteral("extra"), true}}}}
        << QStringList{QStringLiteral("complexity/minlen: [true, 12] -> [true, 8]")};
    QTest::newRow("missing on the machine")
        << Settings{{QStringLiteral("DHOME"), QStringLiteral("/home")}} << Settings()
        << QStringList{QStringLiteral("DHOME: \"/home\" -> (not set)")};
    QTest::newRow("a key the policy leaves out")
        << Settings() << Settings{{QStringLiteral("DHOME"), QStringLiteral("/home")}}
        << QStringList();
    QTest::newRow("keys in order")
        << Settings{{QStringLiteral("b"), 1}, {QStringLiteral("a"), 1}}
        << Settings{{QStringLiteral("b"), 2}, {QStringLiteral("a"), 2}}
        << QStringList{QStringLiteral("a: 1 -> 2"), QStringLiteral("b: 1 -> 2")};
}

void SettingsComparisonTest::differences()
{
    QFETCH(Settings, policy);
    QFETCH(Settings, machine);
    QFETCH(QStringList, expected);
    QCOMPARE(described(SettingsComparison::differences(policy, machine)), expected);
}

void SettingsComparisonTest::text()
{
    QCOMPARE(SettingsComparison::text(Json::parse(R"({"a": [true, 1], "b": "x\ny"})")),
             QStringLiteral("{\"a\": [true, 1], \"b\": \"x\\ny\"}"));
    QCOMPARE(SettingsComparison::text(Json()), QStringLiteral("null"));
}

void SettingsComparisonTest::listsSortedByMember()
{
    const auto entry = [](const QString &name, int delay) {
        return QVariantMap{{QStringLiteral("desktopFileName"), name},
                           {QStringLiteral("X-VELA-Delay"), delay}};
    };
    const QHash<QString, QString> sortKeys{
        {QStringLiteral("apps"), QStringLiteral("desktopFileName")},
        {QStringLiteral("missing"), QStringLiteral("x")},
        {QStringLiteral("words"), QStringLiteral("x")}};
    const Settings policy{
        {QStringLiteral("apps"), QVariantList{entry(QStringLiteral("b.desktop"), 1), QVariantMap(),
                                              entry(QString::fromUtf8("ä.desktop"), 3),
                                              entry(QStringLiteral("a.desktop"), 2)}},
        {QStringLiteral("words"), QStringList{QStringLiteral("z"), QStringLiteral("y")}},
        {QStringLiteral("other"), QVariantList{2, 1}}};
    const Settings sorted = SettingsComparison::withListsSorted(policy, sortKeys);
    QCOMPARE(sorted.value(QStringLiteral("apps")),
             QVariant(QVariantList{entry(QStringLiteral("a.desktop"), 2),
                                   entry(QStringLiteral("b.desktop"), 1),
                                   entry(QString::fromUtf8("ä.desktop"), 3), QVariantMap()}));
    // Lists of plain values and lists not named keep their order.
    QCOMPARE(sorted.value(QStringLiteral("words")), policy.value(QStringLiteral("words")));
    QCOMPARE(sorted.value(QStringLiteral("other")), policy.value(QStringLiteral("other")));
    QVERIFY(!sorted.contains(QStringLiteral("missing")));

    // The same entries in another order are no drift once both sides are sorted.
    const Settings machine{{QStringLiteral("apps"),
                            QVariantList{entry(QStringLiteral("a.desktop"), 2),
                                         entry(QString::fromUtf8("ä.desktop"), 3), QVariantMap(),
                                         entry(QStringLiteral("b.desktop"), 1)}}};
    const Settings apps{{QStringLiteral("apps"), policy.value(QStringLiteral("apps"))}};
    QCOMPARE(SettingsComparison::differences(apps, machine).size(), 1);
    QCOMPARE(SettingsComparison::differences(SettingsComparison::withListsSorted(apps, sortKeys),
                                             SettingsComparison::withListsSorted(machine, sortKeys))
                 .size(),
             0);
}

QTEST_GUILESS_MAIN(SettingsComparisonTest)
#include "settingscomparisontest.moc"
