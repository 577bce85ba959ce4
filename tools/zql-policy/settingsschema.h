#ifndef ZQLPOLICY_SETTINGSSCHEMA_H
#define ZQLPOLICY_SETTINGSSCHEMA_H

#include "policyjson.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

#include <memory>

namespace ZqlPolicy {

struct KeyRule;

/**
 * What one setting may hold: its JSON type, its range or its words, and for a table the keys
 * inside. A value outside the rule is one the module would misread (a word it does not know
 * falls back to "all", a string where a number belongs turns an option off), so the check
 * refuses it before the module sees it.
 */
class ValueRule
{
public:
    enum class Kind {
        Any,
        Boolean,
        Integer,
        UnsignedMask,
        Text,
        MultiLineText,
        AbsolutePath,
        Choice,
        SwitchedNumber,
        Table,
        TextList,
        TableList,
        FileName,
        OpenTable
    };

    /** Any value (the modules of tests). */
    static ValueRule any();
    static ValueRule boolean();
    /** A JSON integer from @p minimum to @p maximum. */
    static ValueRule integer(qint64 minimum, qint64 maximum);
    /** A JSON integer from 0 to 2^64 - 1 (a 64-bit mask). */
    static ValueRule unsignedMask();
    /** A string. */
    static ValueRule text();
    /** A string that may hold line feeds and tabs (a text made of lines by design). */
    static ValueRule multiLineText();
    /** A string that starts with "/". */
    static ValueRule absolutePath();
    /** One of @p words, exactly (case-sensitive). */
    static ValueRule choice(const QStringList &words);
    /** [on, number]: a boolean and an integer from @p minimum to @p maximum. */
    static ValueRule switchedNumber(qint64 minimum, qint64 maximum);
    /** An object with the keys of @p members and no others. */
    static ValueRule table(const QVector<KeyRule> &members);
    /** An array of strings. */
    static ValueRule textList();
    /** An array of objects, each with the keys of @p members and no others. */
    static ValueRule tableList(const QVector<KeyRule> &members);
    /** A file name: not empty, not "." or "..", no "/". */
    static ValueRule fileName();
    /**
     * An object whose keys the policy chooses (each matching @p keyPattern, which
     * @p keyMeaning describes), each holding a value of @p rule.
     */
    static ValueRule openTable(const QString &keyMeaning, const QString &keyPattern,
                               const ValueRule &rule);

    Kind kind() const { return m_kind; }
    const QVector<KeyRule> &members() const;

    /** What the rule wants, for a message: "an integer from 0 to 99999". */
    QString expectation() const;

    /** The rule as a JSON Schema (draft 2020-12) subschema. */
    Json jsonSchema() const;

    /**
     * Appends one problem per wrong value at @p path of @p module ("<module>: ..."). Unknown
     * keys inside tables are problems too; @p path is "key" or "table/key".
     */
    void validate(const QString &module, const QString &path, const Json &value,
                  QStringList *problems) const;

private:
    explicit ValueRule(Kind kind);

    Kind m_kind;
    qint64 m_minimum = 0;
    qint64 m_maximum = 0;
    QStringList m_words; // Choice; OpenTable: its key meaning and pattern
    std::shared_ptr<const QVector<KeyRule>> m_members;
};

/** One key of a module's settings or of a table inside them. */
struct KeyRule
{
    QString key;
    ValueRule rule;
    /** The module cannot do without it: a section without it is refused. */
    bool required = false;
};

/**
 * The settings one module takes: its keys with their rules, or keys of the module's own
 * choosing (the switches a machine has) that all take one rule.
 */
class SettingsSchema
{
public:
    /** Anything: for the modules of tests, never for a module of the library. */
    static SettingsSchema any();
    /** The keys of @p keys, each with its rule. */
    explicit SettingsSchema(const QVector<KeyRule> &keys);
    /**
     * Keys the machine decides (@p keyMeaning says what they are, @p keyPattern is a regular
     * expression every key matches), each holding a value of @p rule.
     */
    static SettingsSchema openKeys(const QString &keyMeaning, const QString &keyPattern,
                                   const ValueRule &rule);

    bool isAny() const { return m_any; }
    bool hasOpenKeys() const { return !m_keyPattern.isEmpty(); }
    const QVector<KeyRule> &keys() const { return m_keys; }

    /**
     * The problems of @p settings for @p module, one line each ("<module>: ..."). Top-level
     * keys the schema does not name are left to the module's own isParametersCorrect(); every
     * nested key is checked here. The keys in @p unjudged count as present but are not
     * checked (the check has refused them already).
     */
    QStringList validate(const QString &module, const QHash<QString, QVariant> &settings,
                         const QSet<QString> &unjudged = {}) const;

    /** The section as a JSON Schema (draft 2020-12) subschema. */
    Json jsonSchema() const;

private:
    SettingsSchema() = default;

    bool m_any = false;
    QVector<KeyRule> m_keys;
    QString m_keyMeaning;
    QString m_keyPattern;
    std::shared_ptr<const ValueRule> m_openRule;
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_SETTINGSSCHEMA_H
