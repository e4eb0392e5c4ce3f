/* device_run.c - a run of the device, from power-up to reboot, in the store of reboot causes.
 *
 * Usage: device_run start | clock | reboot CAUSE MESSAGE
 * cc -std=c99 device_run.c $(pkg-config --cflags --libs tq) -o device_run
 *
 * start is for the start-up sequence, once; clock for when the time server has set the clock;
 * reboot records why and reboots the device. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tq/reboot_cause.h>

static int usage(const char *program) {
    fprintf(stderr, "Usage: %s start | clock | reboot CAUSE MESSAGE\n", program);
    return EXIT_FAILURE;
}

static int start(void) {
    struct reboot_cause_record last;
    int result = rb_kernel_up_check();

    printf("kernel-up check: %d\n", result);
    if (rb_read_reboot_cause(&last, 1) == 1)
        printf("record %u, cause %u: %s\n", (unsigned)last.sequence, (unsigned)last.cause,
               last.message);
    return EXIT_SUCCESS;
}

/* Records of this run have the right time from here on, earlier ones get theirs. */
static int clock_is_right(void) {
    if (rb_set_ntp_sync_flag(1) != 0 || rb_correct_reboot_time_now() != 0) {
        fprintf(stderr, "the store of reboot causes is not available\n");
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

/* A device that cannot record why still reboots. */
static void reboot_device(int cause, const char *message) {
    int result = rb_write_reboot_cause(cause, "device_run.c", __func__, __LINE__, "%s", message);

    if (result == 1) fprintf(stderr, "this run has its record already, which stays\n");
    if (result < 0) fprintf(stderr, "the cause cannot be recorded\n");
    reboot_system();
}

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "start") == 0) return start();
    if (argc == 2 && strcmp(argv[1], "clock") == 0) return clock_is_right();
    if (argc == 4 && strcmp(argv[1], "reboot") == 0) reboot_device(atoi(argv[2]), argv[3]);
    return usage(argv[0]);
}
