#ifndef ZQLTEST_SETTINGSRUN_H
#define ZQLTEST_SETTINGSRUN_H

#include "outputcapture.h"

#include <zql-modules/modules.h>

namespace ZqlTest {

/** What one setSettings() call gave: its result and what the library wrote to each stream. */
struct SettingsRun
{
    bool failed = false;
    QByteArray standardOutput;
    QByteArray standardError;
};

/** Calls @p module's setSettings() with @p settings, capturing both output streams. */
inline SettingsRun runSetSettings(ModuleInterface &module, const QHash<QString, QVariant> &settings)
{
    OutputCapture capture;
    SettingsRun run;
    run.failed = module.setSettings(settings);
    capture.finish();
    run.standardOutput = capture.standardOutput();
    run.standardError = capture.standardError();
    return run;
}

} // namespace ZqlTest

#endif // ZQLTEST_SETTINGSRUN_H
