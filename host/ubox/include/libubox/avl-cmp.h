/*
 * avl-cmp.h - comparators for trees of texts and of blobs.
 */
#ifndef LIBUBOX_AVL_CMP_H
#define LIBUBOX_AVL_CMP_H

#include "utils.h"

#ifdef __cplusplus
extern "C" {
#endif

/* As strcmp. */
UBOX_EXPORT int avl_strcmp(const void* k1, const void* k2, void* ptr);

/* By the shorter blob_attr's bytes, header included, as memcmp. */
UBOX_EXPORT int avl_blobcmp(const void* k1, const void* k2, void* ptr);

#ifdef __cplusplus
}
#endif

#endif
