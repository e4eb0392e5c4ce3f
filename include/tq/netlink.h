/* netlink.h - channels to the kernel's modules over netlink.
 *
 * Three kinds: generic netlink to a family by name, with messages of one attribute (tq_genl_*); a
 * plain netlink protocol and group, with a header and bytes behind it (tq_*_netlink); and the
 * groups of the Wi-Fi driver's generic-netlink family, "fuMAC" (fumac_*). Sockets of the first and
 * the last kind are libnl's, so that a caller may use libnl's own functions on them.
 *
 * Numbers in messages are in the machine's byte order. Receiving waits, unless the caller made the
 * socket non-blocking, and one call receives one datagram, whoever sent it: a message that is not
 * the expected one is consumed and refused. A payload is as long as the message says; where fewer
 * bytes were received, zeros stand for the rest.
 */
#ifndef TQ_NETLINK_H
#define TQ_NETLINK_H

#include <tq/types.h>

TQ_BEGIN_DECLS

struct nl_sock; /* libnl's */

/* A received message. data points to a buffer of the caller's, whose size goes with each call. */
typedef struct netlink_msg {
    uint16_t type; /* the generic-netlink command, or the netlink message type */
    uint16_t len;  /* payload bytes put into data */
    void *data;    /* the caller's buffer */
} netlink_msg;

#define TQ_GENL_PAYLOAD_MAX 4996    /* bytes, the longest payload of tq_genl_send */
#define TQ_NETLINK_PAYLOAD_MAX 4984 /* bytes, the longest payload of tq_write_netlink */

/* Connects to generic netlink and resolves the family. *family_id is -1 from the start, and then
 * the family's id, which is logged at LOG_DEBUG as "name=%s, family_id=%d".
 * The socket, which tq_genl_disconnect frees. Null for an empty name, which is a rejected argument,
 * when memory runs out ("failed to allocate netlink socket"), when the kernel refuses ("failed to
 * connect generic netlink: %d") and for a family that is not there ("not find family:%s id:%d "),
 * the numbers being libnl's. */
TQ_API struct nl_sock *tq_genl_connect(int *family_id, const char *family_name);

/* Closes and frees the socket.
 * Always 0 but for a null socket. */
TQ_API int tq_genl_disconnect(struct nl_sock *sock);

/* Sends the command cmd with one attribute, of type 1, to the kernel's family of that id (its low
 * 16 bits count). The attribute's length, and so the message's, counts one byte more than the
 * payload, a zero, which tq_genl_recv at the other end delivers. Where the socket is full, the call
 * tries again until there is room. Messages of 4996 bytes of payload are longer than tq_genl_recv
 * takes.
 * The bytes that the last sendto(2) sent: of the whole message, where the kernel takes it at once.
 * -1 when sock or data is null or len is zero or less ("%s:arguments is null" with the
 * function's name), for a len above TQ_GENL_PAYLOAD_MAX ("invalid parameters, len = %d") and when
 * sending fails, which is not logged. */
TQ_API int tq_genl_send(int family_id, struct nl_sock *sock, unsigned char cmd, const void *data,
                        int len);

/* Receives a message of the family and copies the first attribute's payload, cut at size bytes,
 * into msg->data; msg->type becomes the command. Other attributes are not looked at. What comes
 * without an attribute, or with one shorter than its own header, has no payload; none is longer
 * than TQ_GENL_PAYLOAD_MAX. A message of more than 5020 bytes is received cut, and so refused.
 * The bytes copied, also in msg->len. -1 with *msg and its buffer untouched when an argument is
 * null or size is 0 ("%s:arguments is null" with the function's name), or when receiving fails:
 * then "%s:genl_rcv_msg error" at LOG_WARNING follows the reason, which is logged in the name
 * of genl_rcv_msg: "invalid parameters, len = %d" for a size that is negative as an integer,
 * "recv fail, ret = %d, errno = %d, err info:%s", "msg.nlh.nlmsg_type = %d, NLMSG_ERROR = %d,
 * NLMSG_OK((&msg.nlh), ret) = %d" for an error message and for one that is cut or lies about
 * its length, "msg.nlh.nlmsg_type = %d, family_id = %d" for another family's. */
