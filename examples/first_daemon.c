/* first_daemon.c - tells every ten seconds on which channel a radio is configured to be. */
#include <stdio.h>
#include <tq/eloop.h>
#include <tq/uci_path.h>

static void tell_channel(void *radio, void *user_data) {
    int channel;

    if (uci_get_int_option_by_name("wireless", radio, "channel", &channel) == 0)
        fprintf(stderr, "%s: channel %d\n", (char *)radio, channel); /* else the log says why */
    eloop_register_timeout(10, 0, tell_channel, radio, user_data);
}

int main(void) {
    eloop_init(NULL);
    eloop_register_timeout(0, 0, tell_channel, "radio0", NULL);
    eloop_run();
    return 0;
}
