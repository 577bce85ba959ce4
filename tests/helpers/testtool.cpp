// A stand-in for a system tool. Arguments are done in order:
//   --stdout TEXT   write TEXT to standard output
//   --stderr TEXT   write TEXT to standard error
//   --sleep MS      sleep that long
//   --hang          sleep until killed
//   --crash         abort (a crash, not an exit)
//   --exit N        exit with code N
// Without --exit it exits with 0.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        const char *option = argv[i];
        const char *value = i + 1 < argc ? argv[i + 1] : "";
        if (std::strcmp(option, "--stdout") == 0) {
            std::fputs(value, stdout);
            std::fflush(stdout);
            ++i;
        } else if (std::strcmp(option, "--stderr") == 0) {
            std::fputs(value, stderr);
            std::fflush(stderr);
            ++i;
        } else if (std::strcmp(option, "--sleep") == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(value)));
            ++i;
        } else if (std::strcmp(option, "--hang") == 0) {
            for (;;)
                std::this_thread::sleep_for(std::chrono::seconds(60));
        } else if (std::strcmp(option, "--crash") == 0) {
            std::abort();
        } else if (std::strcmp(option, "--exit") == 0) {
            return std::atoi(value);
        } else {
            std::fprintf(stderr, "zql-test-tool: unknown argument %s\n", option);
            return 64;
        }
    }
    return 0;
}
