#include "apacheservice.h"

namespace {
const QString ServiceName = QStringLiteral("Apache");
const QString ConfigurationFile = QStringLiteral("/etc/apache2/apache2.conf");
const QString Directive = QStringLiteral("LumoMode");
const QString Unit = QStringLiteral("apache2");
} // namespace

namespace Mac {

ApacheService::ApacheService()
    : Service(ServiceName)
{}

ApacheService::~ApacheService() = default;

void ApacheService::setEnabled(bool on)
{
    applyAndRestart(ConfigurationFile, Directive, Unit, on);
}

bool ApacheService::isEnabled()
{
    return readDirective(ConfigurationFile, Directive);
}

} // namespace Mac
