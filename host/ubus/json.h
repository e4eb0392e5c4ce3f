// json.h - messages as the `ubus` command's users write and read them.
#pragma once

#include <libubox/blobmsg.h>

#include <cstdio>

namespace ubus {

// Fills the message with a JSON object's members; false where the text is none.
bool put_json(blob_buf* buf, const char* text);

// A message's elements as an object; pretty: on lines of their own.
void print_json(FILE* stream, const blob_attr* message, bool pretty);

}  // namespace ubus
