/* mtd.h - flash partitions by name, and the firmware images in them.
 *
 * The device carries a primary and a backup image and a backup boot loader, each in a partition
 * whose name is the board's affair (the board-information library), and in the boot loader's
 * environment a mark for each, read by the firmware's command "fw_printenv": 0 where it can be
 * used. The line numbers in the log are fixed.
 */
#ifndef TQ_MTD_H
#define TQ_MTD_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* What the image information functions fill: the beginning of the partition, with the version as a
 * text of at most 24 characters, terminated where it is shorter. */
#define TQ_IMAGE_BLOCK_SIZE 512
#define TQ_IMAGE_VERSION_OFFSET 276
#define TQ_IMAGE_VERSION_SIZE 24

/* Opens the index-th partition of that name, counted from 0 in the order of "/proc/mtd", for
 * reading: "/dev/mtdN", or "/dev/mtdblockN" where block is not 0, and before those "/dev/mtd/N" or
 * "/dev/mtdblock/N". A name that starts with "/" is a path and opened as it is; so is one that is
 * not listed, and any name where "/proc/mtd" cannot be read. A line whose number is beyond an int
 * does not count.
 * The descriptor, close-on-exec, which the caller closes; -1 when nothing could be opened, with
 * errno as open(2) left it and without a log line, and for a null name or a negative index
 * ("invalid parameters"). */
TQ_API int mtd_open_match(const char *name, int index, uint8_t block);

/* The first of that name: mtd_open_match(name, 0, block). */
TQ_API int mtd_open(const char *name, uint8_t block);

/* The image that the device runs. Always 0, the primary one, which this build always runs; logged
 * at LOG_INFO as "%s image active". */
TQ_API int get_active_image_type(void);

/* Reads the image block of the primary image, the backup image and the backup boot loader into out,
 * of TQ_IMAGE_BLOCK_SIZE bytes; what a shorter partition does not fill is zeroed.
 * 0; -1 when the board library's answer for the partition's name is -1 ("tq_get_pri_image_partition
 * fail", "tq_get_bk_image_partition fail", "get AP_TYPE_PAT_BK_UBOOT_IMAGE fail"), the image is not
 * marked as usable ("check_primary_image fail", "check_backup_image fail", "check_backup_uboot
 * fail", after what the check logs), or its version cannot be read ("get_version_info fail"). The
 * last comes after a line of "get_version_info_from_offset": "open fail", "lseek fail", "read
 * fail", or "not ascii string, fail" for a version that is empty or has a byte above 0x7f; out then
 * holds what was read. */
TQ_API int get_primary_info(char *out);
TQ_API int get_backup_info(char *out);
TQ_API int get_backup_boot_info(char *out);

/* Tell whether an image can be used, by "Image1Stable", "Image2Stable" or "Uboot2Stable" in what
 * "fw_printenv" prints.
 * 0 when the mark is 0; -1 when it is another number, and when it cannot be read ("get_key_vlaue
 * fail", after what get_key_vlaue logs). */
TQ_API int check_primary_image(void);
TQ_API int check_backup_image(void);
TQ_API int check_backup_uboot(void);

TQ_END_DECLS

#endif /* TQ_MTD_H */
