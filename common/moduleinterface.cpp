#include "moduleinterface.h"

ModuleInterface::~ModuleInterface() = default;

bool ModuleInterface::checkRestrictions(const QHash<QString, QVariant> &settings)
{
    Q_UNUSED(settings)
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the message by value
QString ModuleInterface::formatOutput(QString message)
{
    static const QString format = QStringLiteral("%1 : %2\n");
    return format.arg(getName(), message);
}

QStringList ModuleInterface::unknownKeys(QSet<QString> given, const QSet<QString> &known)
{
    // The very same shared set as the known keys is the common case of a host handing back
    // what it read; QSet's equality compares the shared data first.
    if (given == known)
        return {};
    given.subtract(known);
    return given.values();
}
