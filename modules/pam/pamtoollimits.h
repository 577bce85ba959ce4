#ifndef ZQLMODULES_PAMTOOLLIMITS_H
#define ZQLMODULES_PAMTOOLLIMITS_H

#include "processrunner.h"

/**
 * How long the PAM modules wait for "pam-auth-update", in milliseconds (-1: no limit).
 *
 * The defaults are the ones the modules use on a real system; tests pass shorter ones.
 */
struct PamToolLimits
{
    /** Limit for the tool to start (lockout and complexity updates). */
    int startTimeoutMs = DefaultProcessTimeoutMs;
    /** Limit for the tool to finish (lockout and complexity updates). */
    int finishTimeoutMs = DefaultProcessTimeoutMs;
    /** Limit for enabling or removing the password-history profile: none by default. */
    int historySwitchTimeoutMs = -1;
};

#endif // ZQLMODULES_PAMTOOLLIMITS_H
