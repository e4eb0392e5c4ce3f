// ipc.cpp - tqctl ipc: requests to a daemon over its local channel.
#include <tq/ipc.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <span>

#include "families.h"
#include "number.h"

namespace tqctl {

namespace {

constexpr char kDefaultSeconds[] = "1";

// Longer than what the kernel lets through by default.
constexpr size_t kMaxSize = 262144;

ExitCode cause(const Context& context, const char* what) {
    if (errno == ECONNREFUSED) return context.fail(ExitCode::kRefused, "%s: nobody is there", what);
    return context.fail_by_errno(what);
}

// All of standard input; none where it is longer than a request may be, or cannot be read.
std::optional<size_t> read_request(std::span<char> buffer) {
    size_t used = 0;
    while (used < buffer.size()) {
        const ssize_t got = read(STDIN_FILENO, &buffer[used], buffer.size() - used);
        if (got == 0) return used;
        if (got < 0 && errno != EINTR) return std::nullopt;
        if (got > 0) used += static_cast<size_t>(got);
    }
    errno = EMSGSIZE;
    return std::nullopt;
}

ExitCode post(const Context& context, const char* server, std::string_view request) {
    const int sock = ipc_connect(server);
    if (sock < 0) return cause(context, server);
    if (ipc_cmd_imm(sock, request.data(), request.size()) < 0) return cause(context, server);
    ipc_close(sock);
    return ExitCode::kDone;
}

ExitCode ask(Context& context, const char* server, std::string_view request, int seconds) {
    const HeapText reply(static_cast<char*>(malloc(kMaxSize)));
    const int sock = reply ? ipc_connect(server) : -1;
    if (sock < 0) return cause(context, server);
    const int got = ipc_cmd(sock, request.data(), request.size(), reply.get(), kMaxSize, seconds);
    if (got < 0) return cause(context, server);
    ipc_close(sock);
    context.output.value("reply", std::string_view(reply.get(), static_cast<size_t>(got)));
    return ExitCode::kDone;
}

ExitCode exchange(Context& context, const char* server, std::string_view request, int64_t seconds) {
    if (request.empty()) return context.misuse("an empty request is none");
    if (seconds == 0) return post(context, server, request);
    return ask(context, server, request, static_cast<int>(seconds));
}

ExitCode send(Context& context, Arguments arguments) {
    const char* const limit = arguments.size() > 2 ? arguments[2] : kDefaultSeconds;
    const std::optional<int64_t> seconds = parse_number(limit, 0, INT_MAX);
    if (!seconds) return context.misuse("'%s' is not a number of seconds", limit);
    if (strcmp(arguments[1], "-") != 0)
        return exchange(context, arguments[0], arguments[1], *seconds);
    const HeapText input(static_cast<char*>(malloc(kMaxSize)));
    if (!input) return cause(context, "standard input");
    const std::optional<size_t> size = read_request({input.get(), kMaxSize});
    if (!size) return cause(context, "standard input");
    return exchange(context, arguments[0], {input.get(), *size}, *seconds);
}

constexpr Command kCommands[] = {
    {"send", "SERVER REQUEST [SECONDS]", 2, 3, "sends a request to a daemon and prints the reply",
     "REQUEST is sent as it stands, \"-\" stands for standard input. The reply has\n"
     "SECONDS to come, 1 where they are not given; with 0 there is none to wait for.\n"
     "Exit code 1 where no daemon has that name, 3 where it does not answer in time\n"
     "or its queue is full.",
     "tqctl ipc send fmd status", send},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kIpc = {"ipc", "requests to local daemons", "", kCommands};

}  // namespace tqctl
