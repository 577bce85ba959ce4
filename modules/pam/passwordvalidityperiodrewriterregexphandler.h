#ifndef ZQLMODULES_PASSWORDVALIDITYPERIODREWRITERREGEXPHANDLER_H
#define ZQLMODULES_PASSWORDVALIDITYPERIODREWRITERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace PasswordValidityPeriod {

/**
 * Rewrites the password ageing defaults of /etc/login.defs (PASS_MAX_DAYS, PASS_MIN_DAYS,
 * PASS_WARN_AGE) from switched numbers ([enabled, value]).
 *
 * A line carries its value while the setting is switched on and is emptied otherwise, so the
 * system default applies; switched-on settings that no line carried are appended at the end.
 */
class ZQLMODULES_EXPORT RewriterRegExpHandler : public RegExpHandler
{
public:
    /** @param settings the settings to write; absent keys count as switched off. */
    explicit RewriterRegExpHandler(const QHash<QString, QVariant> &settings);

    /** Replaces one line by its key and the new value, or by nothing. */
    bool handleLine(QByteArray *line) override;
    /** Adds the switched-on settings that no line carried. */
    bool appendMissing(QByteArray *tail) override;

private:
    QHash<QString, QVariant> m_settings;
    int m_seen = 0;
};

} // namespace PasswordValidityPeriod

#endif // ZQLMODULES_PASSWORDVALIDITYPERIODREWRITERREGEXPHANDLER_H
