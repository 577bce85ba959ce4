#ifndef ZQLMODULES_PLATFORM_TESSEL_AUDITDB_H
#define ZQLMODULES_PLATFORM_TESSEL_AUDITDB_H

// The security subsystem's audit database, as the modules call it: a C interface of reentrant
// calls around a handle. Built either against the open reference implementation in
// platform/reference/ or against the maker's own library.

#include <stdint.h>

extern "C" {

/** The kind of entry that holds the default audit flags. */
enum { AUDIT_DEFAULTS_TYPE = 4 };

/** One entry of the audit database. */
struct audent
{
    int32_t ae_type;     ///< kind of entry
    char *ae_name;       ///< subject of the entry; null or empty for the defaults
    uint32_t ae_success; ///< operations audited when they succeed, one bit each
    uint32_t ae_fail;    ///< operations audited when they fail, one bit each
};

/** An open database; only the calls below look inside. */
struct auddb;

/** Opens the database. @return a handle, or null with errno set. */
struct auddb *openauddb_r(void);

/**
 * Looks up the entry of @p type named @p name ("" for none).
 * @return a newly allocated entry (release it with freeaudent_r), or null when there is none.
 */
struct audent *getaudtype_r(struct auddb *db, int32_t type, const char *name);

/** Releases an entry that getaudtype_r returned; null is allowed. */
void freeaudent_r(struct audent *entry);

/**
 * Stores @p entry, replacing the one of the same type and name.
 * @return 0 on success, non-zero on failure with errno set.
 */
int putaudent_r(struct auddb *db, const struct audent *entry);

/** Closes the database and releases the handle; null is allowed. */
void closeauddb_r(struct auddb *db);
}

#endif // ZQLMODULES_PLATFORM_TESSEL_AUDITDB_H
