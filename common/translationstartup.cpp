// Installs the library's message catalogue when the host creates its application object (or at
// once, when one already exists): "libzql-modules_<locale>" from the catalogue directory.

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

namespace {
const QString CatalogueName = QStringLiteral("libzql-modules");
const QString CataloguePrefix = QStringLiteral("_");
// The build's one definition of the catalogue directory, "/usr/share/vela/translations".
const QString CatalogueDirectory = QStringLiteral(ZQL_TRANSLATIONS_DIR);

void installCatalogue()
{
    auto *translator = new QTranslator(QCoreApplication::instance());
    if (translator->load(QLocale::system(), CatalogueName, CataloguePrefix, CatalogueDirectory))
        QCoreApplication::installTranslator(translator);
}
} // namespace

Q_COREAPP_STARTUP_FUNCTION(installCatalogue)
