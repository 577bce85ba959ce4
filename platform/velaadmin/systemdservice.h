#ifndef ZQLMODULES_PLATFORM_VELAADMIN_SYSTEMDSERVICE_H
#define ZQLMODULES_PLATFORM_VELAADMIN_SYSTEMDSERVICE_H

// The maker's service-control interface, as the modules call it. Built either against the open
// reference implementation in platform/reference/ or against the maker's own library.

#include <QString>

namespace VelaAdmin {

class SystemdService
{
public:
    /** A handle on the unit @p unitName (for example "apache2"); nothing is asked yet. */
    explicit SystemdService(const QString &unitName);

    /** @return whether the unit runs now; false where no service manager answers. */
    bool isActive();

    /** Restarts the unit. @return whether the service manager did it. */
    bool restart();

private:
    QString m_unitName;
};

} // namespace VelaAdmin

#endif // ZQLMODULES_PLATFORM_VELAADMIN_SYSTEMDSERVICE_H
