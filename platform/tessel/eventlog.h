#ifndef ZQLMODULES_PLATFORM_TESSEL_EVENTLOG_H
#define ZQLMODULES_PLATFORM_TESSEL_EVENTLOG_H

// The security subsystem's event log, as the modules call it. Built either against the open
// reference implementation in platform/reference/ or against the maker's own library.

#include <stddef.h>

extern "C" {

/**
 * Records one security event.
 * @param code the event code
 * @param success non-zero when the operation the event reports succeeded
 * @param text, subject, object the event's texts (local 8-bit, not zero-terminated), each
 *        with its length in bytes; a null text is allowed with length 0
 * @return non-zero when the event was accepted (recorded), 0 when it was refused
 */
int tessel_log_send(int code, int success, const char *text, size_t text_len, const char *subject,
                    size_t subject_len, const char *object, size_t object_len);
}

#endif // ZQLMODULES_PLATFORM_TESSEL_EVENTLOG_H
