#ifndef ZQLMODULES_MAC_SERVICEREGISTRY_H
#define ZQLMODULES_MAC_SERVICEREGISTRY_H

#include "zqlmodules_export.h"

#include <QList>
#include <QMap>
#include <QString>

namespace Mac {

class Service;

/**
 * The MAC-aware services by name: one ApacheService and one CupsService, made on first use
 * (thread-safe) and owned until program exit. Iteration is in name order: "Apache", "Cups".
 */
class ZQLMODULES_EXPORT ServiceRegistry
{
public:
    /** The services by name, in name order. */
    static const QMap<QString, Service *> &services();
};

} // namespace Mac

#endif // ZQLMODULES_MAC_SERVICEREGISTRY_H
