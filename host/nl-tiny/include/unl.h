/* unl.h - requests over netlink in a few calls, with libnl-tiny's interface, on Debian's libnl-3.
 *
 * What concerns the family "nl80211" alone is not here.
 */
#ifndef UNL_H
#define UNL_H

#include <netlink/genl/family.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>
#include <stdbool.h>

#if defined(__GNUC__)
#define UNL_API __attribute__((visibility("default")))
#else
#define UNL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A connection, to one generic-netlink family or to rtnetlink. */
struct unl {
    struct nl_sock* sock;
    struct nl_cache* cache;
    struct genl_family* family;
    char* family_name;
    int hdrlen; /* of what follows the netlink header */
    bool loop_done;
};

/* What a reply is given to; the result is one of libnl's NL_OK, NL_SKIP, NL_STOP. */
typedef int (*unl_cb)(struct nl_msg* message, void* argument);

/* Connects, and for generic netlink finds the family. 0; -1 with *unl all zero. */
UNL_API int unl_genl_init(struct unl* unl, const char* family);
UNL_API int unl_rtnl_init(struct unl* unl);
UNL_API void unl_free(struct unl* unl);

/* A new message with its header, of the family or of rtnetlink; null when memory runs out. */
UNL_API struct nl_msg* unl_genl_msg(struct unl* unl, int cmd, bool dump);
UNL_API struct nl_msg* unl_rtnl_msg(struct unl* unl, int cmd, bool dump);

/* Sends the message, which is freed, and hands each reply to the handler until the kernel has said
 * that it is done. 0, or negative: the kernel's errno. */
UNL_API int unl_request(struct unl* unl, struct nl_msg* message, unl_cb handler, void* argument);

/* The same for one reply, which is the caller's to free by nlmsg_free(); null after a failure. */
UNL_API int unl_request_single(struct unl* unl, struct nl_msg* message, struct nl_msg** reply);

/* Hands what arrives to the handler until unl_loop_done(). */
UNL_API void unl_loop(struct unl* unl, unl_cb handler, void* argument);

#define unl_genl_request unl_request
#define unl_genl_request_single unl_request_single
#define unl_genl_loop unl_loop

/* The id of a multicast group of the family, asked of the kernel; -1 where there is none. Of the
 * structure sock, family_name and hdrlen are used. */
UNL_API int unl_genl_multicast_id(struct unl* unl, const char* name);

/* Join and leave that group. 0, or negative. */
UNL_API int unl_genl_subscribe(struct unl* unl, const char* name);
UNL_API int unl_genl_unsubscribe(struct unl* unl, const char* name);

static inline void unl_loop_done(struct unl* unl) {
    unl->loop_done = true;
}

static inline struct nlattr* unl_find_attr(struct unl* unl, struct nl_msg* message, int attribute) {
    return nlmsg_find_attr(nlmsg_hdr(message), unl->hdrlen, attribute);
}

#ifdef __cplusplus
}
#endif

#endif /* UNL_H */
