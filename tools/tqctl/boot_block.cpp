#include "boot_block.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "file.h"
#include "mac_text.h"

namespace tqctl {

namespace {

constexpr char kFlash[] = "/dev/mtdblock1";

constexpr size_t kEntriesEnd = 4088;
constexpr size_t kHeaderSize = 4;

constexpr uint32_t kFirstMagic = 0x0BADFACE;
constexpr uint32_t kSecondMagic = 0xDEADDEAD;

struct Type {
    uint32_t type;
    const char* name;
    size_t size;
};

constexpr Type kTypes[] = {
    {REDBOOT_CONFIG_BOOL, "bool", 4},
    {REDBOOT_CONFIG_INT, "int", 4},
    {REDBOOT_CONFIG_STRING, "string", 128},
    {REDBOOT_CONFIG_SCRIPT, "script", 512},
    {REDBOOT_CONFIG_IP, "ip", 4},
    {REDBOOT_CONFIG_ESA, "esa", 8},
    {REDBOOT_CONFIG_NET_PORT, "netport", 128},
};

const Type* find_type(uint32_t number) {
    for (const Type& type : kTypes) {
        if (type.type == number) return &type;
    }
    return nullptr;
}

size_t size_of_value(uint32_t number) {
    const Type* type = find_type(number);
    return type ? type->size : 0;
}

std::string_view text_in(const unsigned char* field, size_t size) {
    const char* text = reinterpret_cast<const char*>(field);
    return {text, strnlen(text, size)};
}

uint32_t word_at(const unsigned char* bytes) {
    uint32_t word = 0;
    memcpy(&word, bytes, sizeof(word));
    return word;
}

uint32_t checksum_of(const unsigned char* block) {
    uint32_t crc = 0;
    for (size_t i = 0; i < kBlockSize - sizeof(crc); i++) {
        crc = crc32_table[(crc ^ block[i]) & 0xFF] ^ (crc >> 8);
    }
    return crc;
}

// What is wrong with a block, a sentence at a time.
class Examination {
  public:
    Examination(const unsigned char* block, DamageHandler handler, void* state)
        : block_(block), handler_(handler), state_(state) {}

    void run() {
        check_frame();
        // Without the magic number this is no block that anybody wrote entries into.
        if (word_at(block_ + 4) != kFirstMagic) return;
        BlockReader reader(block_);
        while (const auto entry = reader.next()) {
            check_entry(*entry);
        }
        check_end(reader.offset());
    }

  private:
    __attribute__((format(printf, 2, 3))) void found(const char* format, ...) {
        char text[512];
        va_list args;
        va_start(args, format);
        vsnprintf(text, sizeof(text), format, args);
        va_end(args);
        handler_(state_, text);
    }

    void check_frame();
    void check_entry(const BlockEntry& entry);
    void check_end(size_t offset);

