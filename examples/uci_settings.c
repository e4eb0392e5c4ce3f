/* uci_settings.c - a first program: reads the host name, tunes a radio and reads back what it set.
 *
 * Usage: uci_settings CHANNEL [RADIO]
 * cc -std=c99 uci_settings.c $(pkg-config --cflags --libs tq) -o uci_settings
 *
 * Each call opens, changes and commits the file that it names, so there is nothing to set up and
 * nothing to release. A call that fails has told the system log why. */
#include <stdio.h>
#include <stdlib.h>
#include <tq/uci_path.h>

static int show_host_name(void) {
    char name[64];

    /* The section "system" has no name of its own: it is the first of its type. */
    if (uci_get_str_option_by_id("system", "system", 0, "hostname", name, (int)sizeof(name)) != 0) {
        fprintf(stderr, "the host name cannot be read\n");
        return -1;
    }
    printf("host name: %s\n", name);
    return 0;
}

static int tune(const char *radio, unsigned channel) {
    int actual;

    if (uci_set_int_option_by_name("wireless", radio, "channel", channel) != 0) {
        fprintf(stderr, "%s: the channel cannot be set to %u\n", radio, channel);
        return -1;
    }
    if (uci_get_int_option_by_name("wireless", radio, "channel", &actual) != 0) {
        fprintf(stderr, "%s: the channel cannot be read back\n", radio);
        return -1;
    }
    printf("%s: set to channel %u, /etc/config/wireless says %d\n", radio, channel, actual);
    return actual == (int)channel ? 0 : -1;
}

int main(int argc, char **argv) {
    char *end;
    unsigned long channel;

    if (argc < 2 || argc > 3) {
        fprintf(stderr, "Usage: %s CHANNEL [RADIO]\n", argv[0]);
        return EXIT_FAILURE;
    }
    channel = strtoul(argv[1], &end, 10);
    if (end == argv[1] || *end != '\0' || channel < 1 || channel > 233) {
        fprintf(stderr, "%s: a channel is a number from 1 to 233\n", argv[1]);
        return EXIT_FAILURE;
    }
    if (show_host_name() != 0) return EXIT_FAILURE;
    if (tune(argc == 3 ? argv[2] : "radio0", (unsigned)channel) != 0) return EXIT_FAILURE;
    return EXIT_SUCCESS;
}
