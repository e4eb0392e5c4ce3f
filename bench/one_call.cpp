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

// A session that the first call opens.
uci_config_ctx* open_session() {
    static uci_config_ctx session;
    if (!session.ctx) load_unnamed_section(UCI_CONFIG_SYSTEM, &session, "system");
    return &session;
}

constexpr Call kCalls[] = {
    {"read_line", [] { read_line("/etc/config/system", "hostname", text, sizeof(text)); }},
    {"run_cmd", [] { run_cmd("echo eth0", text, sizeof(text)); }},
    {"get_key_vlaue", [] { get_key_vlaue("echo Image1Stable=1", "Image1Stable", &number); }},
    {"uci_get_str_option_by_id",
     [] { uci_get_str_option_by_id("system", "system", 0, "hostname", text, sizeof(text)); }},
    {"uci_set_str_option_by_id",
     [] { uci_set_str_option_by_id("system", "system", 0, "hostname", next_value()); }},
    {"uci_set_int_option_by_id",
     [] { uci_set_int_option_by_id("system", "system", 0, "ttylogin", ++serial); }},
    {"add_uci_section", [] { add_uci_section("system", "timeserver"); }},
    {"load_uci_config",
     [] {
         load_uci_config(UCI_CONFIG_SYSTEM, nullptr);
         free_uci_config(UCI_CONFIG_SYSTEM);
     }},
    {"get_uci_config", [] { get_uci_config(open_session(), "hostname"); }},
    {"set_uci_config", [] { set_uci_config(open_session(), "hostname", next_value()); }},
    {"save_uci_config",
     [] {
         add_uci_list(open_session(), "served", next_value());
         save_uci_config(UCI_CONFIG_SYSTEM, nullptr, 0);
     }},
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
