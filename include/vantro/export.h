#ifndef VANTRO_EXPORT_H
#define VANTRO_EXPORT_H

/** Marks the functions that libvantroclient exports. */
#define VANTRO_API __attribute__((visibility("default")))

#endif
