#ifndef ZQLPOLICY_LIBRARYSCHEMAS_H
#define ZQLPOLICY_LIBRARYSCHEMAS_H

#include "settingsschema.h"

namespace ZqlPolicy {

/** The settings schema of each module of the library (docs/policy-format.md lists them). */
class LibrarySchemas
{
public:
    static SettingsSchema accountLockout();
    static SettingsSchema passwordPolicy();
    static SettingsSchema userCreationPolicy();
    static SettingsSchema loginLocal();
    static SettingsSchema audit();
    static SettingsSchema digsig();
    static SettingsSchema kioskGlobal();
    static SettingsSchema maic();
    static SettingsSchema mac();
    static SettingsSchema mic();
    /** console-policy and system-parameters. */
    static SettingsSchema securitySwitches();
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_LIBRARYSCHEMAS_H
