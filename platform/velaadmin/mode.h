#ifndef ZQLMODULES_PLATFORM_VELAADMIN_MODE_H
#define ZQLMODULES_PLATFORM_VELAADMIN_MODE_H

// The maker's administration-mode interface, as the modules call it. Built either against the
// open reference implementation in platform/reference/ or against the maker's own library.

namespace VelaAdmin {

class Mode
{
public:
    /** The system's security mode; the modules only compare it with 1 and 2. */
    static int getCurrentMode();
};

} // namespace VelaAdmin

#endif // ZQLMODULES_PLATFORM_VELAADMIN_MODE_H
