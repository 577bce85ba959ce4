// What the framework costs per call: reading and rewriting a configuration file of the size of
// /etc/login.defs, running a tool, building a diagnostic.

#include <zql-modules/modules.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {
// About the size of Debian's /etc/login.defs: 340 lines, most of them comments.
QByteArray loginDefsLikeContent()
{
    QByteArray content;
    for (int i = 0; i < 300; ++i)
        content += "# comment line " + QByteArray::number(i) + " explaining a setting\n";
    for (int i = 0; i < 40; ++i)
        content += "KEY_" + QByteArray::number(i) + "\t\t" + QByteArray::number(i * 7) + '\n';
    return content;
}

class KeyHandler : public RegExpHandler
{
public:
    KeyHandler()
        : RegExpHandler(QStringLiteral("^KEY_1\\s+(\\S+)"))
    {}
    bool handleLine(QByteArray *line) override
    {
        value = regExp().cap(1);
        if (!line)
            return false;
        *line = "KEY_1\t\t99";
        return true;
    }
    QString value;
};

class BenchModule : public ModuleInterface
{
public:
    SettingsReply getSettings() override { return {StatusSuccess, {}}; }
    bool setSettings(QHash<QString, QVariant>) override { return false; }
    QString getName() override { return QStringLiteral("account-lockout"); }
    bool isAvailable() override { return true; }
    QStringList isParametersCorrect(QSet<QString>) override { return {}; }
};

struct ConfigFile
{
    ConfigFile()
    {
        path = dir.path() + QStringLiteral("/login.defs");
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(loginDefsLikeContent());
    }
    QTemporaryDir dir;
    QString path;
};

void BM_ReadFileWithHandler(benchmark::State &state)
{
    ConfigFile file;
    for ([[maybe_unused]] auto _ : state) {
        KeyHandler handler;
        QString errors;
        benchmark::DoNotOptimize(readFileWithHandler(file.path, handler, errors));
    }
}
BENCHMARK(BM_ReadFileWithHandler)->Unit(benchmark::kMicrosecond);

void BM_RewriteFileWithHandler(benchmark::State &state)
{
    ConfigFile file;
    const bool makeBackup = state.range(0) != 0;
    for ([[maybe_unused]] auto _ : state) {
        KeyHandler handler;
        QString errors;
        if (!rewriteFileWithHandler(file.path, handler, errors, makeBackup))
            state.SkipWithError("rewrite failed");
    }
}
BENCHMARK(BM_RewriteFileWithHandler)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// A file of @p lines lines, one setting in ten, the rest comments.
QByteArray linesOfSettings(int lines)
{
    QByteArray content;
    content.reserve(lines * 40);
    for (int i = 0; i < lines; ++i) {
        if (i % 10 == 0)
            content += "KEY_" + QByteArray::number(i) + "\t\t" + QByteArray::number(i) + '\n';
        else
            content += "# comment line " + QByteArray::number(i) + " about a setting\n";
    }
    return content;
}

struct LargeFile
{
    explicit LargeFile(int lines)
    {
        path = dir.path() + QStringLiteral("/large.conf");
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(linesOfSettings(lines));
    }
    QTemporaryDir dir;
    QString path;
};

// A rewrite of files of 400, 10 000 and 100 000 lines, without backup.
void BM_RewriteLines(benchmark::State &state)
{
    const LargeFile file(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        KeyHandler handler;
        QString errors;
        if (!rewriteFileWithHandler(file.path, handler, errors, false))
            state.SkipWithError("rewrite failed");
    }
}
BENCHMARK(BM_RewriteLines)->Arg(400)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// What a rewrite cannot do without: its copy of the target through cp, and one pass that reads
// the lines, matches them and writes them through a buffer, then the rename. BM_RewriteLines is
// measured against it.
void BM_CopyAndBufferedPass(benchmark::State &state)
{
    const LargeFile file(static_cast<int>(state.range(0)));
    const QString temporaryPath = file.path + QStringLiteral(".tmp");
    for ([[maybe_unused]] auto _ : state) {
        QString errors;
        if (!copyFile(file.path, temporaryPath, errors)) {
            state.SkipWithError("copy failed");
            break;
        }
        QFile input(file.path);
        QFile output(temporaryPath);
        if (!input.open(QIODevice::ReadOnly) ||
            !output.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            state.SkipWithError("open failed");
            break;
        }
        KeyHandler handler;
        while (!input.atEnd()) {
            QByteArray line = input.readLine();
            const QString content = QString::fromLocal8Bit(line).trimmed();
            if (handler.regExp().indexIn(content) != -1 && handler.handleLine(&line))
                line += '\n';
            output.write(line);
        }
        output.close();
        if (!QFile::remove(file.path) || !QFile::rename(temporaryPath, file.path))
            state.SkipWithError("rename failed");
    }
}
BENCHMARK(BM_CopyAndBufferedPass)->Arg(400)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_RunProcessTrue(benchmark::State &state)
{
    for ([[maybe_unused]] auto _ : state) {
        QString errors;
        if (!runProcess(QStringLiteral("true"), {}, errors))
            state.SkipWithError("true failed");
    }
}
BENCHMARK(BM_RunProcessTrue)->Unit(benchmark::kMillisecond);

void BM_FormatOutput(benchmark::State &state)
{
    BenchModule module;
    const QString message = QStringLiteral("\"/etc/pam.d/common-auth\" not exists");
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(module.formatOutput(message));
}
BENCHMARK(BM_FormatOutput);
} // namespace

// One read of the "mic" module on the simulated system (make bench lays sim/layer over the
// root): the kernel model re-reads the boot files and the filesystem status is measured afresh
// by one run of the simulated set-fs-ilev, so the figure is bounded by that tool, not by the
// 30-second wait limit.
void BM_MicModuleGetSettings(benchmark::State &state)
{
    if (!QFile::exists(QStringLiteral("/usr/sbin/set-fs-ilev"))) {
        state.SkipWithError("needs the simulated system (sim/layer)");
        return;
    }
    // The module waits in an event loop, which needs the application object.
    static int argc = 1;
    static char name[] = "zql-benchmarks";
    static char *argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
    MicModule module;
    for ([[maybe_unused]] auto _ : state) {
        const SettingsReply reply = module.getSettings();
        benchmark::DoNotOptimize(reply);
    }
}
BENCHMARK(BM_MicModuleGetSettings)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
