#ifndef ZQLPOLICY_POLICYDOCUMENT_H
#define ZQLPOLICY_POLICYDOCUMENT_H

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

namespace ZqlPolicy {

/**
 * A whole security policy: the settings of each module, under the module's name key.
 *
 * The text form is one JSON object: "format" ("zql-policy"), "version" (1), then one object
 * per module name key holding that module's settings (docs/policy-format.md). The document
 * knows nothing of the modules themselves; PolicyChecker does.
 */
class PolicyDocument
{
public:
    static const QString FormatName;
    static constexpr int Version = 1;

    struct Section
    {
        QString module;
        QHash<QString, QVariant> settings;
    };

    /**
     * Reads @p text. @p knownModules are the name keys a section may have. Every problem is
     * appended to @p problems as one line; returns false when there was any, and then the
     * document is empty.
     */
    bool parse(const QByteArray &text, const QStringList &knownModules, QStringList *problems);

    /** Appends the section of @p module (one per module). */
    void addSection(const QString &module, const QHash<QString, QVariant> &settings);

    /** The sections in the order they were read or added. */
    const QVector<Section> &sections() const;

    /** The section of @p module, or null. */
    const Section *section(const QString &module) const;

    /**
     * Names @p modules as not exported (their settings could not be read): the document's
     * "not-exported" member, which check and apply read as modules left out, never as empty
     * sections.
     */
    void setNotExported(const QStringList &modules);

    /** The modules the document names as not exported. */
    QStringList notExported() const;

    /**
     * The text of the document, sections in the order added, keys of each section sorted.
     * Returns false with @p error naming the module and key of a value JSON cannot hold.
     */
    bool toText(QByteArray *text, QString *error) const;

private:
    QVector<Section> m_sections;
    QStringList m_notExported;
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_POLICYDOCUMENT_H
