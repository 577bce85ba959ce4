#ifndef ZQLTEST_PAMTESTSUPPORT_H
#define ZQLTEST_PAMTESTSUPPORT_H

#include "outputcapture.h"
#include "systemfixture.h"

#include <zql-modules/configfileengine.h>

#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QTemporaryDir>
#include <QVariant>

// Small helpers shared by the authentication-policy suites.
namespace ZqlTest {

// What an operation wrote on the two streams.
struct Streams
{
    QByteArray output;
    QByteArray error;
};

// Runs @p operation and returns what it wrote on standard output and standard error.
template<typename Operation> Streams captured(Operation operation)
{
    OutputCapture capture;
    operation();
    capture.finish();
    return {capture.standardOutput(), capture.standardError()};
}

// A switched number as the modules read and write it: [enabled, value].
inline QVariant pair(bool enabled, qint64 value)
{
    return QVariant(QJsonArray{enabled, value});
}

// A settings hash as compact JSON with sorted keys, so that a failed comparison shows both
// sides readably and a boolean never equals a number.
inline QByteArray json(const QHash<QString, QVariant> &settings)
{
    return QJsonDocument(QJsonObject::fromVariantHash(settings)).toJson(QJsonDocument::Compact);
}

// Rewrites @p before, in a scratch file, through a @p Rewriter on @p settings. @return the bytes
// afterwards, or a null array when the rewrite failed or no line matched.
template<typename Rewriter>
QByteArray rewrittenBy(const QHash<QString, QVariant> &settings, const QByteArray &before)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("profile"));
    if (!writeBytes(path, before))
        return {};
    Rewriter rewriter(settings);
    QString errors;
    if (!rewriteFileWithHandler(path, rewriter, errors, false) || !errors.isEmpty() ||
        !rewriter.found())
        return {};
    return readBytes(path);
}

} // namespace ZqlTest

#endif // ZQLTEST_PAMTESTSUPPORT_H
