#include "tq/ipc.h"

#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "eloop/socket_number.h"
#include "foundation/file.h"
#include "foundation/guard.h"

namespace {

using tq::is_size;
using tq::UniqueFd;

constexpr int kExecSeconds = 1;

// What a reply begins with: its owner's business.
constexpr size_t kReplyHeaderSize = 4;

constinit tq::SocketNumber socket_number;

// A name in the abstract namespace. The zeros behind it, up to the end of the path, are part of it.
class AbstractName {
  public:
    __attribute__((format(printf, 2, 3))) explicit AbstractName(const char* format, ...) {
        va_list args;
        va_start(args, format);
        vsnprintf(&address_.sun_path[1], sizeof(address_.sun_path) - 1, format, args);
        va_end(args);
    }

    [[nodiscard]] const sockaddr* address() const {
        return reinterpret_cast<const sockaddr*>(&address_);
    }
    static constexpr socklen_t kSize = sizeof(sockaddr_un);
    static_assert(kSize == 110);

  private:
    sockaddr_un address_ = {.sun_family = AF_UNIX, .sun_path = {}};
};

int fail_with(int error) {
    errno = error;
    return -1;
}

bool is_exchange(const void* req, size_t req_len, const void* resp, size_t resp_len) {
    return req && is_size(req_len) && resp && is_size(resp_len);
}

bool send_or_close(int sock, const void* req, size_t req_len, int flags) {
    if (send(sock, req, req_len, flags) >= 0) return true;
    close(sock);
    return false;
}

}  // namespace

int ipc_connect(const char* server_name) {
    if (!server_name) return fail_with(EINVAL);
    UniqueFd sock(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock) return -1;
    const auto [high, low] = socket_number.next();
    const AbstractName client("%s-ipc-%d-%d-%d", server_name, getpid(), static_cast<int>(high),
                              static_cast<int>(low));
    if (bind(sock.get(), client.address(), AbstractName::kSize) < 0) return -1;
    const AbstractName server("%s", server_name);
    if (connect(sock.get(), server.address(), AbstractName::kSize) < 0) return -1;
    return sock.release();
}

int ipc_cmd(int sock, const void* req, size_t req_len, void* resp, size_t resp_len,
            int timeout_secs) {
    if (!is_exchange(req, req_len, resp, resp_len) || sock >= FD_SETSIZE) return fail_with(EINVAL);
    if (!send_or_close(sock, req, req_len, MSG_DONTWAIT | MSG_NOSIGNAL)) return -1;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(sock, &readable);
    timeval limit = {.tv_sec = timeout_secs, .tv_usec = 0};
    const int ready = select(sock + 1, &readable, nullptr, nullptr, &limit);
    if (ready < 0) return ready;
    if (!FD_ISSET(sock, &readable)) return fail_with(ETIMEDOUT);
    return static_cast<int>(recv(sock, resp, resp_len, 0));
}

int ipc_cmd_imm(int sock, const void* req, size_t req_len) {
    if (!req || !is_size(req_len)) return fail_with(EINVAL);
    return send_or_close(sock, req, req_len, MSG_NOSIGNAL) ? 0 : -1;
}

int ipc_close(int sock) {
    return close(sock);
}

int ipc_exec(const char* server_name, const void* req, size_t req_len, void* resp,
             size_t resp_len) {
    if (!is_exchange(req, req_len, resp, resp_len)) return fail_with(EINVAL);
    const int sock = ipc_connect(server_name);
    if (sock < 0) return -1;
    const int received = ipc_cmd(sock, req, req_len, resp, resp_len, kExecSeconds);
    const int error = errno;
    // Closed already where the request could not be sent: known to the callers, and kept.
    close(sock);
    errno = error;
    return received;
}

int resp_set_error_msg(char* resp, const char* msg, size_t resp_size) {
    if (!resp || !msg || !is_size(resp_size)) return fail_with(EINVAL);
    if (resp_size < kReplyHeaderSize) return fail_with(EINVAL);
    const size_t length = strnlen(msg, resp_size - kReplyHeaderSize);
    memcpy(&resp[kReplyHeaderSize], msg, length);
    return static_cast<int>(length);
}
