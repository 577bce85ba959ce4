#ifndef ZQLMODULES_PASSWORDHISTORYREADERREGEXPHANDLER_H
#define ZQLMODULES_PASSWORDHISTORYREADERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace PasswordHistory {

/**
 * Reads the options of the pam_pwhistory.so lines of a PAM stack ("enforce_for_root",
 * "remember") into a hash. It only fills the caller's hash; it never writes a file.
 */
class ZQLMODULES_EXPORT ReaderRegExpHandler : public RegExpHandler
{
public:
    /** Stores the defaults of the two history settings into @p result, then fills it. */
    explicit ReaderRegExpHandler(QHash<QString, QVariant> *result);

    /** Takes the options of one pam_pwhistory.so line. */
    bool handleLine(QByteArray *line) override;

    /** Whether any pam_pwhistory.so line was seen. */
    bool found() const;

private:
    QHash<QString, QVariant> *m_result;
    bool m_found = false;
};

} // namespace PasswordHistory

#endif // ZQLMODULES_PASSWORDHISTORYREADERREGEXPHANDLER_H
