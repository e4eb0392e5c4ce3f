#include "tq/redboot.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "foundation/file.h"

namespace {

using tq::UniqueFd;

constexpr char kDevice[] = "/dev/mtdblock1";

// The layout of the block.
constexpr size_t kBlockSize = sizeof(redboot_config);
constexpr size_t kLengthOffset = 0;
constexpr size_t kFirstMagicOffset = 4;
constexpr size_t kEntriesBegin = 8;
constexpr size_t kEntriesEnd = 4088;
constexpr size_t kSecondMagicOffset = 4088;
constexpr size_t kChecksumOffset = 4092;
static_assert(kBlockSize == 4096);
static_assert(kChecksumOffset + sizeof(uint32_t) == kBlockSize);
static_assert(kEntriesEnd - kEntriesBegin == 4080);

constexpr uint32_t kFirstMagic = 0x0BADFACE;
constexpr uint32_t kSecondMagic = 0xDEADDEAD;

// The layout of the option on the 32-bit device.
static_assert(sizeof(void*) != 4 || sizeof(redboot_config_option) == 24);
static_assert(offsetof(redboot_config_option, enable_sense) == 3 * sizeof(void*));
static_assert(offsetof(redboot_config_option, default_value) == 3 * sizeof(void*) + 8);

constexpr size_t kTextSize = 128;
constexpr size_t kEthernetSize = 6;

// How the values of a type are kept: the room that one has in the block, and how many of its bytes
// the calls read and write.
struct ValueLayout {
    uint16_t room;
    uint8_t used;
    bool is_text;
};

constexpr ValueLayout kLayouts[] = {
    {0, 0, false},              // none
    {4, 4, false},              // bool
    {4, 4, false},              // int
    {128, kTextSize, true},     // string
    {512, kTextSize, true},     // script
    {4, 4, false},              // IPv4 address
    {8, kEthernetSize, false},  // Ethernet address
    {128, kTextSize, true},     // network port
};
static_assert(std::size(kLayouts) == REDBOOT_CONFIG_NET_PORT + 1);

// Keys have their lengths, terminator included, in a byte.
constexpr size_t kLongestKey = 254;

bool redboot_config_loaded = false;

consteval uint32_t crc_of_byte(uint32_t byte) {
    for (int bit = 0; bit < 8; bit++) {
        byte = (byte & 1) ? (byte >> 1) ^ 0xEDB88320 : byte >> 1;
    }
    return byte;
}

// Types that are not known have no value.
const ValueLayout& layout_of(uint32_t type) {
    return kLayouts[type < std::size(kLayouts) ? type : 0];
}

// An entry of the block; where it comes from entry_at(), all of it lies within the entry area.
struct Entry {
    uint8_t type;
    uint8_t key_size;
    uint8_t enable_sense;
    uint8_t enable_key_size;

