// The policy document as zql-policy reads it: parsing, the settings schemas of every module,
// the control-character check and the export's writer. Nothing may crash, hang or trip a
// sanitizer, whatever the bytes.
#include "moduleregistry.h"
#include "policychecker.h"
#include "policydocument.h"
#include "policyjson.h"

#include <QByteArray>
#include <QStringList>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const ZqlPolicy::ModuleRegistry registry = ZqlPolicy::ModuleRegistry::libraryModules();
    const QByteArray text(reinterpret_cast<const char *>(data), static_cast<int>(size));
    ZqlPolicy::PolicyDocument document;
    QStringList problems;
    if (!document.parse(text, registry.names(), &problems))
        return 0;
    for (const QString &name : registry.names()) {
        const ZqlPolicy::PolicyDocument::Section *section = document.section(name);
        if (!section)
            continue;
        registry.schema(name).validate(name, section->settings);
        for (auto it = section->settings.constBegin(); it != section->settings.constEnd(); ++it) {
            ZqlPolicy::PolicyChecker::controlCharacterProblem(name, it.key(), it.value(), false);
            ZqlPolicy::Json json;
            QString error;
            if (ZqlPolicy::PolicyJson::toJson(it.value(), json, &error))
                ZqlPolicy::PolicyJson::dump(json);
        }
    }
    return 0;
}
