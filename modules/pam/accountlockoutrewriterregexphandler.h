#ifndef ZQLMODULES_ACCOUNTLOCKOUTREWRITERREGEXPHANDLER_H
#define ZQLMODULES_ACCOUNTLOCKOUTREWRITERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace AccountLockout {

/**
 * Rewrites the pam_tally.so lines of a PAM profile with new lockout settings.
 *
 * Options that are not lockout settings are kept in their order; the managed ones follow in a
 * fixed order: the flags per_user, magic_root, no_reset, then deny, lock_time, unlock_time.
 */
class ZQLMODULES_EXPORT RewriterRegExpHandler : public RegExpHandler
{
public:
    /** @param settings the lockout settings to write; absent keys count as switched off. */
    explicit RewriterRegExpHandler(const QHash<QString, QVariant> &settings);

    /** Replaces one pam_tally.so line. */
    bool handleLine(QByteArray *line) override;

    /** Whether any pam_tally.so line was rewritten. */
    bool found() const;

private:
    QHash<QString, QVariant> m_settings;
    bool m_found = false;
};

} // namespace AccountLockout

#endif // ZQLMODULES_ACCOUNTLOCKOUTREWRITERREGEXPHANDLER_H
