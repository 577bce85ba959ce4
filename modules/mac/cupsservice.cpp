#include "cupsservice.h"

namespace {
const QString ServiceName = QStringLiteral("Cups");
const QString ConfigurationFile = QStringLiteral("/etc/cups/cupsd.conf");
const QString Directive = QStringLiteral("MacEnable");
const QString Unit = QStringLiteral("cups");
} // namespace

namespace Mac {

CupsService::CupsService()
    : Service(ServiceName)
{}

CupsService::~CupsService() = default;

void CupsService::setEnabled(bool on)
{
    applyAndRestart(ConfigurationFile, Directive, Unit, on);
}

bool CupsService::isEnabled()
{
    return readDirective(ConfigurationFile, Directive);
}

} // namespace Mac
