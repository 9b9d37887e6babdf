#ifndef VANTRO_PLATFORM_EXPORT_H
#define VANTRO_PLATFORM_EXPORT_H

/** Marks the functions that libvantroplatform exports. */
#define VANTRO_PLATFORM_API __attribute__((visibility("default")))

#endif
