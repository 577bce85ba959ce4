#ifndef ZQLTEST_PROCESSESATONCE_H
#define ZQLTEST_PROCESSESATONCE_H

#include <functional>

namespace ZqlTest {

/**
 * Runs @p work in @p count forked processes at the same time, each given its number from 0,
 * and waits for all of them. The child ends with _exit, so nothing of the test runs twice.
 * @return whether every process ran and @p work returned true in each.
 */
bool runProcessesAtOnce(int count, const std::function<bool(int)> &work);

} // namespace ZqlTest

#endif // ZQLTEST_PROCESSESATONCE_H
