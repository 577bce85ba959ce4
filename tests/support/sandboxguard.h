#ifndef ZQLTEST_SANDBOXGUARD_H
#define ZQLTEST_SANDBOXGUARD_H

#include <QString>

namespace ZqlTest {

/**
 * Why this process is not inside the system sandbox, or an empty text when it is: the
 * sandbox's record of the machine's mount namespace must name another namespace than ours,
 * and the last mount on "/" must be an overlay.
 */
QString sandboxViolation();

/**
 * Whether this process runs inside the sandbox. Fixture helpers call it before they change
 * anything; outside, it returns false with "not in the sandbox: <reason>" in @p error.
 */
bool insideSandbox(QString *error);

/** Ends the process with exit code 3 and a message unless it runs inside the sandbox. */
void requireSandbox();

} // namespace ZqlTest

#endif // ZQLTEST_SANDBOXGUARD_H
