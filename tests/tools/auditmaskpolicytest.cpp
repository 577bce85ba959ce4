// A policy's 64-bit audit masks reach AuditModule::setSettings exactly as written, also above
// 2^53 where a double would round them; the module then stores their low 32 bits.
#include "outputcapture.h"
#include "policytool.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QTemporaryDir>

#include <memory>

using ZqlPolicy::ModuleRegistry;
using ZqlPolicy::PolicyTool;

namespace {
const QString AuditDatabase = QStringLiteral("/etc/zql-platform/auddb");

// The real module, keeping what the host gave it.
class RecordingAuditModule : public AuditModule
{
public:
    explicit RecordingAuditModule(std::shared_ptr<QHash<QString, QVariant>> received)
        : m_received(std::move(received))
    {}

    bool setSettings(QHash<QString, QVariant> settings) override
    {
        *m_received = settings;
        return AuditModule::setSettings(settings);
    }

private:
    std::shared_ptr<QHash<QString, QVariant>> m_received;
};
} // namespace

class AuditMaskPolicyTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void masksReachTheModuleExactly_data();
    void masksReachTheModuleExactly();
};

void AuditMaskPolicyTest::masksReachTheModuleExactly_data()
{
    QTest::addColumn<QByteArray>("success");
    QTest::addColumn<QByteArray>("fail");
    QTest::addColumn<qulonglong>("successValue");
    QTest::addColumn<qulonglong>("failValue");
    QTest::addColumn<QByteArray>("stored");
    QTest::newRow("2^53 + 1 and 2^64 - 1")
        << QByteArray("9007199254740993") << QByteArray("18446744073709551615")
        << 9007199254740993ULL << 18446744073709551615ULL
        << QByteArray("4::0x00000001:0xffffffff\n");
    QTest::newRow("2^63 + 5 and 2^53 - 1")
        << QByteArray("9223372036854775813") << QByteArray("9007199254740991")
        << 9223372036854775813ULL << 9007199254740991ULL
        << QByteArray("4::0x00000005:0xffffffff\n");
    QTest::newRow("small masks") << QByteArray("6") << QByteArray("0") << 6ULL << 0ULL
                                 << QByteArray("4::0x00000006:0x00000000\n");
}

void AuditMaskPolicyTest::masksReachTheModuleExactly()
{
    QFETCH(QByteArray, success);
    QFETCH(QByteArray, fail);
    QFETCH(qulonglong, successValue);
    QFETCH(qulonglong, failValue);
    QFETCH(QByteArray, stored);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString policy = dir.filePath(QStringLiteral("audit.json"));
    QVERIFY(ZqlTest::writeBytes(policy, "{\"format\": \"zql-policy\", \"version\": 1,\n"
                                        " \"audit\": {\"success\": " +
                                            success + ", \"fail\": " + fail + "}}\n"));
    auto received = std::make_shared<QHash<QString, QVariant>>();
    ModuleRegistry registry;
    registry.add(QStringLiteral("audit"),
                 [received] { return std::make_unique<RecordingAuditModule>(received); });
    int status = -1;
    {
        ZqlTest::OutputCapture capture;
        status = PolicyTool(registry).apply(policy, {}, true);
    }
    QCOMPARE(status, int(PolicyTool::ExitSuccess));
    QCOMPARE(received->size(), 2);
    QCOMPARE(received->value(QStringLiteral("success")).toULongLong(), successValue);
    QCOMPARE(received->value(QStringLiteral("fail")).toULongLong(), failValue);
    // Not through a double on the way: the variant holds a 64-bit integer.
    QVERIFY(received->value(QStringLiteral("success")).userType() != QMetaType::Double);
    QVERIFY(received->value(QStringLiteral("fail")).userType() != QMetaType::Double);
    QCOMPARE(ZqlTest::readBytes(AuditDatabase), "zql-platform-auddb 1\n" + stored);
}

ZQL_SANDBOXED_TEST_MAIN(AuditMaskPolicyTest)
#include "auditmaskpolicytest.moc"
