
#include <zql-modules/modules.h>

#include <QJsonDocument>
#include <QtTest>

#include <stdexcept>

namespace {
QJsonObject objectOf(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}
} // namespace

class SecuritySwitchTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void record_data();
    void record();
    void rejected_data();
    void rejected();
    void setters();
};

void SecuritySwitchTest::record_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("id");
    QTest::addColumn<QString>("longname");
    QTest::addColumn<QString>("tooltip");
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("extra");
    QTest::addColumn<QString>("slave");
    QTest::addColumn<int>("groupType");
    QTest::addColumn<bool>("gray");
    QTest::addColumn<bool>("needReboot");

    QTest::newRow("required keys only, id truncated")
        << QByteArray(R"({"id": 3.9, "name": "a", "longname": "L", "script": "s"})") << 3 << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << false << false;
    QTest::newRow("negative id truncated toward zero")
        << QByteArray(R"({"id": -2.7, "name": "a", "longname": "L", "script": "s"})") << -2 << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << false << false;
    QTest::newRow("every key")
        << QByteArray(R"({"id": 7, "name": "a", "longname": "L", "script": "s", "extra": "e",
                         "tooltip": "T", "slave": 2, "group": "console", "gray": 1,
                         "enableNeedReboot": 1, "disableNeedReboot": 0})")
        << 7 << "L"
        << "T"
        << "s"
        << "e"
        << "2" << 0 << true << true;
    QTest::newRow("empty tooltip falls back to the long name")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "tooltip": ""})")
        << 1 << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << false << false;
    QTest::newRow("group in other case is not console")
        << QByteArray(
               R"({"id": 1, "name": "a", "longname": "L", "script": "s", "group": "Console"})")
        << 1 << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << false << false;
    QTest::newRow("other group")
        << QByteArray(
               R"({"id": 1, "name": "a", "longname": "L", "script": "s", "group": "kernel"})")
        << 1 << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << false << false;
    QTest::newRow("slave 2.5")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "slave": 2.5})")
        << 1 << "L"
        << "L"
        << "s"
        << ""
        << "2.5" << 1 << false << false;
    QTest::newRow("slave 1e7")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "slave": 1e7})")
        << 1 << "L"
        << "L"
        << "s"
        << ""
        << "1e+07" << 1 << false << false;
    QTest::newRow("slave with more than six digits")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "slave": 1234567})")
        << 1 << "L"
        << "L"
        << "s"
        << ""
        << "1.23457e+06" << 1 << false << false;
    QTest::newRow("slave 0")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "slave": 0})") << 1
        << "L"
        << "L"
        << "s"
        << ""
        << "0" << 1 << false << false;
    QTest::newRow("gray 0.5 is true")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "gray": 0.5})") << 1
        << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << true << false;
    QTest::newRow("gray 0.4 is false")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "gray": 0.4})") << 1
        << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << false << false;
    QTest::newRow("gray -0.5 is true")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "gray": -0.5})")
        << 1 << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << true << false;
    QTest::newRow("disableNeedReboot alone sets both")
        << QByteArray(
               R"({"id": 1, "name": "a", "longname": "L", "script": "s", "disableNeedReboot": 2})")
        << 1 << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << false << true;
    QTest::newRow("unknown keys are ignored")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "x": [true]})") << 1
        << "L"
        << "L"
        << "s"
        << ""
        << "" << 1 << false << false;
}

void SecuritySwitchTest::record()
{
    QFETCH(QByteArray, json);
    QFETCH(int, id);
    QFETCH(QString, longname);
    QFETCH(QString, tooltip);
    QFETCH(QString, script);
    QFETCH(QString, extra);
    QFETCH(QString, slave);
    QFETCH(int, groupType);
    QFETCH(bool, gray);
    QFETCH(bool, needReboot);

    const QJsonObject object = objectOf(json);
    QVERIFY(!object.isEmpty());
    const SecuritySwitch record = SecuritySwitch::fromJson(object);
    QCOMPARE(record.id(), id);
    QCOMPARE(record.longname(), longname);
    QCOMPARE(record.tooltip(), tooltip);
    QCOMPARE(record.script(), script);
    QCOMPARE(record.extra(), extra);
    QCOMPARE(record.slave(), slave);
    QCOMPARE(record.hasSlave(), !slave.isEmpty());
    QCOMPARE(record.groupType(), groupType);
    QCOMPARE(record.gray(), gray);
    QCOMPARE(record.enableNeedReboot(), needReboot);
    QCOMPARE(record.disableNeedReboot(), needReboot);
}

