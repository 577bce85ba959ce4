// PolicyTool's drift report and its apply that leaves out what already follows, with modules
// of the test's own: every status, and which modules get written.
#include "policytool.h"
#include "outputcapture.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

#include <map>
#include <memory>

using ZqlPolicy::ModuleRegistry;
using ZqlPolicy::PolicyTool;

namespace {

// What a FakeModule answers, and what was written to it.
struct FakeModuleState
{
    bool available = true;
    bool readable = true;
    QHash<QString, QVariant> settings;
    int writes = 0;
};

class FakeModule : public ModuleInterface
{
public:
    FakeModule(QString name, std::shared_ptr<FakeModuleState> state)
        : m_name(std::move(name))
        , m_state(std::move(state))
    {}

    SettingsReply getSettings() override
    {
        if (!m_state->readable) {
            std::fputs("cannot read\n", stderr);
            return {StatusFailure, {}};
        }
        return {StatusSuccess, m_state->settings};
    }

    bool setSettings(QHash<QString, QVariant> settings) override
    {
        ++m_state->writes;
        m_state->settings = settings;
        return false;
    }

    QString getName() override { return m_name; }
    bool isAvailable() override { return m_state->available; }
    QStringList isParametersCorrect(QSet<QString> parameters) override
    {
        Q_UNUSED(parameters)
        return {};
    }

private:
    QString m_name;
    std::shared_ptr<FakeModuleState> m_state;
};

const QByteArray Policy = "{\"format\": \"zql-policy\", \"version\": 1,\n"
                          " \"alpha\": {\"deny\": [true, 3], \"mode\": \"admin\"},\n"
                          " \"beta\": {\"table\": {\"minlen\": [true, 12], \"off\": [false, 4]}},\n"
                          " \"gamma\": {\"on\": true}}\n";

} // namespace

class PolicyToolTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void follows();
    void oneKeyDrifted();
    void unavailableAndUnreadableAreNotDrift();
    void driftAsJson();
    void driftOfRefusedDocument();
    void applyLeavesOutWhatFollows();
    void applyAll();

private:
    struct Result
    {
        int status = -1;
        QByteArray out;
        QByteArray err;
    };
    Result drift(const QStringList &only = {}, bool json = false);
    Result apply(bool all = false);
    int writes() const;

    QTemporaryDir m_dir;
    ModuleRegistry m_registry;
    std::map<QString, std::shared_ptr<FakeModuleState>> m_states;
};

void PolicyToolTest::init()
{
    QVERIFY(m_dir.isValid());
    QFile file(m_dir.filePath(QStringLiteral("p.json")));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(Policy) == Policy.size());
    m_registry = ModuleRegistry();
    m_states.clear();
    // Every module as the policy has it, with a key of the machine's own that does not count.
    const std::map<QString, QHash<QString, QVariant>> live = {
        {QStringLiteral("alpha"),
         {{QStringLiteral("deny"), QJsonArray{true, 3}},
          {QStringLiteral("mode"), QStringLiteral("admin")},
          {QStringLiteral("extra"), 1}}},
        {QStringLiteral("beta"),
         {{QStringLiteral("table"), QVariantMap{{QStringLiteral("minlen"), QJsonArray{true, 12}},
                                                {QStringLiteral("off"), QJsonArray{false, 0}}}}}},
        {QStringLiteral("gamma"), {{QStringLiteral("on"), true}}},
    };
    for (const QString &name :
         {QStringLiteral("alpha"), QStringLiteral("beta"), QStringLiteral("gamma")}) {
        auto state = std::make_shared<FakeModuleState>();
        state->settings = live.at(name);
        m_states[name] = state;
        m_registry.add(name, [name, state] { return std::make_unique<FakeModule>(name, state); });
    }
}

PolicyToolTest::Result PolicyToolTest::drift(const QStringList &only, bool json)
{
    PolicyTool tool(m_registry);
    tool.setSourceName(QStringLiteral("p.json"));
    ZqlTest::OutputCapture capture;
    Result result;
    result.status = tool.drift(m_dir.filePath(QStringLiteral("p.json")), only, json);
    capture.finish();
    result.out = capture.standardOutput();
    result.err = capture.standardError();
    return result;
}

PolicyToolTest::Result PolicyToolTest::apply(bool all)
{
    PolicyTool tool(m_registry);
    tool.setSourceName(QStringLiteral("p.json"));
    ZqlTest::OutputCapture capture;
    Result result;
    result.status = tool.apply(m_dir.filePath(QStringLiteral("p.json")), {}, all);
    capture.finish();
    result.out = capture.standardOutput();
    result.err = capture.standardError();
    return result;
}

int PolicyToolTest::writes() const
{
    int total = 0;
    for (const auto &state : m_states)
        total += state.second->writes;
    return total;
}

void PolicyToolTest::follows()
{
    const Result result = drift();
    QCOMPARE(result.status, 0);
    QCOMPARE(result.out, QByteArray("p.json: follows: alpha, beta, gamma\n"));
    QCOMPARE(result.err, QByteArray());
    QCOMPARE(writes(), 0);
}

