#include "description.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>

namespace oem {

namespace {

enum class Form : uint8_t {
    kNumber,  // from `low` to `high`
    kSpeed,   // in Mbit/s: 10, 100 or 1000
    kMac,
    kName,  // visible ASCII, fewer than `high` bytes
    kText,  // the same with blanks and UTF-8
};

struct SectionRow {
    std::string_view name;
    bool numbered;
};

// In the order of enum Section.
constexpr SectionRow kSectionRows[] = {
    {"board", false}, {"radio", true}, {"port", true},
    {"wan", false},   {"lan", true},   {"partitions", false},
};

struct FactRow {
    const char* key;
    Fact fact;
    Section section;
    Form form;
    bool optional;
    int low;
    int high;
};

constexpr int kName = kNameSize;
constexpr int kPartition = kPartitionSize;

// In the order of enum Fact.
constexpr FactRow kFactRows[] = {
    {"id", Fact::kBoardId, Section::kBoard, Form::kNumber, false, 0, INT_MAX},
    {"base_mac", Fact::kBaseMac, Section::kBoard, Form::kMac, false, 0, 0},
    {"vap_name_mode", Fact::kVapNameMode, Section::kBoard, Form::kNumber, true, 0, INT_MAX},
    {"device", Fact::kRadioDevice, Section::kRadio, Form::kName, false, 0, kName},
    {"prefix", Fact::kRadioPrefix, Section::kRadio, Form::kName, false, 0, kName},
    {"mac_offset", Fact::kRadioMacOffset, Section::kRadio, Form::kNumber, false, -1, INT_MAX},
    {"proc_dir", Fact::kRadioProcDir, Section::kRadio, Form::kName, false, 0, kName},
    {"modes", Fact::kRadioModes, Section::kRadio, Form::kNumber, false, 0, INT_MAX},
    {"bss", Fact::kRadioBss, Section::kRadio, Form::kNumber, false, 0, INT_MAX},
    {"name", Fact::kPortName, Section::kPort, Form::kName, false, 0, kName},
    {"speed", Fact::kPortSpeed, Section::kPort, Form::kSpeed, false, 0, 0},
    {"speed_ability", Fact::kPortSpeedAbility, Section::kPort, Form::kNumber, true, 1, 4},
    {"name", Fact::kWanName, Section::kWan, Form::kName, false, 0, kName},
    {"label", Fact::kWanLabel, Section::kWan, Form::kText, false, 0, kName},
    {"port", Fact::kWanPort, Section::kWan, Form::kText, false, 0, kName},
    {"name", Fact::kLanName, Section::kLan, Form::kName, false, 0, kName},
    {"label", Fact::kLanLabel, Section::kLan, Form::kText, false, 0, kName},
    {"port", Fact::kLanPort, Section::kLan, Form::kText, false, 0, kName},
    {"primary_image", Fact::kPrimaryImage, Section::kPartitions, Form::kText, false, 0, kPartition},
    {"backup_image", Fact::kBackupImage, Section::kPartitions, Form::kText, false, 0, kPartition},
    {"backup_boot_loader", Fact::kBackupBootLoader, Section::kPartitions, Form::kText, false, 0,
     kPartition},
    {"reboot_cause", Fact::kRebootCause, Section::kPartitions, Form::kName, false, 0, kName},
};

consteval bool is_in_order() {
    for (size_t i = 0; i < std::size(kFactRows); i++) {
        if (static_cast<size_t>(kFactRows[i].fact) != i) return false;
    }
    return true;
}
static_assert(is_in_order());

constexpr int kGigabit = 1000;

constexpr const FactRow& row_of(Fact fact) {
    return kFactRows[static_cast<size_t>(fact)];
}

constexpr const SectionRow& row_of(Section section) {
    return kSectionRows[static_cast<size_t>(section)];
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Takes what is before the first separator off the front of text, the separator too; all of it
// where there is none.
std::string_view take_until(std::string_view& text, char separator) {
    const size_t end = text.find(separator);
    if (end == std::string_view::npos) return std::exchange(text, {});
    const std::string_view taken(text.data(), end);
    text.remove_prefix(end + 1);
    return taken;
}

bool has_control_character(std::string_view text) {
    return std::ranges::any_of(text, [](char c) {
        return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f';
    });
}

// Decimal, or hexadecimal behind 0x.
std::optional<int> parse_number(std::string_view text) {
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && text[2] != '-') {
        text.remove_prefix(2);
        base = 16;
    }
    int number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, base);
    if (error != std::errc() || rest != end) return std::nullopt;
    return number;
}

int digit_of(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::optional<MacAddress> parse_mac(std::string_view text) {
    if (text.size() != 17) return std::nullopt;
    MacAddress mac{};
    for (size_t i = 0; i < mac.size(); i++) {
        const int high = digit_of(text[i * 3]);
        const int low = digit_of(text[i * 3 + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        if (i + 1 < mac.size() && text[i * 3 + 2] != ':') return std::nullopt;
        mac[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return mac;
}

bool is_name(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c > ' ' && c <= '~'; });
}

// A file's text for a message: what is longer is cut.
struct Excerpt {
    explicit Excerpt(std::string_view text) {
        snprintf(text_, sizeof(text_), "%.*s",
                 static_cast<int>(text.size() > 48 ? 48 : text.size()), text.data());
    }
    [[nodiscard]] const char* c_str() const { return text_; }

  private:
    char text_[49];
};

const FactRow* find_fact(Section section, std::string_view key) {
    for (const FactRow& row : kFactRows) {
        if (row.section == section && row.key == key) return &row;
    }
    return nullptr;
}

// As a description has it between the brackets.
void write_heading(char* out, size_t size, Section section, int index) {
    const SectionRow& row = row_of(section);
    if (!row.numbered) {
        snprintf(out, size, "%s", row.name.data());
        return;
    }
    snprintf(out, size, "%s %d", row.name.data(), index);
}

class Fd {
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    [[nodiscard]] int get() const { return fd_; }

  private:
    int fd_;
};

}  // namespace

bool Description::wrong(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(problem_, sizeof(problem_), format, args);
    va_end(args);
    problem_line_ = line_;
    return false;
}

bool Description::wrong_file(int error) {
    return wrong("%s", strerror(error));
}

bool Description::read(const char* path) {
    const Fd file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.get() < 0) return wrong_file(errno);
    size_t used = 0;
    while (used < sizeof(text_)) {
        const ssize_t got = ::read(file.get(), &text_[used], sizeof(text_) - used);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return wrong_file(errno);
        used += static_cast<size_t>(got);
        // A file that gives less than it was asked for has no more.
        if (used < sizeof(text_)) break;
    }
    if (used > kMaxSize) return wrong("a description is at most %zu bytes long", kMaxSize);
    return parse({text_, used});
}

bool Description::parse(std::string_view text) {
    while (!text.empty()) {
        line_++;
        if (!parse_line(trim(take_until(text, '\n')))) return false;
    }
    return end_section();
}

bool Description::parse_line(std::string_view line) {
    if (line.empty() || line.front() == '#' || line.front() == ';') return true;
    if (has_control_character(line)) return wrong("a control character");
    return line.front() == '[' ? begin_section(line) : add(line);
}

bool Description::begin_section(std::string_view heading) {
    if (!end_section()) return false;
    if (heading.back() != ']') return wrong("%s: the ']' is missing", Excerpt(heading).c_str());
    std::string_view rest = trim({heading.data() + 1, heading.size() - 2});
    const SectionRow* row =
        std::ranges::find(kSectionRows, take_until(rest, ' '), &SectionRow::name);
    if (row == std::end(kSectionRows))
        return wrong("%s is no section of a board", Excerpt(heading).c_str());
    section_ = static_cast<Section>(row - kSectionRows);
    if (!check_number(heading, trim(rest))) return false;
    counts_[static_cast<size_t>(section_)]++;
    in_section_ = true;
    section_line_ = line_;
    return true;
}

// Of a section that begins: they are counted from 0, or there is one, without a number.
bool Description::check_number(std::string_view heading, std::string_view number) {
    const int before = count(section_);
    char expected[24];
    write_heading(expected, sizeof(expected), section_, before);
    if (row_of(section_).numbered) {
        if (parse_number(number) == before) return true;
        return wrong("%s where [%s] is due", Excerpt(heading).c_str(), expected);
    }
    if (!number.empty()) {
        return wrong("%s: there is one [%s], without a number", Excerpt(heading).c_str(), expected);
    }
    return before == 0 || wrong("[%s] for the second time", expected);
}

// What is wrong with a port as a whole, or null. Everything counts by which ports are gigabit ones.
const char* Description::flaw_of_port(int port) const {
    const auto speed = number(Fact::kPortSpeed, port);
    if (!speed) return "has no speed";
    if (*speed == kGigabit) {
        return gigabit_ports() == port + 1 ? nullptr : "is a gigabit port behind a fast one";
    }
    return text(Fact::kPortSpeedAbility, port) ? "is fast: only gigabit ports have a speed_ability"
                                               : nullptr;
}

bool Description::end_section() {
    if (!in_section_ || section_ != Section::kPort) return true;
    const int port = count(Section::kPort) - 1;
    const char* flaw = flaw_of_port(port);
    if (!flaw) return true;
    line_ = section_line_;
    return wrong("[port %d] %s", port, flaw);
}

bool Description::add(std::string_view assignment) {
    if (!in_section_) return wrong("a line before the first [section]");
    std::string_view rest = assignment;
    const std::string_view key = trim(take_until(rest, '='));
    if (key.size() == assignment.size()) {
        return wrong("%s: neither [section] nor key = value", Excerpt(assignment).c_str());
    }
    const FactRow* row = find_fact(section_, key);
    if (!row) {
        return wrong("[%s] has no key '%s'", row_of(section_).name.data(), Excerpt(key).c_str());
    }
    const std::string_view value = trim(rest);
    if (!check_value(row->fact, value)) return false;
    const int index = count(section_) - 1;
    if (text(row->fact, index)) return wrong("%s for the second time", row->key);
    if (entries_used_ == kMaxEntries) return wrong("more than %zu values", kMaxEntries);
    entries_[entries_used_++] = {row->fact, index, value};
    return true;
}

bool Description::check_value(Fact fact, std::string_view value) {
    const FactRow& row = row_of(fact);
    const Excerpt excerpt(value);
    const auto number = parse_number(value);
    if (value.empty()) return wrong("%s has no value", row.key);
    switch (row.form) {
        case Form::kNumber:
            if (number && *number >= row.low && *number <= row.high) return true;
            return wrong("%s is a number from %d to %d, not '%s'", row.key, row.low, row.high,
                         excerpt.c_str());
        case Form::kSpeed:
            if (number && (*number == 10 || *number == 100 || *number == kGigabit)) return true;
            return wrong("%s is 10, 100 or 1000, not '%s'", row.key, excerpt.c_str());
        case Form::kMac: {
            const auto mac = parse_mac(value);
            if (!mac) {
                return wrong("%s is written as 02:00:00:00:00:00, not '%s'", row.key,
                             excerpt.c_str());
            }
            if ((*mac)[0] & 1) return wrong("%s is a group address", row.key);
            return true;
        }
        case Form::kName:
            if (!is_name(value)) return wrong("%s has a blank or a letter beyond ASCII", row.key);
            [[fallthrough]];
        case Form::kText:
            if (value.size() < static_cast<size_t>(row.high)) return true;
            return wrong("%s is %zu bytes long, %d at most", row.key, value.size(), row.high - 1);
    }
    return false;
}

int Description::count(Section section) const {
    return counts_[static_cast<size_t>(section)];
}

int Description::gigabit_ports() const {
    int ports = 0;
    while (number(Fact::kPortSpeed, ports) == kGigabit)
        ports++;
    return ports;
}

std::optional<std::string_view> Description::text(Fact fact, int index) const {
    for (size_t i = 0; i < entries_used_; i++) {
        if (entries_[i].fact == fact && entries_[i].index == index) return entries_[i].value;
    }
    return std::nullopt;
}

std::optional<int> Description::number(Fact fact, int index) const {
    const auto found = text(fact, index);
    if (!found) return std::nullopt;
    return parse_number(*found);
}

std::optional<MacAddress> Description::mac(Fact fact) const {
    const auto found = text(fact);
    if (!found) return std::nullopt;
    return parse_mac(*found);
}

bool Description::omission(int nth, Omission* found) const {
    for (const FactRow& row : kFactRows) {
        if (row.optional) continue;
        const int sections = row_of(row.section).numbered ? count(row.section) : 1;
        for (int index = 0; index < sections; index++) {
            if (text(row.fact, index) || nth-- > 0) continue;
            write_heading(found->heading, sizeof(found->heading), row.section, index);
            found->key = row.key;
            return true;
        }
    }
    return false;
}

}  // namespace oem
