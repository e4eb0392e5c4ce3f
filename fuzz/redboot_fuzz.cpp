// redboot_fuzz.cpp - feeds bytes to the boot loader's configuration block: as the flash as it is,
// and as the entries of a block whose checksum and magic numbers are right. The first byte chooses
// what is asked of it.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <tq/image_switch.h>
#include <tq/redboot.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr size_t kBlockSize = 4096;
constexpr size_t kEntriesBegin = 8;
constexpr size_t kEntriesEnd = 4088;

int flash = -1;

}  // namespace

// The library's flash is a file in memory. Nothing here reaches the machine's own, and nothing
// waits.
extern "C" {
int fuzz_open(const char* path, int flags, mode_t mode) asm("open");
int fuzz_open64(const char* path, int flags, mode_t mode) asm("open64");
unsigned fuzz_sleep(unsigned seconds) asm("sleep");
void fuzz_sync() asm("sync");
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
}

int fuzz_open(const char* path, int flags, mode_t mode) {
    if (strcmp(path, "/dev/mtdblock1") != 0)
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    lseek(flash, 0, SEEK_SET);
    return dup(flash);
}

int fuzz_open64(const char* path, int flags, mode_t mode) {
    return fuzz_open(path, flags, mode);
}

unsigned fuzz_sleep(unsigned) {
    return 0;
}

void fuzz_sync() {}

namespace {

void require(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "%s\n", what);
    abort();
}

void put(const std::string& bytes) {
    require(ftruncate(flash, 0) == 0 &&
                pwrite(flash, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
            "no memory for the flash");
}

uint32_t checksum(std::string_view bytes) {
    uint32_t crc = 0;
    for (const char byte : bytes)
        crc = crc32_table[(crc ^ static_cast<unsigned char>(byte)) & 0xFF] ^ crc >> 8;
    return crc;
}

void set_word(std::string& block, size_t offset, uint32_t word) {
    memcpy(&block[offset], &word, sizeof(word));
}

std::string block_of(std::string_view entries) {
    std::string block(kBlockSize, '\0');
    entries.copy(&block[kEntriesBegin], kEntriesEnd - kEntriesBegin);
    set_word(block, 0, kBlockSize);
    set_word(block, 4, 0x0BADFACE);
    set_word(block, 4088, 0xDEADDEAD);
    set_word(block, 4092, checksum(std::string_view(block).substr(0, 4092)));
    return block;
}

// Whatever is asked, the words around the entries stay.
class Frame {
  public:
    Frame() : before_(frame()) {}
    void check() const { require(frame() == before_, "written outside the entry area"); }

  private:
    static std::string frame() {
        const auto* block = reinterpret_cast<const char*>(redboot_config);
        return std::string(block, kEntriesBegin) +
               std::string(block + kEntriesEnd, kBlockSize - kEntriesEnd);
    }

    std::string before_;
};

// What is handed out of the block lies within it.
void get(const char* key, uint32_t type) {
    const bool is_text = type == REDBOOT_CONFIG_STRING || type == REDBOOT_CONFIG_SCRIPT ||
                         type == REDBOOT_CONFIG_NET_PORT;
    alignas(uintptr_t) unsigned char value[8] = {};
    if (redboot_get_config(key, value, type) != 1 || !is_text) return;
    const unsigned char* text = nullptr;
    memcpy(&text, value, sizeof(text));
    if (!text) return;
    const size_t size = type == REDBOOT_CONFIG_SCRIPT ? 512 : 128;
    require(text >= redboot_config + kEntriesBegin && text + size <= redboot_config + kEntriesEnd,
            "handed out what is not an entry's");
}

void use(const char* key, unsigned choice) {
    const Frame frame;
    static const std::string value(600, 'v');
    for (uint32_t type = 0; type <= 8; type++) {
        get(key, type);
        if (choice & 1) redboot_set_config(key, value.c_str(), type);
    }
    const uint32_t type = choice >> 1 & 7;
    const redboot_config_option option = {
        key,        nullptr, choice & 0x10 ? "enable" : nullptr,
        choice & 1, type,    reinterpret_cast<uintptr_t>(value.c_str())};
    redboot_add_config(&option);
    frame.check();
}

// Keys that may be there: each text of the block behind what could be a header.
void use_keys(std::string_view entries, unsigned choice) {
    use("alias/kernel", choice);
    use("", choice);
    for (size_t offset = 4, tried = 0; offset < entries.size() && tried < 3; tried++) {
        const std::string_view rest = entries.substr(offset);
        const std::string key(rest.substr(0, rest.find('\0')));
        use(key.c_str(), choice);
        offset += key.size() + 1 + static_cast<unsigned char>(choice);
    }
}

void fuzz_entries(std::string_view entries, unsigned choice) {
    put(block_of(entries));
    require(redboot_load_config() == 1, "a valid block is refused");
    redboot_show_config();
    use_keys(entries, choice);
    require(redboot_write_config() == 1, "the block is not saved");
    require(redboot_load_config() == 1, "what was saved is refused");
    redboot_show_config();
    char serial[200];
    sys_sn_get(serial, sizeof(serial));
    sys_image_check();
    sys_image_switch();
    sys_sn_set("serial");
    require(redboot_load_config() == 1, "what the switch saved is refused");
}

void fuzz_flash(std::string_view bytes) {
    put(std::string(bytes));
    const bool loaded = redboot_load_config() == 1;
    require((config != nullptr) == loaded, "config points where nothing was loaded");
    require(!loaded || bytes.size() >= kBlockSize, "a short block is accepted");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (flash < 0) {
        flash = memfd_create("flash", MFD_CLOEXEC);
        require(flash >= 0 && freopen("/dev/null", "we", stdout), "no memory for the flash");
    }
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    fuzz_flash(bytes);
    fuzz_entries(bytes.substr(0, kEntriesEnd - kEntriesBegin), data[0]);
    return 0;
}
