/**
 * @file
 * Decoding a JSON text whose top value is an object.
 *
 *     #include <stddef.h>
 *     #include <vantro/platform/json.h>
 *
 *     int read_id(char *text) {
 *         struct kivo_decoder decoder;
 *         int id = -1;
 *         if (kivo_decoder_initialize(&decoder, NULL) == 0) {
 *             kivo_decoder_parse_json_str(&decoder, text);
 *             kivo_decoder_push(&decoder, NULL);
 *             if (kivo_decoder_get_int(&decoder, "id", &id) != 0) {
 *                 id = -1;
 *             }
 *             kivo_decoder_pop(&decoder);
 *             kivo_decoder_cleanup(&decoder);
 *         }
 *         return id;
 *     }
 *
 * The decoder lives in the caller's stack frame. It parses in place: the text is modified, and the
 * returned strings lie in the text and stay valid as long as the text. Texts of up to about thirty
 * values need no heap memory. A getter fails, and leaves its output untouched, if the text could
 * not be parsed, or a member is missing or has another type; if two members have the same name, the
 * first counts. One decoder is used by one thread. No call here blocks.
 */
#ifndef VANTRO_PLATFORM_JSON_H
#define VANTRO_PLATFORM_JSON_H

#include <stdint.h>

#include <vantro/platform/export.h>
#include <vantro/platform/limits.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A decoder. It must not be copied or moved. */
struct kivo_decoder {
    uint64_t opaque[160]; /**< Internal. */
};

/**
 * Initializes a decoder.
 * @param decoder memory of the caller.
 * @param text if not NULL, parsed at once, as by kivo_decoder_parse_json_str(); if that fails, the
 *   decoder needs no cleanup.
 * @return 0, or -1: EINVAL (decoder is NULL), or as kivo_decoder_parse_json_str().
 */
VANTRO_PLATFORM_API int kivo_decoder_initialize(struct kivo_decoder *decoder, char *text);

/**
 * Parses a text, in place; the previous text is dropped.
 * @param decoder initialized.
 * @param text NUL-terminated.
 * @return 0, or -1: EBADMSG (not a single JSON value, nesting deeper than KIVO_JSON_DEPTH_MAX, a
 *   number beyond the floating-point range, or half of a surrogate pair in a string), ENOMEM,
 *   EINVAL (text is NULL).
 */
VANTRO_PLATFORM_API int kivo_decoder_parse_json_str(struct kivo_decoder *decoder, char *text);

/**
 * Enters an object: at first the object of the text, with a name of NULL; then a member of the
 * object entered last.
 * @param decoder initialized.
 * @param name the member's name, or NULL for the object of the text.
 * @return 0, or -1: ENOENT if there is no such object.
 */
VANTRO_PLATFORM_API int kivo_decoder_push(struct kivo_decoder *decoder, const char *name);

/**
 * Leaves the object entered last.
 * @param decoder initialized.
 * @return 0, or -1: ENOENT if none was entered.
 */
VANTRO_PLATFORM_API int kivo_decoder_pop(struct kivo_decoder *decoder);

/**
 * Gets a string of the object entered last. A string that contains a NUL is not a C string, and
 * fails.
 * @param decoder, name the decoder, and the member's name.
 * @param out set on success: NUL-terminated, in the parsed text.
 * @return 0, or -1: ENOENT (no such member), EINVAL (another kind of value).
 */
VANTRO_PLATFORM_API int kivo_decoder_get_string(struct kivo_decoder *decoder, const char *name,
                                                const char **out);

/**
 * Gets a whole number of 32 bits of the object entered last.
 * @param decoder, name the decoder, and the member's name.
 * @param out set on success, else untouched.
 * @return 0, or -1: ENOENT, EINVAL (another type, or a number with a fraction or exponent), ERANGE
 *   (it does not fit).
 */
VANTRO_PLATFORM_API int kivo_decoder_get_int(struct kivo_decoder *decoder, const char *name,
                                             int32_t *out);

/**
 * kivo_decoder_get_int() for signed whole numbers of 64 bits.
 * @param decoder, name, out as for kivo_decoder_get_int().
 * @return as kivo_decoder_get_int().
 */
VANTRO_PLATFORM_API int kivo_decoder_get_int64(struct kivo_decoder *decoder, const char *name,
                                               int64_t *out);

/**
 * kivo_decoder_get_int() for unsigned whole numbers of 64 bits.
 * @param decoder, name, out as for kivo_decoder_get_int().
 * @return as kivo_decoder_get_int().
 */
VANTRO_PLATFORM_API int kivo_decoder_get_uint64(struct kivo_decoder *decoder, const char *name,
                                                uint64_t *out);

/**
 * Releases a decoder's memory. May be called any number of times after initialization.
 * @param decoder initialized.
 */
VANTRO_PLATFORM_API void kivo_decoder_cleanup(struct kivo_decoder *decoder);

#ifdef __cplusplus
}
#endif

#endif
