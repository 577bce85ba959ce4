// What reading the signature and audit settings costs: DigSigModule::getSettings (both
// signature files read and checked) and AuditModule::getSettings (the audit database opened,
// locked, parsed and closed), on the simulated system that make bench lays over the root.

#include <zql-modules/modules.h>

#include <benchmark/benchmark.h>

namespace {
void readSettings(benchmark::State &state, ModuleInterface &module)
{
    for ([[maybe_unused]] auto _ : state) {
        const SettingsReply reply = module.getSettings();
        if (reply.first != ModuleInterface::StatusSuccess) {
            state.SkipWithError("getSettings failed: is the simulated system laid over the root?");
            break;
        }
        benchmark::DoNotOptimize(reply);
    }
}

void BM_DigSigGetSettings(benchmark::State &state)
{
    DigSigModule module;
    readSettings(state, module);
}
BENCHMARK(BM_DigSigGetSettings)->Unit(benchmark::kMicrosecond);

void BM_AuditGetSettings(benchmark::State &state)
{
    AuditModule module;
    readSettings(state, module);
}
BENCHMARK(BM_AuditGetSettings)->Unit(benchmark::kMicrosecond);
} // namespace
