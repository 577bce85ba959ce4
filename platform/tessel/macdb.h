#ifndef ZQLMODULES_PLATFORM_TESSEL_MACDB_H
#define ZQLMODULES_PLATFORM_TESSEL_MACDB_H

// The security subsystem's MAC naming databases, as the modules call them: the names of the
// MAC categories (one bit of a 64-bit mask each), the names of the MAC levels, and the users'
// MAC labels. Built either against the open reference implementation in platform/reference/ or
// against the maker's own library.
//
// Conventions shared by the three databases:
// - open...db_r() returns a handle, or null with errno set;
// - set...ent_r() rewinds the handle to the first record; negative with errno set on failure;
// - get...ent_r() returns the next record, or null at the end; the caller releases every record
//   with the matching free...ent_r(), also records it built itself (the name duplicated with
//   strdup(), the record allocated with malloc());
// - put...ent_r() stores one record: 0 on success, otherwise -1 with errno set;
// - close...db_r() releases the handle (null is allowed).

#include <cstddef>
#include <cstdint>

extern "C" {

/** One MAC category: its name and its bit in the category mask. */
struct tessel_catent
{
    char *cat_name;         // NUL-terminated, local 8-bit encoding
    std::uint64_t cat_mask; // one bit for the categories this library writes
};

/** One MAC level: its name and its number. */
struct tessel_levent
{
    char *lev_name;          // NUL-terminated, local 8-bit encoding
    unsigned char lev_level; // 0 to 255
};

/** The two parts of a user's MAC label, kept as the subsystem gives them. */
constexpr std::size_t TESSEL_MACLABEL_PART_SIZE = 16;

/** One user's MAC label. */
struct tessel_macent
{
    char *mac_name; // the user name
    unsigned char mac_label[2][TESSEL_MACLABEL_PART_SIZE];
};

struct tessel_catdb;
struct tessel_levdb;
struct tessel_macdb;

tessel_catdb *opencatdb_r();
int setcatent_r(tessel_catdb *handle);
tessel_catent *getcatent_r(tessel_catdb *handle);
void freecatent_r(tessel_catent *record);
void endcatent_r(tessel_catdb *handle);
int putcatent_r(tessel_catdb *handle, const tessel_catent *record);
void closecatdb_r(tessel_catdb *handle);

tessel_levdb *openlevdb_r();
int setlevent_r(tessel_levdb *handle);
tessel_levent *getlevent_r(tessel_levdb *handle);
void freelevent_r(tessel_levent *record);
void endlevent_r(tessel_levdb *handle);
int putlevent_r(tessel_levdb *handle, const tessel_levent *record);
void closelevdb_r(tessel_levdb *handle);

tessel_macdb *openmacdb_r();
tessel_macent *getmacnam_r(tessel_macdb *handle, const char *name);
void freemacent_r(tessel_macent *record);
void closemacdb_r(tessel_macdb *handle);
}

#endif // ZQLMODULES_PLATFORM_TESSEL_MACDB_H
