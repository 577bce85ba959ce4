#ifndef ZQLMODULES_PASSWORDCOMPLEXITYREWRITERREGEXPHANDLER_H
#define ZQLMODULES_PASSWORDCOMPLEXITYREWRITERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace PasswordComplexity {

/**
 * Rewrites the pam_cracklib.so or pam_pwquality.so lines of a PAM profile with new complexity
 * settings.
 *
 * Options that are not complexity settings keep their order; the managed ones follow in a fixed
 * order: gecoscheck, enforce_for_root, reject_username, then minlen and the four credits.
 */
class ZQLMODULES_EXPORT RewriterRegExpHandler : public RegExpHandler
{
public:
    /** @param settings the complexity settings; absent or malformed ones are not written. */
    explicit RewriterRegExpHandler(const QHash<QString, QVariant> &settings);

    /** Replaces one module line. */
    bool handleLine(QByteArray *line) override;

    /** Whether any module line was rewritten. */
    bool found() const;

private:
    QHash<QString, QVariant> m_settings;
    bool m_found = false;
};

} // namespace PasswordComplexity

#endif // ZQLMODULES_PASSWORDCOMPLEXITYREWRITERREGEXPHANDLER_H
