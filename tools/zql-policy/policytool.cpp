#include "policytool.h"

#include "diagnosticrelay.h"
#include "messages.h"
#include "policychecker.h"
#include "policyinput.h"
#include "policyjson.h"
#include "progressreporter.h"
#include "settingscomparison.h"

#include <QFile>
#include <QSaveFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace ZqlPolicy {

namespace {

const QString StandardStream = QStringLiteral("-");

// Writes @p bytes to standard output; a failure is said in one line (a closed stream, a full
// file system under a redirected output).
bool writeOut(const QByteArray &bytes)
{
    if (StandardStreams::wasClosed(STDOUT_FILENO)) {
        Messages::report(QStringLiteral("cannot write standard output: it is closed"));
        return false;
    }
    const size_t size = static_cast<size_t>(bytes.size());
    errno = 0;
    const bool ok =
        std::fwrite(bytes.constData(), 1, size, stdout) == size && std::fflush(stdout) == 0;
    if (!ok) {
        const int reason = errno != 0 ? errno : EIO;
        std::clearerr(stdout);
        Messages::report(QStringLiteral("cannot write standard output: %1")
                             .arg(QString::fromLocal8Bit(std::strerror(reason))));
    }
    return ok;
}

QString joined(const QStringList &names)
{
    return names.join(QStringLiteral(", "));
}

QString machineText(const KeyDifference &difference)
{
    if (difference.onMachine)
        return SettingsComparison::text(difference.machine);
    if (difference.machine.is_null())
        return QStringLiteral("(not set)");
    return SettingsComparison::text(difference.machine) + QStringLiteral(" (not set: the default)");
}

// How one module of a policy compares with the machine.
struct ModuleDrift
{
    QString name;
    QString status; // one of the Drift* texts
    QVector<KeyDifference> differences;
};

const QString DriftFollows = QStringLiteral("follows");
const QString DriftDrifted = QStringLiteral("drifted");
const QString DriftUnavailable = QStringLiteral("unavailable");
const QString DriftUnreadable = QStringLiteral("unreadable");

// Reads the live settings of module @p name and compares them with @p settings, the policy's
// section: what diff reports and how apply tells a module that already follows the policy.
ModuleDrift compareWithMachine(const ModuleRegistry &registry, const QString &name,
                               const QHash<QString, QVariant> &settings, ProgressReporter *progress)
{
    ModuleDrift drift{name, DriftUnavailable, {}};
    ModuleInterface *module = registry.module(name);
    if (!module->isAvailable())
        return drift;
    progress->start(QStringLiteral("reading %1").arg(name));
    const SettingsReply reply = module->getSettings();
    progress->finish();
    if (reply.first != ModuleInterface::StatusSuccess) {
        drift.status = DriftUnreadable;
        return drift;
    }
    const QHash<QString, QString> unordered = ModuleRegistry::unorderedLists(name);
    drift.differences = SettingsComparison::differences(
        SettingsComparison::withListsSorted(settings, unordered),
        SettingsComparison::withListsSorted(ModuleRegistry::policyForm(name, reply.second),
                                            unordered),
        ModuleRegistry::defaultsWhenAbsent(name));
    drift.status = drift.differences.isEmpty() ? DriftFollows : DriftDrifted;
    return drift;
}

QByteArray driftText(const QString &source, const QVector<ModuleDrift> &modules)
{
    QString text;
    QStringList drifted;
    QStringList follows;
    QStringList unavailable;
    QStringList unreadable;
    for (const ModuleDrift &module : modules) {
        for (const KeyDifference &difference : module.differences) {
            text += QStringLiteral("%1 %2: policy %3, machine %4\n")
                        .arg(module.name, difference.key,
                             SettingsComparison::text(difference.policy), machineText(difference));
        }
        if (module.status == DriftDrifted) {
            const int count = module.differences.size();
            drifted.append(QStringLiteral("%1 (%2 %3)")
                               .arg(module.name)
                               .arg(count)
                               .arg(count == 1 ? QStringLiteral("key") : QStringLiteral("keys")));
        } else if (module.status == DriftFollows) {
            follows.append(module.name);
        } else if (module.status == DriftUnavailable) {
            text += QStringLiteral("%1: not available on this machine\n").arg(module.name);
            unavailable.append(module.name);
        } else {
            text += QStringLiteral("%1: the settings could not be read\n").arg(module.name);
            unreadable.append(module.name);
        }
    }
    QStringList parts;
    const auto part = [&parts](const char *label, const QStringList &names) {
        if (!names.isEmpty())
            parts.append(QLatin1String(label) + joined(names));
    };
    part("drifted: ", drifted);
    part("follows: ", follows);
    part("not available: ", unavailable);
    part("unreadable: ", unreadable);
    if (parts.isEmpty())
        parts.append(QStringLiteral("no module"));
    text += source + QStringLiteral(": ") + parts.join(QStringLiteral("; ")) + QLatin1Char('\n');
    return text.toUtf8();
}

QByteArray driftJson(const QString &source, const QString &result,
                     const QVector<ModuleDrift> &modules)
{
    Json document = Json::object();
    document["policy"] = source.toStdString();
    document["result"] = result.toStdString();
    Json members = Json::object();
    for (const ModuleDrift &module : modules) {
        Json entry = Json::object();
        entry["status"] = module.status.toStdString();
        if (module.status == DriftDrifted || module.status == DriftFollows) {
            Json differences = Json::array();
            for (const KeyDifference &difference : module.differences) {
                Json item = Json::object();
                item["key"] = difference.key.toStdString();
                item["policy"] = difference.policy;
                item["machine"] = difference.machine;
                differences.push_back(std::move(item));
            }
            entry["differences"] = std::move(differences);
        }
        members[module.name.toStdString()] = std::move(entry);
    }
    document["modules"] = std::move(members);
    return PolicyJson::dump(document);
}

} // namespace

