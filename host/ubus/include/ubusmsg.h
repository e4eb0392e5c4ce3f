/*
 * ubusmsg.h - the messages between the bus's broker and its clients.
 *
 * A message is a header of 8 bytes and one blob attribute of id 0, which holds the UBUS_ATTR_
 * attributes. All numbers are in network order. A request's replies repeat its sequence number: any
 * number of UBUS_MSG_DATA, then one UBUS_MSG_STATUS.
 */
#ifndef UBUSMSG_H
#define UBUSMSG_H

#include <libubox/blob.h>
#include <stdint.h>

#define UBUS_MSG_CHUNK_SIZE 65536

#define UBUS_CLIENT_ID_CHANNEL 1

/* Objects that are the broker's own. */
#define UBUS_SYSTEM_OBJECT_EVENT 1
#define UBUS_SYSTEM_OBJECT_ACL 2
#define UBUS_SYSTEM_OBJECT_MONITOR 3
#define UBUS_SYSTEM_OBJECT_MAX 1024

/* NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): fixed names */

#define __packetdata __attribute__((packed)) __attribute__((__aligned__(4)))

/* peer: to the broker, the object that is meant or the client that is answered; from it, the
 * client that asks or the object that answers. */
struct ubus_msghdr {
    uint8_t version; /* 0 */
    uint8_t type;
    uint16_t seq;
    uint32_t peer;
} __packetdata;

enum ubus_msg_type {
    UBUS_MSG_HELLO,  /* the broker's first; peer is the client's own id */
    UBUS_MSG_STATUS, /* a request is done: STATUS */
    UBUS_MSG_DATA,
    UBUS_MSG_PING,
    UBUS_MSG_LOOKUP, /* OBJPATH, with "*" at its end for all that begin so; without it all */
    UBUS_MSG_INVOKE, /* OBJID, METHOD, DATA */
    UBUS_MSG_ADD_OBJECT,
    UBUS_MSG_REMOVE_OBJECT,
    UBUS_MSG_SUBSCRIBE,   /* OBJID, the subscriber's own; TARGET, whose notifications are wanted */
    UBUS_MSG_UNSUBSCRIBE, /* from the broker: the target is gone */
    UBUS_MSG_NOTIFY,      /* from the broker: whether the object has subscribers is in ACTIVE */
    UBUS_MSG_MONITOR,
    __UBUS_MSG_LAST
};

enum ubus_msg_attr {
    UBUS_ATTR_UNSPEC,
    UBUS_ATTR_STATUS,
    UBUS_ATTR_OBJPATH,
    UBUS_ATTR_OBJID,
    UBUS_ATTR_METHOD,
    UBUS_ATTR_OBJTYPE,
    UBUS_ATTR_SIGNATURE,
    UBUS_ATTR_DATA,
    UBUS_ATTR_TARGET,
    UBUS_ATTR_ACTIVE,
    UBUS_ATTR_NO_REPLY,
    UBUS_ATTR_SUBSCRIBERS,
    UBUS_ATTR_USER,
    UBUS_ATTR_GROUP,
    UBUS_ATTR_MAX
};

enum ubus_monitor_attr {
    UBUS_MONITOR_CLIENT,
    UBUS_MONITOR_PEER,
    UBUS_MONITOR_SEND,
    UBUS_MONITOR_SEQ,
    UBUS_MONITOR_TYPE,
    UBUS_MONITOR_DATA,
    UBUS_MONITOR_MAX
};

enum ubus_msg_status {
    UBUS_STATUS_OK,
    UBUS_STATUS_INVALID_COMMAND,
    UBUS_STATUS_INVALID_ARGUMENT,
    UBUS_STATUS_METHOD_NOT_FOUND,
    UBUS_STATUS_NOT_FOUND,
    UBUS_STATUS_NO_DATA,
    UBUS_STATUS_PERMISSION_DENIED,
    UBUS_STATUS_TIMEOUT,
    UBUS_STATUS_NOT_SUPPORTED,
    UBUS_STATUS_UNKNOWN_ERROR,
    UBUS_STATUS_CONNECTION_FAILED,
    UBUS_STATUS_NO_MEMORY,
    UBUS_STATUS_PARSE_ERROR,
    UBUS_STATUS_SYSTEM_ERROR,
    __UBUS_STATUS_LAST
};

/* NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */

#endif
