// oem.cpp - the board-information library for a workstation: every answer is a fact of
// /etc/board.conf.
#include <syslog.h>
#include <tq/oem.h>

#include <cstdio>
#include <cstring>

#include "description.h"

#define OEM_API __attribute__((visibility("default")))

namespace {

using oem::Fact;
using oem::Section;

constexpr const char* kPath = "/etc/board.conf";

// The board as it is described now.
class Board : public oem::Description {
  public:
    Board() : readable_(read(kPath)) {
        if (readable_) return;
        if (line() == 0) {
            syslog(LOG_ERR, "%s: %s\n", kPath, problem());
        } else {
            syslog(LOG_ERR, "%s:%d: %s\n", kPath, line(), problem());
        }
    }

    explicit operator bool() const { return readable_; }

  private:
    bool readable_;
};

// The codes of gigabit ports' speeds, 3 being none of these.
constexpr int kGigabitCode = 4;

// Every value is known to be shorter than the buffer that its selector asks for.
int answer_text(const Board& board, Fact fact, int index, char* out) {
    const auto value = board.text(fact, index);
    if (!value) return -1;
    memcpy(out, value->data(), value->size());
    out[value->size()] = '\0';
    return 0;
}

int answer_number_as_text(const Board& board, Fact fact, int index, void* out) {
    const auto value = board.number(fact, index);
    if (!value) return -1;
    snprintf(static_cast<char*>(out), oem::kNameSize, "%d", *value);
    return 0;
}

int answer_number(const Board& board, Fact fact, int index, void* out) {
    const auto value = board.number(fact, index);
    if (!value) return -1;
    memcpy(out, &*value, sizeof(*value));
    return 0;
}

int answer_bounded_text(const Board& board, Fact fact, char* out, int len) {
    const auto value = board.text(fact);
    if (!value || value->size() >= static_cast<size_t>(len)) return -1;
    return answer_text(board, fact, 0, out);
}

}  // namespace

OEM_API int tq_get_oem_ap_type_common(int selector) {
    const Board board;
    if (!board) return -1;
    switch (selector) {
        case AP_TYPE_VAP_NAME_MODE:
            return board.number(Fact::kVapNameMode).value_or(0);
        case AP_TYPE_GE_PORT_NUM:
            return board.gigabit_ports();
        case AP_TYPE_FE_PORT_NUM:
            return board.count(Section::kPort) - board.gigabit_ports();
        case AP_TYPE_LAN_PORT_NUM:
            return board.count(Section::kLan);
        case AP_TYPE_RADIO_NUM:
            return board.count(Section::kRadio);
        case AP_TYPE_BOARD_ID:
            return board.number(Fact::kBoardId).value_or(-1);
        default:
            return -1;
    }
}

OEM_API int tq_get_oem_ap_type_radio_index_info(int selector, int radio, void* out) {
    const Board board;
    if (!board || !out) return -1;
    auto* text = static_cast<char*>(out);
    switch (selector) {
        case AP_TYPE_RADIO_SUPPORT_MODE:
            return answer_number_as_text(board, Fact::kRadioModes, radio, out);
        case AP_TYPE_RADIO_DEVICE:
            return answer_text(board, Fact::kRadioDevice, radio, text);
        case AP_TYPE_RADIO_PREFIX_IFNAME:
            return answer_text(board, Fact::kRadioPrefix, radio, text);
        case AP_TYPE_RADIO_MAC_OFFSET:
            return answer_number_as_text(board, Fact::kRadioMacOffset, radio, out);
        case AP_TYPE_RADIO_PROC_DIR:
            return answer_text(board, Fact::kRadioProcDir, radio, text);
        case AP_TYPE_RADIO_BSS_NUM:
            return answer_number(board, Fact::kRadioBss, radio, out);
        default:
            return -1;
    }
}

OEM_API int tq_get_oem_ap_type_radio_ifname_index(int selector, const char* ifname) {
    const Board board;
    if (!board || !ifname || selector != AP_TYPE_RADIO_DEVICE_PRESENT) return -1;
    for (int radio = 0; radio < board.count(Section::kRadio); radio++) {
        if (board.text(Fact::kRadioDevice, radio) == std::string_view(ifname)) return radio;
    }
    return -1;
}

OEM_API int tq_get_oem_ap_type_ge_index_info(int selector, int port, char* out) {
    const Board board;
    if (!board || !out || port < 0 || port >= board.gigabit_ports()) return -1;
    switch (selector) {
        case AP_TYPE_ETH_SPEED_ABILITY:
            snprintf(out, oem::kNameSize, "%d",
                     board.number(Fact::kPortSpeedAbility, port).value_or(kGigabitCode));
            return 0;
        case AP_TYPE_ETH_IF_NAME:
            return answer_text(board, Fact::kPortName, port, out);
        default:
            return -1;
    }
}

OEM_API int tq_get_oem_ap_type_fe_index_info(int selector, int port, char* out) {
    const Board board;
    if (!board || !out || selector != AP_TYPE_ETH_IF_NAME) return -1;
    const int fast_ports = board.count(Section::kPort) - board.gigabit_ports();
    if (port < 0 || port >= fast_ports) return -1;
    return answer_text(board, Fact::kPortName, board.gigabit_ports() + port, out);
}

OEM_API int tq_get_oem_ap_type_wan_info(int selector, char* out) {
    const Board board;
    if (!board || !out) return -1;
    switch (selector) {
        case AP_TYPE_WAN_IF_NAME:
            return answer_text(board, Fact::kWanName, 0, out);
        case AP_TYPE_WAN_IF_LABEL:
            return answer_text(board, Fact::kWanLabel, 0, out);
        case AP_TYPE_WAN_IF_PORT:
            return answer_text(board, Fact::kWanPort, 0, out);
        default:
            return -1;
    }
}

OEM_API int tq_get_oem_ap_type_lan_index_info(int selector, int index, char* out) {
    const Board board;
    if (!board || !out) return -1;
    switch (selector) {
        case AP_TYPE_LAN_IF_NAME:
            return answer_text(board, Fact::kLanName, index, out);
        case AP_TYPE_LAN_IF_LABEL:
            return answer_text(board, Fact::kLanLabel, index, out);
        case AP_TYPE_LAN_IF_PORT:
            return answer_text(board, Fact::kLanPort, index, out);
        default:
            return -1;
    }
}

OEM_API int tq_get_oem_ap_type_partion_info(int selector, char* out, int len) {
    const Board board;
    if (!board || !out || len <= 0) return -1;
    switch (selector) {
        case AP_TYPE_PAT_PRI_IMAGE:
            return answer_bounded_text(board, Fact::kPrimaryImage, out, len);
        case AP_TYPE_PAT_BK_IMAGE:
            return answer_bounded_text(board, Fact::kBackupImage, out, len);
        case AP_TYPE_PAT_BK_UBOOT_IMAGE:
            return answer_bounded_text(board, Fact::kBackupBootLoader, out, len);
        case AP_TYPE_PAT_REBOOT_CAUSE:
            return answer_bounded_text(board, Fact::kRebootCause, out, len);
        default:
            return -1;
    }
}

OEM_API int tq_get_oem_board_info(int selector, void* out, int len) {
    const Board board;
    if (!board || !out || selector != BOARD_INFO_BASE_MAC) return -1;
    const auto mac = board.mac(Fact::kBaseMac);
    if (!mac || len < static_cast<int>(mac->size())) return -1;
    memcpy(out, mac->data(), mac->size());
    return 0;
}
