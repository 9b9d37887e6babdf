/**
 * @file
 * Dictionaries: texts under text keys. The attributes behind an event come in one.
 *
 * A dictionary may move when it is changed, so its handle may be replaced: mosk_dict_set() and
 * mosk_dict_key_delete() return the handle to use from then on, and the one passed in is then no
 * more. When they fail they return NULL, and the one passed in is as it was.
 *
 * One dictionary is used by one thread at a time; several may read it when none changes it. No call
 * here blocks. Finding costs the logarithm of the size, setting a new key at most one allocation
 * for key and value.
 */
#ifndef VANTRO_PLATFORM_DICTIONARY_H
#define VANTRO_PLATFORM_DICTIONARY_H

#include <stddef.h>

#include <vantro/platform/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A dictionary: opaque, made by mosk_dict_new(). */
typedef struct mosk_dict mosk_dict;

/** Makes an empty dictionary. @return to be released with mosk_dict_destroy(), or NULL: ENOMEM. */
VANTRO_PLATFORM_API mosk_dict *mosk_dict_new(void);

/**
 * Releases a dictionary with all its texts. NULL does nothing.
 * @param dict the dictionary, or NULL.
 */
VANTRO_PLATFORM_API void mosk_dict_destroy(mosk_dict *dict);

/**
 * Sets a key, which it may have already. Key and value are copied; the value may be a text of this
 * dictionary's own.
 * @param dict, key, value the dictionary, and NUL-terminated texts.
 * @return the handle to use from then on, or NULL: ENOMEM, EINVAL (an argument is NULL).
 */
VANTRO_PLATFORM_API mosk_dict *mosk_dict_set(mosk_dict *dict, const char *key, const char *value);

/**
 * Removes a key. One that is not there is no failure.
 * @param dict, key the dictionary, and a NUL-terminated text.
 * @return the handle to use from then on, or NULL: EINVAL (an argument is NULL).
 */
VANTRO_PLATFORM_API mosk_dict *mosk_dict_key_delete(mosk_dict *dict, const char *key);

/**
 * Finds a key.
 * @param dict, key the dictionary, and a NUL-terminated text.
 * @return its value, the dictionary's own until that key is set or deleted or the dictionary
 *   destroyed; NULL if there is no such key, or an argument is NULL.
 */
VANTRO_PLATFORM_API const char *mosk_dict_find_value(const mosk_dict *dict, const char *key);

/**
 * @param dict the dictionary, or NULL.
 * @return the number of keys; 0 for NULL.
 */
VANTRO_PLATFORM_API size_t mosk_dict_size(const mosk_dict *dict);

/**
 * Walks a dictionary, in the order of the keys' bytes:
 *   for (size_t i = 0; mosk_dict_entry(dict, i, &key, &value) == 0; i++)
 * @param dict  the dictionary.
 * @param index 0 up to the size less one.
 * @param key, value set on success, else untouched; either may be NULL. They live as those that
 *   mosk_dict_find_value() returns.
 * @return 0, or -1: ENOENT (no such index, or dict is NULL).
 */
VANTRO_PLATFORM_API int mosk_dict_entry(const mosk_dict *dict, size_t index, const char **key,
                                        const char **value);

#ifdef __cplusplus
}
#endif

#endif
