#ifndef ZQLMODULES_PASSWORDCOMPLEXITYREADERREGEXPHANDLER_H
#define ZQLMODULES_PASSWORDCOMPLEXITYREADERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace PasswordComplexity {

/**
 * Reads the password-quality options of the pam_cracklib.so or pam_pwquality.so lines of a
 * PAM stack into a hash. It only fills the caller's hash; it never writes a file.
 */
class ZQLMODULES_EXPORT ReaderRegExpHandler : public RegExpHandler
{
public:
    /** Stores the defaults of the eight complexity settings into @p result, then fills it. */
    explicit ReaderRegExpHandler(QHash<QString, QVariant> *result);

    /** Takes the options of one module line; later lines overwrite earlier values. */
    bool handleLine(QByteArray *line) override;

    /** Whether any pam_cracklib.so or pam_pwquality.so line was seen. */
    bool found() const;

private:
    QHash<QString, QVariant> *m_result;
    bool m_found = false;
};

} // namespace PasswordComplexity

#endif // ZQLMODULES_PASSWORDCOMPLEXITYREADERREGEXPHANDLER_H
