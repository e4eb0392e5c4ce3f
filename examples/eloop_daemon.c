/* eloop_daemon.c - a daemon on the event loop: a socket, a timer and SIGTERM.
 *
 * Usage: eloop_daemon PORT [SECONDS]
 * cc -std=c99 eloop_daemon.c $(pkg-config --cflags --libs tq) -o eloop_daemon
 *
 * Answers each datagram sent to the port of 127.0.0.1 with the same text, says every SECONDS (10)
 * how many there were, and ends on SIGTERM or SIGINT with a last word. Port 0 is any free one. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <tq/eloop.h>
#include <unistd.h>

struct echo {
    unsigned interval;
    unsigned long answered;
};

/* The socket does not block: what select reports may be gone when it is read. */
static int open_socket(unsigned short port) {
    struct sockaddr_in address = {0};
    socklen_t size = sizeof(address);
    int sock = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);

    if (sock < 0) return -1;
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(sock, (struct sockaddr *)&address, size) != 0 ||
        getsockname(sock, (struct sockaddr *)&address, &size) != 0) {
        close(sock);
        return -1;
    }
    printf("listening on port %u\n", (unsigned)ntohs(address.sin_port));
    return sock;
}

static void on_datagram(int sock, void *eloop_data, void *user_data) {
    struct echo *echo = eloop_data;
    struct sockaddr_in sender;
    socklen_t size = sizeof(sender);
    char text[512];
    ssize_t length = recvfrom(sock, text, sizeof(text), 0, (struct sockaddr *)&sender, &size);

    (void)user_data;
    if (length < 0) return;
    if (sendto(sock, text, (size_t)length, 0, (struct sockaddr *)&sender, size) == length)
        echo->answered++;
}

/* A timeout runs once; a timer adds itself again. */
static void on_timer(void *eloop_data, void *user_data) {
    struct echo *echo = eloop_data;

    printf("%lu answered\n", echo->answered);
    if (eloop_register_timeout(echo->interval, 0, on_timer, eloop_data, user_data) != 0)
        eloop_terminate();
}

/* Called by the loop, so that anything may be done here. */
static void on_stop(int sig, void *loop_user_data, void *signal_user_data) {
    struct echo *echo = loop_user_data;

    (void)signal_user_data;
    printf("signal %d, %lu answered\n", sig, echo->answered);
    eloop_terminate();
}

int main(int argc, char **argv) {
    struct echo echo = {10, 0};
    int sock;

    if (argc < 2 || argc > 3) {
        fprintf(stderr, "Usage: %s PORT [SECONDS]\n", argv[0]);
        return EXIT_FAILURE;
    }
    if (argc == 3) echo.interval = (unsigned)strtoul(argv[2], NULL, 10);
    if (echo.interval == 0) echo.interval = 1;
    setvbuf(stdout, NULL, _IOLBF, 0);

    eloop_init(&echo);
    sock = open_socket((unsigned short)strtoul(argv[1], NULL, 10));
    if (sock < 0 || eloop_register_read_sock(sock, on_datagram, &echo, NULL) != 0 ||
        eloop_register_timeout(echo.interval, 0, on_timer, &echo, NULL) != 0 ||
        eloop_register_signal(SIGTERM, on_stop, NULL) != 0 ||
        eloop_register_signal(SIGINT, on_stop, NULL) != 0) {
        perror("eloop_daemon");
        return EXIT_FAILURE;
    }
    puts("ready");
    eloop_run();
    eloop_destroy();
    close(sock);
    return EXIT_SUCCESS;
}
