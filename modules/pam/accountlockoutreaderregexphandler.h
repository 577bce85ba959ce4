#ifndef ZQLMODULES_ACCOUNTLOCKOUTREADERREGEXPHANDLER_H
#define ZQLMODULES_ACCOUNTLOCKOUTREADERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace AccountLockout {

/**
 * Reads the lockout options of the pam_tally.so lines of a PAM stack into a settings hash.
 *
 * It only fills the caller's hash; it never writes a file.
 */
class ZQLMODULES_EXPORT ReaderRegExpHandler : public RegExpHandler
{
public:
    /** Stores the defaults of the six lockout settings into @p result, which it then fills. */
    explicit ReaderRegExpHandler(QHash<QString, QVariant> &result);

    /** Takes the options of one pam_tally.so line; later lines overwrite earlier values. */
    bool handleLine(QByteArray *line) override;

    /** Whether any pam_tally.so line was seen. */
    bool found() const;

private:
    QHash<QString, QVariant> &m_result;
    bool m_found = false;
};

} // namespace AccountLockout

#endif // ZQLMODULES_ACCOUNTLOCKOUTREADERREGEXPHANDLER_H
