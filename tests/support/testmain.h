#ifndef ZQLTEST_TESTMAIN_H
#define ZQLTEST_TESTMAIN_H

#include "sandboxguard.h"

#include <QCoreApplication>
#include <QtTest>

// Like QTEST_GUILESS_MAIN, but the suite refuses to start unless it runs in the system sandbox,
// before any test function can touch a system path.
#define ZQL_SANDBOXED_TEST_MAIN(TestObject)                                                        \
    int main(int argc, char *argv[])                                                               \
    {                                                                                              \
        ZqlTest::requireSandbox();                                                                 \
        QCoreApplication app(argc, argv);                                                          \
        TestObject tc;                                                                             \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return QTest::qExec(&tc, argc, argv);                                                      \
    }

#endif // ZQLTEST_TESTMAIN_H
