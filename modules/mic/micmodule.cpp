#include "micmodule.h"

#include "diagnosticstreams_p.h"
#include "micfs.h"
#include "mickernel.h"
#include "velaadmin/mode.h"

#include <QEventLoop>
#include <QStringList>
#include <QTimer>

namespace {
const QString ModuleName = QStringLiteral("mic");
const QString MicEnabledKey = QStringLiteral("MicEnabled");
const QString MaxLevelKey = QStringLiteral("MaxLevel");
const QString ProtectFsKey = QStringLiteral("ProtectFS");
const QSet<QString> KnownKeys{MicEnabledKey, MaxLevelKey, ProtectFsKey};
} // namespace

MicModule::MicModule(int protectFsWaitMs)
    : MicModule(nullptr, nullptr, protectFsWaitMs)
{}

MicModule::MicModule(Mic::MicKernel *kernel, Mic::MicFs *fs, int protectFsWaitMs)
    : m_kernel(kernel)
    , m_fs(fs)
    , m_protectFsWaitMs(protectFsWaitMs)
{}

MicModule::~MicModule() = default;

SettingsReply MicModule::getSettings()
{
    Mic::MicKernel *kernel = m_kernel != nullptr ? m_kernel : Mic::MicKernel::instance();
    kernel->update();
    QHash<QString, QVariant> settings;
    settings.insert(MicEnabledKey, kernel->isEnabled());
    settings.insert(MaxLevelKey, static_cast<int>(kernel->currentLevel().level));
    settings.insert(ProtectFsKey, waitForProtectFs());
    return {StatusSuccess, settings};
}

// The filesystem model measures its status in the background. A fresh measurement is started
// unless one is running; the wait ends when it reports (enabledChanged), when the query fails
// (error), or at the limit. Without a report the last known value is kept (false when the
// status was never known), so a hanging query does not turn a protected filesystem into an
// unprotected one.
bool MicModule::waitForProtectFs()
{
    Mic::MicFs *fs = m_fs != nullptr ? m_fs : Mic::MicFs::instance();
    bool kept = fs->lastKnownEnabled();
    if (!fs->isQueryRunning())
        fs->update();
    if (fs->status() != Mic::MicFs::Loading)
        return fs->isEnabled();

    QEventLoop loop;
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, &loop, &QEventLoop::quit);
    const QMetaObject::Connection reported =
        QObject::connect(fs, &Mic::MicFs::enabledChanged, &loop, [&kept, &loop](bool enabled) {
            kept = enabled;
            loop.quit();
        });
    const QMetaObject::Connection failed =
        QObject::connect(fs, &Mic::MicFs::error, &loop, &QEventLoop::quit);
    limit.start(m_protectFsWaitMs);
    loop.exec();
    QObject::disconnect(reported);
    QObject::disconnect(failed);
    return kept;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool MicModule::setSettings(QHash<QString, QVariant> settings)
{
    Mic::MicKernel *kernel = m_kernel != nullptr ? m_kernel : Mic::MicKernel::instance();
    Mic::MicFs *fs = m_fs != nullptr ? m_fs : Mic::MicFs::instance();

    QStringList messages;
    bool hadError = false;
    const auto collectError = [&messages, &hadError](const QString &text) {
        messages << text;
        hadError = true;
    };
    const auto collectWarning = [&messages](const QString &text) { messages << text; };
    const QList<QMetaObject::Connection> collectors{
        QObject::connect(kernel, &Mic::MicKernel::error, this, collectError, Qt::DirectConnection),
        QObject::connect(kernel, &Mic::MicKernel::warning, this, collectWarning,
                         Qt::DirectConnection),
        QObject::connect(fs, &Mic::MicFs::error, this, collectError, Qt::DirectConnection),
        QObject::connect(fs, &Mic::MicFs::warning, this, collectWarning, Qt::DirectConnection)};

    bool refused = false;
    if (settings.contains(ProtectFsKey)) {
        if (settings.value(ProtectFsKey).toBool()) {
            if (fs->status() != Mic::MicFs::Enabled)
                fs->enable();
        } else if (fs->status() != Mic::MicFs::Disabled) {
            fs->disable();
        }
    }

    if (settings.contains(MaxLevelKey)) {
        const auto level = static_cast<quint8>(settings.value(MaxLevelKey).toUInt());
        const quint8 current = kernel->currentLevel().level;
        if (level == current) {
            writeDiagnostic(
                outputStream,
                formatOutput(
                    QObject::tr("%1 is already %2").arg(MaxLevelKey, QString::number(level))));
        } else if (level < current) {
            writeDiagnostic(
                errorStream,
                formatOutput(QObject::tr("only an increase in the integrity level is allowed")));
            refused = true;
        } else {
            MicLevel next;
            next.level = level;
            kernel->enable(next);
        }
    }

    if (settings.contains(MicEnabledKey)) {
        if (settings.value(MicEnabledKey).toBool())
            kernel->enable(kernel->defaultLevel());
        else
            kernel->disable();
    }

    for (const QMetaObject::Connection &collector : collectors)
        QObject::disconnect(collector);
    if (!messages.isEmpty())
        writeDiagnostic(hadError ? errorStream : outputStream,
                        formatOutput(messages.join(QLatin1Char('\n'))));
    return hadError || refused;
}

QString MicModule::getName()
{
    return ModuleName;
}

bool MicModule::isAvailable()
{
    // Mode 1 or 2, as one unsigned comparison.
    return static_cast<unsigned>(VelaAdmin::Mode::getCurrentMode() - 1) <= 1U;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList MicModule::isParametersCorrect(QSet<QString> parameters)
{
    return unknownKeys(std::move(parameters), KnownKeys);
}

bool MicModule::checkRestrictions(const QHash<QString, QVariant> &settings)
{
    const QHash<QString, QVariant> current = getSettings().second;
    if (current.value(ProtectFsKey).toBool()) {
        writeDiagnostic(errorStream,
                        formatOutput(QObject::tr("When the MIC is turned on on the FS, no import "
                                                 "is made. Turn off MIC on FS")));
        return false;
    }
    const uint incomingMax = settings.value(MaxLevelKey).toUInt();
    const uint currentMax = current.value(MaxLevelKey).toUInt();
    if (incomingMax < currentMax) {
        writeDiagnostic(errorStream, formatOutput(QObject::tr(
                                         "Only raising the maximum integrity level is allowed")));
        return false;
    }
    return true;
}

int MicModule::protectFsWaitMs() const
{
    return m_protectFsWaitMs;
}
