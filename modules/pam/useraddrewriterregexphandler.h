#ifndef ZQLMODULES_USERADDREWRITERREGEXPHANDLER_H
#define ZQLMODULES_USERADDREWRITERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace UserAdd {

/**
 * Rewrites the account defaults of /etc/default/useradd: INACTIVE, and EXPIRE written as a
 * date. An appended EXPIRE line has no line end: it is the last thing in the file from switched
 * numbers ([enabled, value]).
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

} // namespace UserAdd

#endif // ZQLMODULES_USERADDREWRITERREGEXPHANDLER_H
