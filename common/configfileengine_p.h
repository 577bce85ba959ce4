#ifndef ZQLMODULES_CONFIGFILEENGINE_P_H
#define ZQLMODULES_CONFIGFILEENGINE_P_H

#include <QByteArray>
#include <QFileDevice>
#include <QSaveFile>
#include <QString>

// Pieces of the configuration-file engine that modules use when they read or save a file
// themselves.

// "\"<file>\" error <code>\n<reason>": the engine's message for a file that failed.
QString fileErrorMessage(const QFileDevice &file);

// Commits what was written to @p file, checking the writes first: a commit on a full file system
// can report success and leave an empty file. On failure nothing replaces the target and the
// file's error() and errorString() say why.
bool commitChecked(QSaveFile &file);

// Writes @p bytes to the open @p file and commits them with commitChecked().
bool saveWhole(QSaveFile &file, const QByteArray &bytes);

#endif // ZQLMODULES_CONFIGFILEENGINE_P_H
