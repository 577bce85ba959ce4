#include "usercreationreaderregexphandler.h"

#include "usercreation_p.h"

namespace UserCreation {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(AddUserConfPattern)
    , m_result(result)
{}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    const QString key = regExp().cap(1);
    const QString value = regExp().cap(2);
    if (key == HomeKey || key == SkeletonKey || key == ShellKey) {
        m_result->insert(key, value);
    } else if (key == UserGroupsKey) {
        m_result->insert(key, value == Yes); // "Yes" is not yes
    } else if (key == UsersGroupKey) {
        bool isNumber = false;
        const int groupId = value.toInt(&isNumber);
        if (isNumber)
            m_result->insert(key, groupId);
    }
    return true;
}

} // namespace UserCreation
