// ubusd_fuzz.cpp - feeds bytes to the workstation's bus broker, as two clients that share them: a
// byte 0xfe turns to the other client.
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "broker.h"

namespace {

// Ids are counted, so that an input can name what it has made.
uint32_t last_id;

constexpr uint32_t kFirstId = 2000;

}  // namespace

// In the C library's place.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t getrandom(void* buffer, size_t size, unsigned int /*flags*/) {
    last_id++;
    if (size > sizeof(last_id)) size = sizeof(last_id);
    memcpy(buffer, &last_id, size);
    return static_cast<ssize_t>(size);
}

namespace {

// A client's end of a connection; what the broker sends is read and forgotten.
class Peer {
  public:
    Peer() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) < 0) abort();
        fd_ = ends[0];
        if (!ubus::broker::add_client(ends[1])) abort();
    }
    ~Peer() { close(fd_); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void send_bytes(const uint8_t* data, size_t size) const {
        if (size > 0) send(fd_, data, size, MSG_NOSIGNAL);
    }
    void forget() const {
        char bytes[4096];
        while (recv(fd_, bytes, sizeof(bytes), 0) > 0) {
        }
    }

  private:
    int fd_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    last_id = kFirstId - 1;
    if (!ubus::broker::start()) abort();
    {
        const Peer peers[2];
        size_t turn = 0;
        size_t begin = 0;
        for (size_t i = 0; i <= size; i++) {
            if (i < size && data[i] != 0xfe) continue;
            peers[turn % 2].send_bytes(data + begin, i - begin);
            uloop_run_timeout(0);
            peers[turn % 2].forget();
            begin = i + 1;
            turn++;
        }
        uloop_run_timeout(0);
    }
    ubus::broker::stop();
    return 0;
}
