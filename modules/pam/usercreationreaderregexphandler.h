#ifndef ZQLMODULES_USERCREATIONREADERREGEXPHANDLER_H
#define ZQLMODULES_USERCREATIONREADERREGEXPHANDLER_H

#include "regexphandler.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

namespace UserCreation {

/**
 * Reads the defaults for new users from /etc/adduser.conf: "DHOME", "SKEL", "DSHELL"
 * (strings), "USERGROUPS" (bool, true only for "yes") and "USERS_GID" (int). Keys that no line
 * carries stay absent. It only fills the caller's hash.
 */
class ZQLMODULES_EXPORT ReaderRegExpHandler : public RegExpHandler
{
public:
    /** @param result the hash to fill. */
    explicit ReaderRegExpHandler(QHash<QString, QVariant> *result);

    /** Takes the value of one line. */
    bool handleLine(QByteArray *line) override;

private:
    QHash<QString, QVariant> *m_result;
};

} // namespace UserCreation

#endif // ZQLMODULES_USERCREATIONREADERREGEXPHANDLER_H
