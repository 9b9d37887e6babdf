/**
 * @file
 * Decoding a JSON text whose top is an object.
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
 * The decoder lives in the caller's frame. It parses in place: the text is written to, and the
 * strings that come out of it lie in it, and stay valid for as long as it does. Texts of up to some
 * thirty values need no heap. After a text that could not be parsed every getter fails, as it does
 * for a member that is missing or of another kind, and leaves its output untouched; of two members
 * with one name the first counts. One decoder is used by one thread. No call here blocks.
 */
#ifndef VANTRO_PLATFORM_JSON_H
#define VANTRO_PLATFORM_JSON_H

#include <stdint.h>

#include <vantro/platform/export.h>
#include <vantro/platform/limits.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A decoder. What it holds is its own; it must not be copied or moved. */
struct kivo_decoder {
    uint64_t opaque[160]; /**< The decoder's own. */
};

/**
 * Makes a decoder of the memory at `decoder`.
 * @param decoder memory of the caller's.
 * @param text parsed at once when not NULL, as by kivo_decoder_parse_json_str(); when that fails
 *   the decoder holds nothing to be cleaned up.
 * @return 0, or -1: EINVAL (decoder is NULL), or as kivo_decoder_parse_json_str().
 */
VANTRO_PLATFORM_API int kivo_decoder_initialize(struct kivo_decoder *decoder, char *text);

/**
 * Parses a text, in place; what was parsed before is forgotten.
 * @param decoder initialized.
 * @param text NUL-terminated.
 * @return 0, or -1: EBADMSG (not one JSON value, objects and arrays more than KIVO_JSON_DEPTH_MAX
 *   deep, a number above every floating-point number, or half of a surrogate pair in a string),
 *   ENOMEM, EINVAL (text is NULL).
 */
VANTRO_PLATFORM_API int kivo_decoder_parse_json_str(struct kivo_decoder *decoder, char *text);

/**
 * Enters an object: at first the one that the text holds, with a name of NULL; then a member of the
 * object entered last.
 * @param decoder initialized.
 * @param name    the member's name, or NULL for the text's own object.
 * @return 0, or -1: ENOENT when there is no such object.
 */
VANTRO_PLATFORM_API int kivo_decoder_push(struct kivo_decoder *decoder, const char *name);

/**
 * Leaves the object entered last.
 * @param decoder initialized.
 * @return 0, or -1: ENOENT when none was entered.
 */
VANTRO_PLATFORM_API int kivo_decoder_pop(struct kivo_decoder *decoder);

/**
 * Gets a string of the object entered last. One with a NUL within is no C string, and fails.
 * @param decoder, name the decoder, and the member's name.
 * @param out set on success: NUL-terminated, in the text that was parsed.
 * @return 0, or -1: ENOENT (no such member), EINVAL (another kind of value).
 */
VANTRO_PLATFORM_API int kivo_decoder_get_string(struct kivo_decoder *decoder, const char *name,
                                                const char **out);

/**
 * Gets a whole number of 32 bits of the object entered last.
 * @param decoder, name the decoder, and the member's name.
 * @param out set on success, else untouched.
 * @return 0, or -1: ENOENT, EINVAL (another kind of value, or a number with a fraction or
 *   exponent), ERANGE (it does not fit).
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
 * Releases what a decoder holds. Once an initialized decoder, any number of times.
 * @param decoder initialized.
 */
VANTRO_PLATFORM_API void kivo_decoder_cleanup(struct kivo_decoder *decoder);

#ifdef __cplusplus
}
#endif

#endif
