#ifndef ZQLMODULES_MODULES_H
#define ZQLMODULES_MODULES_H

// Umbrella header: every class that libzql-modules exports.

#include "accountlockoutmodule.h"
#include "accountlockoutreaderregexphandler.h"
#include "accountlockoutrewriterregexphandler.h"
#include "configfileengine.h"
#include "consolepolicymodule.h"
#include "fileexception.h"
#include "filenotexistexception.h"
#include "loginlocalmodule.h"
#include "moduleinterface.h"
#include "openfileexception.h"
#include "pamtoollimits.h"
#include "passwordcomplexityreaderregexphandler.h"
#include "passwordcomplexityrewriterregexphandler.h"
#include "passwordhistoryreaderregexphandler.h"
#include "passwordpolicymodule.h"
#include "passwordvalidityperiodreaderregexphandler.h"
#include "passwordvalidityperiodrewriterregexphandler.h"
#include "processrunner.h"
#include "regexphandler.h"
#include "securityswitch.h"
#include "securityswitchesmanager.h"
#include "securityswitchlimits.h"
#include "systemparametersmodule.h"
#include "tesselconffile.h"
#include "useraddreaderregexphandler.h"
#include "useraddrewriterregexphandler.h"
#include "usercreationpolicymodule.h"
#include "usercreationreaderregexphandler.h"
#include "usercreationrewriterregexphandler.h"
#include "writefileexception.h"

#endif // ZQLMODULES_MODULES_H
