// board_description_fuzz.cpp - feeds bytes to the workstation's board library as a description.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "description.h"

namespace {

using oem::Description;
using oem::Fact;
using oem::Section;

void require(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "%s\n", what);
    abort();
}

bool is_printable(const char* text) {
    for (; *text; text++) {
        const auto c = static_cast<unsigned char>(*text);
        if ((c < ' ' && c != '\t') || c == 0x7f) return false;
    }
    return true;
}

void check_problem(const Description& board, size_t lines) {
    require(*board.problem(), "a bad description without a problem");
    require(is_printable(board.problem()), "a problem that a terminal would obey");
    require(board.line() >= 1 && static_cast<size_t>(board.line()) <= lines,
            "a problem in a line that is not there");
}

size_t room_for(Fact fact) {
    const bool is_partition = fact == Fact::kPrimaryImage || fact == Fact::kBackupImage ||
                              fact == Fact::kBackupBootLoader;
    return is_partition ? oem::kPartitionSize : oem::kNameSize;
}

bool is_number(Fact fact) {
    switch (fact) {
        case Fact::kBoardId:
        case Fact::kVapNameMode:
        case Fact::kRadioMacOffset:
        case Fact::kRadioModes:
        case Fact::kRadioBss:
        case Fact::kPortSpeed:
        case Fact::kPortSpeedAbility:
            return true;
        default:
            return false;
    }
}

// A text that is answered fits what its selector asks for, and is the description's.
void check_fact(const Description& board, std::string_view bytes, Fact fact, int index) {
    const auto value = board.text(fact, index);
    if (!value) return;
    require(!value->empty(), "an empty fact");
    if (is_number(fact)) {
        require(board.number(fact, index).has_value(), "a number that is none");
    } else {
        require(value->size() < room_for(fact), "a fact that does not fit");
    }
    require(value->data() >= bytes.data() &&
                value->data() + value->size() <= bytes.data() + bytes.size(),
            "a fact from elsewhere");
}

void check_facts(const Description& board, std::string_view bytes) {
    for (int fact = 0; fact <= static_cast<int>(Fact::kRebootCause); fact++) {
        for (int index = -1; index < 20; index++)
            check_fact(board, bytes, static_cast<Fact>(fact), index);
    }
    require(board.mac(Fact::kBaseMac).has_value() == board.text(Fact::kBaseMac).has_value(),
            "a base address that is none");
    const int ports = board.count(Section::kPort);
    require(board.gigabit_ports() >= 0 && board.gigabit_ports() <= ports, "too many gigabit ports");
    for (int port = 0; port < ports; port++) {
        const bool is_gigabit = board.number(Fact::kPortSpeed, port) == 1000;
        require(is_gigabit == (port < board.gigabit_ports()), "gigabit ports are not the first");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    Description board;
    if (board.parse(bytes)) {
        check_facts(board, bytes);
    } else {
        size_t lines = 1;
        for (const char c : bytes)
            lines += c == '\n';
        check_problem(board, lines);
    }
    Description::Omission omission;
    int omissions = 0;
    while (board.omission(omissions, &omission))
        omissions++;
    return 0;
}
