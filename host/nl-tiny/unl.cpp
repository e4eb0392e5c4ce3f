#include "unl.h"

#include <linux/genetlink.h>
#include <linux/rtnetlink.h>
#include <netlink/genl/ctrl.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct FreeMessage {
    void operator()(nl_msg* message) const { nlmsg_free(message); }
};
using Message = std::unique_ptr<nl_msg, FreeMessage>;

struct PutCallbacks {
    void operator()(nl_cb* callbacks) const { nl_cb_put(callbacks); }
};
using Callbacks = std::unique_ptr<nl_cb, PutCallbacks>;

// How far a request has come.
struct Progress {
    bool done = false;
    int error = 0;
};

int note_done(nl_msg*, void* progress) {
    static_cast<Progress*>(progress)->done = true;
    return NL_STOP;
}

int note_error(sockaddr_nl*, nlmsgerr* error, void* progress) {
    static_cast<Progress*>(progress)->error = error->error;
    return note_done(nullptr, progress);
}

int accept_any(nl_msg*, void*) {
    return NL_OK;
}

int keep_first(nl_msg* message, void* argument) {
    auto* const kept = static_cast<Message*>(argument);
    if (!*kept) {
        nlmsg_get(message);
        kept->reset(message);
    }
    return NL_SKIP;
}

// Null when memory runs out.
Callbacks callbacks_for(const unl* unl, unl_cb handler, void* argument) {
    const Callbacks defaults(nl_socket_get_cb(unl->sock));
    Callbacks callbacks(nl_cb_clone(defaults.get()));
    if (callbacks && handler)
        nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, handler, argument);
    return callbacks;
}

int connect(unl* unl, int (*connect_to)(nl_sock*)) {
    *unl = {};
    unl->sock = nl_socket_alloc();
    return unl->sock && connect_to(unl->sock) >= 0 ? 0 : -1;
}

int connect_to_route(nl_sock* sock) {
    return nl_connect(sock, NETLINK_ROUTE);
}

int find_family(unl* unl, const char* name) {
    if (genl_ctrl_alloc_cache(unl->sock, &unl->cache) < 0) return -1;
    unl->family = genl_ctrl_search_by_name(unl->cache, name);
    if (!unl->family) return -1;
    unl->family_name = strdup(name);
    unl->hdrlen = GENL_HDRLEN;
    return unl->family_name ? 0 : -1;
}

// The controller's description of the family.
Message describe_family(unl* unl) {
    Message request(nlmsg_alloc());
    if (!request) return nullptr;
    if (!genlmsg_put(request.get(), NL_AUTO_PORT, NL_AUTO_SEQ, GENL_ID_CTRL, 0, 0,
                     CTRL_CMD_GETFAMILY, 0))
        return nullptr;
    if (nla_put_string(request.get(), CTRL_ATTR_FAMILY_NAME, unl->family_name) < 0) return nullptr;
    nl_msg* reply = nullptr;
    unl_request_single(unl, request.release(), &reply);
    return Message(reply);
}

// The id where the entry is the group of that name, else -1.
int group_id(nlattr* entry, const char* name) {
    nlattr* attributes[CTRL_ATTR_MCAST_GRP_MAX + 1];
    if (nla_parse_nested(attributes, CTRL_ATTR_MCAST_GRP_MAX, entry, nullptr) < 0) return -1;
    const nlattr* const group = attributes[CTRL_ATTR_MCAST_GRP_NAME];
    const nlattr* const id = attributes[CTRL_ATTR_MCAST_GRP_ID];
    if (!group || !id || nla_len(id) < static_cast<int>(sizeof(uint32_t))) return -1;
    return nla_strcmp(group, name) == 0 ? static_cast<int>(nla_get_u32(id)) : -1;
}

int change_membership(unl* unl, const char* name, int (*change)(nl_sock*, int)) {
    const int id = unl_genl_multicast_id(unl, name);
    return id < 0 ? id : change(unl->sock, id);
}

}  // namespace

