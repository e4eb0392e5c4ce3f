/* image_switch.h - which firmware image the boot loader starts, and the serial number.
 *
 * Both are entries of the boot loader's configuration block (redboot.h), which each call loads
 * anew; the calls that change it save it once, at the end, so that a failure before leaves flash as
 * it was. What the block's own functions print, they print here, too.
 *
 *   "boot_script"            bool    must be true
 *   "boot_script_timeout"    int     seconds
 *   "boot_script_data"       script  must be redboot_script_default
 *   "alias/kernel"           string  "kernel", or redboot_bak_kernel for the backup image
 *   "alias/rootdev"          string  "rootfs", or redboot_bak_rootdev for the backup image
 *   "pri_pelkin_ver"         string  version of the primary image; none, or "0.0.0": no such image
 *   "qak_pelkin_ver"         string  version of the backup image, likewise
 *   "serial_number"          string
 *
 * An entry of another type than stated holds nothing that is used: a bool is false, a version none.
 */
#ifndef TQ_IMAGE_SWITCH_H
#define TQ_IMAGE_SWITCH_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* Lets the boot loader start the other image next time: enables the boot script (with a timeout of
 * 5 seconds where it was not enabled) and makes it the standard one, then turns each of the two
 * aliases from primary to backup or from backup to primary by itself. Whatever is not the primary's
 * name is taken for the backup's. An alias that is missing is added, for the backup image where
 * there is one; that there is no room for it is printed, and is no failure. Then saves the block,
 * flushes the file systems and waits one second.
 * 0 when the block was saved, and when a root alias of another type leaves nothing to save. 1 when
 * the block cannot be loaded or saved, it has no "boot_script" or no script, or the image to be
 * started is missing, with "Primary kernel doesn't exist", "Backup kernel doesn't exist", "Primary
 * image doesn't exist" or "Backup image doesn't exist" on standard output. */
TQ_API int sys_image_switch(void);

/* Tells which image the boot loader starts next.
 * 1 for the backup image; 0 for the primary, and for a boot script that is not the standard one; -1
 * when the block cannot be loaded or has no script or no kernel alias. */
TQ_API int sys_image_check(void);

/* Saves the serial number, cut at 128 bytes, flushes the file systems and waits one second. An
 * entry of that key and another type keeps its type, and as much of the number as it has room for.
 * 0; -1 when the block cannot be loaded, and for a null serial ("invalid parameters" in the log); 1
 * when there is no room for it or the block cannot be saved. */
TQ_API int sys_sn_set(const char *serial);

/* Copies the first length bytes of the stored serial number's 128 into out: a text where it is
 * shorter than length. Bytes of out behind those 128 are zeroed.
 * 0; -1 when the block cannot be loaded, and for a rejected argument ("invalid parameters" in the
 * log), among them a length that is negative as a signed number; 1 when there is no serial number.
 * A failed call leaves the empty text in out. */
TQ_API int sys_sn_get(char *out, uint32_t length);

TQ_END_DECLS

#endif /* TQ_IMAGE_SWITCH_H */