PolicyTool::PolicyTool(const ModuleRegistry &registry)
    : m_registry(registry)
{}

void PolicyTool::setSourceName(const QString &name)
{
    m_sourceName = name;
}

QString PolicyTool::displayName(const QString &policyFile)
{
    return policyFile == StandardStream ? QStringLiteral("standard input") : policyFile;
}

QString PolicyTool::sourceName(const QString &policyFile) const
{
    return m_sourceName.isEmpty() ? displayName(policyFile) : m_sourceName;
}

QStringList PolicyTool::moduleNames() const
{
    return m_registry.names();
}

QStringList PolicyTool::unknownModules(const QStringList &modules) const
{
    QStringList unknown;
    for (const QString &name : modules) {
        if (!m_registry.contains(name))
            unknown.append(name);
    }
    return unknown;
}

int PolicyTool::list()
{
    QByteArray text;
    {
        DiagnosticRelay relay;
        for (const QString &name : m_registry.names()) {
            ModuleInterface *module = m_registry.module(name);
            const QString line = QStringLiteral("%1 %2\n")
                                     .arg(module->getName(), -22)
                                     .arg(module->isAvailable() ? QStringLiteral("available")
                                                                : QStringLiteral("not available"));
            text += line.toUtf8();
            DiagnosticRelay::endLines();
        }
    }
    return writeOut(text) ? ExitSuccess : ExitFileError;
}

Json PolicyTool::jsonSchema() const
{
    Json modules = Json::array();
    for (const QString &name : m_registry.names())
        modules.push_back(name.toStdString());
    Json properties = Json::object();
    properties["format"] = Json{{"const", "zql-policy"}};
    properties["version"] = Json{{"const", 1}};
    properties["not-exported"] =
        Json{{"type", "array"},
             {"items", Json{{"enum", modules}}},
             {"uniqueItems", true},
             {"description", "the modules whose settings could not be read (export "
                             "--skip-unreadable)"}};
    for (const QString &name : m_registry.names()) {
        Json section = m_registry.schema(name).jsonSchema();
        section["description"] =
            QStringLiteral("the settings of the module %1").arg(name).toStdString();
        properties[name.toStdString()] = section;
    }
    Json schema = Json::object();
    schema["$schema"] = "https://json-schema.org/draft/2020-12/schema";
    schema["title"] = "zql-policy document";
    schema["description"] = "A security policy for the modules of libzql-modules (format "
                            "version 1); see docs/policy-format.md.";
    schema["type"] = "object";
    schema["properties"] = properties;
    schema["required"] = Json::array({"format", "version"});
    schema["additionalProperties"] = false;
    return schema;
}

int PolicyTool::schema()
{
    return writeOut(PolicyJson::dump(jsonSchema())) ? ExitSuccess : ExitFileError;
}

