#ifndef ZQLMODULES_MAC_APACHESERVICE_H
#define ZQLMODULES_MAC_APACHESERVICE_H

#include "service.h"
#include "zqlmodules_export.h"

namespace Mac {

/** The Apache service: "LumoMode" in "/etc/apache2/apache2.conf", systemd unit "apache2". */
class ZQLMODULES_EXPORT ApacheService : public Service
{
public:
    ApacheService();
    ~ApacheService() override;

    /** Writes "LumoMode on|off" and restarts "apache2" if it runs. */
    void setEnabled(bool on) override;

    /** @return whether "LumoMode" reads on. */
    bool isEnabled() override;
};

} // namespace Mac

#endif // ZQLMODULES_MAC_APACHESERVICE_H
