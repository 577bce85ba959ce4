// The login_local line of tessel.conf as the login-local module reads it: any bytes give a
// state, never a crash.
#include "tesselconffile_p.h"

#include <QBuffer>
#include <QByteArray>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<int>(size));
    QBuffer buffer(&bytes);
    if (buffer.open(QIODevice::ReadOnly | QIODevice::Text))
        (void)loginStateIn(buffer);
    return 0;
}