int PolicyTool::get(const QStringList &modules)
{
    Json result = Json::object();
    bool failed = false;
    {
        // The JSON owns standard output; notes the modules print go to standard error.
        DiagnosticRelay relay(DiagnosticRelay::Notes::ToStandardError);
        ProgressReporter progress;
        for (const QString &name : m_registry.names()) {
            if (!modules.isEmpty() && !modules.contains(name))
                continue;
            ModuleInterface *module = m_registry.module(name);
            const bool available = module->isAvailable();
            if (modules.isEmpty() && !available)
                continue;
            Json entry = Json::object();
            entry["available"] = available;
            if (available) {
                progress.start(QStringLiteral("reading %1").arg(name));
                const SettingsReply reply = module->getSettings();
                progress.finish();
                Json settings;
                QString error;
                int status = reply.first;
                if (!PolicyJson::toJson(QVariant(reply.second), settings, &error)) {
                    Messages::report(QStringLiteral("%1: %2").arg(name, error));
                    settings = Json::object();
                    status = ModuleInterface::StatusFailure;
                }
                entry["status"] = status;
                entry["settings"] = std::move(settings);
                failed = failed || status != ModuleInterface::StatusSuccess;
            }
            result[name.toStdString()] = std::move(entry);
            DiagnosticRelay::endLines();
        }
    }
    if (!writeOut(PolicyJson::dump(result)))
        return ExitFileError;
    return failed ? ExitModuleFailed : ExitSuccess;
}

int PolicyTool::exportPolicy(const QStringList &modules, const QString &outputFile,
                             bool skipUnreadable)
{
    PolicyDocument document;
    QStringList failed;
    {
        DiagnosticRelay relay(DiagnosticRelay::Notes::ToStandardError);
        ProgressReporter progress;
        for (const QString &name : m_registry.names()) {
            if (!modules.isEmpty() && !modules.contains(name))
                continue;
            ModuleInterface *module = m_registry.module(name);
            if (!module->isAvailable()) {
                if (!modules.isEmpty()) {
                    Messages::report(
                        QStringLiteral("%1: the module is not available on this machine")
                            .arg(name));
                    failed.append(name);
                }
                continue;
            }
            progress.start(QStringLiteral("reading %1").arg(name));
            const SettingsReply reply = module->getSettings();
            progress.finish();
            if (reply.first != ModuleInterface::StatusSuccess)
                failed.append(name);
            else
                document.addSection(name, ModuleRegistry::policyForm(name, reply.second));
            DiagnosticRelay::endLines();
        }
    }
    if (!failed.isEmpty() && !skipUnreadable) {
        Messages::report(QStringLiteral("cannot read the settings of %1; nothing was exported")
                             .arg(joined(failed)));
        return ExitModuleFailed;
    }
    if (!failed.isEmpty()) {
        Messages::report(QStringLiteral("cannot read the settings of %1; left out and named in "
                                        "\"not-exported\"")
                             .arg(joined(failed)));
        document.setNotExported(failed);
    }
    QByteArray text;
    QString error;
    if (!document.toText(&text, &error)) {
        Messages::report(QStringLiteral("%1; nothing was exported").arg(error));
        return ExitModuleFailed;
    }
    if (outputFile.isEmpty() || outputFile == StandardStream)
        return writeOut(text) ? ExitSuccess : ExitFileError;

    return saveFile(outputFile, text) ? ExitSuccess : ExitFileError;
}

int PolicyTool::drift(const QString &policyFile, const QStringList &only, bool json)
{
    QByteArray text;
    if (!readPolicy(policyFile, &text))
        return ExitFileError;
    const QString source = sourceName(policyFile);
    PolicyDocument document;
    QStringList problems;
    if (!document.parse(text, m_registry.names(), &problems)) {
        for (const QString &problem : qAsConst(problems))
            Messages::report(QStringLiteral("%1: %2").arg(source, problem));
        Messages::report(QStringLiteral("%1: refused").arg(source));
        return ExitRefused;
    }

    QVector<ModuleDrift> modules;
    {
        // Standard output carries the report; notes the modules print go to standard error.
        DiagnosticRelay relay(DiagnosticRelay::Notes::ToStandardError);
        ProgressReporter progress;
        for (const QString &name : m_registry.names()) {
            const PolicyDocument::Section *section = document.section(name);
            if (!section || (!only.isEmpty() && !only.contains(name)))
                continue;
            modules.append(compareWithMachine(m_registry, name, section->settings, &progress));
            DiagnosticRelay::endLines();
        }
    }
    int status = ExitSuccess;
    QString result = DriftFollows;
    for (const ModuleDrift &module : qAsConst(modules)) {
        if (module.status == DriftDrifted) {
            status = ExitDrifted;
            result = DriftDrifted;
            break;
        }
        if (module.status != DriftFollows) {
            status = ExitIncomplete;
            result = QStringLiteral("incomplete");
        }
    }
    const QByteArray report =
        json ? driftJson(source, result, modules) : driftText(source, modules);
    return writeOut(report) ? status : ExitFileError;
}

