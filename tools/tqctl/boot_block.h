// boot_block.h - the boot loader's configuration block beyond what the library's calls tell: its
// entries one by one, what is wrong with it, and whether it reached the flash.
#pragma once

#include <tq/redboot.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "command.h"

namespace tqctl {

inline constexpr size_t kBlockSize = 4096;

// What the library keeps of a text or script that it is given.
inline constexpr size_t kLongestText = 127;

struct BlockEntry {
    size_t offset;
    size_t size;
    uint32_t type;
    bool enable_sense;
    std::string_view key;
    std::string_view enable_key;  // empty where it has none
    const unsigned char* value;
    size_t value_size;
};

// Steps through the entries of a block as the library does: up to one of type 0, or one that does
// not lie within the entry area.
class BlockReader {
  public:
    explicit BlockReader(const unsigned char* block) : block_(block) {}

    std::optional<BlockEntry> next();

    // Where the next entry begins, or where the entries ended.
    [[nodiscard]] size_t offset() const { return offset_; }

  private:
    const unsigned char* block_;
    size_t offset_ = 8;
};

// The first entry with that key. As in the library, a key without its terminator is none.
std::optional<BlockEntry> find_entry(const unsigned char* block, std::string_view key);

// The name of a type on the command line, and the type of a name; null and 0 for an unknown one.
const char* type_name(uint32_t type);
uint32_t type_of(std::string_view name);

// A value as text: numbers and addresses as they are written on the command line, a text up to its
// terminator.
class ValueText {
  public:
    explicit ValueText(const BlockEntry& entry);

    [[nodiscard]] std::string_view view() const { return {text_, size_}; }

  private:
    void print_number(uint32_t number);
    void print_ip(const unsigned char* octets);
    void copy(std::string_view text);

    char text_[512];
    size_t size_ = 0;
};

// Text on one line: a backslash is doubled, a line feed is "\n", another control character "\xNN".
class OneLine {
  public:
    explicit OneLine(std::string_view text);

    [[nodiscard]] const char* c_str() const { return text_; }

  private:
    char text_[4 * 512 + 1];
};

// Hands over what is wrong with the block, a sentence for each damage that names its bytes.
using DamageHandler = void (*)(void* state, const char* damage);
void examine_block(const unsigned char* block, DamageHandler handler, void* state);

template <typename Handler>
void examine_block(const unsigned char* block, Handler handler) {
    examine_block(
        block, [](void* state, const char* damage) { (*static_cast<Handler*>(state))(damage); },
        &handler);
}

// Reports each damage of the loaded block; kDamaged where there was one.
ExitCode report_damage(const Context& context);

// What the library prints while this lives; it says some things on standard output, which is for
// data here.
class LibraryOutput {
  public:
    LibraryOutput();
    ~LibraryOutput() { stop(); }
    LibraryOutput(const LibraryOutput&) = delete;
    LibraryOutput& operator=(const LibraryOutput&) = delete;

    // Gives standard output back.
    void stop();

    // What was printed, on one line. After stop().
    [[nodiscard]] const char* text() const { return text_; }
    [[nodiscard]] bool is_empty() const { return !*text_; }

  private:
    int saved_;
    int file_;
    char text_[512] = "";
};

// Loads the block. Says why where that fails.
ExitCode load_block(const Context& context);

// Says why the library could not load the block.
ExitCode explain_failed_load(const Context& context);

// Adds an entry to the loaded block, in memory. Says why where that fails, or where what stands in
// the free space would make another key of its own.
ExitCode add_entry(const Context& context, const redboot_config_option& option);

// Saves the loaded block, reads it back and says where it differs.
ExitCode save_block(const Context& context);
ExitCode compare_with_flash(const Context& context);

}  // namespace tqctl
