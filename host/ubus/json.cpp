// json.cpp - messages from JSON, by json-c, and to JSON.
#include "json.h"

#include <json-c/json.h>

#include <cinttypes>
#include <climits>
#include <cstring>
#include <memory>

namespace ubus {
namespace {

struct JsonDeleter {
    void operator()(json_object* object) const { json_object_put(object); }
};
using Json = std::unique_ptr<json_object, JsonDeleter>;

bool put_value(blob_buf* buf, const char* name, json_object* value);

bool put_members(blob_buf* buf, json_object* object) {
    json_object_object_foreach(object, name, value) {
        if (!put_value(buf, name, value)) return false;
    }
    return true;
}

bool put_items(blob_buf* buf, json_object* array) {
    for (size_t i = 0; i < json_object_array_length(array); i++) {
        if (!put_value(buf, nullptr, json_object_array_get_idx(array, i))) return false;
    }
    return true;
}

bool put_table(blob_buf* buf, const char* name, json_object* object) {
    void* table = blobmsg_open_table(buf, name);
    const bool whole = table && put_members(buf, object);
    blobmsg_close_table(buf, table);
    return whole;
}

bool put_array(blob_buf* buf, const char* name, json_object* array) {
    void* nest = blobmsg_open_array(buf, name);
    const bool whole = nest && put_items(buf, array);
    blobmsg_close_array(buf, nest);
    return whole;
}

bool put_integer(blob_buf* buf, const char* name, int64_t value) {
    if (value >= INT32_MIN && value <= INT32_MAX)
        return blobmsg_add_u32(buf, name, static_cast<uint32_t>(value)) == 0;
    return blobmsg_add_u64(buf, name, static_cast<uint64_t>(value)) == 0;
}

bool put_value(blob_buf* buf, const char* name, json_object* value) {
    switch (json_object_get_type(value)) {
        case json_type_object:
            return put_table(buf, name, value);
        case json_type_array:
            return put_array(buf, name, value);
        case json_type_string:
            return blobmsg_add_string(buf, name, json_object_get_string(value)) == 0;
        case json_type_boolean:
            return blobmsg_add_u8(buf, name, json_object_get_boolean(value) ? 1 : 0) == 0;
        case json_type_int:
            return put_integer(buf, name, json_object_get_int64(value));
        case json_type_double:
            return blobmsg_add_double(buf, name, json_object_get_double(value)) == 0;
        case json_type_null:
            return blobmsg_add_field(buf, BLOBMSG_TYPE_UNSPEC, name, nullptr, 0) == 0;
    }
    return false;
}

// How deep a message may be nested: it comes from anyone, and printing it recurses.
constexpr int kMaxDepth = 64;

class Printer {
  public:
    Printer(FILE* stream, bool pretty) : stream_(stream), pretty_(pretty) {}

    void print_elements(const blob_attr* container, bool array, int depth);

  private:
    void new_line(int depth);
    void print_text(const char* text);
    void print_value(blob_attr* element, int depth);

    FILE* stream_;
    bool pretty_;
};

void Printer::new_line(int depth) {
    if (!pretty_) return;
    fputc('\n', stream_);
    for (int i = 0; i < depth; i++) {
        fputc('\t', stream_);
    }
}

const char* short_escape(char c) {
    switch (c) {
        case '\b':
            return "\\b";
        case '\n':
            return "\\n";
        case '\t':
            return "\\t";
        case '\r':
            return "\\r";
        case '\f':
            return "\\f";
        case '"':
            return "\\\"";
        case '\\':
            return "\\\\";
        default:
            return nullptr;
    }
}

void Printer::print_text(const char* text) {
    fputc('"', stream_);
    for (; *text; text++) {
        const char* escape = short_escape(*text);
        if (escape) {
            fputs(escape, stream_);
        } else if (static_cast<unsigned char>(*text) < ' ') {
            fprintf(stream_, "\\u%04x", static_cast<unsigned int>(*text));
        } else {
            fputc(*text, stream_);
        }
    }
    fputc('"', stream_);
}

void Printer::print_value(blob_attr* element, int depth) {
    switch (blobmsg_type(element)) {
        case BLOBMSG_TYPE_BOOL:
            fputs(blobmsg_get_bool(element) ? "true" : "false", stream_);
            break;
        case BLOBMSG_TYPE_INT16:
        case BLOBMSG_TYPE_INT32:
        case BLOBMSG_TYPE_INT64:
            fprintf(stream_, "%" PRId64, blobmsg_cast_s64(element));
            break;
        case BLOBMSG_TYPE_DOUBLE:
            fprintf(stream_, "%f", blobmsg_get_double(element));
            break;
        case BLOBMSG_TYPE_STRING:
            print_text(blobmsg_get_string(element));
            break;
        case BLOBMSG_TYPE_ARRAY:
            print_elements(element, true, depth);
            break;
        case BLOBMSG_TYPE_TABLE:
            print_elements(element, false, depth);
            break;
        default:
            fputs("null", stream_);
            break;
    }
}

void Printer::print_elements(const blob_attr* container, bool array, int depth) {
    if (depth > kMaxDepth) {
        fputs("null", stream_);
        return;
    }
    fputc(array ? '[' : '{', stream_);
    new_line(depth + 1);
    const char* separator = "";
    blob_attr* element = nullptr;
    size_t rem = 0;
    blobmsg_for_each_attr(element, container, rem) {
        if (!blobmsg_check_attr_len(element, false, rem)) break;
        fputs(separator, stream_);
        if (*separator) new_line(depth + 1);
        separator = ",";
        if (!array) {
            print_text(blobmsg_name(element));
            fputs(pretty_ ? ": " : ":", stream_);
        }
        print_value(element, depth + 1);
    }
    new_line(depth);
    fputc(array ? ']' : '}', stream_);
}

}  // namespace

bool put_json(blob_buf* buf, const char* text) {
    const Json object(json_tokener_parse(text));
    return json_object_is_type(object.get(), json_type_object) && put_members(buf, object.get());
}

void print_json(FILE* stream, const blob_attr* message, bool pretty) {
    Printer(stream, pretty).print_elements(message, false, 0);
}

}  // namespace ubus
