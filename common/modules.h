#ifndef ZQLMODULES_MODULES_H
#define ZQLMODULES_MODULES_H

// Umbrella header: every class that libzql-modules exports.

#include "configfileengine.h"
#include "consolepolicymodule.h"
#include "fileexception.h"
#include "filenotexistexception.h"
#include "loginlocalmodule.h"
#include "moduleinterface.h"
#include "openfileexception.h"
#include "processrunner.h"
#include "regexphandler.h"
#include "securityswitch.h"
#include "securityswitchesmanager.h"
#include "securityswitchlimits.h"
#include "systemparametersmodule.h"
#include "tesselconffile.h"
#include "writefileexception.h"

#endif // ZQLMODULES_MODULES_H
