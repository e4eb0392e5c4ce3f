// bus.cpp - tqctl bus: any method of any object on the message bus.
#include <libubus.h>
#include <tq/bus.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "bus_connection.h"
#include "clock.h"
#include "families.h"
#include "number.h"

namespace tqctl {

namespace {

constexpr int kLimit = 3 * 1000;

// libubox keeps the length of a key in 16 bits.
constexpr size_t kLongestKey = 1023;

// What is nested deeper is left out of a reply: its bytes are another process's, and readers of
// JSON often stop at 32 levels.
constexpr int kDeepest = 24;

ExitCode exit_code_of_status(int status) {
    switch (status) {
        case UBUS_STATUS_OK:
            return ExitCode::kDone;
        case UBUS_STATUS_TIMEOUT:
            return ExitCode::kBusy;
        case UBUS_STATUS_PERMISSION_DENIED:
            return ExitCode::kNotPermitted;
        case UBUS_STATUS_PARSE_ERROR:
            return ExitCode::kDamaged;
        case UBUS_STATUS_CONNECTION_FAILED:
        case UBUS_STATUS_SYSTEM_ERROR:
        case UBUS_STATUS_NO_MEMORY:
            return ExitCode::kInputOutput;
        default:
            return ExitCode::kRefused;
    }
}

// The exit code of a request, said where it is not kDone. -1 has been explained by the library.
ExitCode finish_request(const Context& context, const char* object, int result) {
    if (result == UBUS_STATUS_OK) return ExitCode::kDone;
    if (result < 0) return context.fail(ExitCode::kRefused, "%s: not sent", object);
    return context.fail(exit_code_of_status(result), "%s: %s", object, ubus_strerror(result));
}

// Replies

Json json_of_attribute(blob_attr* attribute, int depth);

Json json_of_fields(void* data, size_t size, bool named, int depth) {
    Json fields(named ? json_object_new_object() : json_object_new_array());
    auto* attribute = static_cast<blob_attr*>(data);
    for (size_t rest = size; rest >= sizeof(blob_attr);) {
        if (!blobmsg_check_attr_len(attribute, named, rest)) break;
        Json value = json_of_attribute(attribute, depth);
        if (named) {
            json_add(fields.get(), blobmsg_name(attribute), std::move(value));
        } else if (json_object_array_add(fields.get(), value.get()) == 0) {
            (void)value.release();  // null as well: the elements behind it keep their places
        }
        const size_t step = blob_pad_len(attribute);
        if (step > rest) break;
        rest -= step;
        attribute = blob_next(attribute);
    }
    return fields;
}

Json json_of_nested(blob_attr* attribute, bool named, int depth) {
    if (depth == kDeepest) return Json(named ? json_object_new_object() : json_object_new_array());
    return json_of_fields(blobmsg_data(attribute), blobmsg_data_len(attribute), named, depth + 1);
}

// JSON has no infinity and nothing that is no number.
Json json_of_double(double value) {
    return Json(std::isfinite(value) ? json_object_new_double(value) : nullptr);
}

Json json_of_attribute(blob_attr* attribute, int depth) {
    switch (blobmsg_type(attribute)) {
        case BLOBMSG_TYPE_TABLE:
            return json_of_nested(attribute, true, depth);
        case BLOBMSG_TYPE_ARRAY:
            return json_of_nested(attribute, false, depth);
        case BLOBMSG_TYPE_STRING:
            return json_text(blobmsg_get_string(attribute));
        case BLOBMSG_TYPE_BOOL:
            return json_bool(blobmsg_get_bool(attribute));
        case BLOBMSG_TYPE_DOUBLE:
            return json_of_double(blobmsg_get_double(attribute));
        case BLOBMSG_TYPE_INT64:
        case BLOBMSG_TYPE_INT32:
        case BLOBMSG_TYPE_INT16:
            return json_number(blobmsg_cast_s64(attribute));
        default:
            return Json(nullptr);
    }
}

// The request's private pointer is the reply as JSON.
void keep_reply(ubus_request* req, int, blob_attr* msg) {
    if (!msg) return;
    auto* reply = static_cast<Json*>(req->priv);
    *reply = json_of_fields(blob_data(msg), blob_len(msg), true, 0);
}

void print_reply(Output& output, const Json& reply) {
    if (!reply) return;
    if (output.is_json()) return output.document(reply);
    json_object_object_foreach(reply.get(), key, value) {
        const bool is_text = json_object_is_type(value, json_type_string);
        output.member(key, is_text ? json_object_get_string(value)
                                   : json_object_to_json_string_ext(value, JSON_C_TO_STRING_PLAIN));
    }
}

// Parameters

// The field that a word of the command line spells; the word is taken apart. What is wrong with it,
// or null.
const char* parse_param(char* word, notify_param& param) {
    char* equals = strchr(word, '=');
    if (!equals) return "needs the form KEY=TEXT or KEY:=NUMBER";
    const bool is_number = equals > word && equals[-1] == ':';
    *equals = '\0';
    if (is_number) equals[-1] = '\0';
    if (!*word) return "the key is missing";
    if (strlen(word) > kLongestKey) return "the key is too long";
    param = {word, NOTIFY_PARAM_STRING, 0, equals + 1};
    if (!is_number) return nullptr;
    const std::optional<int64_t> number = parse_number(equals + 1, INT32_MIN, UINT32_MAX);
    if (!number) return "not a 32-bit number";
    param = {word, NOTIFY_PARAM_INT, static_cast<uint32_t>(*number), nullptr};
    return nullptr;
}

struct FreeParams {
    void operator()(notify_param* params) const { free(params); }
};
using Params = std::unique_ptr<notify_param, FreeParams>;

ExitCode call(Context& context, Arguments arguments) {
    const char* object = arguments[0];
    const Arguments words = arguments.subspan(2);
    const Params params(static_cast<notify_param*>(calloc(words.size() + 1, sizeof(notify_param))));
    if (!params) return context.fail(ExitCode::kInputOutput, "out of memory");
    for (size_t i = 0; i < words.size(); i++) {
        const char* problem = parse_param(words[i], params.get()[i]);
        if (problem) return context.misuse("%s: %s", words[i], problem);
    }
    const BusConnection bus;
    if (!bus) return fail_without_bus(context);
    Json reply;
    const int result =
        notify_ubus_server(object, arguments[1], params.get(), keep_reply, &reply, kLimit);
    print_reply(context.output, reply);
    return finish_request(context, object, result);
}

// The private pointer is the array of paths.
void add_path(ubus_context*, ubus_object_data* object, void* priv) {
    json_append(static_cast<json_object*>(priv), json_text(object->path));
}

void print_paths(Output& output, const Json& paths) {
    if (output.is_json()) return output.document(paths);
    for (size_t i = 0; i < json_object_array_length(paths.get()); i++)
        output.value("path", json_object_get_string(json_object_array_get_idx(paths.get(), i)));
}

ExitCode list(Context& context, Arguments arguments) {
    const BusContext bus;
    if (!bus) return fail_without_bus(context);
    const Json paths(json_object_new_array());
    const char* pattern = arguments.empty() ? nullptr : arguments[0];
    const int status = ubus_lookup(bus.get(), pattern, add_path, paths.get());
    const bool nothing_there = status == UBUS_STATUS_NOT_FOUND && !pattern;
    if (status != UBUS_STATUS_OK && !nothing_there)
        return finish_request(context, pattern ? pattern : "the bus", status);
    print_paths(context.output, paths);
    return ExitCode::kDone;
}

// The broker's answer to a question that costs it nothing; that there is no such object is one.
int ask_broker(const BusContext& broker) {
    uint32_t id = 0;
    const int status = ubus_lookup_id(broker.get(), "tqctl", &id);
    return status == UBUS_STATUS_NOT_FOUND ? UBUS_STATUS_OK : status;
}

// A service answers for itself that it has no such method.
int ask_service(const char* object) {
    const int result = notify_ubus_server(object, "tqctl.ping", nullptr, nullptr, nullptr, kLimit);
    return result == UBUS_STATUS_METHOD_NOT_FOUND ? UBUS_STATUS_OK : result;
}

ExitCode ping(Context& context, Arguments arguments) {
    const BusConnection bus;
    const BusContext broker;
    if (!bus || !broker) return fail_without_bus(context);
    const char* object = arguments.empty() ? "the bus" : arguments[0];
    const int64_t before = microseconds();
    const int result = arguments.empty() ? ask_broker(broker) : ask_service(object);
    const int64_t after = microseconds();
    if (result != UBUS_STATUS_OK) return finish_request(context, object, result);
    context.output.value("microseconds", after - before);
    return ExitCode::kDone;
}

constexpr Command kCommands[] = {
    {"call", "OBJECT METHOD [FIELD...]", 2, kAnyNumber, "calls a method of an object",
     "A FIELD is KEY=TEXT, or KEY:=NUMBER for a 32-bit integer. The fields are sent\n"
     "in their order. The reply is printed as KEY=VALUE lines, nested values as\n"
     "JSON. The answer is waited for 3 seconds.",
     "tqctl bus call bwctrl set class_type:=0 vap_name=ath0 up:=64 down:=64", call},
    {"list", "[PATTERN]", 0, 1, "lists the objects on the bus",
     "A PATTERN is an object's path, or the beginning of one with a * behind it.\n"
     "JSON is an array of paths.",
     "tqctl bus list 'fm.*'", list},
    {"ping", "[OBJECT]", 0, 1, "asks the bus, or a service, whether it answers",
     "The answer's time in microseconds is printed. A service is asked for a method\n"
     "\"tqctl.ping\", which it answers that it does not have.",
     "tqctl bus ping statistics", ping},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kBus = {
    "bus", "the message bus (ubus)",
    "Exit code 1 stands for an object or method that is not there or refuses, 3 for\n"
    "one that did not answer in time, 6 for a bus that is not there.",
    kCommands};

}  // namespace tqctl
