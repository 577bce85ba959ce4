#ifndef ZQLMODULES_MESSAGES_P_H
#define ZQLMODULES_MESSAGES_P_H

#include <QString>

// Lower layers collect messages in a caller-owned text, one "\n" between two messages.
inline void appendMessage(QString &errors, const QString &message)
{
    if (!errors.isEmpty())
        errors += QLatin1Char('\n');
    errors += message;
}

#endif // ZQLMODULES_MESSAGES_P_H
