// Makes one public call a given number of times, so that a tracer can count its system calls.
#include <tq/tq.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Call {
    const char* name;
    void (*run)();
};

char text[64];
int number;

// Other numbers in each process, so that no write finds its value there already.
unsigned serial = static_cast<unsigned>(getpid()) * 100;

const char* next_value() {
    snprintf(text, sizeof(text), "tq%u", ++serial);
    return text;
}

// The connection is made once, so that it does not count for the calls.
bool connect_once() {
    static const bool connected = init_ubus_client() == 0;
    return connected;
}

constexpr Call kCalls[] = {
    {"read_line", [] { read_line("/etc/config/system", "hostname", text, sizeof(text)); }},
    {"run_cmd", [] { run_cmd("echo eth0", text, sizeof(text)); }},
    {"get_key_vlaue", [] { get_key_vlaue("echo Image1Stable=1", "Image1Stable", &number); }},
    {"tq_get_mem_usage",
     [] {
         uint32_t usage = 0;
         if (connect_once()) tq_get_mem_usage(&usage);
     }},
    {"set_fm_action over the bus", [] { (void)(connect_once() && set_fm_action(5)); }},
    {"set_fm_action by command", [] { set_fm_action(5); }},
    {"uci_get_str_option_by_id",
     [] { uci_get_str_option_by_id("system", "system", 0, "hostname", text, sizeof(text)); }},
    {"uci_set_str_option_by_id",
     [] { uci_set_str_option_by_id("system", "system", 0, "hostname", next_value()); }},
    {"uci_set_int_option_by_id",
     [] { uci_set_int_option_by_id("system", "system", 0, "ttylogin", ++serial); }},
    {"add_uci_section", [] { add_uci_section("system", "timeserver"); }},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--list") == 0) {
        for (const Call& call : kCalls)
            puts(call.name);
        return 0;
    }
    if (argc != 3) {
        fprintf(stderr, "usage: %s --list | CALL TIMES\n", argv[0]);
        return 2;
    }
    for (const Call& call : kCalls) {
        if (strcmp(call.name, argv[1]) != 0) continue;
        for (int i = atoi(argv[2]); i > 0; i--)
            call.run();
        return 0;
    }
    return 1;
}
