/* iniparser.h - INI files, in the interface of iniparser 3.x.
 *
 * A file is loaded into a dictionary: each section is a key with the value null, each line
 * "key = value" the key "section:key", those before the first section ":key". Names keep their
 * case, so "Net:Mode" and "net:mode" are two entries. Where these functions take a name, its first
 * 1024 bytes count.
 *
 * A null argument gives the result that each comment names; nothing is logged. What is wrong with
 * a file is said on standard error. Threads are as in tq/dictionary.h.
 */
#ifndef TQ_INIPARSER_H
#define TQ_INIPARSER_H

#include <stdio.h>
#include <tq/dictionary.h>

TQ_BEGIN_DECLS

/* The number of sections, which are the entries without a colon in their name; -1 for null. */
TQ_API int iniparser_getnsec(const dictionary *d);

/* The name of section n, counted from 0 in table order. The text is the dictionary's.
 * Null where there is no such section, and for a null d. */
TQ_API char *iniparser_getsecname(const dictionary *d, int n);

/* Writes a line for each entry, in table order: "key=value", or "[name]" for one without a value.
 * Nothing for a null d or f. */
TQ_API void iniparser_dump(const dictionary *d, FILE *f);

/* Writes an INI file: for each section, in table order, an empty line, its name in brackets, its
 * keys left-aligned in 30 columns with " = " and the value, nothing for null, and an empty line; a
 * last empty line at the end. Entries whose section has no entry of its own are left out; only
 * where there is no section at all, every entry is written as "section:key = value" ("(null)" for
 * null). Values are written as they are: one with blanks around it, a quote, ";", "#" or a
 * backslash in it may not be read back as the same.
 * Nothing for a null d or f. */
TQ_API void iniparser_dump_ini(const dictionary *d, FILE *f);

/* The value of "section:key", which is null for a section; def where it is not there, and for a
 * null d or key. The text is the dictionary's, valid until the entry is set or removed. */
TQ_API char *iniparser_getstring(const dictionary *d, const char *key, const char *def);

/* The integer that the value starts with, blanks before it skipped: decimal, octal after 0,
 * hexadecimal after 0x; beyond 32 bits the nearest that an int holds. 0 where the value starts with
 * none. notfound where the entry is not there or has no value. */
TQ_API int iniparser_getint(const dictionary *d, const char *key, int notfound);

/* The number that the value starts with, as strtod(3) reads it; 0 where it starts with none.
 * notfound where the entry is not there or has no value. */
TQ_API double iniparser_getdouble(const dictionary *d, const char *key, double notfound);

/* 1 for a value that starts with y, Y, t, T or 1; 0 for n, N, f, F or 0; notfound for any other,
 * and where the entry is not there or has no value. */
TQ_API int iniparser_getboolean(const dictionary *d, const char *key, int notfound);

/* 1 where the entry, or the section, is there; else 0. */
TQ_API int iniparser_find_entry(const dictionary *d, const char *entry);

/* Sets the entry to a copy of val; null makes it a section. The section of a key is not made by
 * itself.
 * 0; -1 for a null d or entry and when memory runs out, with the dictionary as it was. */
TQ_API int iniparser_set(dictionary *d, const char *entry, const char *val);

/* Removes the entry, if it is there. That of a section leaves its keys. */
TQ_API void iniparser_unset(dictionary *d, const char *entry);

/* Loads a file; iniparser_freedict() frees the result. A UTF-8 byte-order mark at its start is
 * dropped. Blanks around a line, a name and a value do not count. A line is one of
 *
 *     [section]              the name ends at the first "]"; an empty one repeats the last section
 *     key = value            up to a ";" or "#", which starts a comment
 *     key = "value"          up to the next quote or the end of the line; what follows is ignored
 *     key = 'value'          likewise; blanks inside the quotes do not count either
 *     key =                  the empty value; also before a comment, and for two quotes alone
 *     ; comment              or # comment; or an empty line
 *
 * and goes on in the next where it ends in a backslash, blanks behind it not counted; what a last
 * line so announces does not come, and the line is dropped. A line is at most 1023 bytes long, its
 * line feed and what it continues included, a last one without a line feed 1022. The first line of
 * a key makes its entry, the last one its value.
 *
 * Null, with what is wrong on standard error:
 *   "iniparser: cannot open %s"                 or read; with the path
 *   "iniparser: input line too long in %s (%d)" with the number of the line; also for a NUL byte
 *   "iniparser: syntax error in %s (%d):", and in a line of its own "-> %s" with the text; for
 *                                               each such line of the file
 *   "iniparser: memory allocation failure"
 * Null without a text for a null path. */
TQ_API dictionary *iniparser_load(const char *ininame);

/* Frees what iniparser_load() made; the same as dictionary_del(). */
TQ_API void iniparser_freedict(dictionary *d);

/* Writes a line for each entry, in table order: the name, seven blanks and the value, or
 * "name=UNDEF" for one without a value. Nothing for a null d or f. */
TQ_API void iniparser_dump_append(const dictionary *d, FILE *f);

TQ_END_DECLS

#endif /* TQ_INIPARSER_H */
