// Prints "probe ran" only when the sandbox guard lets it.

#include "sandboxguard.h"

#include <cstdio>

int main()
{
    ZqlTest::requireSandbox();
    std::puts("probe ran");
    return 0;
}