int unl_genl_init(unl* unl, const char* family) {
    if (connect(unl, genl_connect) == 0 && find_family(unl, family) == 0) return 0;
    unl_free(unl);
    return -1;
}

int unl_rtnl_init(unl* unl) {
    if (connect(unl, connect_to_route) == 0) return 0;
    unl_free(unl);
    return -1;
}

void unl_free(unl* unl) {
    free(unl->family_name);
    if (unl->family) genl_family_put(unl->family);
    if (unl->cache) nl_cache_free(unl->cache);
    if (unl->sock) nl_socket_free(unl->sock);
    *unl = {};
}

nl_msg* unl_genl_msg(unl* unl, int cmd, bool dump) {
    Message message(nlmsg_alloc());
    if (!message) return nullptr;
    const auto id = static_cast<int>(genl_family_get_id(unl->family));
    if (!genlmsg_put(message.get(), 0, 0, id, 0, dump ? NLM_F_DUMP : 0, static_cast<uint8_t>(cmd),
                     0))
        return nullptr;
    return message.release();
}

nl_msg* unl_rtnl_msg(unl*, int cmd, bool dump) {
    return nlmsg_alloc_simple(cmd, dump ? NLM_F_DUMP : 0);
}

int unl_request(unl* unl, nl_msg* message, unl_cb handler, void* argument) {
    const Message owned(message);
    const Callbacks callbacks = callbacks_for(unl, handler, argument);
    if (!callbacks) return -ENOMEM;
    Progress progress;
    nl_cb_err(callbacks.get(), NL_CB_CUSTOM, note_error, &progress);
    nl_cb_set(callbacks.get(), NL_CB_FINISH, NL_CB_CUSTOM, note_done, &progress);
    nl_cb_set(callbacks.get(), NL_CB_ACK, NL_CB_CUSTOM, note_done, &progress);
    if (const int sent = nl_send_auto(unl->sock, message); sent < 0) return sent;
    while (!progress.done) {
        const int received = nl_recvmsgs(unl->sock, callbacks.get());
        if (received < 0 && !progress.done) return received;
    }
    return progress.error;
}

int unl_request_single(unl* unl, nl_msg* message, nl_msg** reply) {
    Message first;
    *reply = nullptr;
    const int result = unl_request(unl, message, keep_first, &first);
    if (result < 0) return result;
    *reply = first.release();
    return *reply ? 0 : -ENOENT;
}

void unl_loop(unl* unl, unl_cb handler, void* argument) {
    const Callbacks callbacks = callbacks_for(unl, handler, argument);
    if (!callbacks) return;
    // What the kernel sends by itself answers no request.
    nl_cb_set(callbacks.get(), NL_CB_SEQ_CHECK, NL_CB_CUSTOM, accept_any, nullptr);
    while (!unl->loop_done)
        nl_recvmsgs(unl->sock, callbacks.get());
}

int unl_genl_multicast_id(unl* unl, const char* name) {
    const Message family = describe_family(unl);
    if (!family) return -1;
    nlattr* groups = unl_find_attr(unl, family.get(), CTRL_ATTR_MCAST_GROUPS);
    if (!groups) return -1;
    auto* entry = static_cast<nlattr*>(nla_data(groups));
    for (int left = nla_len(groups); nla_ok(entry, left); entry = nla_next(entry, &left)) {
        const int id = group_id(entry, name);
        if (id >= 0) return id;
    }
    return -1;
}

int unl_genl_subscribe(unl* unl, const char* name) {
    return change_membership(
        unl, name, [](nl_sock* sock, int id) { return nl_socket_add_membership(sock, id); });
}

int unl_genl_unsubscribe(unl* unl, const char* name) {
    return change_membership(
        unl, name, [](nl_sock* sock, int id) { return nl_socket_drop_membership(sock, id); });
}
