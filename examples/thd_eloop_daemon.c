/* thd_eloop_daemon.c - a daemon with threads, each with an event loop of its own.
 *
 * Usage: thd_eloop_daemon [MILLISECONDS]
 * cc -std=c99 thd_eloop_daemon.c $(pkg-config --cflags --libs tq) -pthread -o thd_eloop_daemon
 *
 * Two workers take a reading every MILLISECONDS (500) and hand it to the main loop, which prints
 * it. A thread hands something to another by adding a timeout of 0 to that one's loop: it is
 * noticed within a second. SIGTERM and SIGINT are waited for by a thread, too, and end all. */
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <tq/thd_eloop.h>

enum { WORKERS = 2 };

struct worker {
    struct eloop_state loop;
    pthread_t thread;
    unsigned interval; /* in microseconds */
    uintptr_t readings;
};

static struct eloop_state main_loop;
static struct worker workers[WORKERS];
static unsigned long received;

/* In the main loop. */
static void on_reading(void *eloop_data, void *user_data) {
    struct worker *worker = eloop_data;

    received++;
    printf("worker %d: reading %lu\n", (int)(worker - workers),
           (unsigned long)(uintptr_t)user_data);
}

/* In the worker's loop. */
static void take_reading(void *eloop_data, void *user_data) {
    struct worker *worker = eloop_data;

    worker->readings++;
    thd_eloop_register_timeout(&main_loop, 0, 0, on_reading, worker, (void *)worker->readings);
    thd_eloop_register_timeout(&worker->loop, 0, worker->interval, take_reading, worker, user_data);
}

static void stop(void *eloop_data, void *user_data) {
    (void)user_data;
    thd_eloop_terminate(eloop_data);
}

static void *run_worker(void *argument) {
    struct worker *worker = argument;

    thd_eloop_run(&worker->loop);
    return NULL;
}

/* Waits for a signal that all threads have blocked, and passes it on as a timeout. */
static void *wait_for_signal(void *argument) {
    int sig;

    if (sigwait(argument, &sig) == 0) printf("signal %d\n", sig);
    thd_eloop_register_timeout(&main_loop, 0, 0, stop, &main_loop, NULL);
    return NULL;
}

static int start_worker(struct worker *worker, unsigned interval) {
    if (thd_eloop_init(&worker->loop, worker) != 0) return -1;
    worker->interval = interval;
    if (thd_eloop_register_timeout(&worker->loop, 0, interval, take_reading, worker, NULL) != 0)
        return -1;
    return pthread_create(&worker->thread, NULL, run_worker, worker) == 0 ? 0 : -1;
}

static void stop_worker(struct worker *worker) {
    thd_eloop_register_timeout(&worker->loop, 0, 0, stop, &worker->loop, NULL);
    pthread_join(worker->thread, NULL);
    thd_eloop_destroy(&worker->loop);
}

/* Keeps the main loop running while there is nothing else for it to do. */
static void every_hour(void *eloop_data, void *user_data) {
    thd_eloop_register_timeout(&main_loop, 3600, 0, every_hour, eloop_data, user_data);
}

int main(int argc, char **argv) {
    unsigned interval = argc == 2 ? 1000 * (unsigned)strtoul(argv[1], NULL, 10) : 500000;
    pthread_t signals;
    sigset_t stopping;
    int i;

    setvbuf(stdout, NULL, _IOLBF, 0);
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGTERM);
    sigaddset(&stopping, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopping, NULL);

    if (thd_eloop_init(&main_loop, NULL) != 0) return EXIT_FAILURE;
    every_hour(NULL, NULL);
    for (i = 0; i < WORKERS; i++) {
        if (start_worker(&workers[i], interval) != 0) return EXIT_FAILURE;
    }
    if (pthread_create(&signals, NULL, wait_for_signal, &stopping) != 0) return EXIT_FAILURE;

    thd_eloop_run(&main_loop);
    for (i = 0; i < WORKERS; i++)
        stop_worker(&workers[i]);
    pthread_join(signals, NULL);
    thd_eloop_destroy(&main_loop);
    printf("%lu readings received\n", received);
    return EXIT_SUCCESS;
}
