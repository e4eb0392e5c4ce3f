// bus_service.cpp - a service on the bus, for tests: bus_service RECORD OBJECT[=BEHAVIOUR]...
//
// Offers the objects and appends each call to the file RECORD as a line
//
//   OBJECT METHOD KEY=VALUE KEY="text"...
//
// with the fields in the order in which they came. A VALUE is a 32-bit integer; one of another
// type has its number in front, as in KEY=(2)7. In a text all bytes but printable ASCII, the
// backslash and the double quote are \xNN. What a call does then (a comma in front of each further
// step of a BEHAVIOUR):
//
//   int:KEY:NUMBER  str:KEY:TEXT  byte:KEY:NUMBER  adds a field to the reply
//   raw:HEX         is the reply, whatever its bytes mean
//   again           sends the reply now, and once more at the end
//   status:NUMBER   ends with this status; else with 0
//   silent          never ends
//   die             ends the service
#include <libubus.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <list>
#include <map>
#include <string>
#include <vector>

namespace {

FILE* record;
std::map<std::string, std::vector<std::string>> behaviours;

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

std::string quoted(const char* text) {
    std::string quoted = "\"";
    for (; *text; text++) {
        const auto byte = static_cast<unsigned char>(*text);
        if (byte < ' ' || byte > '~' || byte == '\\' || byte == '"') {
            char escape[8];
            snprintf(escape, sizeof(escape), "\\x%02x", byte);
            quoted += escape;
        } else {
            quoted += *text;
        }
    }
    return quoted + "\"";
}

std::string value_of(blob_attr* attr) {
    switch (blobmsg_type(attr)) {
        case BLOBMSG_TYPE_INT32:
            return std::to_string(blobmsg_get_u32(attr));
        case BLOBMSG_TYPE_STRING:
            return quoted(blobmsg_get_string(attr));
        case BLOBMSG_TYPE_INT8:
            return "(" + std::to_string(BLOBMSG_TYPE_INT8) + ")" +
                   std::to_string(blobmsg_get_u8(attr));
        case BLOBMSG_TYPE_INT64:
            return "(" + std::to_string(BLOBMSG_TYPE_INT64) + ")" +
                   std::to_string(blobmsg_get_u64(attr));
        default:
            return "(" + std::to_string(blobmsg_type(attr)) + ")";
    }
}

void write_record(const char* object, const char* method, blob_attr* message) {
    fprintf(record, "%s %s", object, method);
    size_t rest = blob_len(message);
    auto* attr = static_cast<blob_attr*>(blob_data(message));
    while (rest >= sizeof(blob_attr) && blob_pad_len(attr) <= rest) {
        fprintf(record, " %s=%s", blobmsg_name(attr), value_of(attr).c_str());
        rest -= blob_pad_len(attr);
        attr = blob_next(attr);
    }
    fputc('\n', record);
    fflush(record);
}

// The content of the reply to a call.
class Reply {
  public:
    Reply() { blob_buf_init(&buffer_, 0); }
    ~Reply() { blob_buf_free(&buffer_); }
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;

    void add(const std::vector<std::string>& step) {
        const char* key = step.at(1).c_str();
        const std::string& value = step.at(2);
        if (step[0] == "str") blobmsg_add_string(&buffer_, key, value.c_str());
        const auto number = static_cast<uint32_t>(strtoul(value.c_str(), nullptr, 10));
        if (step[0] == "int") blobmsg_add_u32(&buffer_, key, number);
        if (step[0] == "byte") blobmsg_add_u8(&buffer_, key, static_cast<uint8_t>(number));
        wanted_ = true;
    }

    void add_raw(const std::string& hex) {
        std::string bytes;
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            bytes += static_cast<char>(strtoul(hex.substr(i, 2).c_str(), nullptr, 16));
        blob_put_raw(&buffer_, bytes.data(), static_cast<unsigned>(bytes.size()));
        wanted_ = true;
    }

    void send(ubus_context* context, ubus_request_data* request) const {
        if (wanted_) ubus_send_reply(context, request, buffer_.head);
    }

  private:
    blob_buf buffer_{};
    bool wanted_ = false;
};

int handle(ubus_context* context, ubus_object* object, ubus_request_data* request,
           const char* method, blob_attr* message) {
    write_record(object->name, method, message);
    Reply reply;
    int status = 0;
    for (const std::string& text : behaviours[object->name]) {
        const std::vector<std::string> step = split(text, ':');
        if (step.size() == 3) reply.add(step);
        if (step[0] == "raw") reply.add_raw(step.at(1));
        if (step[0] == "again") reply.send(context, request);
        if (step[0] == "status") status = atoi(step.at(1).c_str());
        if (step[0] == "silent") request->deferred = true;
        if (step[0] == "die") _exit(0);
    }
    reply.send(context, request);
    return status;
}

ubus_method method(const char* name) {
    ubus_method method{};
    method.name = name;
    method.handler = handle;
    return method;
}

const ubus_method kMethods[] = {method("set"),    method("del"),     method("get"),
                                method("reload"), method("connect"), method("disconnect")};

ubus_object_type object_type{};

void offer(ubus_context* context, const std::string& name) {
    static std::list<std::pair<std::string, ubus_object>> objects;
    auto& [kept_name, object] = objects.emplace_back(name, ubus_object{});
    object.name = kept_name.c_str();
    object.type = &object_type;
    object.methods = kMethods;
    object.n_methods = std::size(kMethods);
    if (ubus_add_object(context, &object) != 0) exit(1);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    record = fopen(argv[1], "ae");
    object_type.name = "test";
    object_type.methods = kMethods;
    object_type.n_methods = std::size(kMethods);
    uloop_init();
    ubus_context* context = ubus_connect(nullptr);
    if (!record || !context) return 1;
    for (int i = 2; i < argc; i++) {
        const std::vector<std::string> parts = split(argv[i], '=');
        if (parts.size() > 1) behaviours[parts[0]] = split(parts[1], ',');
        offer(context, parts[0]);
    }
    ubus_add_uloop(context);
    puts("ready");
    fflush(stdout);
    uloop_run();
    return 0;
}
