#include "miclevel.h"

#include <QtGlobal>

namespace {
// The type travels by name in queued connections and signal spies: registered when the library
// is loaded.
void registerMicLevel()
{
    qRegisterMetaType<MicLevel>("MicLevel");
}
} // namespace

Q_CONSTRUCTOR_FUNCTION(registerMicLevel)
