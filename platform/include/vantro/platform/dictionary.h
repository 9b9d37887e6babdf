/**
 * @file
 * Dictionaries: texts with text keys. The attributes of an event are in a dictionary.
 *
 * A dictionary may move when it is changed, so its handle may be replaced: mosk_dict_set() and
 * mosk_dict_key_delete() return the handle to use from then on, and the old handle is invalid. If
 * they fail, they return NULL, and the old handle stays valid and unchanged.
 *
 * One thread at a time may change a dictionary; several threads may read it while none changes it.
 * No call here blocks. Finding a key takes logarithmic time; setting a new key makes at most one
 * allocation for key and value.
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
 * Sets the value of a key, also of an existing one. Key and value are copied; the value may be a
 * text of this dictionary.
 * @param dict, key, value the dictionary, and NUL-terminated texts.
 * @return the handle to use from then on, or NULL: ENOMEM, EINVAL (an argument is NULL).
 */
VANTRO_PLATFORM_API mosk_dict *mosk_dict_set(mosk_dict *dict, const char *key, const char *value);

/**
 * Removes a key. If the key does not exist, the call succeeds.
 * @param dict, key the dictionary, and a NUL-terminated text.
 * @return the handle to use from then on, or NULL: EINVAL (an argument is NULL).
 */
VANTRO_PLATFORM_API mosk_dict *mosk_dict_key_delete(mosk_dict *dict, const char *key);

/**
 * Finds a key.
 * @param dict, key the dictionary, and a NUL-terminated text.
 * @return its value, owned by the dictionary and valid until that key is set or deleted or the
 *   dictionary is destroyed; NULL if there is no such key, or an argument is NULL.
 */
VANTRO_PLATFORM_API const char *mosk_dict_find_value(const mosk_dict *dict, const char *key);

/**
 * @param dict the dictionary, or NULL.
 * @return the number of keys; 0 for NULL.
 */
VANTRO_PLATFORM_API size_t mosk_dict_size(const mosk_dict *dict);

/**
 * Returns the entry with an index, in the order of the keys' bytes:
 *   for (size_t i = 0; mosk_dict_entry(dict, i, &key, &value) == 0; i++)
 * @param dict  the dictionary.
 * @param index 0 up to the size less one.
 * @param key, value set on success, else untouched; either may be NULL. They are valid as long as a
 *   result of mosk_dict_find_value().
 * @return 0, or -1: ENOENT (no such index, or dict is NULL).
 */
VANTRO_PLATFORM_API int mosk_dict_entry(const mosk_dict *dict, size_t index, const char **key,
                                        const char **value);

#ifdef __cplusplus
}
#endif

#endif
