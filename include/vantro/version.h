/**
 * @file
 * The version of the headers that a program is compiled against. The build takes its own version
 * from here, so that no other place states it.
 *
 * The major number is that of the libraries' sonames: it changes when a program that was linked
 * with an earlier version would no longer run.
 */
#ifndef VANTRO_VERSION_H
#define VANTRO_VERSION_H

/** The major number, which is that of the sonames. */
#define VANTRO_VERSION_MAJOR 1
/** Grows with additions. */
#define VANTRO_VERSION_MINOR 0
/** Grows with corrections. */
#define VANTRO_VERSION_PATCH 0

/** The three numbers as text. */
#define VANTRO_VERSION "1.0.0"

/** One number that grows with every version, to compare with: 10203 is version 1.2.3. */
#define VANTRO_VERSION_NUMBER                                                                      \
    (VANTRO_VERSION_MAJOR * 10000 + VANTRO_VERSION_MINOR * 100 + VANTRO_VERSION_PATCH)

#endif
