#include "policychecker.h"

#include "diagnosticrelay.h"

#include "policyjson.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QVector>

#include <algorithm>

namespace ZqlPolicy {

namespace {

QString characterName(uint code)
{
    switch (code) {
    case 0x00:
        return QStringLiteral("NUL");
    case 0x09:
        return QStringLiteral("tab");
    case 0x0A:
        return QStringLiteral("line feed");
    case 0x0B:
        return QStringLiteral("vertical tab");
    case 0x0C:
        return QStringLiteral("form feed");
    case 0x0D:
        return QStringLiteral("carriage return");
    case 0x1B:
        return QStringLiteral("escape");
    case 0x7F:
        return QStringLiteral("delete");
    case 0x85:
        return QStringLiteral("next line");
    case 0x2028:
        return QStringLiteral("line separator");
    case 0x2029:
        return QStringLiteral("paragraph separator");
    default:
        return QStringLiteral("control character");
    }
}

bool isRefused(uint code, bool multiLine)
{
    if (multiLine && (code == 0x0A || code == 0x09))
        return false;
    return code < 0x20 || code == 0x7F || (code >= 0x80 && code <= 0x9F) || code == 0x2028 ||
           code == 0x2029;
}

// The first refused character of text: "U+000A (line feed) at character 6", or empty.
QString findRefused(const QString &text, bool multiLine)
{
    const QVector<uint> codes = text.toUcs4();
    for (int i = 0; i < codes.size(); ++i) {
        if (isRefused(codes.at(i), multiLine)) {
            const QString hex =
                QString::number(codes.at(i), 16).toUpper().rightJustified(4, QLatin1Char('0'));
            return QStringLiteral("U+%1 (%2) at character %3")
                .arg(hex, characterName(codes.at(i)))
                .arg(i + 1);
        }
    }
    return QString();
}

// Walks value; the first refused character ends the walk with its problem.
QString walk(const QString &module, const QString &key, const QVariant &value, bool multiLine)
{
    const QString tail = QStringLiteral("; a value that ends up in a line-oriented system file "
                                        "must be one line of printable text");
    switch (static_cast<QMetaType::Type>(value.userType())) {
    case QMetaType::QString: {
        const QString found = findRefused(value.toString(), multiLine);
        if (!found.isEmpty())
            return QStringLiteral("%1: %2 holds %3%4")
                .arg(module, PolicyJson::quoted(key), found, tail);
        return QString();
    }
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        for (int i = 0; i < list.size(); ++i) {
            QString problem =
                walk(module, key + QLatin1Char('/') + QString::number(i), list.at(i), multiLine);
            if (!problem.isEmpty())
                return problem;
        }
        return QString();
    }
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash: {
        const QVariantMap map = value.toMap();
        for (auto member = map.begin(); member != map.end(); ++member) {
            const QString found = findRefused(member.key(), false);
            if (!found.isEmpty()) {
                return QStringLiteral("%1: a key in %2 holds %3%4")
                    .arg(module, PolicyJson::quoted(key), found, tail);
            }
            QString problem =
                walk(module, key + QLatin1Char('/') + member.key(), member.value(), multiLine);
            if (!problem.isEmpty())
                return problem;
        }
        return QString();
    }
    case QMetaType::QJsonValue:
        return walk(module, key, value.toJsonValue().toVariant(), multiLine);
    case QMetaType::QJsonArray:
        return walk(module, key, value.toJsonArray().toVariantList(), multiLine);
    case QMetaType::QJsonObject:
        return walk(module, key, value.toJsonObject().toVariantMap(), multiLine);
    default:
        return QString();
    }
}

} // namespace

PolicyChecker::PolicyChecker(const ModuleRegistry &registry, const QSet<QString> &multiLineTexts)
    : m_registry(registry)
    , m_multiLineTexts(multiLineTexts)
{}

QSet<QString> PolicyChecker::libraryMultiLineTexts()
{
    // digsig's attribute templates are the whole text of xattr_control, one template a line.
    return {QStringLiteral("digsig/Templates")};
}

QString PolicyChecker::controlCharacterProblem(const QString &module, const QString &key,
                                               const QVariant &value, bool multiLine)
{
    const QString found = findRefused(key, false);
    if (!found.isEmpty()) {
        return QStringLiteral("%1: the key %2 holds %3; a key must be printable text")
            .arg(module, PolicyJson::quoted(key), found);
    }
    return walk(module, key, value, multiLine);
}

bool PolicyChecker::check(const PolicyDocument &document, const QStringList &selection,
                          QStringList *problems, QStringList *checked) const
{
    const int problemsBefore = problems->size();
    for (const QString &name : selection) {
        if (!document.section(name))
            problems->append(QStringLiteral("%1: the policy has no settings for it").arg(name));
    }
    for (const QString &name : m_registry.names()) {
        const PolicyDocument::Section *section = document.section(name);
        if (!section || (!selection.isEmpty() && !selection.contains(name)))
            continue;
        checked->append(name);
        DiagnosticRelay::endLines(); // the module before may have left a line open
        ModuleInterface *module = m_registry.module(name);
        if (!module->isAvailable()) {
            problems->append(QStringLiteral("%1: the module is not available on this machine "
                                            "(its security mode); leave it out with --only")
                                 .arg(name));
            continue;
        }
        const QHash<QString, QVariant> &settings = section->settings;
        QStringList unknown =
            module->isParametersCorrect(QSet<QString>(settings.keyBegin(), settings.keyEnd()));
        std::sort(unknown.begin(), unknown.end());
        for (const QString &key : qAsConst(unknown))
            problems->append(
                QStringLiteral("%1: unknown key %2").arg(name, PolicyJson::quoted(key)));

        QStringList keys = settings.keys();
        std::sort(keys.begin(), keys.end());
        // A key whose text is refused for its characters is not judged by type as well.
        QSet<QString> unprintable;
        for (const QString &key : qAsConst(keys)) {
            const bool multiLine = m_multiLineTexts.contains(name + QLatin1Char('/') + key);
            const QString problem =
                controlCharacterProblem(name, key, settings.value(key), multiLine);
            if (!problem.isEmpty()) {
                problems->append(problem);
                unprintable.insert(key);
            }
        }
        // Values the module would misread; the module's own veto is asked only for settings
        // of the right types.
        const QStringList wrong = m_registry.schema(name).validate(name, settings, unprintable);
        problems->append(wrong);
        if (!wrong.isEmpty())
            continue;
        if (!module->checkRestrictions(settings))
            problems->append(QStringLiteral("%1: the module refuses these settings").arg(name));
    }
    return problems->size() == problemsBefore;
}

} // namespace ZqlPolicy
