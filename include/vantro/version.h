/**
 * @file
 * The version of the headers that a program is compiled with. The build reads its version from
 * here, so that it is stated only once.
 *
 * The major number is that of the libraries' sonames: it changes when a program that was linked
 * with an earlier version no longer runs.
 */
#ifndef VANTRO_VERSION_H
#define VANTRO_VERSION_H

/** The major number, which is that of the sonames. */
#define VANTRO_VERSION_MAJOR 1
/** Incremented for additions. */
#define VANTRO_VERSION_MINOR 0
/** Incremented for corrections. */
#define VANTRO_VERSION_PATCH 0

/** The three numbers as text. */
#define VANTRO_VERSION "1.0.0"

/** The version as one number for comparisons: 10203 is version 1.2.3. */
#define VANTRO_VERSION_NUMBER                                                                      \
    (VANTRO_VERSION_MAJOR * 10000 + VANTRO_VERSION_MINOR * 100 + VANTRO_VERSION_PATCH)

#endif
