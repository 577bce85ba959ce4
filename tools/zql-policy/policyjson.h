#ifndef ZQLPOLICY_POLICYJSON_H
#define ZQLPOLICY_POLICYJSON_H

#include <nlohmann/json.hpp>

#include <QByteArray>
#include <QString>
#include <QVariant>

namespace ZqlPolicy {

/** JSON as the policy documents hold it: objects keep the order they were written in. */
using Json = nlohmann::ordered_json;

/**
 * The exact mapping between the modules' variant values and JSON.
 *
 * Qt 5's own JSON classes keep every number as a double, so 64-bit masks above 2^53 would lose
 * bits; nlohmann's JSON keeps signed and unsigned 64-bit integers exact, which is why the
 * policy documents are read and written with it.
 *
 * Variant to JSON: bool, every integer type (signed and unsigned, up to 64 bits), finite
 * double, QString, QStringList, QVariantList, QVariantMap, QVariantHash (keys sorted), the
 * JSON types of QtCore (QJsonArray, QJsonObject, QJsonValue) and an invalid variant (null).
 *
 * JSON to variant: null is an invalid variant; true/false a bool; an integer an int when it
 * fits 32 bits, else a qlonglong, else a qulonglong; a fraction or exponent a double; a string a
 * QString; an array of exactly a boolean and an integer of at most 2^53 a QJsonArray (the
 * modules' switched numbers; QJsonArray holds its numbers as doubles); a non-empty array of
 * strings a QStringList; any other array a QVariantList; an object a QVariantMap.
 */
class PolicyJson
{
public:
    /**
     * Converts @p value to JSON. Returns false, and sets @p error to the reason, for a value JSON
     * cannot hold (another variant type, NaN or infinity).
     */
    static bool toJson(const QVariant &value, Json &json, QString *error);

    /** Converts @p json to the variant the modules take (see the class comment). */
    static QVariant toVariant(const Json &json);

    /**
     * How deep objects and arrays may nest. A policy needs four levels; the bound keeps every
     * recursive walk over a document far from the end of the stack.
     */
    static constexpr int MaximumDepth = 64;

    /**
     * Parses @p text. Returns false and sets @p error when it is not JSON, when an object holds
     * the same key twice (JSON leaves the meaning open; a policy must not), when the text is
     * not UTF-8, holds a NUL byte or nests deeper than MaximumDepth.
     */
    static bool parse(const QByteArray &text, Json &json, QString *error);

    /**
     * @p text in double quotes for a message, with quotes, backslashes and control characters
     * escaped as JSON escapes them ("\n", "\u0085"), so that a message stays one line.
     */
    static QString quoted(const QString &text);

    /**
     * The text of @p json: four-space indentation, arrays of scalars on one line, UTF-8, a
     * final line feed.
     */
    static QByteArray dump(const Json &json);
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_POLICYJSON_H
