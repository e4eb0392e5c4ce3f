// netlink.cpp - tqctl netlink and genl: messages to and from the kernel's modules.
#include <tq/netlink.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "families.h"
#include "number.h"

// Of C alone: it does not say so itself.
extern "C" {
#include <unl.h>
}

namespace tqctl {

namespace {

constexpr int64_t kMaxProtocol = 31;
constexpr int64_t kMaxGroup = 32;

// No message is longer.
constexpr size_t kMaxPayload = TQ_GENL_PAYLOAD_MAX;

struct Disconnect {
    void operator()(nl_sock* sock) const { tq_genl_disconnect(sock); }
};
using GenlSocket = std::unique_ptr<nl_sock, Disconnect>;

class NetlinkSocket {
  public:
    NetlinkSocket(int64_t protocol, int64_t group)
        : sock_(tq_open_netlink(static_cast<int>(protocol), static_cast<int>(group))) {}
    ~NetlinkSocket() {
        if (sock_ >= 0) tq_close_netlink(sock_);
    }
    NetlinkSocket(const NetlinkSocket&) = delete;
    NetlinkSocket& operator=(const NetlinkSocket&) = delete;

    [[nodiscard]] int get() const { return sock_; }

  private:
    int sock_;
};

// A message as it came, its payload in hexadecimal.
class Shown {
  public:
    netlink_msg message{0, 0, payload_};

    void print(Output& output) {
        const size_t size = message.len;
        for (size_t i = 0; i < size; i++)
            snprintf(&digits_[2 * i], 3, "%02x", payload_[i]);
        digits_[2 * size] = '\0';
        if (output.is_json()) return output.document(json());
        printf("%u %u%s%s\n", message.type, message.len, message.len > 0 ? " " : "", digits_);
        fflush(stdout);
    }

  private:
    [[nodiscard]] Json json() const {
        Json object(json_object_new_object());
        json_add(object.get(), "type", json_number(message.type));
        json_add(object.get(), "length", json_number(message.len));
        json_add(object.get(), "data", json_text(digits_));
        return object;
    }

    unsigned char payload_[kMaxPayload];
    char digits_[2 * kMaxPayload + 1];
};

// Prints what `receive` fills in, `count` times.
template <typename Receive>
ExitCode print_messages(Context& context, int64_t count, Receive receive) {
    Shown shown;
    for (int64_t i = 0; i < count; i++) {
        if (receive(shown.message) < 0)
            return context.fail(ExitCode::kInputOutput, "receiving failed");
        shown.print(context.output);
    }
    return ExitCode::kDone;
}

// Without a number it goes on.
std::optional<int64_t> parse_count(Arguments arguments) {
    if (arguments.size() < 3) return INT64_MAX;
    return parse_number(arguments[2], 1, INT64_MAX);
}

ExitCode misuse_count(const Context& context, const char* text) {
    return context.misuse("'%s' is not a number of messages", text);
}

std::optional<int64_t> take_protocol(const Context& context, const char* text) {
    return take_number(context, text, "a protocol", 0, kMaxProtocol);
}

ExitCode refuse_protocol(const Context& context, const char* text) {
    return context.fail(ExitCode::kRefused, "protocol %s cannot be opened", text);
}

ExitCode listen(Context& context, Arguments arguments) {
    const std::optional<int64_t> protocol = take_protocol(context, arguments[0]);
    if (!protocol) return ExitCode::kUsage;
    const std::optional<int64_t> group =
        take_number(context, arguments[1], "a group", 1, kMaxGroup);
    if (!group) return ExitCode::kUsage;
    const std::optional<int64_t> count = parse_count(arguments);
    if (!count) return misuse_count(context, arguments[2]);
    const NetlinkSocket sock(*protocol, *group);
    if (sock.get() < 0) return refuse_protocol(context, arguments[0]);
    return print_messages(context, *count, [&](netlink_msg& message) {
        return tq_read_netlink(sock.get(), &message, kMaxPayload);
    });
}

ExitCode send(Context& context, Arguments arguments) {
    const std::optional<int64_t> protocol = take_protocol(context, arguments[0]);
    if (!protocol) return ExitCode::kUsage;
    const size_t size = strlen(arguments[1]);
    if (size == 0 || size > TQ_NETLINK_PAYLOAD_MAX)
        return context.misuse("a payload has 1 to %d bytes", TQ_NETLINK_PAYLOAD_MAX);
    const NetlinkSocket sock(*protocol, 1);
    if (sock.get() < 0) return refuse_protocol(context, arguments[0]);
    if (tq_write_netlink(sock.get(), arguments[1], size) < 0)
        return context.fail(ExitCode::kRefused, "the kernel does not take it");
    return ExitCode::kDone;
}

ExitCode refuse_family(const Context& context, const char* name) {
    return context.fail(ExitCode::kRefused, "%s: no such family", name);
}

ExitCode family(Context& context, Arguments arguments) {
    int id = 0;
    const GenlSocket sock(tq_genl_connect(&id, arguments[0]));
    if (!sock) return refuse_family(context, arguments[0]);
    context.output.value("id", id);
    return ExitCode::kDone;
}

int subscribe(nl_sock* sock, char* family_name, const char* group) {
    unl unl = {};
    unl.sock = sock;
    unl.family_name = family_name;
    unl.hdrlen = GENL_HDRLEN;
    return unl_genl_subscribe(&unl, group);
}

ExitCode genl_listen(Context& context, Arguments arguments) {
    const std::optional<int64_t> count = parse_count(arguments);
    if (!count) return misuse_count(context, arguments[2]);
    int id = 0;
    const GenlSocket sock(tq_genl_connect(&id, arguments[0]));
    if (!sock) return refuse_family(context, arguments[0]);
    if (subscribe(sock.get(), arguments[0], arguments[1]) < 0)
        return context.fail(ExitCode::kRefused, "%s: no such group", arguments[1]);
    return print_messages(context, *count, [&](netlink_msg& message) {
        return tq_genl_recv(id, sock.get(), &message, kMaxPayload);
    });
}

constexpr Command kNetlinkCommands[] = {
    {"listen", "PROTOCOL GROUP [COUNT]", 2, 3, "prints the messages of a netlink group",
     "PROTOCOL is a number from 0 to 31, GROUP one from 1 to 32. A message is a line\n"
     "with its type, the length of its payload and the payload in hexadecimal; in\n"
     "JSON a document with the members type, length and data. Ends after COUNT\n"
     "messages. Exit code 1 where the kernel does not have the protocol.",
     "tqctl netlink listen 15 1", listen},
    {"send", "PROTOCOL PAYLOAD", 2, 2, "sends a message to the kernel's end of a protocol",
     "Exit code 1 where nobody is there.", "tqctl netlink send 30 reload", send},
};
static_assert(is_complete(kNetlinkCommands));

constexpr Command kGenlCommands[] = {
    {"family", "NAME", 1, 1, "prints the number of a generic-netlink family",
     "Exit code 1 where there is none of that name.", "tqctl genl family fuMAC", family},
    {"listen", "FAMILY GROUP [COUNT]", 2, 3, "prints the messages of a family's multicast group",
     "As netlink listen does it: the type is the command, and the payload that of\n"
     "the first attribute. Exit code 1 where there is no such family or group.",
     "tqctl genl listen fuMAC mlme", genl_listen},
};
static_assert(is_complete(kGenlCommands));

}  // namespace

constinit const Family kNetlink = {"netlink", "messages over netlink", "", kNetlinkCommands};
constinit const Family kGenl = {"genl", "generic-netlink families", "", kGenlCommands};

}  // namespace tqctl
