#include "tq/redboot.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>

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
constexpr size_t kEntryHeaderSize = 4;
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

// A key as messages print it.
#define TQ_KEY_FORMAT "%.*s"
#define TQ_KEY(key) static_cast<int>((key).size()), (key).data()

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

// The text in a field up to its terminator, or all of the field.
std::string_view text_of(const unsigned char* field, size_t size) {
    const char* text = reinterpret_cast<const char*>(field);
    return {text, strnlen(text, size)};
}

// An entry of the block; where it comes from entry_at(), all of it lies within the entry area.
class Entry {
  public:
    explicit Entry(size_t offset) : header_(&redboot_config[offset]) {}

    [[nodiscard]] uint32_t type() const { return header_[0]; }
    [[nodiscard]] bool enable_sense() const { return header_[2] != 0; }
    [[nodiscard]] bool has_enable_key() const { return header_[3] != 0; }
    [[nodiscard]] bool has_key(std::string_view key) const;
    [[nodiscard]] std::string_view key() const { return text_of(names(), header_[1]); }
    [[nodiscard]] std::string_view enable_key() const {
        return text_of(names() + header_[1], header_[3]);
    }
    [[nodiscard]] unsigned char* names() const { return header_ + kEntryHeaderSize; }
    [[nodiscard]] unsigned char* value() const { return names() + header_[1] + header_[3]; }
    [[nodiscard]] size_t room() const { return layout_of(type()).room; }
    [[nodiscard]] size_t size() const {
        return kEntryHeaderSize + header_[1] + header_[3] + room();
    }

    void set_header(const redboot_config_option& option) const;

  private:
    unsigned char* header_;
};

// A key without its terminator is none.
bool Entry::has_key(std::string_view key) const {
    return key.size() < header_[1] && memcmp(names(), key.data(), key.size()) == 0 &&
           names()[key.size()] == '\0';
}

std::optional<Entry> entry_at(size_t offset) {
    if (offset + kEntryHeaderSize > kEntriesEnd) return std::nullopt;
    const Entry entry(offset);
    if (offset + entry.size() > kEntriesEnd) return std::nullopt;
    return entry;
}

// Passes over entries of type 0, too: what they hold is found as long as it is there.
std::optional<Entry> redboot_find_config(std::string_view key) {
    if (!redboot_config_loaded) return std::nullopt;
    size_t offset = kEntriesBegin;
    while (const std::optional<Entry> entry = entry_at(offset)) {
        if (entry->has_key(key)) return entry;
        offset += entry->size();
    }
    return std::nullopt;
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
    printf("Please load redboot configuration first");
    return true;
}

int no_space_for(const char* key) {
    printf("No space to add '%s'\n", key);
    return 0;
}

void get_value(const Entry& entry, void* value) {
    const unsigned char* field = entry.value();
    const ValueLayout& layout = layout_of(entry.type());
    if (layout.is_text) {
        memcpy(value, &field, sizeof(field));
    } else {
        memcpy(value, field, layout.used);
    }
}

int get_config(std::string_view key, void* value, uint32_t type) {
    const std::optional<Entry> entry = redboot_find_config(key);
    if (!entry) return 0;
    if (entry->type() == type) {
        get_value(*entry, value);
    } else {
        printf("Request for config value '" TQ_KEY_FORMAT "' - wrong type\n", TQ_KEY(key));
    }
    return 1;
}

// Never reads past the text's own end. What is stored may have been handed out of the same field.
void store_text(unsigned char* field, size_t size, const void* text) {
    const size_t length = strnlen(static_cast<const char*>(text), size);
    memmove(field, text, length);
    memset(field + length, 0, size - length);
}

void set_value(const Entry& entry, const void* value) {
    const ValueLayout& layout = layout_of(entry.type());
    if (layout.is_text) {
        store_text(entry.value(), layout.used, value);
    } else {
        memcpy(entry.value(), value, layout.used);
    }
}

