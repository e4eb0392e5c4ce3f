// netlink_faults.cpp - channels to the kernel. libnl's calls fail as a whole, whatever it does in
// them. The kernel's own controller plays the Wi-Fi driver, with its one group for both of the
// driver's.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>
#include <sys/socket.h>
#include <tq/netlink.h>
#include <unistd.h>

#include <cstring>

#include "faults/sweep.h"
#include "support/faults.h"

// The definitions have names of their own here; the assembler's names are libnl's.
#define TQ_DEFINE(symbol, Result, parameters)                     \
    extern "C" Result forwarded_##symbol parameters asm(#symbol); \
    Result forwarded_##symbol parameters

#define TQ_NEXT(symbol, Result, parameters) \
    static Result(*const next) parameters = \
        reinterpret_cast<Result(*) parameters>(dlsym(RTLD_NEXT, #symbol))

#define TQ_FORWARD(symbol, failed, Result, parameters, arguments)                                  \
    TQ_DEFINE(symbol, Result, parameters) {                                                        \
        TQ_NEXT(symbol, Result, parameters);                                                       \
        return tq_test::faults::is_to_fail(#symbol, __builtin_return_address(0)) ? failed          \
                                                                                 : next arguments; \
    }

namespace {

const char* played_by_kernel(const char* name) {
    if (std::string_view(name) == "fuMAC") return "nlctrl";
    return name;
}

const char* group_of_kernel(const char* name) {
    const std::string_view group(name);
    return group == "mlme" || group == "sta-info" ? "notify" : name;
}

}  // namespace

TQ_FORWARD(nl_socket_alloc, nullptr, nl_sock*, (), ())
TQ_FORWARD(genl_connect, -NLE_NOMEM, int, (nl_sock * sock), (sock))
TQ_FORWARD(genl_ctrl_resolve, -NLE_OBJ_NOTFOUND, int, (nl_sock * sock, const char* name),
           (sock, played_by_kernel(name)))
TQ_FORWARD(nl_socket_add_membership, -NLE_PERM, int, (nl_sock * sock, int group), (sock, group))
TQ_FORWARD(nl_send_auto, -NLE_NOMEM, int, (nl_sock * sock, nl_msg* message), (sock, message))
TQ_FORWARD(nl_recvmsgs, -NLE_NOMEM, int, (nl_sock * sock, nl_cb* callbacks), (sock, callbacks))
TQ_FORWARD(nl_cb_clone, nullptr, nl_cb*, (nl_cb * callbacks), (callbacks))
TQ_FORWARD(nlmsg_alloc, nullptr, nl_msg*, (), ())
TQ_FORWARD(genlmsg_put, nullptr, void*,
           (nl_msg * message, uint32_t port, uint32_t sequence, int family, int header, int flags,
            uint8_t command, uint8_t version),
           (message, port, sequence, family, header, flags, command, version))
TQ_FORWARD(nla_put_string, -NLE_NOMEM, int, (nl_msg * message, int type, const char* text),
           (message, type, played_by_kernel(text)))

TQ_DEFINE(nla_strcmp, int, (const nlattr* attribute, const char* text)) {
    TQ_NEXT(nla_strcmp, int, (const nlattr* attribute, const char* text));
    return next(attribute, group_of_kernel(text));
}

namespace tq_test::sweep {
namespace {

constexpr int kPreset = -5;

int family;
nl_sock* channel;
int sock;
char data[4096];
netlink_msg message;

void no_family() {
    family = kPreset;
}

// Whether there is a channel, and what the family's id is.
std::string channel_after(intptr_t result) {
    const char* id = family == GENL_ID_CTRL ? "resolved" : family == -1 ? "none" : "untouched";
    return std::string(result ? "channel " : "null ") + id;
}

void free_channel(intptr_t result) {
    if (result) nl_socket_free(reinterpret_cast<nl_sock*>(result));
}

intptr_t address(nl_sock* opened) {
    return reinterpret_cast<intptr_t>(opened);
}

Row connecting(std::string function, std::function<intptr_t()> call, std::string fails) {
    return {.function = std::move(function),
            .prepare = no_family,
            .call = std::move(call),
            .outcome = channel_after,
            .undo = free_channel,
            .gives = "channel resolved",
            .fails = std::move(fails)};
}

void connect_channel() {
    message = {0, 0, data};
    channel = tq_genl_connect(&family, "nlctrl");
    ASSERT_NE(channel, nullptr);
}

// The controller's description of itself waits to be read.
void ask_controller() {
    connect_channel();
    struct {
        nlmsghdr header;
        genlmsghdr command;
        nlattr attribute;
        char name[8];
    } request = {};
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = GENL_ID_CTRL;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.command.cmd = CTRL_CMD_GETFAMILY;
    request.attribute.nla_len = NLA_HDRLEN + 7;
    request.attribute.nla_type = CTRL_ATTR_FAMILY_NAME;
    strcpy(request.name, "nlctrl");
    ASSERT_GT(send(nl_socket_get_fd(channel), &request, sizeof(request), 0), 0);
}

void disconnect(intptr_t /*result*/) {
    nl_socket_free(channel);
}

Row on_channel(std::string function, std::function<void()> prepare, std::function<intptr_t()> call,
               std::function<void(intptr_t)> undo = disconnect) {
    return {.function = std::move(function),
            .prepare = std::move(prepare),
            .call = std::move(call),
            .undo = std::move(undo)};
}

std::string sign(intptr_t result) {
    return result < 0 ? "negative" : result > 0 ? "positive" : "0";
}

void no_undo(intptr_t /*result*/) {}

void add_generic(std::vector<Row>& rows) {
    rows.push_back(connecting(
        "tq_genl_connect", [] { return address(tq_genl_connect(&family, "nlctrl")); },
        "null none"));
    rows.push_back(connecting(
        "tq_genl_connect_and_send",
        [] { return address(tq_genl_connect_and_send(&family, "nlctrl")); }, "null none"));
    rows.back().but = {{"sendto", "null resolved"}};
    rows.push_back(on_channel("tq_genl_send", connect_channel,
                              [] { return tq_genl_send(family, channel, 200, "abc", 4); }));
    rows.back().outcome = sign;
    rows.back().gives = "positive";
    rows.back().fails = "negative";
    rows.push_back(on_channel("tq_genl_recv", ask_controller, [] {
        return tq_genl_recv(family, channel, &message, sizeof(data));
    }));
    rows.back().outcome = sign;
    rows.back().gives = "positive";
    rows.back().fails = "negative";
    rows.back().but = {{"recv:interrupted", "negative"}};
    rows.push_back(on_channel(
        "tq_genl_disconnect", connect_channel, [] { return tq_genl_disconnect(channel); },
        no_undo));
}

void open_raw() {
    message = {0, 0, data};
    sock = tq_open_netlink(NETLINK_ROUTE, 1);
    ASSERT_GE(sock, 0);
}

void close_raw(intptr_t /*result*/) {
    close(sock);
}

// The list of interfaces waits to be read.
void ask_for_links() {
    open_raw();
    struct {
        nlmsghdr header;
        rtgenmsg payload;
    } request = {};
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    ASSERT_GT(send(sock, &request, sizeof(request), 0), 0);
}

void add_raw(std::vector<Row>& rows) {
    rows.push_back({.function = "tq_open_netlink",
                    .call = [] { return tq_open_netlink(NETLINK_ROUTE, 1); },
                    .outcome = [](intptr_t result) { return result < 0 ? "-1" : "open"; },
                    .undo = [](intptr_t result) { close(static_cast<int>(result)); },
                    .gives = "open",
                    // What the kernel grants of the buffers will do.
                    .but = {{"setsockopt", "open"}}});
    rows.push_back(on_channel(
        "tq_write_netlink", open_raw, [] { return tq_write_netlink(sock, "abc", 4); }, close_raw));
    rows.back().but = {{"sendmsg:interrupted", "-1"}};
    rows.push_back(on_channel(
        "tq_read_netlink", ask_for_links,
        [] { return tq_read_netlink(sock, &message, sizeof(data)); }, close_raw));
    rows.back().outcome = sign;
    rows.back().gives = "positive";
    rows.back().fails = "negative";
    rows.back().but = {{"recvmsg:interrupted", "negative"}};
    rows.push_back(on_channel(
        "tq_close_netlink", open_raw, [] { return tq_close_netlink(sock); }, no_undo));
}

void add_driver(std::vector<Row>& rows) {
    rows.push_back(connecting(
        "fumac_genl_init", [] { return address(fumac_genl_init(&family)); }, "null untouched"));
    rows.push_back(on_channel(
        "fumac_genl_deinit", connect_channel,
        [] {
            fumac_genl_deinit(channel);
            return 0;
        },
        no_undo));
    rows.push_back(on_channel("fumac_genl_multicast_id", connect_channel,
                              [] { return fumac_genl_multicast_id(channel, "mlme"); }));
    rows.back().outcome = sign;
    rows.back().gives = "positive";
    rows.back().fails = "negative";
    rows.push_back(on_channel("fumac_genl_listen_mlme", connect_channel,
                              [] { return fumac_genl_listen_mlme(channel); }));
    rows.back().outcome = sign;
    rows.back().fails = "negative";
    rows.push_back(on_channel("fumac_genl_listen_stainfo", connect_channel,
                              [] { return fumac_genl_listen_stainfo(channel); }));
    rows.back().outcome = sign;
    rows.back().fails = "negative";
}

// An emulator may have no generic netlink, and pass on no message that it does not know.
std::string lacks_generic_netlink() {
    const int probe = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
    if (probe < 0) return "no NETLINK_GENERIC on this machine";
    close(probe);
    return "";
}

void need_generic_netlink(std::vector<Row>& rows) {
    for (Row& row : rows) {
        const bool is_generic = row.function.find("_genl_") != std::string::npos;
        if (is_generic || row.function == "tq_write_netlink") row.lacks = lacks_generic_netlink;
    }
}

// A message that was not read waits on, and must not when the socket is used again.
void leave_unread(std::vector<Row>& rows) {
    for (Row& row : rows) {
        if (row.function.starts_with("fumac"))
            row.but.push_back({"nl_recvmsgs", row.fails, kSpent});
    }
}

}  // namespace

std::vector<Row> netlink_rows() {
    std::vector<Row> rows;
    add_generic(rows);
    add_raw(rows);
    add_driver(rows);
    need_generic_netlink(rows);
    leave_unread(rows);
    return rows;
}

}  // namespace tq_test::sweep