    [[nodiscard]] char* key() { return reinterpret_cast<char*>(this + 1); }
    [[nodiscard]] char* enable_key() { return key() + key_size; }
    [[nodiscard]] char* value() { return enable_key() + enable_key_size; }
    [[nodiscard]] size_t room() const { return layout_of(type).room; }
    [[nodiscard]] size_t size() const {
        return sizeof(*this) + key_size + enable_key_size + room();
    }
};
static_assert(sizeof(Entry) == 4);

Entry* unchecked_entry(size_t offset) {
    return reinterpret_cast<Entry*>(&redboot_config[offset]);
}

Entry* entry_at(size_t offset) {
    if (offset + sizeof(Entry) > kEntriesEnd) return nullptr;
    Entry* entry = unchecked_entry(offset);
    return offset + entry->size() > kEntriesEnd ? nullptr : entry;
}

// Passes over entries of type 0, too: what they hold is found as long as it is there. A key of the
// block without its terminator is none.
Entry* redboot_find_config(const char* key) {
    if (!redboot_config_loaded) return nullptr;
    const size_t length = strlen(key);
    size_t offset = kEntriesBegin;
    while (Entry* entry = entry_at(offset)) {
        if (length < entry->key_size && memcmp(entry->key(), key, length + 1) == 0) return entry;
        offset += entry->size();
    }
    return nullptr;
}

uint32_t redboot_crc() {
    uint32_t crc = 0;
    for (size_t i = 0; i < kChecksumOffset; i++) {
        crc = crc32_table[(crc ^ redboot_config[i]) & 0xFF] ^ (crc >> 8);
    }
    return crc;
}

uint32_t word_at(size_t offset) {
    uint32_t word = 0;
    memcpy(&word, &redboot_config[offset], sizeof(word));
    return word;
}

void set_word(size_t offset, uint32_t word) {
    memcpy(&redboot_config[offset], &word, sizeof(word));
}

bool is_valid() {
    return word_at(kChecksumOffset) == redboot_crc() && word_at(kFirstMagicOffset) == kFirstMagic &&
           word_at(kSecondMagicOffset) == kSecondMagic;
}

bool needs_loading() {
    if (redboot_config_loaded && config) return false;
    puts("Please load redboot configuration first");
    return true;
}

void get_value(Entry* entry, void* value) {
    char* field = entry->value();
    const ValueLayout& layout = layout_of(entry->type);
    if (layout.is_text) {
        memcpy(value, &field, sizeof(field));
    } else {
        memcpy(value, field, layout.used);
    }
}

// Of a text never more than up to its own end; what is stored may have been handed out of the same
// field. The entry's type may be another than the value's: what its room does not hold is cut.
void store(Entry* entry, const ValueLayout& layout, const void* value) {
    const size_t size = std::min<size_t>(entry->room(), layout.used);
    const size_t length = layout.is_text ? strnlen(static_cast<const char*>(value), size) : size;
    memmove(entry->value(), value, length);
    memset(entry->value() + length, 0, size - length);
}

bool default_is_pointer(uint32_t type) {
    return type == REDBOOT_CONFIG_STRING || type == REDBOOT_CONFIG_ESA ||
           type == REDBOOT_CONFIG_NET_PORT;
}

bool is_valid_option(const redboot_config_option* option) {
    if (!option || !option->key) return false;
    if (option->type == 0 || option->type > UINT8_MAX) return false;
    return option->default_value != 0 || !default_is_pointer(option->type);
}

// How many bytes of a text may be looked at, of so many: one that redboot_get_config has handed out
// need not have an end within the block.
size_t readable(const char* text, size_t size) {
    const size_t offset =
        reinterpret_cast<uintptr_t>(text) - reinterpret_cast<uintptr_t>(redboot_config);
    return offset < kEntriesEnd ? std::min(size, kEntriesEnd - offset) : size;
}

// A text as it is, without zeros behind its terminator.
void store_port(Entry* entry, const char* text) {
    const size_t size = readable(text, entry->room());
    memmove(entry->value(), text, std::min(size, strnlen(text, size) + 1));
}

void redboot_store_default(Entry* entry, const redboot_config_option& option) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a word that is a pointer for some types
    const auto* source = reinterpret_cast<const char*>(option.default_value);
    const auto number = static_cast<uint32_t>(option.default_value);
    switch (option.type) {
        case REDBOOT_CONFIG_NET_PORT:
            store_port(entry, source);
            break;
        case REDBOOT_CONFIG_SCRIPT:
            break;
        default:
            store(entry, layout_of(option.type),
                  default_is_pointer(option.type) ? source : static_cast<const void*>(&number));
            break;
    }
}

// A key's length in the block, its terminator included; none is 0.
size_t stored_size(const char* key) {
    return key ? strlen(key) + 1 : 0;
}

// The first byte of type 0, or an offset behind the area.
size_t find_free_space() {
    size_t offset = kEntriesBegin;
    while (offset < kEntriesEnd && unchecked_entry(offset)->type != 0)
        offset += unchecked_entry(offset)->size();
    return offset;
}

// Added to the bytes that are there: the boot loader fills its blocks in the same way.
void add_name(char* at, const char* name) {
    for (; *name; name++, at++)
        *at = static_cast<char>(*at + *name);
    *at = '\0';
}

// Behind the last entry, with no value yet; null, with the text printed, where it does not fit.
Entry* new_entry(const redboot_config_option& option) {
    const size_t key_size = stored_size(option.key);
    const size_t enable_key_size = stored_size(option.enable_key);
    const size_t offset = find_free_space();
    const size_t need = sizeof(Entry) + key_size + enable_key_size + layout_of(option.type).room;
    if (std::max(key_size, enable_key_size) > kLongestKey + 1 || offset + need > kEntriesEnd) {
        printf("No space to add '%s'\n", option.key);
        return nullptr;
    }
    Entry* entry = unchecked_entry(offset);
    entry->type = static_cast<uint8_t>(option.type);
    entry->key_size = static_cast<uint8_t>(key_size);
    entry->enable_sense = static_cast<uint8_t>(std::min<uint32_t>(option.enable_sense, UINT8_MAX));
    entry->enable_key_size = static_cast<uint8_t>(enable_key_size);
    add_name(entry->key(), option.key);
    if (option.enable_key) add_name(entry->enable_key(), option.enable_key);
    return entry;
}

// A bool that is not there is false.
bool is_enabled(Entry* entry) {
    if (entry->enable_key_size == 0) return true;
    char key[kLongestKey + 2];
    snprintf(key, sizeof(key), "%.*s", entry->enable_key_size, entry->enable_key());
    uint32_t enabled = 0;
    redboot_get_config(key, &enabled, REDBOOT_CONFIG_BOOL);
    return (enabled != 0) == (entry->enable_sense != 0);
}

void print_script(const char* script, size_t size) {
    puts("");
    const char* const end = script + strnlen(script, size);
    while (script < end) {
        const auto* feed =
            static_cast<const char*>(memchr(script, '\n', static_cast<size_t>(end - script)));
        if (!feed) feed = end;
        printf(".. %.*s\n", static_cast<int>(feed - script), script);
        script = feed + 1;
    }
    puts("");
}

void print_ethernet_address(const unsigned char* address) {
    for (size_t i = 0; i < kEthernetSize; i++)
        printf("0x%02X%c", address[i], i + 1 < kEthernetSize ? ':' : '\n');
}

