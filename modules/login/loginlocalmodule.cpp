#include "loginlocalmodule.h"

#include "diagnosticstreams_p.h"

#include <QStringList>

namespace {
const QString ModuleName = QStringLiteral("login-local");
const QString LoginStateKey = QStringLiteral("login_state");
const QSet<QString> KnownKeys{LoginStateKey};

const QString AllWord = QStringLiteral("all");
const QString AdminWord = QStringLiteral("admin");
const QString NoWord = QStringLiteral("no");
const QString UnknownWord = QStringLiteral("unknown");

const QString ErrorFormat = QStringLiteral("%1: %2");
const QChar ErrorSeparator = QLatin1Char('\n');

// "message: detail" per error, one a line.
QString describeErrors(const QList<TesselConfFile::Error> &errors)
{
    QStringList texts;
    for (const TesselConfFile::Error &error : errors)
        texts << ErrorFormat.arg(error.message(), error.detail());
    return texts.join(ErrorSeparator);
}
} // namespace

LoginLocalModule::LoginLocalModule() = default;

LoginLocalModule::~LoginLocalModule() = default;

SettingsReply LoginLocalModule::getSettings()
{
    const TesselConfFile::OperationResult result = getLoginState();
    if (!result.errors().isEmpty()) {
        writeDiagnostic(errorStream, formatOutput(describeErrors(result.errors())));
        return {StatusFailure, {}};
    }
    return {StatusSuccess, {{LoginStateKey, StateToStr(result.state())}}};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool LoginLocalModule::setSettings(QHash<QString, QVariant> settings)
{
    // No check of the word: the host sends one of the three, anything else is written as "all".
    const TesselConfFile::OperationResult result =
        setLoginState(settings.value(LoginStateKey).toString());
    if (result.errors().isEmpty())
        return false;
    writeDiagnostic(errorStream, formatOutput(describeErrors(result.errors())));
    return true;
}

QString LoginLocalModule::getName()
{
    return ModuleName;
}

bool LoginLocalModule::isAvailable()
{
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList LoginLocalModule::isParametersCorrect(QSet<QString> parameters)
{
    return unknownKeys(std::move(parameters), KnownKeys);
}

TesselConfFile::OperationResult LoginLocalModule::getLoginState()
{
    TesselConfFile file;
    return file.getLoginState();
}

TesselConfFile::OperationResult LoginLocalModule::setLoginState(const QString &value)
{
    TesselConfFile file;
    return file.setLoginState(StrToState(value));
}

QString LoginLocalModule::StateToStr(TesselConfFile::State state)
{
    switch (state) {
    case TesselConfFile::All:
        return AllWord;
    case TesselConfFile::Admin:
        return AdminWord;
    case TesselConfFile::No:
        return NoWord;
    default:
        return UnknownWord;
    }
}

TesselConfFile::State LoginLocalModule::StrToState(const QString &value)
{
    if (value == AllWord)
        return TesselConfFile::All;
    if (value == AdminWord)
        return TesselConfFile::Admin;
    if (value == NoWord)
        return TesselConfFile::No;
    return TesselConfFile::Unknown;
}
