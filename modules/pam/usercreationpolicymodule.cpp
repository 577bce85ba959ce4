#include "usercreationpolicymodule.h"

#include "configfileengine.h"
#include "diagnosticstreams_p.h"
#include "usercreation_p.h"
#include "usercreationreaderregexphandler.h"
#include "usercreationrewriterregexphandler.h"

#include <QSet>

#include <utility>

namespace {
const QString ModuleName = QStringLiteral("user-creation-policy");
const QString AddUserConf = QStringLiteral("/etc/adduser.conf");
const QSet<QString> KnownKeys = {UserCreation::HomeKey, UserCreation::SkeletonKey,
                                 UserCreation::ShellKey, UserCreation::UserGroupsKey,
                                 UserCreation::UsersGroupKey};
} // namespace

UserCreationPolicyModule::UserCreationPolicyModule() = default;

UserCreationPolicyModule::~UserCreationPolicyModule() = default;

SettingsReply UserCreationPolicyModule::getSettings()
{
    if (readCreationParams() != 0)
        return {StatusFailure, {}};
    return {StatusSuccess, m_settings};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool UserCreationPolicyModule::setSettings(QHash<QString, QVariant> settings)
{
    return setCreationParams(std::move(settings)) != 0;
}

QString UserCreationPolicyModule::getName()
{
    return ModuleName;
}

bool UserCreationPolicyModule::isAvailable()
{
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList UserCreationPolicyModule::isParametersCorrect(QSet<QString> parameters)
{
    return unknownKeys(std::move(parameters), KnownKeys);
}

int UserCreationPolicyModule::readCreationParams()
{
    // Each read starts afresh, so a key removed from the file is not reported from an earlier
    // read.
    m_settings.clear();
    UserCreation::ReaderRegExpHandler reader(&m_settings);
    QString errors;
    if (!readFileWithHandler(AddUserConf, reader, errors)) {
        m_settings.clear();
        writeDiagnostic(errorStream, formatOutput(errors));
        return 1;
    }
    if (!errors.isEmpty())
        writeDiagnostic(outputStream, formatOutput(errors));
    return 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): exported operation takes a copy
int UserCreationPolicyModule::setCreationParams(QHash<QString, QVariant> settings)
{
    UserCreation::RewriterRegExpHandler rewriter(settings);
    QString errors;
    if (!rewriteFileWithHandler(AddUserConf, rewriter, errors, true)) {
        writeDiagnostic(errorStream, formatOutput(errors));
        return 1;
    }
    return 0;
}
