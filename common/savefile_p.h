#ifndef ZQLMODULES_SAVEFILE_P_H
#define ZQLMODULES_SAVEFILE_P_H

#include <QByteArray>
#include <QSaveFile>
#include <QString>

// A QSaveFile that replaces its target whole or not at all and keeps the target's owner, group,
// mode and extended attributes. QSaveFile alone gives the new file the writer's owner and group.
class SaveFile : public QSaveFile
{
public:
    explicit SaveFile(const QString &name);

    // Commits what was written, checking the writes first: a commit on a full file system can
    // report success and leave an empty file. On failure nothing replaces the target and
    // error() and errorString() say why.
    bool commitChecked();

    // Writes @p bytes to the open file and commits them with commitChecked().
    bool saveWhole(const QByteArray &bytes);
};

#endif // ZQLMODULES_SAVEFILE_P_H
