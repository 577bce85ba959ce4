#include "macmodule.h"

#include "diagnosticstreams_p.h"
#include "mackernel.h"
#include "service.h"
#include "serviceregistry.h"
#include "velaadmin/mode.h"

#include <QStringList>

namespace {
const QString ModuleName = QStringLiteral("mac");
const QString KernelKey = QStringLiteral("Mac-kernel");
constexpr int MacMode = 2;
} // namespace

MacModule::MacModule() = default;

MacModule::~MacModule() = default;

SettingsReply MacModule::getSettings()
{
    QHash<QString, QVariant> settings;
    settings.insert(KernelKey, Mac::MacKernel::instance()->enabled());
    for (Mac::Service *service : Mac::ServiceRegistry::services()) {
        const Mac::Service::State state = service->state();
        if (state.hasError)
            writeDiagnostic(errorStream, formatOutput(state.text));
        else
            settings.insert(state.name, state.enabled);
    }
    // A service that cannot be read is only left out: the read as a whole succeeds.
    return {StatusSuccess, settings};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool MacModule::setSettings(QHash<QString, QVariant> settings)
{
    for (Mac::Service *service : Mac::ServiceRegistry::services()) {
        const auto value = settings.constFind(service->name());
        if (value == settings.constEnd())
            continue;
        const bool target = value->toBool();
        if (service->isEnabled() != target)
            service->setEnabled(target);
    }

    Mac::MacKernel *kernel = Mac::MacKernel::instance();
    QStringList messages;
    bool hadError = false;
    const QMetaObject::Connection errors = QObject::connect(
        kernel, &Mac::MacKernel::error, kernel,
        [&messages, &hadError](const QString &description) {
            messages << description;
            hadError = true;
        },
        Qt::DirectConnection);
    const QMetaObject::Connection warnings = QObject::connect(
        kernel, &Mac::MacKernel::warning, kernel,
        [&messages](const QString &description) { messages << description; }, Qt::DirectConnection);

    // A missing key reads as false and switches a planned-on MAC off.
    const bool target = settings.value(KernelKey).toBool();
    if (target != kernel->enabled()) {
        if (target)
            kernel->enable();
        else
            kernel->disable();
        kernel->update();
    }

    QObject::disconnect(errors);
    QObject::disconnect(warnings);

    const QString text = formatOutput(messages.join(QLatin1Char('\n')));
    if (hadError) {
        writeDiagnostic(errorStream, text);
        return true;
    }
    if (!messages.isEmpty())
        writeDiagnostic(outputStream, text);
    return false;
}

QString MacModule::getName()
{
    return ModuleName;
}

bool MacModule::isAvailable()
{
    return VelaAdmin::Mode::getCurrentMode() == MacMode;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList MacModule::isParametersCorrect(QSet<QString> parameters)
{
    QSet<QString> known{KernelKey};
    for (Mac::Service *service : Mac::ServiceRegistry::services()) {
        const Mac::Service::State state = service->state();
        if (state.hasError)
            writeDiagnostic(errorStream, formatOutput(state.text));
        else
            known.insert(state.name);
    }
    return unknownKeys(std::move(parameters), known);
}
