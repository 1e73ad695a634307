/* Symbol visibility for the MorvString shared library: the library is built
 * with hidden symbols, and MORVSTRING_API marks what it exports. */

#ifndef MORVSTRING_EXPORT_H
#define MORVSTRING_EXPORT_H

#if defined(__GNUC__)
#define MORVSTRING_API __attribute__((visibility("default")))
#else
#define MORVSTRING_API
#endif

#endif /* MORVSTRING_EXPORT_H */
