#ifndef ZQLTEST_PAMTESTSUPPORT_H
#define ZQLTEST_PAMTESTSUPPORT_H

#include "outputcapture.h"

#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
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

} // namespace ZqlTest

#endif // ZQLTEST_PAMTESTSUPPORT_H
