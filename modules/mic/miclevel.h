#ifndef ZQLMODULES_MICLEVEL_H
#define ZQLMODULES_MICLEVEL_H

#include "zqlmodules_export.h"

#include <QMetaType>
#include <QString>

/**
 * One integrity level with its display text, as the kernel integrity model lists and reports
 * it. Registered with the meta-type system as "MicLevel" and passed by value in signals.
 */
struct ZQLMODULES_EXPORT MicLevel
{
    /** The integrity level. */
    quint8 level = 0;
    /** Its display text, for example "63 - High". */
    QString text;

    bool operator==(const MicLevel &other) const
    {
        return level == other.level && text == other.text;
    }
    bool operator!=(const MicLevel &other) const { return !(*this == other); }
};

Q_DECLARE_METATYPE(MicLevel)

#endif // ZQLMODULES_MICLEVEL_H
