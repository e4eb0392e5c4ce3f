// board.cpp - tqctl board: what the access point is made of.
#include <tq/board.h>

#include <cstdio>
#include <cstring>

#include "board_facts.h"
#include "families.h"

namespace tqctl {

namespace {

// No fact of a board is longer; its WAN and LAN texts are told no size.
constexpr size_t kFactSize = 64;

struct Fact {
    char text[kFactSize] = "";
};

using GetWanFact = int (*)(char*);
using GetLanFact = int (*)(int, char*);

// What the board does not say is no member.
Json text_if_any(const char* text) {
    return *text ? json_text(text) : nullptr;
}

// A negative count is no answer.
Json count_if_any(int count) {
    return count < 0 ? nullptr : json_number(count);
}

Json wan_fact(GetWanFact get) {
    Fact fact;
    return get(fact.text) == 0 ? text_if_any(fact.text) : nullptr;
}

}  // namespace

ExitCode count_radios(const Context& context, int& radios) {
    if (bbi_radio_count(&radios) == 0) return ExitCode::kDone;
    return context.fail(ExitCode::kRefused, "the board library does not answer");
}

namespace {

// show

const char* forward_mode() {
    static constexpr const char* kNames[] = {"bridge", "route", "other"};
    return kNames[get_forward_mode()];
}

}  // namespace

Json describe_board() {
    Json object(json_object_new_object());
    int radios = -1;
    bbi_radio_count(&radios);
    Fact model;
    get_ap_modelname(model.text, sizeof(model.text));
    json_add(object.get(), "model", text_if_any(model.text));
    json_add(object.get(), "mode", json_text(tq_get_apmode() == 0 ? "fat" : "managed"));
    json_add(object.get(), "forward", json_text(forward_mode()));
    json_add(object.get(), "radios", count_if_any(radios));
    json_add(object.get(), "ports", count_if_any(tq_get_dev_if_count()));
    json_add(object.get(), "lan_ports", count_if_any(tq_get_dev_lan_count()));
    json_add(object.get(), "wan_name", wan_fact(get_wan_if_name));
    json_add(object.get(), "wan_label", wan_fact(get_wan_if_label));
    json_add(object.get(), "wan_port", wan_fact(get_wan_if_port));
    return object;
}

namespace {

ExitCode show(Context& context, Arguments) {
    int radios = 0;
    const ExitCode code = count_radios(context, radios);
    if (code != ExitCode::kDone) return code;
    context.output.members(describe_board());
    return ExitCode::kDone;
}

// radios, ports: a row each

using Describe = Json (*)(int);
using PrintRow = void (*)(int);

ExitCode list(Context& context, int count, Describe describe, PrintRow print_row) {
    Rows rows(context.output);
    for (int i = 0; i < count; i++)
        rows.add(i, describe, print_row);
    return ExitCode::kDone;
}

// As the results of the short forms they would be zeros where the board does not say.
void add_numbers(json_object* object, int radio) {
    unsigned modes = 0;
    if (bbi_radio_support_mode(radio, &modes) == 0) json_add(object, "modes", json_number(modes));
    int bss = 0;
    if (bbi_radio_bss_support(radio, &bss) == 0) json_add(object, "bss", json_number(bss));
}

Json describe_radio(int radio) {
    Json object(json_object_new_object());
    json_add(object.get(), "radio", json_number(radio));
    json_add(object.get(), "device", text_if_any(bbi_radio_device_ret(radio)));
    json_add(object.get(), "prefix", text_if_any(bbi_radio_prefix_ifname_ret(radio)));
    add_numbers(object.get(), radio);
    json_add(object.get(), "proc_dir", text_if_any(bbi_radio_proc_dir_ret(radio)));
    return object;
}

void print_radio(int index) {
    const Json radio = describe_radio(index);
    printf("%s %-7s %-7s modes=%s bss=%s %s\n", text_of(radio, "radio"), text_of(radio, "device"),
           text_of(radio, "prefix"), text_of(radio, "modes"), text_of(radio, "bss"),
           text_of(radio, "proc_dir"));
}

ExitCode radios(Context& context, Arguments) {
    int count = 0;
    const ExitCode code = count_radios(context, count);
    return code == ExitCode::kDone ? list(context, count, describe_radio, print_radio) : code;
}

// What the port is for, and the text beside it on the case.
void add_role(json_object* object, const char* role, const char* label) {
    json_add(object, "role", json_text(role));
    json_add(object, "label", text_if_any(label));
}

bool has_wan(const char* ifname) {
    Fact name;
    return get_wan_if_name(name.text) == 0 && strcmp(name.text, ifname) == 0;
}

bool has_lan(int index, const char* ifname) {
    Fact name;
    return get_lan_if_name(index, name.text) == 0 && strcmp(name.text, ifname) == 0;
}

void describe_role(json_object* object, const char* ifname) {
    Fact label;
    if (has_wan(ifname)) {
        get_wan_if_label(label.text);
        return add_role(object, "wan", label.text);
    }
    for (int i = 0; i < tq_get_dev_lan_count(); i++) {
        if (!has_lan(i, ifname)) continue;
        get_lan_if_label(i, label.text);
        return add_role(object, "lan", label.text);
    }
}

Json describe_port(int port) {
    Json object(json_object_new_object());
    json_add(object.get(), "port", json_number(port));
    const char* name = tq_get_eth_ifname(port);
    if (name) json_add(object.get(), "name", json_text(name));
    json_add(object.get(), "kind", json_number(tq_get_eth_linktype(port)));
    const int ability = tq_get_eth_ability_of_speed(port);
    if (ability != 0) json_add(object.get(), "ability", json_number(ability));
    if (name) describe_role(object.get(), name);
    return object;
}

void print_port(int index) {
    const Json port = describe_port(index);
    printf("%s %-7s kind=%s ability=%s %s %s\n", text_of(port, "port"), text_of(port, "name"),
           text_of(port, "kind"), text_of(port, "ability"), text_of(port, "role"),
           text_of(port, "label"));
}

ExitCode ports(Context& context, Arguments) {
    int radios = 0;
    const ExitCode code = count_radios(context, radios);
    if (code != ExitCode::kDone) return code;
    return list(context, tq_get_dev_if_count(), describe_port, print_port);
}

constexpr Command kCommands[] = {
    {"show", "", 0, 0, "shows the board",
     "Lines of KEY=VALUE: model, mode (fat or managed), forward (bridge, route or\n"
     "other), radios, ports, lan_ports; and, where the board has them, wan_name,\n"
     "wan_label and wan_port. JSON is an object of the same keys.",
     "tqctl board show", show},
    {"radios", "", 0, 0, "lists the radios",
     "A line each: number, device, prefix of its interfaces' names, mask of its\n"
     "wireless modes, number of BSS and process directory, or - where the board does\n"
     "not say. JSON is an array of objects with radio, device, prefix, modes, bss\n"
     "and proc_dir.",
     "tqctl board radios", radios},
    {"ports", "", 0, 0, "lists the Ethernet ports",
     "A line each: number, interface, kind (1000 or 100 Mbit/s), the speed that a\n"
     "gigabit port is able to, what it is for (wan or lan) and its label on the\n"
     "case, or - where the board does not say. JSON is an array of objects with\n"
     "port, name, kind, ability, role and label.",
     "tqctl -j board ports", ports},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kBoard = {"board", "radios, ports and names",
                                 "The facts are the board library's, and for the model and the\n"
                                 "modes the configuration's. Exit code 1 means that the board\n"
                                 "library does not answer.",
                                 kCommands};

}  // namespace tqctl