    const unsigned char* block_;
    DamageHandler handler_;
    void* state_;
};

void Examination::check_frame() {
    const uint32_t first = word_at(block_ + 4);
    if (first != kFirstMagic) {
        found("bytes 4 to 7: the first magic number is 0x%08" PRIx32 ", not 0x%08" PRIx32, first,
              kFirstMagic);
    }
    const uint32_t second = word_at(block_ + 4088);
    if (second != kSecondMagic) {
        found("bytes 4088 to 4091: the second magic number is 0x%08" PRIx32 ", not 0x%08" PRIx32,
              second, kSecondMagic);
    }
    const uint32_t checksum = word_at(block_ + 4092);
    const uint32_t right = checksum_of(block_);
    if (checksum != right) {
        found("bytes 4092 to 4095: the checksum is 0x%08" PRIx32
              ", but that of bytes 0 to 4091 is 0x%08" PRIx32,
              checksum, right);
    }
}

void Examination::check_entry(const BlockEntry& entry) {
    const size_t last = entry.offset + entry.size - 1;
    const OneLine key(entry.key);
    const unsigned char* header = block_ + entry.offset;
    if (entry.key.size() == header[1]) {
        found("bytes %zu to %zu: an entry whose key has no terminator in its %d bytes",
              entry.offset, last, header[1]);
    }
    if (header[3] > 0 && entry.enable_key.size() == header[3]) {
        found("bytes %zu to %zu: the enable key of '%s' has no terminator in its %d bytes",
              entry.offset, last, key.c_str(), header[3]);
    }
    if (!find_type(entry.type)) {
        found("bytes %zu to %zu: '%s' is of the unknown type %" PRIu32, entry.offset, last,
              key.c_str(), entry.type);
    }
    const auto same = find_entry(block_, entry.key);
    if (same && same->offset < entry.offset) {
        found("bytes %zu to %zu: a second entry '%s'; the first is at byte %zu", entry.offset, last,
              key.c_str(), same->offset);
    }
}

// Where the entries end there is nothing, or an entry that does not fit.
void Examination::check_end(size_t offset) {
    if (offset >= kEntriesEnd) return;
    if (block_[offset] != 0) {
        found("bytes %zu to 4087: an entry that does not fit into the %zu bytes that are left",
              offset, kEntriesEnd - offset);
        return;
    }
    const unsigned char* end = block_ + kEntriesEnd;
    const unsigned char* used =
        std::find_if(block_ + offset, end, [](unsigned char byte) { return byte != 0; });
    if (used == end) return;
    found(
        "bytes %zu to 4087: the free space is not zero from byte %zu on; a key that is added "
        "there becomes another",
        offset, static_cast<size_t>(used - block_));
}

// Why the flash cannot be opened or read; otherwise it was the block.
ExitCode explain_flash(const Context& context) {
    const UniqueFd flash(open(kFlash, O_RDWR | O_CLOEXEC));
    unsigned char block[kBlockSize];
    const ssize_t got = flash.get() < 0 ? -1 : read(flash.get(), block, sizeof(block));
    if (got < 0) return context.fail_by_errno(kFlash);
    if (got < ssize_t{kBlockSize}) {
        return context.fail(ExitCode::kDamaged, "%s: %zd bytes, too short for the block's %zu",
                            kFlash, got, kBlockSize);
    }
    return ExitCode::kDone;
}

bool read_flash(unsigned char (&block)[kBlockSize]) {
    const UniqueFd flash(open(kFlash, O_RDONLY | O_CLOEXEC));
    if (flash.get() < 0) return false;
    // From flash, not from the page that was just written.
    (void)posix_fadvise(flash.get(), 0, kBlockSize, POSIX_FADV_DONTNEED);
    return read(flash.get(), block, sizeof(block)) == ssize_t{kBlockSize};
}

}  // namespace

std::optional<BlockEntry> BlockReader::next() {
    if (offset_ + kHeaderSize > kEntriesEnd) return std::nullopt;
    const unsigned char* header = block_ + offset_;
    const unsigned char* key = header + kHeaderSize;
    const unsigned char* enable_key = key + header[1];
    const size_t names_size = size_t{header[1]} + header[3];
    const size_t value_size = size_of_value(header[0]);
    const size_t size = kHeaderSize + names_size + value_size;
    if (header[0] == 0 || offset_ + size > kEntriesEnd) return std::nullopt;
    const BlockEntry entry = {.offset = offset_,
                              .size = size,
                              .type = header[0],
                              .enable_sense = header[2] != 0,
                              .key = text_in(key, header[1]),
                              .enable_key = text_in(enable_key, header[3]),
                              .value = key + names_size,
                              .value_size = value_size};
    offset_ += size;
    return entry;
}

std::optional<BlockEntry> find_entry(const unsigned char* block, std::string_view key) {
    BlockReader reader(block);
    while (const auto entry = reader.next()) {
        const size_t key_size = block[entry->offset + 1];
        if (entry->key == key && key.size() < key_size) return entry;
    }
    return std::nullopt;
}

const char* type_name(uint32_t type) {
    const Type* found = find_type(type);
    return found ? found->name : nullptr;
}

uint32_t type_of(std::string_view name) {
    for (const Type& type : kTypes) {
        if (name == type.name) return type.type;
    }
    return 0;
}

void ValueText::print_number(uint32_t number) {
    size_ = static_cast<size_t>(snprintf(text_, sizeof(text_), "%" PRIu32, number));
}

void ValueText::print_ip(const unsigned char* octets) {
    size_ = static_cast<size_t>(
        snprintf(text_, sizeof(text_), "%d.%d.%d.%d", octets[0], octets[1], octets[2], octets[3]));
}

void ValueText::copy(std::string_view text) {
    memcpy(text_, text.data(), text.size());
    size_ = text.size();
}

ValueText::ValueText(const BlockEntry& entry) {
    switch (entry.type) {
        case REDBOOT_CONFIG_BOOL:
            copy(word_at(entry.value) ? "true" : "false");
            break;
        case REDBOOT_CONFIG_INT:
            print_number(word_at(entry.value));
            break;
        case REDBOOT_CONFIG_IP:
            print_ip(entry.value);
            break;
        case REDBOOT_CONFIG_ESA:
            copy(MacText(entry.value).text);
            break;
        default:
            copy(text_in(entry.value, entry.value_size));
            break;
    }
}

OneLine::OneLine(std::string_view text) {
    char* out = text_;
    for (const char byte : text) {
        if (out - text_ > ptrdiff_t{sizeof(text_)} - 5) break;
        const auto code = static_cast<unsigned char>(byte);
        if (byte == '\n' || byte == '\\') {
            *out++ = '\\';
            *out++ = byte == '\n' ? 'n' : '\\';
        } else if (code < ' ' || code == 0x7F) {
            out += snprintf(out, 5, "\\x%02x", code);
        } else {
            *out++ = byte;
        }
    }
    *out = '\0';
}

void examine_block(const unsigned char* block, DamageHandler handler, void* state) {
    Examination(block, handler, state).run();
}

ExitCode report_damage(const Context& context) {
    ExitCode code = ExitCode::kDone;
    examine_block(redboot_config, [&](const char* damage) {
        code = context.fail(ExitCode::kDamaged, "%s", damage);
    });
    return code;
}

LibraryOutput::LibraryOutput()
    : saved_((fflush(stdout), fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3))),
      file_(memfd_create("library", MFD_CLOEXEC)) {
    dup2(file_ < 0 ? STDERR_FILENO : file_, STDOUT_FILENO);
}

