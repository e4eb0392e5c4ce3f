/* redboot.h - the boot loader's configuration block.
 *
 * The RedBoot boot loader keeps its settings in the first 4096 bytes of "/dev/mtdblock1": typed
 * entries found by their keys, under a checksum. A process loads the block into redboot_config,
 * reads and changes it there, and saves it. docs/boot-block.md has the layout.
 *
 *     if (redboot_load_config() == 1 &&
 *         redboot_set_config("boot_script_timeout", &seconds, REDBOOT_CONFIG_INT) == 1)
 *         saved = redboot_write_config();
 *
 * What differs from the rest of the library: results are 1 for success and 0 for failure, and
 * messages go to standard output, a line each; nothing reaches the system log. A rejected argument
 * gives 0 without a message. The block is the process's own and not locked; two processes that save
 * it at the same time are not kept apart.
 *
 * A matching checksum proves nothing about the entries. An entry is found where it lies within the
 * entry area as a whole and its key is a text within the key's length; one whose key is none is
 * only shown. The first that reaches beyond the area ends every walk. No call reads or writes
 * outside the block, whatever is in it.
 */
#ifndef TQ_REDBOOT_H
#define TQ_REDBOOT_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* The types of an entry, with the size of its value in the block. Where an entry's type is any
 * other, its value has no bytes. */
enum redboot_config_type {
    REDBOOT_CONFIG_BOOL = 1,     /* 4 bytes: a number, true where it is not 0 */
    REDBOOT_CONFIG_INT = 2,      /* 4 bytes: a number */
    REDBOOT_CONFIG_STRING = 3,   /* 128 bytes of text */
    REDBOOT_CONFIG_SCRIPT = 4,   /* 512 bytes of text, lines that end with a line feed */
    REDBOOT_CONFIG_IP = 5,       /* 4 bytes: an IPv4 address, first octet first */
    REDBOOT_CONFIG_ESA = 6,      /* 8 bytes: an Ethernet address in the first 6 */
    REDBOOT_CONFIG_NET_PORT = 7, /* 128 bytes of text: the name of a network port */
};

/* What redboot_add_config adds. */
typedef struct redboot_config_option {
    const char *key;         /* its name, at most 254 characters */
    const char *title;       /* for people; not stored */
    const char *enable_key;  /* the key of the bool that enables the entry, or null */
    uint32_t enable_sense;   /* the entry is enabled where that bool is this; beyond 255: 255 */
    uint32_t type;           /* REDBOOT_CONFIG_... */
    uintptr_t default_value; /* the value of a bool, int or IPv4 address; else a pointer to it */
} redboot_config_option;

/* Each is initialized where it is defined. NOLINTBEGIN(bugprone-dynamic-static-initializers) */

/* The block, 4096 bytes, and a pointer to it while a loaded block is in use; null before the first
 * load and after a failed one. */
extern TQ_API unsigned char redboot_config[4096];
extern TQ_API unsigned char *config;

/* The table of the reflected CRC-32 of polynomial 0xEDB88320. The block's checksum starts from 0
 * and is not inverted at the end. */
extern TQ_API const uint32_t crc32_table[256];

/* An option without content. */
extern TQ_API redboot_config_option CYG_HAL_TABLE_TYPE;

/* Keys and values of the image switch and the serial number (image_switch.h). */
extern TQ_API const char redboot_script_en_key[];      /* boot_script */
extern TQ_API const char redboot_script_data_key[];    /* boot_script_data */
extern TQ_API const char redboot_script_timeout_key[]; /* boot_script_timeout */
extern TQ_API const char redboot_script_default[];     /* fis load -d %{kernel}, exec: two lines */
extern TQ_API const char redboot_kernel_alias[];       /* alias/kernel */
extern TQ_API const char redboot_rootdev_alias[];      /* alias/rootdev */
extern TQ_API const char redboot_pri_kernel[];         /* kernel */
extern TQ_API const char redboot_pri_rootdev[];        /* rootfs */
extern TQ_API const char redboot_bak_kernel[];         /* "kernel bak", quotes included */
extern TQ_API const char redboot_bak_rootdev[];        /* "rootfs bak", quotes included */
extern TQ_API const char redboot_sn_data_key[];        /* serial_number */
extern TQ_API const char redboot_sn_title[];           /* product serial number */
extern TQ_API const char redboot_sn_default[1];        /* the empty text */

