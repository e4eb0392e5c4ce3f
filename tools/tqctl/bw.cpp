// bw.cpp - tqctl bw: the bandwidth control; tqctl flow: the traffic of an interface.
#include <tq/bwctl.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "bus_connection.h"
#include "families.h"
#include "mac_text.h"
#include "number.h"

namespace tqctl {

namespace {

// A request to the bandwidth control, as the command line spells it.
struct Request {
    enum class Kind { kSsid, kUser, kStation, kMaxStations, kSave, kReload };

    Kind kind = Kind::kSsid;
    const char* vap = nullptr;
    Mac mac{};
    uint32_t up = 0;
    uint32_t down = 0;
    uint32_t stations = 0;
};

using Kind = Request::Kind;

int send(const Request& request) {
    switch (request.kind) {
        case Kind::kSsid:
            return set_ssid_bwctl(request.vap, request.up, request.down);
        case Kind::kUser:
            return set_user_bwctl(request.vap, request.up, request.down);
        case Kind::kStation:
            return set_sta_bwctl(request.vap, request.up, request.down, request.mac.data());
        case Kind::kMaxStations:
            return set_max_sta_bwctl(request.vap, request.stations);
        case Kind::kSave:
            return set_config_save_bwctl();
        case Kind::kReload:
            return reload_bwctl();
    }
    return -1;
}

// show-request

// The lines of a request, or together its JSON document.
class Display {
  public:
    explicit Display(Output& output) : output_(output) {}

    void head(const char* object, const char* method) {
        text(request_, "object", object);
        text(request_, "method", method);
    }
    void field(const char* key, const char* value) { text(message_, key, value); }
    void field(const char* key, uint32_t value) {
        if (!output_.is_json()) output_.member(key, value);
        json_add(message_.get(), key, json_number(value));
    }
    void finish() {
        if (!output_.is_json()) return;
        json_add(request_.get(), "message", std::move(message_));
        output_.document(request_);
    }

  private:
    void text(const Json& object, const char* key, const char* value) {
        if (!output_.is_json()) output_.member(key, value);
        json_add(object.get(), key, json_text(value));
    }

    Output& output_;
    Json request_{json_object_new_object()};
    Json message_{json_object_new_object()};
};

void show_limit(Display& display, const Request& request) {
    const bool removes = request.up == 0 && request.down == 0;
    display.head("bwctrl", removes ? "del" : "set");
    display.field("class_type", static_cast<uint32_t>(request.kind));
    display.field("vap_name", request.vap);
    if (request.kind == Kind::kStation) display.field("macaddr", MacText(request.mac.data()).text);
    if (removes) return;
    display.field("up", request.up);
    display.field("down", request.down);
}

void show(Display& display, const Request& request) {
    switch (request.kind) {
        case Kind::kMaxStations:
            display.head("bwctrl.maxassoc", "set");
            display.field("vap_name", request.vap);
            display.field("maxassoc", request.stations);
            return;
        case Kind::kSave:
            display.head("bwctrl", "set");
            display.field("class_type", uint32_t{4});
            return;
        case Kind::kReload:
            display.head("bwctrl", "reload");
            return;
        default:
            show_limit(display, request);
    }
}

// The command line

struct KindName {
    const char* name;
    Kind kind;
};

constexpr KindName kKinds[] = {
    {"ssid", Kind::kSsid},
    {"user", Kind::kUser},
    {"station", Kind::kStation},
    {"max-stations", Kind::kMaxStations},
};

const KindName* find_kind(const char* name) {
    for (const KindName& kind : kKinds) {
        if (strcmp(kind.name, name) == 0) return &kind;
    }
    return nullptr;
}

// Takes KIND VAP [MAC] off the words, which are then the numbers; what is wrong, or null.
const char* parse_target(Arguments& words, Request& request) {
    const KindName* kind = find_kind(words[0]);
    if (!kind) return "KIND is ssid, user, station or max-stations";
    request.kind = kind->kind;
    request.vap = words[1];
    words = words.subspan(2);
    if (request.kind != Kind::kStation) return nullptr;
    const std::optional<Mac> mac = words.empty() ? std::nullopt : parse_mac(words[0]);
    if (!mac) return "a station needs its MAC";
    request.mac = *mac;
    words = words.subspan(1);
    return nullptr;
}

// Takes the numbers of a setting; what is wrong with them, or null.
const char* parse_numbers(Arguments words, Request& request) {
    const bool is_rate = request.kind != Kind::kMaxStations;
    if (words.size() != (is_rate ? 2U : 1U))
        return is_rate ? "UP and DOWN are needed" : "COUNT is needed";
    const std::optional<uint32_t> first = parse_u32(words[0]);
    const std::optional<uint32_t> last = parse_u32(words.back());
    if (!first || !last) return "not a number from 0 to 4294967295";
    if (!is_rate) {
        request.stations = *first;
        return nullptr;
    }
    request.up = *first;
    request.down = *last;
    return nullptr;
}

// Takes what is behind "set" or "del"; what is wrong with it, or null.
const char* parse_limit(bool is_set, Arguments words, Request& request) {
    if (words.size() < 2) return "an argument is missing";
    if (const char* problem = parse_target(words, request)) return problem;
    if (is_set) return parse_numbers(words, request);
    if (request.kind == Kind::kMaxStations) return "max-stations has no removal";
    return words.empty() ? nullptr : "too many arguments";
}

// Makes a request of a verb and what is behind it; what is wrong with them, or null.
const char* parse(const char* verb, Arguments words, Request& request) {
    const bool is_set = strcmp(verb, "set") == 0;
    if (is_set || strcmp(verb, "del") == 0) return parse_limit(is_set, words, request);
    const bool is_save = strcmp(verb, "save") == 0;
    if (!is_save && strcmp(verb, "reload") != 0) return "VERB is set, del, save or reload";
    request.kind = is_save ? Kind::kSave : Kind::kReload;
    return words.empty() ? nullptr : "too many arguments";
}

ExitCode send_request(Context& context, Arguments words) {
    Request request;
    const char* problem = parse(context.command->verb, words, request);
    if (problem) return context.misuse("%s", problem);
    return send_over_bus(context, [&] { return send(request); });
}

ExitCode show_request(Context& context, Arguments words) {
    Request request;
    const char* problem = parse(words[0], words.subspan(1), request);
    if (problem) return context.misuse("%s", problem);
    Display display(context.output);
    show(display, request);
    display.finish();
    return ExitCode::kDone;
}

// flow show

// A number that the service's reply may lack, which the library does not tell: a variable that
// keeps two different values has not been written.
class Number {
  public:
    using Getter = int (*)(uint32_t index, uint32_t* value);