void LibraryOutput::stop() {
    if (saved_ < 0) return;
    fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    saved_ = -1;
    if (file_ < 0) return;
    const ssize_t got = pread(file_, text_, sizeof(text_) - 1, 0);
    close(file_);
    text_[got < 0 ? 0 : got] = '\0';
    // However many messages, they are told in one line.
    std::replace(text_, text_ + strlen(text_), '\n', ' ');
    for (size_t length = strlen(text_); length > 0 && text_[length - 1] == ' '; length--) {
        text_[length - 1] = '\0';
    }
}

ExitCode load_block(const Context& context) {
    LibraryOutput output;
    const bool loaded = redboot_load_config() == 1;
    output.stop();
    return loaded ? ExitCode::kDone : explain_failed_load(context);
}

ExitCode explain_failed_load(const Context& context) {
    const ExitCode flash = explain_flash(context);
    if (flash != ExitCode::kDone) return flash;
    const ExitCode block = report_damage(context);
    if (block != ExitCode::kDone) return block;
    return context.fail(ExitCode::kBusy, "%s: changed while it was read", kFlash);
}

ExitCode add_entry(const Context& context, const redboot_config_option& option) {
    LibraryOutput output;
    const bool added = redboot_add_config(&option) == 1;
    output.stop();
    if (!added) {
        return context.fail(ExitCode::kRefused, "%s",
                            output.is_empty() ? option.key : output.text());
    }
    if (find_entry(redboot_config, option.key)) return ExitCode::kDone;
    return context.fail(ExitCode::kDamaged,
                        "%s: the free space is not as it should be; see redboot verify",
                        option.key);
}

ExitCode save_block(const Context& context) {
    LibraryOutput output;
    const bool saved = redboot_write_config() == 1;
    output.stop();
    if (!saved) {
        const ExitCode code = explain_flash(context);
        if (code != ExitCode::kDone) return code;
        return context.fail(ExitCode::kInputOutput, "%s: the block could not be written", kFlash);
    }
    return compare_with_flash(context);
}

ExitCode compare_with_flash(const Context& context) {
    unsigned char block[kBlockSize];
    if (!read_flash(block)) {
        return context.fail(ExitCode::kInputOutput, "%s: cannot be read back", kFlash);
    }
    size_t first = 0;
    size_t last = kBlockSize;
    while (first < kBlockSize && block[first] == redboot_config[first]) {
        first++;
    }
    if (first == kBlockSize) return ExitCode::kDone;
    while (block[last - 1] == redboot_config[last - 1]) {
        last--;
    }
    return context.fail(ExitCode::kDamaged,
                        "%s: bytes %zu to %zu are not what was written; write the block again",
                        kFlash, first, last - 1);
}

}  // namespace tqctl
