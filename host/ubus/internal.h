// internal.h - what the parts of the client library know of each other.
#pragma once

#include <libubus.h>

#include <cstddef>
#include <cstdint>

namespace ubus {

// A message as it came: its numbers in the machine's order.
struct Message {
    uint8_t type;
    uint16_t seq;
    uint32_t peer;
    blob_attr* body;
};

// A blob under construction, freed at the end.
class Blob {
  public:
    Blob() { blob_buf_init(&buf_, 0); }
    ~Blob() { blob_buf_free(&buf_); }
    Blob(const Blob&) = delete;
    Blob& operator=(const Blob&) = delete;

    blob_buf* buf() { return &buf_; }
    // Null without memory.
    blob_attr* message() const { return buf_.head; }

  private:
    blob_buf buf_ = {};
};

// connection.cpp

bool send_message(ubus_context* ctx, uint8_t type, uint16_t seq, uint32_t peer,
                  const blob_attr* body);

// Handles the next message, if it has come; whether there may be another.
bool receive(ubus_context* ctx);

// request.cpp

// Sends a request; the result is a status.
int start_request(ubus_context* ctx, ubus_request* req, uint8_t type, uint32_t peer,
                  blob_attr* body);

// The same, and waits for its end.
int perform_request(ubus_context* ctx, uint8_t type, uint32_t peer, blob_attr* body,
                    ubus_data_handler_t raw_data, void* priv);

void handle_status(ubus_context* ctx, const Message& message);
void handle_data(ubus_context* ctx, const Message& message);

// Nobody will answer any more.
void fail_requests(ubus_context* ctx);

// object.cpp

// A call, or a change of subscriptions, for one of this program's objects.
void handle_object_message(ubus_context* ctx, const Message& message);

// Handles what came for the objects while a request was waited for.
void handle_pending(ubus_context* ctx);
void drop_pending(ubus_context* ctx);

// Puts the objects back on the bus after a new connection.
void add_objects_again(ubus_context* ctx);

}  // namespace ubus
