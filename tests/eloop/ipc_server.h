// ipc_server.h - the other end of a local channel: it binds as the clients expect.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace tq_test {

// The whole structure counts: what is behind the text is zero.
inline sockaddr_un abstract_address(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(&address.sun_path[1], sizeof(address.sun_path) - 1);
    return address;
}

inline std::string abstract_name(const sockaddr_un& address) {
    return {&address.sun_path[1], strnlen(&address.sun_path[1], sizeof(address.sun_path) - 1)};
}

struct Request {
    std::string bytes;
    sockaddr_un client;
    socklen_t client_size;
};

class IpcServer {
  public:
    explicit IpcServer(const std::string& name)
        : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_un address = abstract_address(name);
        if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            throw std::runtime_error("cannot bind " + name);
    }
    ~IpcServer() { stop(); }
    IpcServer(const IpcServer&) = delete;
    IpcServer& operator=(const IpcServer&) = delete;

    // With MSG_DONTWAIT a request without bytes is none.
    Request receive(int flags = 0) const {
        Request request{std::string(65536, '\0'), {}, sizeof(sockaddr_un)};
        const ssize_t got =
            recvfrom(socket_, request.bytes.data(), request.bytes.size(), flags,
                     reinterpret_cast<sockaddr*>(&request.client), &request.client_size);
        request.bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return request;
    }

    void answer(const Request& request, const std::string& reply) const {
        const auto* const client = reinterpret_cast<const sockaddr*>(&request.client);
        if (sendto(socket_, reply.data(), reply.size(), 0, client, request.client_size) < 0)
            throw std::runtime_error("cannot answer");
    }

    void stop() {
        if (socket_ >= 0) close(socket_);
        socket_ = -1;
    }

  private:
    int socket_;
};

}  // namespace tq_test
