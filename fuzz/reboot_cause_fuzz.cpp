// reboot_cause_fuzz.cpp - feeds bytes to the store of reboot causes as its content. What touches
// the watchdog or reboots is not called here: this runs on the machine itself.
#include <sys/mman.h>
#include <tq/oem.h>
#include <tq/reboot_cause.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr int kSlots = REBOOT_CAUSE_RECORDS;
constexpr size_t kMagicOffset = 18;
constexpr size_t kFrontSize = 2596;

void require(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "%s\n", what);
    abort();
}

// In memory, and reached by a path.
int store() {
    static const int fd = memfd_create("store", MFD_CLOEXEC);
    return fd;
}

void set_content(const std::string& bytes) {
    require(ftruncate(store(), 0) == 0, "the store cannot be emptied");
    require(pwrite(store(), bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
            "the store cannot be filled");
}

std::string content() {
    std::string bytes(REBOOT_CAUSE_STORE_SIZE + 4096, '\0');
    const ssize_t size = pread(store(), bytes.data(), bytes.size(), 0);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return bytes;
}

void check_records() {
    constexpr char kGuard = '\x5a';
    std::array<reboot_cause_record, kSlots + 1> records;
    memset(records.data(), kGuard, sizeof(records));
    const int count = rb_read_reboot_cause(records.data(), kSlots + 5);
    require(count >= 0 && count <= kSlots, "the number of records is out of range");
    for (int i = 0; i < count; i++)
        require(records[static_cast<size_t>(i)].sequence != 0, "an empty record counts");
    for (size_t i = 0; i < sizeof(reboot_cause_record); i++) {
        require(reinterpret_cast<const char*>(&records[kSlots])[i] == kGuard,
                "more than 20 records are copied");
    }
}

void check_panics() {
    const auto panic = std::make_unique<reboot_panic_buffer>();
    std::string bytes = content();
    bytes.resize(std::max(bytes.size(), sizeof(reboot_cause_header)));
    for (const size_t offset : {22U, 24U}) {
        uint16_t identifier = 0;
        memcpy(&identifier, &bytes[offset], sizeof(identifier));
        panic->identifier = identifier;
        require(rb_read_panic_by_index(panic.get()) == 0, "a panic is not found");
    }
}

// A run that ends as planned.
void check_write() {
    reboot_cause_record record{};
    record.cause = 3;
    record.uptime = 60;
    const int result = rb_write_reboot_cause_inner(&record);
    require(result == 0 || result == 1, "a record is refused");
    if (result == 1) return;
    reboot_cause_header header{};
    FILE* stream = rb_open_reboot_cause_file(&header);
    require(stream, "the store does not open");
    fclose(stream);
    require(header.position >= 1 && header.position <= kSlots, "the position leaves the ring");
    require(header.statistic.last_cause == 3 && header.recorded == 1, "the header is not written");
    reboot_cause_record newest{};
    require(rb_read_reboot_cause(&newest, 1) == (record.sequence != 0), "the record is not found");
    require(memcmp(&newest, &record, sizeof(record)) == 0, "the record is not what was written");
}

void check_store(const std::string& bytes) {
    set_content(bytes);
    const bool is_store = bytes.size() > kMagicOffset && bytes[kMagicOffset] == '\xab';
    check_records();
    require(!is_store || content() == bytes, "reading changes the store");
    require(is_store || content().size() == REBOOT_CAUSE_STORE_SIZE, "no store is made");
    check_panics();
    require(rb_correct_reboot_time_now() == 0, "the times cannot be corrected");
    check_write();
    rb_set_ntp_sync_flag(1);
    check_records();
    if (!is_store || bytes.size() <= kFrontSize) return;
    require(content().substr(kFrontSize) == bytes.substr(kFrontSize), "the panics change");
}

}  // namespace

// In the place of the board library's.
int tq_get_oem_ap_type_partion_info(int, char* out, int len) {
    snprintf(out, static_cast<size_t>(len), "/proc/self/fd/%d", store());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string bytes(reinterpret_cast<const char*>(data),
                      std::min<size_t>(size, REBOOT_CAUSE_STORE_SIZE));
    check_store(bytes);
    if (bytes.size() <= kMagicOffset) return 0;
    bytes[kMagicOffset] = '\xab';
    check_store(bytes);
    bytes[16] = '\0';
    check_store(bytes);
    return 0;
}