// The entry's type may be another than the option's: what its room does not hold is cut.
void redboot_store_default(const Entry& entry, const redboot_config_option& option) {
    unsigned char* field = entry.value();
    const size_t room = std::min<size_t>(entry.room(), layout_of(option.type).used);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a word that is a pointer for some types
    const auto* source = reinterpret_cast<const char*>(option.default_value);
    const auto number = static_cast<uint32_t>(option.default_value);
    switch (option.type) {
        case REDBOOT_CONFIG_STRING:
            store_text(field, room, source);
            break;
        case REDBOOT_CONFIG_NET_PORT:
            memmove(field, source, std::min(room, strnlen(source, kTextSize) + 1));
            break;
        case REDBOOT_CONFIG_ESA:
            memcpy(field, source, room);
            break;
        case REDBOOT_CONFIG_SCRIPT:
            break;
        default:
            memcpy(field, &number, room);
            break;
    }
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

// A key's length in the block, its terminator included; none is 0.
size_t stored_size(const char* key) {
    return key ? strlen(key) + 1 : 0;
}

// The first byte of type 0, or an offset behind the area.
size_t find_free_space() {
    size_t offset = kEntriesBegin;
    while (offset < kEntriesEnd && Entry(offset).type() != 0) {
        offset += Entry(offset).size();
    }
    return offset;
}

void Entry::set_header(const redboot_config_option& option) const {
    header_[0] = static_cast<unsigned char>(option.type);
    header_[1] = static_cast<unsigned char>(stored_size(option.key));
    header_[2] = static_cast<unsigned char>(std::min<uint32_t>(option.enable_sense, UINT8_MAX));
    header_[3] = static_cast<unsigned char>(stored_size(option.enable_key));
}

// Added to the bytes that are there: the boot loader fills its blocks in the same way.
unsigned char* add_name(unsigned char* at, const char* name) {
    for (; *name; name++, at++) {
        *at = static_cast<unsigned char>(*at + *name);
    }
    *at = '\0';
    return at + 1;
}

void append_entry(size_t offset, const redboot_config_option& option) {
    const Entry entry(offset);
    entry.set_header(option);
    unsigned char* end = add_name(entry.names(), option.key);
    if (option.enable_key) add_name(end, option.enable_key);
    redboot_store_default(entry, option);
}

// A bool that is not there is false.
bool is_enabled(const Entry& entry) {
    if (!entry.has_enable_key()) return true;
    uint32_t enabled = 0;
    get_config(entry.enable_key(), &enabled, REDBOOT_CONFIG_BOOL);
    return (enabled != 0) == entry.enable_sense();
}

void print_text(std::string_view text) {
    printf("%.*s\n", static_cast<int>(text.size()), text.data());
}

void print_script(std::string_view script) {
    printf("\n");
    while (!script.empty()) {
        const size_t length = std::min(script.find('\n'), script.size());
        printf(".. %.*s\n", static_cast<int>(length), script.data());
        script.remove_prefix(std::min(length + 1, script.size()));
    }
    printf("\n");
}

void print_ethernet_address(const unsigned char* address) {
    for (size_t i = 0; i < kEthernetSize; i++) {
        printf("%s0x%02X", i > 0 ? ":" : "", address[i]);
    }
    printf("\n");
}

void redboot_print_config_entry(const Entry& entry) {
    printf(TQ_KEY_FORMAT ": ", TQ_KEY(entry.key()));
    const std::string_view text = text_of(entry.value(), entry.room());
    uint32_t number = 0;
    switch (entry.type()) {
        case REDBOOT_CONFIG_BOOL:
            get_value(entry, &number);
            print_text(number ? "true" : "false");
            break;
        case REDBOOT_CONFIG_INT:
            get_value(entry, &number);
            printf("%lu\n", static_cast<unsigned long>(number));
            break;
        case REDBOOT_CONFIG_SCRIPT:
            print_script(text);
            break;
        case REDBOOT_CONFIG_ESA:
            print_ethernet_address(entry.value());
            break;
        default:
            print_text(text);
            break;
    }
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

namespace {

// The proof of the table: the polynomial as it is written, x^32 first, divides the byte with its
// bits in the other order.
consteval uint32_t reflected(uint32_t value, int bits) {
    uint32_t result = 0;
    for (int bit = 0; bit < bits; bit++) {
        if (value >> bit & 1) result |= uint32_t{1} << (bits - 1 - bit);
    }
    return result;
}

consteval uint32_t remainder_of(uint32_t byte) {
    uint32_t rest = reflected(byte, 8) << 24;
    for (int bit = 0; bit < 8; bit++) {
        rest = (rest & 0x80000000) ? rest << 1 ^ 0x04C11DB7 : rest << 1;
    }
    return reflected(rest, 32);
}

consteval bool is_table_of_polynomial() {
    for (uint32_t byte = 0; byte < 256; byte++) {
        if (crc32_table[byte] != remainder_of(byte)) return false;
    }
    return true;
}
static_assert(is_table_of_polynomial());

}  // namespace

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
    const UniqueFd flash(open(kDevice, O_RDWR | O_CLOEXEC));
    if (!flash) {
        printf("Can't open %s\n", kDevice);
        return 0;
    }
    if (tq::read_some(flash.get(), redboot_config, kBlockSize) != ssize_t{kBlockSize}) {
        printf("Read config error");
        return 0;
    }
    if (!is_valid()) {
        printf("RedBoot configuration CRC error");
        return 0;
    }
    config = redboot_config;
    redboot_config_loaded = true;
    return 1;
}

int redboot_write_config(void) {
    if (needs_loading()) return 0;
    set_word(kLengthOffset, kBlockSize);
    set_word(kFirstMagicOffset, kFirstMagic);
    set_word(kSecondMagicOffset, kSecondMagic);
    set_word(kChecksumOffset, redboot_crc());
    const UniqueFd flash(open(kDevice, O_RDWR | O_DSYNC | O_CLOEXEC));
    if (!flash) {
        printf("Can't open %s\n", kDevice);
        return 0;
    }
    return write(flash.get(), redboot_config, kBlockSize) == ssize_t{kBlockSize};
}

int redboot_get_config(const char* key, void* value, uint32_t type) {
    if (!key || !value) return 0;
    return get_config(key, value, type);
}

int redboot_set_config(const char* key, const void* value, uint32_t type) {
    if (!key || !value) return 0;
    const std::optional<Entry> entry = redboot_find_config(key);
    if (!entry) return 0;
    if (entry->type() != type || entry->room() == 0) {
        printf("Can't set config value '%s' - wrong type\n", key);
        return 0;
    }
    set_value(*entry, value);
    return 1;
}

int redboot_add_config(const redboot_config_option* option) {
    if (!redboot_config_loaded || !is_valid_option(option)) return 0;
    if (const std::optional<Entry> entry = redboot_find_config(option->key)) {
        redboot_store_default(*entry, *option);
        return 1;
    }
    const size_t key_size = stored_size(option->key);
    const size_t enable_key_size = stored_size(option->enable_key);
    if (std::max(key_size, enable_key_size) > kLongestKey + 1) return no_space_for(option->key);
    const size_t offset = find_free_space();
    const size_t need =
        kEntryHeaderSize + key_size + enable_key_size + layout_of(option->type).room;
    if (offset + need > kEntriesEnd) return no_space_for(option->key);
    append_entry(offset, *option);
    return 1;
}

int redboot_show_config(void) {
    if (needs_loading()) return 0;
    size_t offset = kEntriesBegin;
    while (const std::optional<Entry> entry = entry_at(offset)) {
        if (entry->type() == 0) break;
        if (is_enabled(*entry)) redboot_print_config_entry(*entry);
        offset += entry->size();
    }
    return 1;
}
