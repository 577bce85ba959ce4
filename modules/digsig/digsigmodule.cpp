#include "digsigmodule.h"

#include "diagnosticstreams_p.h"
#include "digsigconfig.h"
#include "velaadmin/mode.h"

#include <exception>

namespace {
const QString ModuleName = QStringLiteral("digsig");
const QString FilesKey = QStringLiteral("Files");
const QString AttributesKey = QStringLiteral("Attributes");
const QString TemplatesKey = QStringLiteral("Templates");
const QSet<QString> KnownKeys{FilesKey, AttributesKey, TemplatesKey};
const QString UnknownModeName = QStringLiteral("Unknown");
const QChar MessageSeparator = QLatin1Char('\n');

QString settingOfMode(int mode)
{
    const QString name = DigSigConfig::modeName(mode);
    return name.isEmpty() ? UnknownModeName : name;
}
} // namespace

DigSigModule::DigSigModule() = default;

DigSigModule::~DigSigModule() = default;

SettingsReply DigSigModule::getSettings()
{
    try {
        const DigSigConfig config(DigSigConfig::ReadFiles);
        if (!config.errors.isEmpty()) {
            writeDiagnostic(errorStream, formatOutput(config.errors.join(MessageSeparator)));
            return {StatusFailure, {}};
        }
        QHash<QString, QVariant> settings{{FilesKey, settingOfMode(config.elfMode)},
                                          {AttributesKey, settingOfMode(config.xattrMode)}};
        if (!config.xattrControl.isEmpty())
            settings.insert(TemplatesKey, config.xattrControl);
        return {StatusSuccess, settings};
    } catch (const std::exception &e) {
        writeDiagnostic(errorStream, formatOutput(QString::fromUtf8(e.what())));
        return {StatusFailure, {}};
    }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool DigSigModule::setSettings(QHash<QString, QVariant> settings)
{
    QStringList errors;
    QStringList warnings;
    try {
        DigSigConfig config;
        if (settings.contains(FilesKey))
            config.elfMode = DigSigConfig::modeOfName(settings.value(FilesKey).toString());
        if (settings.contains(AttributesKey))
            config.xattrMode = DigSigConfig::modeOfName(settings.value(AttributesKey).toString());
        if (settings.contains(TemplatesKey))
            config.xattrControl = settings.value(TemplatesKey).toString();
        // The two ignore flags are no settings: they stay as the files have them. Problems of
        // these reads do not matter here.
        config.ignoreGost2001 = DigSigConfig(DigSigConfig::ReadFiles).ignoreGost2001;
        config.ignoreXattrKeys = DigSigConfig(DigSigConfig::ReadFiles).ignoreXattrKeys;

        errors = DigSig::writeDigSigConfig(config);
        if (errors.isEmpty()) {
            try {
                if (DigSig::isBootReadOnly()) {
                    if (!DigSig::remountBoot(true)) {
                        errors << tr("Can't remount /boot read write");
                    } else {
                        warnings << DigSig::runUpdateInitramfs();
                        // Only after a rebuild that did not throw; a failed one leaves /boot
                        // writable.
                        DigSig::remountBoot(false);
                    }
                } else {
                    warnings << DigSig::runUpdateInitramfs();
                }
            } catch (const std::runtime_error &e) {
                errors << QString::fromUtf8(e.what());
            }
        }
    } catch (const std::exception &e) {
        errors << QString::fromUtf8(e.what());
    }

    if (!errors.isEmpty()) {
        writeDiagnostic(errorStream, formatOutput(errors.join(MessageSeparator)));
        return true;
    }
    if (!warnings.isEmpty())
        writeDiagnostic(outputStream, formatOutput(warnings.join(MessageSeparator)));
    return false;
}

QString DigSigModule::getName()
{
    return ModuleName;
}

bool DigSigModule::isAvailable()
{
    const int mode = VelaAdmin::Mode::getCurrentMode();
    return mode == 1 || mode == 2;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList DigSigModule::isParametersCorrect(QSet<QString> parameters)
{
    return unknownKeys(std::move(parameters), KnownKeys);
}
