#ifndef ZQLMODULES_MODULES_H
#define ZQLMODULES_MODULES_H

// Umbrella header: every class that libzql-modules exports.

#include "configfileengine.h"
#include "fileexception.h"
#include "filenotexistexception.h"
#include "moduleinterface.h"
#include "openfileexception.h"
#include "processrunner.h"
#include "regexphandler.h"
#include "writefileexception.h"

#endif // ZQLMODULES_MODULES_H
