// The security monitor's output, read as the switches manager reads it: a JSON array of switch
// records, each made into a SecuritySwitch (which throws for a missing or mistyped key).
#include <zql-modules/modules.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstddef>
#include <cstdint>
#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(
        QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)), &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return 0;
    const QJsonArray records = document.array();
    for (const QJsonValue &value : records) {
        if (!value.isObject())
            return 0;
        try {
            const SecuritySwitch record = SecuritySwitch::fromJson(value.toObject());
            (void)record.script();
            (void)record.groupType();
        } catch (const std::runtime_error &) {
            return 0;
        }
    }
    return 0;
}
