/* link_daemon.c - a daemon that logs when an interface goes up or down, with a log level that
 * others change while it runs.
 *
 * Usage: link_daemon IDENT INTERFACE [MILLISECONDS]
 * cc -std=c99 link_daemon.c $(pkg-config --cflags --libs tq) -o link_daemon
 *
 * Looks at the interface every MILLISECONDS (1000). A change is logged as a notice, each look as
 * debug. IDENT is the tag that libtq's table of processes has for the daemon, and the daemon runs
 * under the name that goes with it: started as "netifd net eth0", it is told its level by
 * "tqctl log level netifd debug". Ends on SIGTERM or SIGINT. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>
#include <tq/eloop.h>
#include <tq/netif.h>
#include <tq/syslog_config.h>

enum { LEVEL_SIGNAL = 49 };

struct link {
    const char *name;
    unsigned interval; /* in microseconds */
    int running;
};

static const char *state(int running) {
    return running ? "running" : "down";
}

static void look(void *eloop_data, void *user_data) {
    struct link *link = eloop_data;
    int running = if_is_running(link->name);

    syslog(LOG_DEBUG, "looked at %s: %s\n", link->name, state(running));
    if (running != link->running) syslog(LOG_NOTICE, "%s is %s\n", link->name, state(running));
    link->running = running;
    if (eloop_register_timeout(0, link->interval, look, link, user_data) != 0) eloop_terminate();
}

/* Called by the loop: the signal that brings a level cannot come into the middle of a syslog(3). */
static void on_level(int sig, void *loop_user_data, void *signal_user_data) {
    (void)loop_user_data;
    (void)signal_user_data;
    reset_syslog_prority(sig);
}

static void on_stop(int sig, void *loop_user_data, void *signal_user_data) {
    (void)loop_user_data;
    (void)signal_user_data;
    syslog(LOG_NOTICE, "ends on signal %d\n", sig);
    eloop_terminate();
}

int main(int argc, char **argv) {
    struct link link;
    unsigned long milliseconds = argc == 4 ? strtoul(argv[3], NULL, 10) : 1000;

    if (argc < 3 || argc > 4 || milliseconds == 0) {
        fprintf(stderr, "Usage: %s IDENT INTERFACE [MILLISECONDS]\n", argv[0]);
        return EXIT_FAILURE;
    }
    link.name = argv[2];
    link.interval = (unsigned)milliseconds * 1000;
    link.running = if_is_running(link.name);

    eloop_init(&link);
    tq_openlog(argv[1]);
    if (eloop_register_signal(LEVEL_SIGNAL, on_level, NULL) != 0 ||
        eloop_register_signal(SIGTERM, on_stop, NULL) != 0 ||
        eloop_register_signal(SIGINT, on_stop, NULL) != 0 ||
        eloop_register_timeout(0, link.interval, look, &link, NULL) != 0) {
        perror("link_daemon");
        return EXIT_FAILURE;
    }
    syslog(LOG_NOTICE, "watches %s, which is %s\n", link.name, state(link.running));
    eloop_run();
    eloop_destroy();
    tq_closelog();
    return EXIT_SUCCESS;
}
