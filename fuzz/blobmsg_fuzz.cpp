// blobmsg_fuzz.cpp - feeds bytes to the workstation's libubox: as a message, an element and an
// array.
#include <libubox/blobmsg.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr blobmsg_policy kPolicy[] = {
    {"name", BLOBMSG_TYPE_STRING}, {"val", BLOBMSG_TYPE_INT32},  {"list", BLOBMSG_TYPE_ARRAY},
    {"table", BLOBMSG_TYPE_TABLE}, {"any", BLOBMSG_TYPE_UNSPEC}, {"number", BLOBMSG_CAST_INT64}};
constexpr int kCount = sizeof(kPolicy) / sizeof(kPolicy[0]);

volatile size_t seen;

// What was found may be read to its end.
void read_value(blob_attr* element) {
    const size_t size = blobmsg_data_len(element);
    seen = seen + strlen(blobmsg_name(element));
    if (blobmsg_type(element) == BLOBMSG_TYPE_STRING)
        seen = seen + strlen(blobmsg_get_string(element));
    seen = seen + static_cast<size_t>(blobmsg_cast_u64(element));
    const auto* bytes = static_cast<const unsigned char*>(blobmsg_data(element));
    for (size_t i = 0; i < size; i++) {
        seen = seen + bytes[i];
    }
}

void walk(const blob_attr* container, int depth) {
    if (depth > 32) return;
    blob_attr* element = nullptr;
    size_t rem = 0;
    blobmsg_for_each_attr(element, container, rem) {
        if (!blobmsg_check_attr_len(element, false, rem)) return;
        read_value(element);
        const int type = blobmsg_type(element);
        if (type == BLOBMSG_TYPE_TABLE || type == BLOBMSG_TYPE_ARRAY) walk(element, depth + 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // In a block of its own, so that a read behind it is seen.
    const std::unique_ptr<char[]> copy(new char[size]);
    memcpy(copy.get(), data, size);
    auto* attr = reinterpret_cast<blob_attr*>(copy.get());

    blob_attr* found[kCount];
    if (blobmsg_parse(kPolicy, kCount, found, copy.get(), static_cast<unsigned int>(size)) == 0) {
        for (blob_attr* element : found) {
            if (element) read_value(element);
        }
    }
    blobmsg_parse_array(kPolicy, kCount, found, copy.get(), static_cast<unsigned int>(size));
    if (blobmsg_check_array_len(attr, BLOBMSG_TYPE_UNSPEC, size) >= 0) walk(attr, 0);

    blob_attr* attributes[16];
    blob_parse_untrusted(attr, size, attributes, nullptr, 16);
    return 0;
}