void redboot_print_config_entry(Entry* entry) {
    printf("%.*s: ", entry->key_size, entry->key());
    const char* field = entry->value();
    uint32_t number = 0;  // within the block, where the entry has no value and ends its area, too
    memcpy(&number, field, sizeof(number));
    switch (entry->type) {
        case REDBOOT_CONFIG_BOOL:
            printf("%s\n", number ? "true" : "false");
            break;
        case REDBOOT_CONFIG_INT:
            printf("%lu\n", static_cast<unsigned long>(number));
            break;
        case REDBOOT_CONFIG_SCRIPT:
            print_script(field, entry->room());
            break;
        case REDBOOT_CONFIG_ESA:
            print_ethernet_address(reinterpret_cast<const unsigned char*>(field));
            break;
        default:
            printf("%.*s\n", static_cast<int>(entry->room()), field);
            break;
    }
}

int open_flash(int flags) {
    const int fd = open(kDevice, flags | O_CLOEXEC);
    if (fd < 0) printf("Can't open %s\n", kDevice);
    return fd;
}

}  // namespace

alignas(uint32_t) unsigned char redboot_config[4096];
unsigned char* config;

#define TQ_CRC_4(byte) \
    crc_of_byte(byte), crc_of_byte((byte) + 1), crc_of_byte((byte) + 2), crc_of_byte((byte) + 3)
#define TQ_CRC_16(byte) \
    TQ_CRC_4(byte), TQ_CRC_4((byte) + 4), TQ_CRC_4((byte) + 8), TQ_CRC_4((byte) + 12)
#define TQ_CRC_64(byte) \
    TQ_CRC_16(byte), TQ_CRC_16((byte) + 16), TQ_CRC_16((byte) + 32), TQ_CRC_16((byte) + 48)
constexpr uint32_t crc32_table[256] = {TQ_CRC_64(0), TQ_CRC_64(64), TQ_CRC_64(128), TQ_CRC_64(192)};

redboot_config_option CYG_HAL_TABLE_TYPE;

const char redboot_script_en_key[] = "boot_script";
const char redboot_script_data_key[] = "boot_script_data";
const char redboot_script_timeout_key[] = "boot_script_timeout";
const char redboot_script_default[] = "fis load -d %{kernel}\nexec\n";
const char redboot_kernel_alias[] = "alias/kernel";
const char redboot_rootdev_alias[] = "alias/rootdev";
const char redboot_pri_kernel[] = "kernel";
const char redboot_pri_rootdev[] = "rootfs";
const char redboot_bak_kernel[] = "\"kernel bak\"";
const char redboot_bak_rootdev[] = "\"rootfs bak\"";
const char redboot_sn_data_key[] = "serial_number";
const char redboot_sn_title[] = "product serial number";
const char redboot_sn_default[1] = "";

int redboot_load_config(void) {
    config = nullptr;
    const UniqueFd flash(open_flash(O_RDWR));
    if (!flash) return 0;
    if (tq::read_some(flash.get(), redboot_config, kBlockSize) != ssize_t{kBlockSize}) {
        puts("Read config error");
    } else if (!is_valid()) {
        puts("RedBoot configuration CRC error");
    } else {
        config = redboot_config;
        redboot_config_loaded = true;
    }
    return config != nullptr;
}

int redboot_write_config(void) {
    if (needs_loading()) return 0;
    set_word(kLengthOffset, kBlockSize);
    set_word(kFirstMagicOffset, kFirstMagic);
    set_word(kSecondMagicOffset, kSecondMagic);
    set_word(kChecksumOffset, redboot_crc());
    const UniqueFd flash(open_flash(O_RDWR | O_DSYNC));
    return flash && write(flash.get(), redboot_config, kBlockSize) == ssize_t{kBlockSize};
}

int redboot_get_config(const char* key, void* value, uint32_t type) {
    if (!key || !value) return 0;
    Entry* entry = redboot_find_config(key);
    if (!entry) return 0;
    if (entry->type == type) {
        get_value(entry, value);
    } else {
        printf("Request for config value '%s' - wrong type\n", key);
    }
    return 1;
}

int redboot_set_config(const char* key, const void* value, uint32_t type) {
    if (!key || !value) return 0;
    Entry* entry = redboot_find_config(key);
    if (!entry) return 0;
    if (entry->type != type || entry->room() == 0) {
        printf("Can't set config value '%s' - wrong type\n", key);
        return 0;
    }
    store(entry, layout_of(type), value);
    return 1;
}

int redboot_add_config(const redboot_config_option* option) {
    if (!redboot_config_loaded || !is_valid_option(option)) return 0;
    Entry* entry = redboot_find_config(option->key);
    if (!entry) entry = new_entry(*option);
    if (!entry) return 0;
    redboot_store_default(entry, *option);
    return 1;
}

int redboot_show_config(void) {
    if (needs_loading()) return 0;
    size_t offset = kEntriesBegin;
    while (Entry* entry = entry_at(offset)) {
        if (entry->type == 0) break;
        if (is_enabled(entry)) redboot_print_config_entry(entry);
        offset += entry->size();
    }
    return 1;
}
