/* dictionary.h - a table of texts by name, in the interface of iniparser 3.x.
 *
 * A key is any text, the empty one included; its value is a text or null. The table owns copies of
 * both. Nothing here writes to the system log or to standard error: a null argument gives the
 * result that each comment names, and nothing is done.
 *
 * Finding, setting and removing a key take the same time in a table of ten keys and of a hundred
 * thousand. The order of the table is that of its slots: a new key takes the first free one, so it
 * may come before older keys once something was removed.
 *
 * Calls on different dictionaries may run on different threads, and so may reading calls on the
 * same one.
 */
#ifndef TQ_DICTIONARY_H
#define TQ_DICTIONARY_H

#include <stdio.h>
#include <tq/types.h>

TQ_BEGIN_DECLS

/* The record is for reading: slot i, from 0 to size - 1, is in use where key[i] is not null; its
 * value is val[i] and hash[i] is dictionary_hash(key[i]). The keys, in any case, are changed by the
 * functions below.
 *
 * The three arrays are one allocation of the library's, in which it also keeps an index of the
 * keys: do not free or reallocate them, or change size. A value may be replaced in place by another
 * text from malloc, or null. A caller that fills or empties slots by itself counts them in n, as
 * the functions do: by that the library notices, searches slot by slot, and makes the index anew at
 * the next change. A key that was changed in place and n not, may not be found.
 *
 * A copy of the record shares its texts and arrays, and is found in as quickly; it is of no use any
 * more after the first change of either. A record that a caller makes up of arrays of its own, each
 * from malloc, works too, slot by slot until it has grown. */
typedef struct _dictionary_ { /* NOLINT(bugprone-reserved-identifier) */
    int n;                    /* slots in use */
    int size;                 /* slots */
    char **val;               /* the values, by slot */
    char **key;               /* the keys, by slot; null in a free one */
    unsigned *hash;           /* of the keys, by slot */
} dictionary;

/* A number for the text: the one-at-a-time hash, bytes from 0x80 on taken as negative. 0 for the
 * empty text and for null. */
TQ_API unsigned dictionary_hash(const char *key);

/* A new, empty dictionary of size slots, but at least 128; it doubles when full. dictionary_del()
 * frees it. Null when memory runs out, and for more than 2^26 slots. */
TQ_API dictionary *dictionary_new(int size);

/* Frees the dictionary with all its keys and values. Nothing for null. */
TQ_API void dictionary_del(dictionary *d);

/* The value of the key, which is null for one that was set to null; def where the key is not there,
 * and for a null d or key. The text is the dictionary's, valid until the key is set or removed; it
 * is not const only for the sake of older callers. */
TQ_API char *dictionary_get(const dictionary *d, const char *key, const char *def);

/* Sets the key to a copy of val, or to null; val may be the key's own present value.
 * 0; -1 for a null d or key and when memory runs out, with the dictionary as it was. */
TQ_API int dictionary_set(dictionary *d, const char *key, const char *val);

/* Removes the key, if it is there. */
TQ_API void dictionary_unset(dictionary *d, const char *key);

/* Writes a line for each key, in table order: the key right-aligned in 20 columns, a tab and the
 * value in brackets, "UNDEF" for null; "empty dictionary" where there is none. */
TQ_API void dictionary_dump(const dictionary *d, FILE *out);

TQ_END_DECLS

#endif /* TQ_DICTIONARY_H */
