#include "serviceregistry.h"

#include "apacheservice.h"
#include "cupsservice.h"

#include <memory>

namespace {
// Owns the services; the map hands out plain pointers.
class Registry
{
public:
    Registry()
    {
        add(std::make_unique<Mac::ApacheService>());
        add(std::make_unique<Mac::CupsService>());
    }
    ~Registry() { qDeleteAll(m_services); }
    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;

    const QMap<QString, Mac::Service *> &services() const { return m_services; }

private:
    void add(std::unique_ptr<Mac::Service> service)
    {
        const QString name = service->name();
        m_services.insert(name, service.release());
    }

    QMap<QString, Mac::Service *> m_services;
};
} // namespace

namespace Mac {

const QMap<QString, Service *> &ServiceRegistry::services()
{
    static const Registry registry;
    return registry.services();
}

} // namespace Mac
