#ifndef ZQLMODULES_PAMOPTIONS_P_H
#define ZQLMODULES_PAMOPTIONS_P_H

#include <QHash>
#include <QRegExp>
#include <QString>
#include <QStringList>
#include <QVariant>

// Rewriting the option list of a PAM module line: options the module does not manage keep their
// order, and the managed ones are appended after them in a fixed order.
namespace PamOptions {

// The options of @p options whose name is not in @p managed, each with a blank in front.
inline QString foreignOptions(const QString &options, const QStringList &managed)
{
    static const QRegExp Blanks(QStringLiteral("\\s+"));
    QRegExp option(QStringLiteral("([^=]+)=?(\\d+)?"));
    QString kept;
    const QStringList tokens = options.split(Blanks, Qt::SkipEmptyParts);
    for (const QString &token : tokens) {
        if (option.indexIn(token) == -1 || !managed.contains(option.cap(1)))
            kept += QLatin1Char(' ') + token;
    }
    return kept;
}

// " name" for each flag of @p flags, in that order, that is set in @p settings.
inline QString flagOptions(const QStringList &flags, const QHash<QString, QVariant> &settings)
{
    QString text;
    for (const QString &flag : flags) {
        if (settings.value(flag, false).toBool())
            text += QLatin1Char(' ') + flag;
    }
    return text;
}

} // namespace PamOptions

#endif // ZQLMODULES_PAMOPTIONS_P_H
