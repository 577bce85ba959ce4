#ifndef ZQLMODULES_DIAGNOSTICSTREAMS_P_H
#define ZQLMODULES_DIAGNOSTICSTREAMS_P_H

#include <QString>
#include <QTextStream>

#include <cstdio>

// Each source file that includes this gets its own pair of streams, created when the library
// is loaded: failures go to standard error, warnings and notes to standard output. Every
// diagnostic is flushed as it is written, so a host sees the two streams in order.
namespace {
QTextStream errorStream(stderr, QIODevice::ReadWrite);
QTextStream outputStream(stdout, QIODevice::ReadWrite);

[[maybe_unused]] void writeDiagnostic(QTextStream &stream, const QString &text)
{
    stream << text << Qt::flush;
}
} // namespace

#endif // ZQLMODULES_DIAGNOSTICSTREAMS_P_H
