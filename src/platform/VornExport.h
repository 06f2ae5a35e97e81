#ifndef PLATFORM_VORN_EXPORT_H
#define PLATFORM_VORN_EXPORT_H

/// Marks a published name. Both libraries are compiled with everything hidden; only what carries
/// this mark can be linked against.
#define VORN_API __attribute__((visibility("default")))
/// Removes the mark from a helper of a class that carries it.
#define VORN_LOCAL __attribute__((visibility("hidden")))

#endif
