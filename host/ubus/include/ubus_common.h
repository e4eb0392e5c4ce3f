/*
 * ubus_common.h - what the bus's clients and its broker share beside the messages.
 */
#ifndef UBUS_COMMON_H
#define UBUS_COMMON_H

#include <stdbool.h>

#define UBUS_SIGNATURE_METHOD (BLOBMSG_TYPE_LAST + 1)
#define UBUS_SIGNATURE_END (BLOBMSG_TYPE_LAST + 2)

/* Whether both texts are the same; *len: how many characters at their beginnings are. */
static inline bool ubus_strmatch_len(const char* s1, const char* s2, int* len) {
    int same = 0;
    while (s1[same] && s1[same] == s2[same]) {
        same++;
    }
    *len = same;
    return s1[same] == s2[same];
}

#endif
