#ifndef ZQLMODULES_PLATFORM_KDX_KDX_H
#define ZQLMODULES_PLATFORM_KDX_KDX_H

// The security subsystem's label library, as the integrity-control models call it: the
// integrity levels the system knows, the running kernel's maximum level, and the level of one
// path. Built either against the open reference implementation in platform/reference/ or
// against the maker's own library. Plain C functions: memory they hand out is released with
// free() (levels, texts) or kdxl_put() (labels).

extern "C" {

/** One integrity level, 0 to 255. */
typedef unsigned char kdx_ilev_t;

/** The label of one path; opaque, released with kdxl_put(). */
typedef struct kdx_label kdx_label;

/**
 * The integrity levels the system knows, in the system's order.
 * @param ilevs receives an array allocated with malloc() (free() it), or NULL when there are
 *              none or on failure.
 * @return the number of levels, or -1 with errno set when they cannot be read.
 */
int kdx_get_ilevs(kdx_ilev_t **ilevs);

/** @return the running kernel's maximum integrity level (0: integrity control is off), or -1
 *          with errno set when it cannot be read. */
int kdx_get_max_ilev(void);

/**
 * The name of level @p ilev. @p flags is reserved and must be 0.
 * @return a NUL-terminated text allocated with malloc() (free() it), or NULL when the level has
 *         no name of its own or the names cannot be read (errno set).
 */
char *kdx_ilev_get_text(kdx_ilev_t ilev, int flags);

/**
 * The label of @p path (UTF-8, symbolic links followed).
 * @return a label to release with kdxl_put(), or NULL with errno set when the path does not
 *         exist or its label cannot be read.
 */
kdx_label *kdx_get_path(const char *path);

/** @return the integrity level that @p label carries. */
int kdxl_ilev(const kdx_label *label);

/** Releases @p label (NULL is allowed). */
void kdxl_put(kdx_label *label);
}

#endif // ZQLMODULES_PLATFORM_KDX_KDX_H
