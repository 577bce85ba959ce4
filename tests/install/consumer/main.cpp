#include <zql-modules/modules.h>

#include <cstdio>

class ConsumerModule : public ModuleInterface
{
public:
    SettingsReply getSettings() override { return {StatusSuccess, {}}; }
    bool setSettings(QHash<QString, QVariant>) override { return false; }
    QString getName() override { return QStringLiteral("consumer"); }
    bool isAvailable() override { return true; }
    QStringList isParametersCorrect(QSet<QString>) override { return {}; }
};

int main()
{
    ConsumerModule module;
    std::fputs(module.formatOutput(QStringLiteral("hello from outside")).toLocal8Bit().constData(),
               stdout);
    return module.checkRestrictions({}) ? 0 : 1;
}
