/* ubus_peer.c - a service and a client of the bus in plain C, for crossing implementations: built
 * against either libubus, it runs with either broker.
 *
 *   ubus_peer SOCKET serve COUNT            COUNT objects peer.N with the method echo, until it is
 * ended ubus_peer SOCKET call PATH SIZE TIMES   calls echo with SIZE bytes, and compares what comes
 * back
 */
#include <libubus.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int echo(struct ubus_context* ctx, struct ubus_object* obj, struct ubus_request_data* req,
                const char* method, struct blob_attr* msg) {
    (void)obj;
    (void)method;
    return ubus_send_reply(ctx, req, msg);
}

static const struct blobmsg_policy arguments[] = {{.name = "text", .type = BLOBMSG_TYPE_STRING}};
static const struct ubus_method methods[] = {UBUS_METHOD("echo", echo, arguments)};
static struct ubus_object_type type = UBUS_OBJECT_TYPE("peer", methods);

static int serve(struct ubus_context* ctx, int count) {
    struct ubus_object* objects = calloc((size_t)count, sizeof(*objects));
    char* names = calloc((size_t)count, 32);
    if (!objects || !names) return 1;
    for (int i = 0; i < count; i++) {
        char* name = names + (size_t)i * 32;
        snprintf(name, 32, "peer.%d", i);
        objects[i].name = name;
        objects[i].type = &type;
        objects[i].methods = methods;
        objects[i].n_methods = ARRAY_SIZE(methods);
        const int status = ubus_add_object(ctx, &objects[i]);
        if (status != UBUS_STATUS_OK) {
            fprintf(stderr, "%s: %s\n", name, ubus_strerror(status));
            return 1;
        }
    }
    ubus_add_uloop(ctx);
    uloop_run();
    ubus_shutdown(ctx);
    free(objects);
    free(names);
    return 0;
}

struct answer {
    const char* text;
    int same;
};

static void compare(struct ubus_request* req, int message_type, struct blob_attr* msg) {
    (void)message_type;
    struct answer* answer = req->priv;
    struct blob_attr* found = NULL;
    blobmsg_parse(arguments, 1, &found, blobmsg_data(msg), (unsigned int)blobmsg_len(msg));
    answer->same += found && strcmp(blobmsg_get_string(found), answer->text) == 0;
}

static int call(struct ubus_context* ctx, const char* path, int size, int times) {
    char* text = malloc((size_t)size + 1);
    if (!text) return 1;
    memset(text, 'p', (size_t)size);
    text[size] = '\0';
    struct answer answer = {text, 0};
    for (int i = 0; i < times; i++) {
        struct blob_buf buf;
        uint32_t id = 0;
        memset(&buf, 0, sizeof(buf));
        blob_buf_init(&buf, 0);
        blobmsg_add_string(&buf, "text", text);
        int status = ubus_lookup_id(ctx, path, &id);
        if (status == UBUS_STATUS_OK)
            status = ubus_invoke(ctx, id, "echo", buf.head, compare, &answer, 20000);
        if (status != UBUS_STATUS_OK) fprintf(stderr, "%s: %s\n", path, ubus_strerror(status));
        blob_buf_free(&buf);
    }
    free(text);
    ubus_shutdown(ctx);
    return answer.same == times ? 0 : 1;
}

int main(int argc, char** argv) {
    static struct ubus_context context;
    uloop_init();
    if (argc < 4 || ubus_connect_ctx(&context, argv[1]) != 0) return 2;
    if (strcmp(argv[2], "serve") == 0) return serve(&context, atoi(argv[3]));
    return argc < 6 ? 2 : call(&context, argv[3], atoi(argv[4]), atoi(argv[5]));
}
