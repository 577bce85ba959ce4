#ifndef ZQLMODULES_SECURITYSWITCHLIMITS_H
#define ZQLMODULES_SECURITYSWITCHLIMITS_H

/**
 * How long, in milliseconds, the security switches wait for their tools.
 *
 * The defaults are the system's; a host keeps them, tests pass short ones.
 */
struct SecuritySwitchLimits
{
    /** For the security monitor to list the switches (start and finish together). */
    int monitorMs = 10000;
    /** For a switch script to start. */
    int startMs = 30000;
    /** For a switch script to report its state. */
    int readMs = 30000;
    /** For a switch script to turn its switch on or off (30 minutes). */
    int changeMs = 1800000;
};

#endif // ZQLMODULES_SECURITYSWITCHLIMITS_H