void PolicyToolTest::oneKeyDrifted()
{
    m_states[QStringLiteral("beta")]->settings[QStringLiteral("table")] =
        QVariantMap{{QStringLiteral("minlen"), QJsonArray{true, 8}},
                    {QStringLiteral("off"), QJsonArray{false, 0}}};
    const Result result = drift();
    QCOMPARE(result.status, 1);
    QCOMPARE(result.out, QByteArray("beta table/minlen: policy [true, 12], machine [true, 8]\n"
                                    "p.json: drifted: beta (1 key); follows: alpha, gamma\n"));
    QCOMPARE(writes(), 0);
}

void PolicyToolTest::unavailableAndUnreadableAreNotDrift()
{
    m_states[QStringLiteral("alpha")]->available = false;
    m_states[QStringLiteral("gamma")]->readable = false;
    const Result result = drift();
    QCOMPARE(result.status, 5);
    QCOMPARE(result.out, QByteArray("alpha: not available on this machine\n"
                                    "gamma: the settings could not be read\n"
                                    "p.json: follows: beta; not available: alpha; "
                                    "unreadable: gamma\n"));
    QCOMPARE(result.err, QByteArray("cannot read\n"));

    // Drift wins over what could not be compared.
    m_states[QStringLiteral("beta")]->settings.clear();
    const Result drifted = drift();
    QCOMPARE(drifted.status, 1);
    QCOMPARE(drifted.out, QByteArray("alpha: not available on this machine\n"
                                     "beta table: policy {\"minlen\": [true, 12], \"off\": "
                                     "[false, 4]}, machine (not set)\n"
                                     "gamma: the settings could not be read\n"
                                     "p.json: drifted: beta (1 key); not available: alpha; "
                                     "unreadable: gamma\n"));
}

void PolicyToolTest::driftAsJson()
{
    m_states[QStringLiteral("alpha")]->settings.remove(QStringLiteral("mode"));
    m_states[QStringLiteral("gamma")]->available = false;
    const Result result = drift({QStringLiteral("alpha"), QStringLiteral("gamma")}, true);
    QCOMPARE(result.status, 1);
    QCOMPARE(result.out, QByteArray("{\n"
                                    "    \"policy\": \"p.json\",\n"
                                    "    \"result\": \"drifted\",\n"
                                    "    \"modules\": {\n"
                                    "        \"alpha\": {\n"
                                    "            \"status\": \"drifted\",\n"
                                    "            \"differences\": [\n"
                                    "                {\n"
                                    "                    \"key\": \"mode\",\n"
                                    "                    \"policy\": \"admin\",\n"
                                    "                    \"machine\": null\n"
                                    "                }\n"
                                    "            ]\n"
                                    "        },\n"
                                    "        \"gamma\": {\n"
                                    "            \"status\": \"unavailable\"\n"
                                    "        }\n"
                                    "    }\n"
                                    "}\n"));
}

void PolicyToolTest::driftOfRefusedDocument()
{
    QFile file(m_dir.filePath(QStringLiteral("p.json")));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("{\"format\": \"x\"}") > 0);
    file.close();
    const Result result = drift();
    QCOMPARE(result.status, 3);
    QCOMPARE(result.out, QByteArray());
    QVERIFY2(result.err.endsWith("zql-policy: p.json: refused\n"), result.err.constData());
}

void PolicyToolTest::applyLeavesOutWhatFollows()
{
    m_states[QStringLiteral("alpha")]->settings[QStringLiteral("mode")] = QStringLiteral("all");
    m_states[QStringLiteral("gamma")]->readable = false;
    const Result result = apply();
    QCOMPARE(result.status, 0);
    // alpha differs and gamma could not be compared: both written; beta follows.
    QCOMPARE(m_states[QStringLiteral("alpha")]->writes, 1);
    QCOMPARE(m_states[QStringLiteral("beta")]->writes, 0);
    QCOMPARE(m_states[QStringLiteral("gamma")]->writes, 1);
    QCOMPARE(result.err,
             QByteArray("cannot read\n"
                        "zql-policy: p.json: applied: alpha, gamma; unchanged: beta\n"));

    // Applied again: nothing to do.
    m_states[QStringLiteral("gamma")]->readable = true;
    const Result again = apply();
    QCOMPARE(again.status, 0);
    QCOMPARE(again.err,
             QByteArray("zql-policy: p.json: nothing to do; unchanged: alpha, beta, gamma\n"));
    QCOMPARE(writes(), 2);
}

void PolicyToolTest::applyAll()
{
    const Result result = apply(true);
    QCOMPARE(result.status, 0);
    QCOMPARE(result.err, QByteArray("zql-policy: p.json: applied: alpha, beta, gamma\n"));
    QCOMPARE(writes(), 3);
}

QTEST_GUILESS_MAIN(PolicyToolTest)
#include "policytooltest.moc"
