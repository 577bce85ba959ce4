#include "userlistreader.h"

#include "tessel/macdb.h"

#include <QFile>
#include <QList>

namespace {
const QString PasswdFile = QStringLiteral("/etc/passwd");
constexpr int MinimumFields = 7;
constexpr int NameField = 0;
constexpr int IdField = 2;
// Local people: ids above the system range, without the overflow user "nobody".
constexpr qulonglong HighestSystemId = 999;
constexpr qulonglong OverflowId = 65534;
constexpr int LabelPartCount = 2;
} // namespace

UserListReader::UserListReader() = default;

UserListReader::~UserListReader() = default;

bool UserListReader::readUserList()
{
    QFile passwd(PasswdFile);
    if (!passwd.open(QIODevice::ReadOnly))
        return false;
    tessel_macdb *labels = openmacdb_r();
    if (!labels)
        return false;

    m_users.clear();
    while (!passwd.atEnd()) {
        QByteArray line = passwd.readLine();
        if (line.endsWith('\n'))
            line.chop(1);
        const QList<QByteArray> fields = line.split(':');
        if (fields.size() < MinimumFields)
            continue;
        User user;
        user.name = QString::fromLocal8Bit(fields.at(NameField));
        for (QByteArray &part : user.labelParts)
            part = QByteArray(static_cast<int>(TESSEL_MACLABEL_PART_SIZE), '\0');
        if (tessel_macent *record = getmacnam_r(labels, fields.at(NameField).constData())) {
            for (int i = 0; i < LabelPartCount; ++i)
                user.labelParts[i] =
                    QByteArray(reinterpret_cast<const char *>(record->mac_label[i]),
                               static_cast<int>(TESSEL_MACLABEL_PART_SIZE));
            freemacent_r(record);
        }
        bool isNumber = false;
        const qulonglong id = fields.at(IdField).toULongLong(&isNumber);
        if (isNumber && id > HighestSystemId && id != OverflowId)
            m_users << user;
    }
    closemacdb_r(labels);
    return true;
}

QList<UserListReader::User> UserListReader::users() const
{
    return m_users;
}