    Number(Getter get, uint32_t index) {
        result_ = get(index, &value_);
        if (result_ != 0 || value_ != kPreset) return;
        uint32_t again = 0;
        result_ = get(index, &again);
        missing_ = again == 0;
        value_ = again;
    }

    [[nodiscard]] bool failed() const { return result_ != 0; }
    [[nodiscard]] bool is_missing() const { return missing_; }
    [[nodiscard]] int64_t value() const { return value_; }

  private:
    static constexpr uint32_t kPreset = UINT32_MAX;

    uint32_t value_ = kPreset;
    int result_ = 0;
    bool missing_ = false;
};

void add_number(Output& output, const char* key, const Number& number) {
    if (!number.is_missing()) output.member(key, number.value());
}

ExitCode show_flow(Context& context, Arguments arguments) {
    const std::optional<uint32_t> index = take_u32(context, arguments[0]);
    if (!index) return ExitCode::kUsage;
    const BusConnection bus;
    if (!bus) return fail_without_bus(context);
    const Number in(tq_get_in_flow_statistics, *index);
    const Number out(tq_get_out_flow_statistics, *index);
    if (in.failed() || out.failed()) return fail_without_service(context);
    if (in.is_missing() && out.is_missing())
        return context.fail(ExitCode::kRefused, "%s: the service has no such number", arguments[0]);
    add_number(context.output, "in", in);
    add_number(context.output, "out", out);
    return ExitCode::kDone;
}

constexpr Command kCommands[] = {
    {"set", "KIND VAP [MAC] NUMBER...", 3, 5, "sets a limit",
     "KIND is one of\n"
     "  ssid VAP UP DOWN: the rates of all stations of a VAP together\n"
     "  user VAP UP DOWN: the rates of each of its users\n"
     "  station VAP MAC UP DOWN: the rates of one station\n"
     "  max-stations VAP COUNT: how many stations it takes\n"
     "\n"
     "The rates' unit is the service's; UP and DOWN both 0 remove the limit.",
     "tqctl bw set station ath0 00:1a:2b:3c:4d:5e 512 1024", send_request},
    {"del", "KIND VAP [MAC]", 2, 3, "removes a limit", "KIND is ssid, user or station.",
     "tqctl bw del ssid ath0", send_request},
    {"show-request", "VERB [ARGUMENTS]", 1, 6, "shows what would be sent",
     "Object, method and fields, in their order, of the request that the command\n"
     "with this VERB (set, del, reload or save) makes. Nothing is sent.",
     "tqctl bw show-request set ssid ath0 512 1024", show_request},
    {"reload", "", 0, 0, "has the service read its configuration anew",
     "What it has been told and did not save is up to the service.", "tqctl bw reload",
     send_request},
    {"save", "", 0, 0, "has the service save its configuration",
     "The limits then outlive a restart of the service.", "tqctl bw save", send_request},
};
constexpr Command kFlowCommands[] = {
    {"show", "INDEX", 1, 1, "shows the traffic of an interface index",
     "Lines in=NUMBER and out=NUMBER, as the statistics service counts them; one\n"
     "that its reply lacks is left out.",
     "tqctl flow show 2", show_flow},
};
static_assert(is_complete(kCommands) && is_complete(kFlowCommands));

constexpr char kCodes[] =
    "Each is a request to a service on the bus. Exit code 1 stands for a service\n"
    "that is not there, refuses or does not answer, 6 for a bus that is not there.";

}  // namespace

constinit const Family kBw = {"bw", "the bandwidth control", kCodes, kCommands};
constinit const Family kFlow = {"flow", "traffic statistics", kCodes, kFlowCommands};

}  // namespace tqctl
