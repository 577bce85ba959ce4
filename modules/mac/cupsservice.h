#ifndef ZQLMODULES_MAC_CUPSSERVICE_H
#define ZQLMODULES_MAC_CUPSSERVICE_H

#include "service.h"
#include "zqlmodules_export.h"

namespace Mac {

/** The Cups service: "MacEnable" in "/etc/cups/cupsd.conf", systemd unit "cups". */
class ZQLMODULES_EXPORT CupsService : public Service
{
public:
    CupsService();
    ~CupsService() override;

    /** Writes "MacEnable on|off" and restarts "cups" if it runs. */
    void setEnabled(bool on) override;

    /** @return whether "MacEnable" reads on. */
    bool isEnabled() override;
};

} // namespace Mac

#endif // ZQLMODULES_MAC_CUPSSERVICE_H