void SecuritySwitchTest::rejected_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("message");

    const QString expectedDouble = QStringLiteral("Expected double");
    const QString expectedString = QStringLiteral("Expected string");
    const QString expectedFlag = QStringLiteral("Expected bool (0/1)");
    const QString missing = QStringLiteral("Json object should contain key '%1'");
    QTest::newRow("missing id") << QByteArray(R"({"name": "a", "longname": "L", "script": "s"})")
                                << missing.arg(QStringLiteral("id"));
    QTest::newRow("missing name") << QByteArray(R"({"id": 1, "longname": "L", "script": "s"})")
                                  << missing.arg(QStringLiteral("name"));
    QTest::newRow("missing longname") << QByteArray(R"({"id": 1, "name": "a", "script": "s"})")
                                      << missing.arg(QStringLiteral("longname"));
    QTest::newRow("missing script") << QByteArray(R"({"id": 1, "name": "a", "longname": "L"})")
                                    << missing.arg(QStringLiteral("script"));
    QTest::newRow("empty object") << QByteArray("{}") << missing.arg(QStringLiteral("id"));
    QTest::newRow("id as string")
        << QByteArray(R"({"id": "1", "name": "a", "longname": "L", "script": "s"})")
        << expectedDouble;
    QTest::newRow("name as number")
        << QByteArray(R"({"id": 1, "name": 2, "longname": "L", "script": "s"})") << expectedString;
    QTest::newRow("longname null")
        << QByteArray(R"({"id": 1, "name": "a", "longname": null, "script": "s"})")
        << expectedString;
    QTest::newRow("script as array")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": ["s"]})")
        << expectedString;
    QTest::newRow("extra as number")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "extra": 1})")
        << expectedString;
    QTest::newRow("tooltip as bool")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "tooltip": true})")
        << expectedString;
    QTest::newRow("slave as string")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "slave": "2"})")
        << expectedDouble;
    QTest::newRow("group as number")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "group": 0})")
        << expectedString;
    QTest::newRow("gray as literal true")
        << QByteArray(R"({"id": 1, "name": "a", "longname": "L", "script": "s", "gray": true})")
        << expectedFlag;
    QTest::newRow("enableNeedReboot as literal false")
        << QByteArray(
               R"({"id": 1, "name": "a", "longname": "L", "script": "s", "enableNeedReboot": false})")
        << expectedFlag;
    QTest::newRow("disableNeedReboot as string")
        << QByteArray(
               R"({"id": 1, "name": "a", "longname": "L", "script": "s", "disableNeedReboot": "1"})")
        << expectedFlag;
    QTest::newRow("keys are checked in order: id before a missing script")
        << QByteArray(R"({"id": "x", "name": "a", "longname": "L"})") << expectedDouble;
    QTest::newRow("keys are checked in order: a missing name before a bad extra")
        << QByteArray(R"({"id": 1, "longname": "L", "script": "s", "extra": 1})")
        << missing.arg(QStringLiteral("name"));
}

void SecuritySwitchTest::rejected()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, message);

    const QJsonObject object = objectOf(json);
    QString thrown;
    try {
        SecuritySwitch::fromJson(object);
    } catch (const std::runtime_error &e) {
        thrown = QString::fromUtf8(e.what());
    }
    QCOMPARE(thrown, message);
}

void SecuritySwitchTest::setters()
{
    SecuritySwitch record(1, QStringLiteral("L"), QStringLiteral("T"), QStringLiteral("s"),
                          QString(), QString(), SecuritySwitch::ParameterGroup);
    QCOMPARE(record.gray(), false);
    QCOMPARE(record.enableNeedReboot(), false);
    QCOMPARE(record.disableNeedReboot(), false);
    record.setGroupType(SecuritySwitch::ConsoleGroup);
    record.setGray(true);
    record.setNeedReboot(true);
    QCOMPARE(record.groupType(), 0);
    QCOMPARE(record.gray(), true);
    QCOMPARE(record.enableNeedReboot(), true);
    QCOMPARE(record.disableNeedReboot(), true);
    QCOMPARE(record.hasSlave(), false);
}

QTEST_GUILESS_MAIN(SecuritySwitchTest)
#include "securityswitchtest.moc"
