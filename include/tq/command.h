/* command.h - shell commands and small text files.
 *
 * Runs a command through the shell, picks the first line or one key=integer pair out of what it
 * prints, and finds a line in a text file.
 *
 * Lines are read in pieces of at most 1023 bytes: a longer line is seen as several, and a key or
 * needle that straddles the boundary is not found. A command's exit status is never looked at, only
 * what it prints.
 */
#ifndef TQ_COMMAND_H
#define TQ_COMMAND_H

#include <stdio.h>
#include <tq/types.h>

TQ_BEGIN_DECLS

/* Runs command through the shell and waits for it. The command is logged at LOG_INFO as
 * "exec: %s". Its arguments are the caller's to quote: nothing here is checked, and a null command
 * runs nothing.
 * Always 0, whatever the command did. */
TQ_API int my_system(const char *command);

/* Runs command and copies the first line that it prints into out, of out_size bytes, cut to fit and
 * without its line feed (a carriage return stays). The rest of the output is thrown away. An
 * out_size of 1 has room for no character: the result is 0 and the empty text.
 * 0; -1 with an empty out when the shell cannot be started ("popen fail, cmd = %s") or the command
 * prints nothing ("fgets fail, cmd = %s"). */
TQ_API int run_cmd(const char *command, char *out, int out_size);

/* Runs command and stores the integer of the first line that starts with key, which must read
 * key=integer; "fw_printenv" and "Image1Stable" are the usual pair. The integer is decimal, blanks
 * before it are skipped and text behind it is ignored; beyond 32 bits its low 32 bits are kept.
 * 0; -1 with *value untouched when the shell cannot be started ("popen fail, cmd = %s"), no line
 * starts with key ("not find %s") or the first that does is of another form ("sscanf fail"). So a
 * key that is the beginning of a longer one finds the longer one's line, and fails. */
TQ_API int get_key_vlaue(const char *command, const char *key, int *value);

/* Copies the tail of the first line of the file that contains needle, from the needle on, into out:
 * at most out_size - 1 bytes, the rest of out is zeroed. The line feed is copied where it fits.
 * 0; -1 with an empty out when the file cannot be opened ("fopen %s fail") or no line contains the
 * needle ("not find %s"). */
TQ_API int read_line(const char *path, const char *needle, char *out, int out_size);

/* Reads the next line of fp into buf, of size + 2 bytes: the first size bytes are cleared, the line
 * ends with its line feed or carriage return kept, so a CR LF pair gives two lines. A line of more
 * than size + 1 bytes is returned in pieces of size + 1 bytes and a terminator: the two bytes
 * beyond size are part of the interface. A byte 0xff ends the text like the end of the file.
 * buf, or null at the end of the file. Rejects bad arguments without a log line. */
TQ_API char *tq_hal_file_gets(char *buf, int size, FILE *fp);

/* Returns the next line of fp that is neither blank nor a comment (a "#" in the first column), as a
 * new text without its last character. That is the line feed, except on a last line that has none,
 * which loses its last real character. The caller frees the result.
 * Null at the end of the file, for a null fp and when memory runs out; nothing is logged. */
TQ_API char *tq_hal_get_file_line(FILE *fp);

/* Reads lines of fp into buf until one contains needle; without a needle the next line will do.
 * Every line read is traced at LOG_DEBUG as "%s".
 * 0 with the line in buf; -1 when nothing can be read, also for a size of zero or less ("fgets
 * fail"), the file ends first ("don't find key word '%s'") or 500 lines went by ("fgets %d times,
 * don't find '%s'"; a 501st has then been read). A null buf or fp gives -1 without a log line. */
TQ_API int nucleus_fgets(char *buf, int size, FILE *fp, const char *needle);

TQ_END_DECLS

#endif /* TQ_COMMAND_H */
