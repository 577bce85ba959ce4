#ifndef ZQLMODULES_FILEATTRIBUTES_P_H
#define ZQLMODULES_FILEATTRIBUTES_P_H

#include <QString>

// Gives the open file @p fd the owner, group, mode (with its set-id and sticky bits) and extended
// attributes of the file at @p path, following symbolic links. A file written in place of another
// must keep them: a configuration file that loses its group (tessel.conf belongs to shadow) or
// its security label stops working for the services that read it.
// Returns 0, or the errno of the first step that failed. A missing @p path is no failure: there
// is nothing to keep.
int keepFileAttributes(int fd, const QString &path);

#endif // ZQLMODULES_FILEATTRIBUTES_P_H
