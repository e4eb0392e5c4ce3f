// ubusd.cpp - the bus's broker: `ubusd [-s SOCKET]`.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "broker.h"

namespace {

constexpr int kBacklog = 4096;

void accept_clients(uloop_fd* listener, unsigned int /*events*/) {
    int fd = accept4(listener->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    while (fd >= 0) {
        ubus::broker::add_client(fd);
        fd = accept4(listener->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    }
    // Without a descriptor for the client it stays in line; do not spin over it.
    if (errno == EMFILE || errno == ENFILE) usleep(10000);
}

// The directory of the usual socket is the broker's to make.
void make_directory(const char* path) {
    char directory[sizeof(sockaddr_un::sun_path)];
    snprintf(directory, sizeof(directory), "%s", path);
    char* slash = strrchr(directory, '/');
    if (!slash || slash == directory) return;
    *slash = '\0';
    mkdir(directory, 0755);
}

int listen_on(const char* path) {
    sockaddr_un address;
    if (!ubus::socket_address(path, &address)) return -1;
    make_directory(path);
    // What an earlier broker has left.
    unlink(path);
    // Everyone may connect.
    umask(0111);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0 ||
        listen(fd, kBacklog) < 0)
        return -1;
    return fd;
}

int serve(const char* path) {
    uloop_fd listener = {};
    listener.cb = accept_clients;
    listener.fd = listen_on(path);
    if (listener.fd < 0 || uloop_fd_add(&listener, ULOOP_READ) < 0) {
        fprintf(stderr, "ubusd: %s: %s\n", path, strerror(errno));
        return 1;
    }
    uloop_run();
    uloop_fd_delete(&listener);
    close(listener.fd);
    unlink(path);
    return 0;
}

int usage(const char* program) {
    fprintf(stderr,
            "Usage: %s [<options>]\n"
            "Options:\n"
            "  -A <path>:\t\tIgnored: there are no access lists\n"
            "  -s <socket>:\t\tSet the unix domain socket to listen on\n",
            program);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const char* path = ubus::kSocketPath;
    int option = 0;
    while ((option = getopt(argc, argv, "A:s:")) >= 0) {
        if (option == '?') return usage(argv[0]);
        if (option == 's') path = optarg;
    }
    if (!ubus::broker::start()) return 1;
    const int result = serve(path);
    ubus::broker::stop();
    return result;
}
