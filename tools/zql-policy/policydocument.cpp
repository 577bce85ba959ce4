#include "policydocument.h"

#include "policyjson.h"

namespace ZqlPolicy {

const QString PolicyDocument::FormatName = QStringLiteral("zql-policy");

namespace {

const char FormatKey[] = "format";
const char VersionKey[] = "version";
const char NotExportedKey[] = "not-exported";

QString fromUtf8(const std::string &text)
{
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

} // namespace

bool PolicyDocument::parse(const QByteArray &text, const QStringList &knownModules,
                           QStringList *problems)
{
    m_sections.clear();
    m_notExported.clear();
    const int problemsBefore = problems->size();
    Json json;
    QString error;
    if (!PolicyJson::parse(text, json, &error)) {
        problems->append(QStringLiteral("not a JSON document: %1").arg(error));
        return false;
    }
    if (!json.is_object()) {
        problems->append(QStringLiteral("the document is not a JSON object"));
        return false;
    }

    const auto format = json.find(FormatKey);
    if (format == json.end()) {
        problems->append(QStringLiteral("\"format\" is missing; a policy document has "
                                        "\"format\": \"%1\"")
                             .arg(FormatName));
    } else if (!format->is_string() || fromUtf8(format->get<std::string>()) != FormatName) {
        problems->append(QStringLiteral("\"format\" is %1, not \"%2\"")
                             .arg(fromUtf8(format->dump()), FormatName));
    }
    const auto version = json.find(VersionKey);
    if (version == json.end()) {
        problems->append(QStringLiteral("\"version\" is missing"));
    } else if (!version->is_number_integer() || version->get<std::int64_t>() != Version) {
        problems->append(QStringLiteral("\"version\" is %1; this program reads version %2")
                             .arg(fromUtf8(version->dump()), QString::number(Version)));
    }

    QStringList notExported;
    const auto skipped = json.find(NotExportedKey);
    if (skipped != json.end()) {
        const QString problem = QStringLiteral("\"%1\" must be a list of module names")
                                    .arg(QLatin1String(NotExportedKey));
        if (!skipped->is_array()) {
            problems->append(problem);
        } else {
            for (const Json &name : *skipped) {
                const QString module =
                    name.is_string() ? fromUtf8(name.get<std::string>()) : QString();
                if (!knownModules.contains(module)) {
                    problems->append(problem +
                                     QStringLiteral(", not %1").arg(fromUtf8(name.dump())));
                } else if (json.contains(name.get<std::string>())) {
                    problems->append(QStringLiteral("%1 is both exported and named in \"%2\"")
                                         .arg(module, QLatin1String(NotExportedKey)));
                } else {
                    notExported.append(module);
                }
            }
        }
    }

    QVector<Section> sections;
    for (auto member = json.begin(); member != json.end(); ++member) {
        const QString key = fromUtf8(member.key());
        if (member.key() == FormatKey || member.key() == VersionKey ||
            member.key() == NotExportedKey)
            continue;
        if (!knownModules.contains(key)) {
            problems->append(
                QStringLiteral("%1 is not a module of this library (the modules: %2)")
                    .arg(PolicyJson::quoted(key), knownModules.join(QStringLiteral(", "))));
            continue;
        }
        if (!member.value().is_object()) {
            problems->append(QStringLiteral("%1: the settings must be a JSON object, not %2")
                                 .arg(key, QString::fromLatin1(member.value().type_name())));
            continue;
        }
        Section section{key, {}};
        for (auto setting = member.value().begin(); setting != member.value().end(); ++setting)
            section.settings.insert(fromUtf8(setting.key()),
                                    PolicyJson::toVariant(setting.value()));
        sections.append(section);
    }
    if (problems->size() != problemsBefore)
        return false;
    m_sections = sections;
    m_notExported = notExported;
    return true;
}

void PolicyDocument::addSection(const QString &module, const QHash<QString, QVariant> &settings)
{
    m_sections.append(Section{module, settings});
}

const QVector<PolicyDocument::Section> &PolicyDocument::sections() const
{
    return m_sections;
}

const PolicyDocument::Section *PolicyDocument::section(const QString &module) const
{
    for (const Section &section : m_sections) {
        if (section.module == module)
            return &section;
    }
    return nullptr;
}

void PolicyDocument::setNotExported(const QStringList &modules)
{
    m_notExported = modules;
}

QStringList PolicyDocument::notExported() const
{
    return m_notExported;
}

bool PolicyDocument::toText(QByteArray *text, QString *error) const
{
    Json json = Json::object();
    json[FormatKey] = FormatName.toStdString();
    json[VersionKey] = Version;
    if (!m_notExported.isEmpty()) {
        Json names = Json::array();
        for (const QString &module : m_notExported)
            names.push_back(module.toStdString());
        json[NotExportedKey] = std::move(names);
    }
    for (const Section &section : m_sections) {
        Json settings;
        if (!PolicyJson::toJson(QVariant(section.settings), settings, error)) {
            *error = QStringLiteral("%1: %2").arg(section.module, *error);
            return false;
        }
        json[section.module.toStdString()] = std::move(settings);
    }
    *text = PolicyJson::dump(json);
    return true;
}

} // namespace ZqlPolicy
