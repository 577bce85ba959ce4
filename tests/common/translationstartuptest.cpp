#include "testmain.h"

#include <QLibrary>

#include <zql-modules/processrunner.h>

namespace {
using RunProcessMessage = QString (*)(const QString &, const QStringList &, int, int);
// The exported symbol of runProcess(program, arguments, start limit, finish limit).
const char RunProcessSymbol[] = "_Z10runProcessRK7QStringRK11QStringListii";
} // namespace

// The host creates its application object first and loads the library later (as a plug-in
// host would): the start-up routine then runs at once and the catalogue is still installed.
class TranslationStartupTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void catalogueInstalledWhenLoadedLate();
};

void TranslationStartupTest::catalogueInstalledWhenLoadedLate()
{
    QVERIFY(QCoreApplication::instance());
    QLibrary library(QStringLiteral(ZQL_LIBRARY_FILE));
    QVERIFY2(library.load(), qPrintable(library.errorString()));
    const auto run = reinterpret_cast<RunProcessMessage>(library.resolve(RunProcessSymbol));
    QVERIFY2(run, qPrintable(library.errorString()));
    QCOMPARE(run(QStringLiteral("/nonexistent/tool"), {}, DefaultProcessTimeoutMs,
                 DefaultProcessTimeoutMs),
             QString::fromUtf8("Процесс: \"/nonexistent/tool \". Ошибка: execvp: No such file or "
                               "directory.\n\"Не запущен\""));
}

ZQL_SANDBOXED_TEST_MAIN(TranslationStartupTest)
#include "translationstartuptest.moc"
