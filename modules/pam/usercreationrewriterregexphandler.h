#ifndef ZQLMODULES_USERCREATIONREWRITERREGEXPHANDLER_H
#define ZQLMODULES_USERCREATIONREWRITERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace UserCreation {

/**
 * Rewrites the defaults for new users in /etc/adduser.conf. Values are written without
 * quotes; the extra-group lines are kept as they are. A setting that no line carried is
 * appended only when it differs from the tool's own default, so the file stays minimal.
 */
class ZQLMODULES_EXPORT RewriterRegExpHandler : public RegExpHandler
{
public:
    /** @param settings the settings to write. */
    explicit RewriterRegExpHandler(const QHash<QString, QVariant> &settings);

    /** Replaces one line by its key and the new value. */
    bool handleLine(QByteArray *line) override;
    /** Adds the given settings that no line carried and that differ from the defaults. */
    bool appendMissing(QByteArray *tail) override;

private:
    QHash<QString, QVariant> m_settings;
    int m_seen = 0;
};

} // namespace UserCreation

#endif // ZQLMODULES_USERCREATIONREWRITERREGEXPHANDLER_H
