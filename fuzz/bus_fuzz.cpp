// bus_fuzz.cpp - replies of a service, whatever their bytes, to the handler that callers are given.
#include <libubus.h>
#include <tq/bus.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// The message of a reply, of its own on the heap: what is read beyond it is noticed.
class Message {
  public:
    Message(const uint8_t* data, size_t size)
        : bytes_(static_cast<char*>(malloc(sizeof(blob_attr) + size))) {
        memcpy(bytes_ + sizeof(blob_attr), data, size);
        blob_attr head{};
        head.id_len = cpu_to_be32(static_cast<uint32_t>(sizeof(blob_attr) + size));
        memcpy(bytes_, &head, sizeof(head));
    }
    ~Message() { free(bytes_); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    blob_attr* get() { return reinterpret_cast<blob_attr*>(bytes_); }

  private:
    char* bytes_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 65536) return 0;
    Message message(data, size);
    // Room for a number, and for any text that the reply can hold.
    auto* room = static_cast<char*>(malloc(size + sizeof(uint32_t)));
    ubus_request request{};
    request.priv = room;
    get_log_data(&request, UBUS_MSG_DATA, message.get());
    if (request.priv != room && request.priv != nullptr) abort();
    free(room);
    return 0;
}
