/* wifi_day.c - a configuration daemon's day: twelve settings of a radio in one session, one save.
 *
 * Usage: wifi_day [RADIO]
 * cc -std=c99 wifi_day.c $(pkg-config --cflags --libs tq) -o wifi_day
 *
 * Says which settings changed. Other programs see each change as soon as it is made ("uci changes"
 * shows it), the file has it when all are saved. A call that fails has told the system log why. */
#include <stdio.h>
#include <stdlib.h>
#include <tq/uci_session.h>
#include <tq/wifi.h>

static int failures;
static int changes;

/* Each setter says 0 for a change, 1 for a value that was there already. */
static void report(const char *setting, int result) {
    if (result == 0) {
        changes++;
        printf("%s: changed\n", setting);
    } else if (result == 1) {
        printf("%s: unchanged\n", setting);
    } else {
        failures++;
        fprintf(stderr, "%s: failed\n", setting);
    }
}

static void configure(uci_config_ctx *radio) {
    /* Three that are more than one option each. */
    report("country", wifi_set_country_code(radio));
    report("mode", wifi_set_wireless_mode(radio, 9));
    report("mcast-rate", wifi_set_mcast_rate(radio, 24));

    report("gi", wifi_set_short_gi(radio, 1));
    report("vht-gi", wifi_set_vht_short_gi(radio, 1));
    report("rts", wifi_set_rts_threshold(radio, 0, 2347));
    report("frag", wifi_set_frag_threshold(radio, 0, 2000));
    report("dtim", wifi_set_dtim_interval(radio, 0, 2));
    report("beacon-rate", wifi_set_beacon_rate(radio, 6));

    /* What has no function of its own goes by its option. */
    report("channel", set_uci_config(radio, "channel", "11"));
    report("txpower", set_uci_config(radio, "txpower", "17"));
    report("disabled", set_uci_config(radio, "disabled", "0"));
}

int main(int argc, char **argv) {
    const char *name = argc == 2 ? argv[1] : "radio0";
    uci_config_ctx radio;

    if (argc > 2) {
        fprintf(stderr, "Usage: %s [RADIO]\n", argv[0]);
        return EXIT_FAILURE;
    }
    if (load_named_section(UCI_CONFIG_WIRELESS, &radio, name) != 0) {
        fprintf(stderr, "%s: no such radio\n", name);
        return EXIT_FAILURE;
    }
    configure(&radio);
    if (changes > 0 && save_uci_config(UCI_CONFIG_WIRELESS, NULL, 0) != 0) {
        fprintf(stderr, "the changes are staged, but could not be saved\n");
        failures++;
    }
    printf("%d of 12 settings changed\n", changes);
    free_uci_config(UCI_CONFIG_WIRELESS);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