/* NOLINTEND(bugprone-dynamic-static-initializers) */

/* Reads the block from flash. It is valid where the checksum and both magic numbers are right; the
 * length word is not looked at. Pointers that redboot_get_config gave out point into the new block
 * from here on.
 * 1; 0 with config null: "Can't open %s" (the device), "Read config error" (fewer than 4096
 * bytes), "RedBoot configuration CRC error" (not valid; redboot_config then holds what was read).
 * After a failure that follows a successful load, get, set and add go on to work on redboot_config
 * as it is; write and show refuse. */
TQ_API int redboot_load_config(void);

/* Completes the block with length, magic numbers and checksum, and writes it to flash,
 * synchronously and in one call. A power cut during the write leaves a block that the next load
 * refuses, or the old one.
 * 1 when all 4096 bytes were written; 0: "Please load redboot configuration first" (nothing
 * loaded), "Can't open %s" (the device), or without a message a write that failed or was cut
 * short. */
TQ_API int redboot_write_config(void);

/* Reads the value of the first entry with that key into *value, which is by type:
 *
 *   bool, int, IPv4 address    uint32_t
 *   string, script, port       const char *, set to the text inside redboot_config
 *   Ethernet address           unsigned char[6]
 *
 * The pointer is valid until the next load; a text that fills its field has no terminator.
 * 1 when there is such an entry, even if it is of another type: then *value is untouched, and
 * "Request for config value '%s' - wrong type" is printed. So set *value to something else first
 * where that matters. 0 when nothing was loaded or no entry has the key. */
TQ_API int redboot_get_config(const char *key, void *value, uint32_t type);

/* Changes the value of the first entry with that key, in memory only. value is read by type: 4
 * bytes of a bool, int or IPv4 address, 6 of an Ethernet address, and of a text at most 128, up to
 * its terminator; the rest of those 128 is zeroed. It may lie in the same field. Of a script's 512
 * bytes the last 384 stay as they are.
 * 1; 0 when nothing was loaded or no entry has the key, or with "Can't set config value '%s' -
 * wrong type" when the entry is of another type, or of none that has a value. */
TQ_API int redboot_set_config(const char *key, const void *value, uint32_t type);

/* Adds an entry in memory, behind the last one, with its default as the value; where the key is
 * there already, writes the default into that entry's value instead, whatever its type is, cut to
 * the room that it has. As values, a string is read as by redboot_set_config, a port up to and with
 * its terminator, within the block no further than the entry area; for a script or an unknown type
 * none is written.
 * The name bytes are added to the bytes in the free space, which the boot loader leaves zero.
 * 1; 0 with "No space to add '%s'" when the entry does not fit into the 4080 bytes of the entry
 * area, or a key's length into its byte (254 characters); 0 without a message when nothing was
 * loaded, for a null option, key or pointer to a default, and a type that is 0 or does not fit into
 * a byte. */
TQ_API int redboot_add_config(const redboot_config_option *option);

/* Prints "key: value\n" for each entry up to the first of type 0 that is enabled: a bool as "true"
 * or "false", a number as unsigned decimal, a text as it is, an IPv4 address as the text that its
 * bytes make, an Ethernet address as "0x00:0x11:..", a script as a line feed, its lines with ".. "
 * before each, and an empty line. Of an entry of unknown type the value is empty. An entry is not
 * enabled where the bool of its enable key differs from its enable sense; a bool that is not there
 * is false, and one of another type is also reported as redboot_get_config does.
 * 1; 0 with "Please load redboot configuration first" when nothing is loaded. */
TQ_API int redboot_show_config(void);

TQ_END_DECLS

#endif /* TQ_REDBOOT_H */
