#ifndef ZQLMODULES_TESSELCONFFILE_P_H
#define ZQLMODULES_TESSELCONFFILE_P_H

#include "tesselconffile.h"

#include <QIODevice>

// The login state that the open @p device holds: the word of its last plain login_local line,
// Unknown when it has none. The reader of tessel.conf, on its own for the fuzzer.
TesselConfFile::State loginStateIn(QIODevice &device);

#endif // ZQLMODULES_TESSELCONFFILE_P_H