bool PolicyTool::saveFile(const QString &fileName, const QByteArray &text)
{
    QSaveFile file(fileName);
    // A full disk can let commit() succeed on a short file: check the writes first.
    const bool saved = file.open(QIODevice::WriteOnly) && file.write(text) == text.size() &&
                       file.flush() && file.error() == QFileDevice::NoError && file.commit();
    if (!saved)
        Messages::report(
            QStringLiteral("cannot write \"%1\": %2").arg(fileName, file.errorString()));
    return saved;
}

bool PolicyTool::readPolicy(const QString &policyFile, QByteArray *text)
{
    QString failure;
    if (PolicyInput::read(policyFile == StandardStream ? QString() : policyFile, text, &failure))
        return true;
    Messages::report(QStringLiteral("cannot read \"%1\": %2").arg(sourceName(policyFile), failure));
    return false;
}

int PolicyTool::checkedPolicy(const QString &policyFile, const QStringList &only,
                              PolicyDocument *document, QStringList *checked,
                              const QString &refusal)
{
    QByteArray text;
    if (!readPolicy(policyFile, &text))
        return ExitFileError;
    const QString source = sourceName(policyFile);
    QStringList problems;
    if (document->parse(text, m_registry.names(), &problems)) {
        DiagnosticRelay relay;
        PolicyChecker(m_registry).check(*document, only, &problems, checked);
    }
    for (const QString &problem : qAsConst(problems))
        Messages::report(QStringLiteral("%1: %2").arg(source, problem));
    if (problems.isEmpty())
        return ExitSuccess;
    Messages::report(QStringLiteral("%1: %2").arg(source, refusal));
    return ExitRefused;
}

int PolicyTool::check(const QString &policyFile, const QStringList &only)
{
    PolicyDocument document;
    QStringList checked;
    const int status =
        checkedPolicy(policyFile, only, &document, &checked, QStringLiteral("refused"));
    if (status != ExitSuccess)
        return status;
    const QString source = sourceName(policyFile);
    QString verdict =
        QStringLiteral("%1: accepted: %2")
            .arg(source, checked.isEmpty() ? QStringLiteral("no module") : joined(checked));
    if (!document.notExported().isEmpty())
        verdict += QStringLiteral("; not exported: ") + joined(document.notExported());
    verdict += QLatin1Char('\n');
    return writeOut(verdict.toUtf8()) ? ExitSuccess : ExitFileError;
}

int PolicyTool::apply(const QString &policyFile, const QStringList &only, bool all)
{
    PolicyDocument document;
    QStringList checked;
    const int status = checkedPolicy(policyFile, only, &document, &checked,
                                     QStringLiteral("refused; nothing was applied"));
    if (status != ExitSuccess)
        return status;
    const QString source = sourceName(policyFile);

    QStringList applied;
    QStringList failed;
    QStringList unchanged;
    {
        DiagnosticRelay relay;
        ProgressReporter progress;
        for (const QString &name : m_registry.names()) {
            if (!checked.contains(name))
                continue;
            const QHash<QString, QVariant> &settings = document.section(name)->settings;
            // A module that already follows the policy is not written again: a rewrite could
            // still change a file's layout, and tools would leave backups.
            if (!all &&
                compareWithMachine(m_registry, name, settings, &progress).status == DriftFollows) {
                unchanged.append(name);
                DiagnosticRelay::endLines();
                continue;
            }
            ModuleInterface *module = m_registry.module(name);
            progress.start(QStringLiteral("applying %1").arg(name));
            const bool moduleFailed = module->setSettings(settings);
            progress.finish();
            DiagnosticRelay::endLines();
            (moduleFailed ? failed : applied).append(name);
        }
    }
    QStringList parts;
    if (!failed.isEmpty())
        parts.append(QStringLiteral("failed: ") + joined(failed));
    if (!applied.isEmpty() || !failed.isEmpty()) {
        parts.append(QStringLiteral("applied: ") +
                     (applied.isEmpty() ? QStringLiteral("no module") : joined(applied)));
    } else {
        parts.append(unchanged.isEmpty() ? QStringLiteral("applied: no module")
                                         : QStringLiteral("nothing to do"));
    }
    if (!unchanged.isEmpty())
        parts.append(QStringLiteral("unchanged: ") + joined(unchanged));
    Messages::report(source + QStringLiteral(": ") + parts.join(QStringLiteral("; ")));
    return failed.isEmpty() ? ExitSuccess : ExitModuleFailed;
}

} // namespace ZqlPolicy