TQ_API int tq_genl_recv(int family_id, struct nl_sock *sock, netlink_msg *msg, size_t size);

/* Connects as tq_genl_connect does, and sends command 1 with the payload "Hello", its terminator
 * included.
 * The socket; null when connecting ("tq_genl_connect error", after the reason) or sending fails
 * ("tq_genl_send error"; *family_id is then the family's id all the same). */
TQ_API struct nl_sock *tq_genl_connect_and_send(int *family_id, const char *family_name);

/* Opens a socket of that netlink protocol, bound to the process id as its port and to the group,
 * from 1 to 32. Its buffers are asked to be 600 KiB in each direction; what the kernel grants will
 * do. A process has one such socket a protocol: a second one finds its port taken.
 * The socket, close-on-exec. -1 for another group ("group error :%d"), when the kernel does not
 * know the protocol ("CREATE NETLINK SOCKET FAIL") or refuses the address ("BIND NETLINK SOCKET
 * FAIL"). */
TQ_API int tq_open_netlink(int protocol, int group);

/* Sends a message of type 0 with the payload to the kernel.
 * 0; -1 when data is null or size is zero or negative as an integer ("%s:data is null or size <= 0"
 * with the function's name), for a size above TQ_NETLINK_PAYLOAD_MAX ("invalid parameters, len =
 * %d") and when the kernel does not take it ("sendmsg fail"). */
TQ_API int tq_write_netlink(int sock, const void *data, size_t size);

/* Receives a message of any type and copies its payload, cut at size bytes, into msg->data. The
 * payload's length is what the header says less 16, modulo 65536, and TQ_NETLINK_PAYLOAD_MAX at
 * most. Error messages are messages like any other, and 5000 bytes is the most that is received.
 * The bytes copied, also in msg->len. -1 when msg or its buffer is null or size is zero or negative
 * as an integer ("%s:pmsg or data null  <= 0" with the function's name) and when receiving fails
 * ("recvmsg fail"). */
TQ_API int tq_read_netlink(int sock, netlink_msg *msg, size_t size);

/* Closes the socket.
 * Always 0. */
TQ_API int tq_close_netlink(int sock);

/* Connects to generic netlink and resolves "fuMAC". The socket's port and the id are logged at
 * LOG_INFO as "genetlink bind pid %d to family id %d".
 * The socket, which fumac_genl_deinit frees. Null with *family_id untouched when memory runs out
 * ("failed to allocate genetlink socket"), the kernel refuses ("failed to connect genetlink: %d",
 * libnl's number) and where the driver is not loaded ("con't find genetlink family %s"). */
TQ_API struct nl_sock *fumac_genl_init(int *family_id);

/* Closes and frees the socket; does nothing for null. */
TQ_API void fumac_genl_deinit(struct nl_sock *sock);

/* The id of a multicast group of the family "fuMAC", asked of the kernel over sock; -1 where there
 * is none of that name. The socket must not have a message waiting. */
TQ_API int fumac_genl_multicast_id(struct nl_sock *sock, const char *group);

/* Subscribes sock to the group "mlme", or to "sta-info": its messages are for tq_genl_recv. A
 * subscribed socket that subscribes to the second group must not have a message waiting.
 * 0; -1 for null, which is logged in the name of fumac_genl_listen, as is a refusal ("bind mcast
 * group %s fail: %d"), whose result is the negative number that the text ends with. */
TQ_API int fumac_genl_listen_mlme(struct nl_sock *sock);
TQ_API int fumac_genl_listen_stainfo(struct nl_sock *sock);

TQ_END_DECLS

#endif /* TQ_NETLINK_H */
