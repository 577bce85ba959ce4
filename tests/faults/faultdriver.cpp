// Applies one module's settings with the fault shim armed around setSettings only, and says
// how it went in RESULT: "calls=N injected=0|1 failed=0|1" (the module's own notes go to the
// standard streams).
// zql-fault-driver MODULE SETTINGS.json RESULT
#include "moduleregistry.h"
#include "policyjson.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>
#include <dlfcn.h>
#include <exception>

namespace {
int run(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc != 4) {
        std::fputs("usage: zql-fault-driver MODULE SETTINGS.json RESULT\n", stderr);
        return 2;
    }
    QFile file(QString::fromLocal8Bit(argv[2]));
    ZqlPolicy::Json json;
    QString error;
    if (!file.open(QIODevice::ReadOnly) ||
        !ZqlPolicy::PolicyJson::parse(file.readAll(), json, &error)) {
        std::fprintf(stderr, "cannot read %s\n", argv[2]);
        return 2;
    }
    QHash<QString, QVariant> settings;
    for (auto member = json.begin(); member != json.end(); ++member)
        settings.insert(QString::fromStdString(member.key()),
                        ZqlPolicy::PolicyJson::toVariant(member.value()));

    const ZqlPolicy::ModuleRegistry registry = ZqlPolicy::ModuleRegistry::libraryModules();
    ModuleInterface *module = registry.module(QString::fromLocal8Bit(argv[1]));
    if (!module) {
        std::fprintf(stderr, "no module %s\n", argv[1]);
        return 2;
    }
    using Arm = void (*)();
    using Disarm = long (*)(int *);
    const auto arm = reinterpret_cast<Arm>(dlsym(RTLD_DEFAULT, "zql_fault_arm"));
    const auto disarm = reinterpret_cast<Disarm>(dlsym(RTLD_DEFAULT, "zql_fault_disarm"));
    if (!arm || !disarm) {
        std::fputs("the fault shim is not loaded\n", stderr);
        return 2;
    }
    arm();
    const bool failed = module->setSettings(settings);
    int injected = 0;
    const long calls = disarm(&injected);
    QFile result(QString::fromLocal8Bit(argv[3]));
    const QByteArray text = QStringLiteral("calls=%1 injected=%2 failed=%3\n")
                                .arg(calls)
                                .arg(injected)
                                .arg(failed ? 1 : 0)
                                .toUtf8();
    return result.open(QIODevice::WriteOnly) && result.write(text) == text.size() ? 0 : 2;
}
} // namespace

int main(int argc, char *argv[])
{
    try {
        return run(argc, argv);
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "zql-fault-driver: %s\n", failure.what());
        return 2;
    }
}
