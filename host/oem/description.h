// description.h - a board's description: the text that a person writes, checked, and its facts.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace oem {

// Names and texts of a board are shorter than this, those of partitions than the second.
constexpr size_t kNameSize = 32;
constexpr size_t kPartitionSize = 64;

enum class Section : uint8_t { kBoard, kRadio, kPort, kWan, kLan, kPartitions };

// Each fact is a key in a section.
enum class Fact : uint8_t {
    kBoardId,
    kBaseMac,
    kVapNameMode,
    kRadioDevice,
    kRadioPrefix,
    kRadioMacOffset,
    kRadioProcDir,
    kRadioModes,
    kRadioBss,
    kPortName,
    kPortSpeed,
    kPortSpeedAbility,
    kWanName,
    kWanLabel,
    kWanPort,
    kLanName,
    kLanLabel,
    kLanPort,
    kPrimaryImage,
    kBackupImage,
    kBackupBootLoader,
    kRebootCause,
};

using MacAddress = std::array<uint8_t, 6>;

class Description {
  public:
    // Reads a file, or takes the text, which is lent. False where that is no description; problem()
    // and line() then say why and where, line 0 for the file itself.
    bool read(const char* path);
    bool parse(std::string_view text);

    [[nodiscard]] const char* problem() const { return problem_; }
    [[nodiscard]] int line() const { return problem_line_; }

    // How many sections of the kind there are.
    [[nodiscard]] int count(Section section) const;

    // Ports of a gigabit; they are the first ones, the fast ones follow.
    [[nodiscard]] int gigabit_ports() const;

    // A fact of the section, the index-th of its kind; empty where it is left out.
    [[nodiscard]] std::optional<std::string_view> text(Fact fact, int index = 0) const;
    [[nodiscard]] std::optional<int> number(Fact fact, int index = 0) const;
    [[nodiscard]] std::optional<MacAddress> mac(Fact fact) const;

    // The next fact that is left out and that the library asks a board for, in the order of the
    // table; `nth` counts from 0. False at the end. The heading is as in the file.
    struct Omission {
        char heading[24];
        const char* key;
    };
    bool omission(int nth, Omission* found) const;

  private:
    static constexpr size_t kMaxSize = 16384;
    static constexpr size_t kMaxEntries = 256;
    static constexpr size_t kSections = 6;

    struct Entry {
        Fact fact;
        int index;
        std::string_view value;
    };

    bool parse_line(std::string_view line);
    bool begin_section(std::string_view heading);
    bool check_number(std::string_view heading, std::string_view number);
    bool end_section();
    [[nodiscard]] const char* flaw_of_port(int port) const;
    bool add(std::string_view assignment);
    bool check_value(Fact fact, std::string_view value);

    __attribute__((format(printf, 2, 3))) bool wrong(const char* format, ...);
    bool wrong_file(int error);

    int line_ = 0;
    int problem_line_ = 0;
    bool in_section_ = false;
    Section section_ = Section::kBoard;
    int section_line_ = 0;
    int counts_[kSections] = {};
    size_t entries_used_ = 0;
    Entry entries_[kMaxEntries];
    char problem_[192] = "";
    char text_[kMaxSize + 1];
};

}  // namespace oem
