/* Symbol visibility for the MorvSettings shared library: the library is
 * built with hidden symbols, and MORVSETTINGS_API marks what it exports. */

#ifndef MORVSETTINGS_EXPORT_H
#define MORVSETTINGS_EXPORT_H

#if defined(__GNUC__)
#define MORVSETTINGS_API __attribute__((visibility("default")))
#else
#define MORVSETTINGS_API
#endif

#endif /* MORVSETTINGS_EXPORT_H */
