#ifndef ZQLMODULES_USERADDREADERREGEXPHANDLER_H
#define ZQLMODULES_USERADDREADERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace UserAdd {

/**
 * Reads the account defaults of /etc/default/useradd (INACTIVE, EXPIRE as a count of days
 * since 1970-01-01) into a hash of switched numbers ([enabled, value]); a
 * key is enabled exactly when the file carries it. It only fills the caller's hash.
 */
class ZQLMODULES_EXPORT ReaderRegExpHandler : public RegExpHandler
{
public:
    /** Stores the switched-off defaults of its keys into @p result, which it then fills. */
    explicit ReaderRegExpHandler(QHash<QString, QVariant> *result);

    /** Takes the value of one line; a later line overwrites an earlier one. */
    bool handleLine(QByteArray *line) override;

private:
    QHash<QString, QVariant> *m_result;
};

} // namespace UserAdd

#endif // ZQLMODULES_USERADDREADERREGEXPHANDLER_H
