// What reading the MAC modules costs on the simulated system: the "mac" module (the kernel
// model's flag and two service files) and the "maic" module (the user list four times and both
// databases twice per call).

#include <zql-modules/modules.h>

#include <benchmark/benchmark.h>

namespace {
void BM_MacModuleGetSettings(benchmark::State &state)
{
    MacModule module;
    // The kernel model's first use runs the control tool; the reads after it do not.
    Mac::MacKernel::instance();
    for ([[maybe_unused]] auto _ : state) {
        if (module.getSettings().second.size() != 3)
            state.SkipWithError("not on the simulated system");
    }
}
BENCHMARK(BM_MacModuleGetSettings)->Unit(benchmark::kMicrosecond);

void BM_MacKernelUpdate(benchmark::State &state)
{
    Mac::MacKernel *kernel = Mac::MacKernel::instance();
    for ([[maybe_unused]] auto _ : state)
        kernel->update();
}
BENCHMARK(BM_MacKernelUpdate)->Unit(benchmark::kMillisecond);

void BM_MaicModuleGetSettings(benchmark::State &state)
{
    MaicModule module;
    for ([[maybe_unused]] auto _ : state) {
        if (module.getSettings().first != ModuleInterface::StatusSuccess)
            state.SkipWithError("not on the simulated system");
    }
}
BENCHMARK(BM_MaicModuleGetSettings)->Unit(benchmark::kMicrosecond);
} // namespace
