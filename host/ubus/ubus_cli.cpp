// ubus_cli.cpp - the `ubus` command: calls methods, lists objects, sends events and listens to them
// from a shell.
#include <libubus.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "internal.h"
#include "json.h"

namespace {

constexpr int kUsageError = -2;

constexpr const char* kUsage =
    "Usage: %s [<options>] <command> [arguments...]\n"
    "Options:\n"
    " -s <socket>:\t\tSet the unix domain socket to connect to\n"
    " -t <timeout>:\t\tSet the timeout (in seconds) for a command to complete\n"
    " -S:\t\t\tUse simplified output (for scripts)\n"
    " -v:\t\t\tMore verbose output\n"
    "\n"
    "Commands:\n"
    " - list [<path>]\t\t\tList objects\n"
    " - call <path> <method> [<message>]\tCall an object method\n"
    " - listen [<path>...]\t\t\tListen for events\n"
    " - send <type> [<message>]\t\tSend an event\n"
    " - wait_for <object> [<object>...]\tWait for multiple objects to appear on ubus\n"
    "\n"
    "Exit status: 0, the bus's status (256 less it from call), 254 for a usage error,\n"
    "255 without a connection.\n"
    "\n";

struct ContextDeleter {
    void operator()(ubus_context* ctx) const { ubus_free(ctx); }
};
using Context = std::unique_ptr<ubus_context, ContextDeleter>;

struct Options {
    const char* socket = nullptr;
    int timeout = 30;  // seconds
    bool simple = false;
    bool verbose = false;
};
Options options;

// ---- list ----

const char* type_name(int type) {
    switch (type) {
        case BLOBMSG_TYPE_INT8:
            return "Boolean";
        case BLOBMSG_TYPE_INT16:
        case BLOBMSG_TYPE_INT32:
        case BLOBMSG_TYPE_INT64:
        case BLOBMSG_CAST_INT64:
            return "Integer";
        case BLOBMSG_TYPE_STRING:
            return "String";
        case BLOBMSG_TYPE_TABLE:
            return "Table";
        case BLOBMSG_TYPE_ARRAY:
            return "Array";
        default:
            return "(unknown)";
    }
}

void print_method(const blob_attr* method) {
    printf("\t\"%s\":{", blobmsg_name(method));
    const char* separator = "";
    blob_attr* argument = nullptr;
    size_t rem = 0;
    blobmsg_for_each_attr(argument, method, rem) {
        if (!blobmsg_check_attr_len(argument, false, rem)) break;
        const int type = blobmsg_type(argument) == BLOBMSG_TYPE_INT32
                             ? static_cast<int>(blobmsg_get_u32(argument))
                             : BLOBMSG_TYPE_UNSPEC;
        printf("%s\"%s\":\"%s\"", separator, blobmsg_name(argument), type_name(type));
        separator = ",";
    }
    puts("}");
}

void print_object(ubus_context* /*ctx*/, ubus_object_data* object, void* /*priv*/) {
    if (options.simple || !options.verbose) {
        puts(object->path);
        return;
    }
    printf("'%s' @%08x\n", object->path, object->id);
    if (!object->signature) return;
    blob_attr* method = nullptr;
    size_t rem = 0;
    blob_for_each_attr(method, object->signature, rem) {
        if (!blobmsg_check_attr_len(method, true, rem)) break;
        print_method(method);
    }
}

int list(ubus_context* ctx, int argc, char** argv) {
    if (argc > 1) return kUsageError;
    return ubus_lookup(ctx, argc == 1 ? argv[0] : nullptr, print_object, nullptr);
}

// ---- call and send ----

void print_reply(ubus_request* /*req*/, int /*type*/, blob_attr* message) {
    ubus::print_json(stdout, message, !options.simple);
    putchar('\n');
}

int invoke(ubus_context* ctx, uint32_t id, int argc, char** argv) {
    ubus::Blob message;
    if (argc == 3 && !ubus::put_json(message.buf(), argv[2])) return UBUS_STATUS_PARSE_ERROR;
    return ubus_invoke(ctx, id, argv[1], message.message(), print_reply, nullptr,
                       options.timeout * 1000);
}

// A call's own failure tells what was called, and is told apart by its sign.
int call(ubus_context* ctx, int argc, char** argv) {
    if (argc < 2 || argc > 3) return kUsageError;
    uint32_t id = 0;
    int status = ubus_lookup_id(ctx, argv[0], &id);
    if (status != UBUS_STATUS_OK) return status;
    status = invoke(ctx, id, argc, argv);
    if (status == UBUS_STATUS_OK || options.simple) return -status;
    fprintf(stderr, "Command failed: ubus call ");
    for (int i = 0; i < argc; i++) {
        fprintf(stderr, "%s ", argv[i]);
    }
    fprintf(stderr, "(%s)\n", ubus_strerror(status));
    return -status;
}

int send(ubus_context* ctx, int argc, char** argv) {
    if (argc < 1 || argc > 2) return kUsageError;
    ubus::Blob message;
    if (argc == 2 && !ubus::put_json(message.buf(), argv[1])) return UBUS_STATUS_PARSE_ERROR;
    return ubus_send_event(ctx, argv[0], message.message());
}

// ---- listen ----

void print_event(ubus_context* /*ctx*/, ubus_event_handler* /*handler*/, const char* type,
                 blob_attr* message) {
    printf("{ \"%s\": ", type);
    ubus::print_json(stdout, message, false);
    puts(" }");
    fflush(stdout);
}

int listen(ubus_context* ctx, int argc, char** argv) {
    static ubus_event_handler handler;
    handler.cb = print_event;
    const char* everything[] = {"*"};
    const int count = argc > 0 ? argc : 1;
    for (int i = 0; i < count; i++) {
        const char* pattern = argc > 0 ? argv[i] : everything[i];
        const int status = ubus_register_event_handler(ctx, &handler, pattern);
        if (status == UBUS_STATUS_OK) continue;
        fprintf(stderr, "Error while registering for event '%s': %s\n", pattern,
                ubus_strerror(status));
        return -1;
    }
    ubus_add_uloop(ctx);
    uloop_run();
    return ctx->sock.eof ? UBUS_STATUS_CONNECTION_FAILED : UBUS_STATUS_OK;
}

// ---- wait_for ----

struct Wait {
    ubus_event_handler handler;
    uloop_timeout look;
    uloop_timeout timeout;
    ubus_context* ctx;
    int count;
    char** paths;
    bool found;
};

Wait* wait_of(ubus_event_handler* handler) {
    return container_of(handler, Wait, handler);
}

bool all_there(const Wait& wait) {
    for (int i = 0; i < wait.count; i++) {
        uint32_t id = 0;
        if (ubus_lookup_id(wait.ctx, wait.paths[i], &id) != UBUS_STATUS_OK) return false;
    }
    return true;
}

void look_again(uloop_timeout* timeout) {
    Wait* wait = container_of(timeout, Wait, look);
    wait->found = all_there(*wait);
    if (wait->found) uloop_end();
}

// Whatever has been added: look for all of them.
void object_added(ubus_context* /*ctx*/, ubus_event_handler* handler, const char* /*type*/,
                  blob_attr* /*message*/) {
    uloop_timeout_set(&wait_of(handler)->look, 0);
}

void give_up(uloop_timeout* /*timeout*/) {
    uloop_end();
}

int wait_for(ubus_context* ctx, int argc, char** argv) {
    if (argc < 1) return kUsageError;
    static Wait wait;
    wait.handler.cb = object_added;
    wait.look.cb = look_again;
    wait.timeout.cb = give_up;
    wait.ctx = ctx;
    wait.count = argc;
    wait.paths = argv;
    const int status = ubus_register_event_handler(ctx, &wait.handler, "ubus.object.add");
    if (status != UBUS_STATUS_OK) return status;
    if (all_there(wait)) return UBUS_STATUS_OK;
    ubus_add_uloop(ctx);
    if (options.timeout > 0) uloop_timeout_set(&wait.timeout, options.timeout * 1000);
    uloop_run();
    if (ctx->sock.eof) return UBUS_STATUS_CONNECTION_FAILED;
    return wait.found ? UBUS_STATUS_OK : UBUS_STATUS_TIMEOUT;
}

// ---- the command line ----

struct Command {
    const char* name;
    int (*run)(ubus_context* ctx, int argc, char** argv);
};

constexpr Command kCommands[] = {
    {"list", list}, {"call", call}, {"listen", listen}, {"send", send}, {"wait_for", wait_for},
};

const Command* find_command(const char* name) {
    for (const Command& command : kCommands) {
        if (strcmp(command.name, name) == 0) return &command;
    }
    return nullptr;
}

bool take_options(int argc, char** argv) {
    int option = 0;
    while ((option = getopt(argc, argv, "+s:t:Sv")) >= 0) {
        switch (option) {
            case 's':
                options.socket = optarg;
                break;
            case 't':
                options.timeout = static_cast<int>(strtol(optarg, nullptr, 10));
                break;
            case 'S':
                options.simple = true;
                break;
            case 'v':
                options.verbose = true;
                break;
            default:
                return false;
        }
    }
    return true;
}

int run(int argc, char** argv) {
    const Command* command = argc > 0 ? find_command(argv[0]) : nullptr;
    if (!command) return kUsageError;
    const Context ctx(ubus_connect(options.socket));
    if (!ctx) {
        if (!options.simple) fputs("Failed to connect to ubus\n", stderr);
        return -1;
    }
    const int status = command->run(ctx.get(), argc - 1, argv + 1);
    if (status > 0 && !options.simple)
        fprintf(stderr, "Command failed: %s\n", ubus_strerror(status));
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    if (!take_options(argc, argv)) {
        fprintf(stderr, kUsage, argv[0]);
        return 1;
    }
    if (uloop_init() < 0) return -1;
    const int status = run(argc - optind, argv + optind);
    if (status == kUsageError) fprintf(stderr, kUsage, argv[0]);
    uloop_done();
    return status & 0xff;
}
