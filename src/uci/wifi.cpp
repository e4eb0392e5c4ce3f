#include "tq/wifi.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "foundation/log.h"
#include "foundation/text.h"
#include "tq/board.h"
#include "tq/uci_session.h"

namespace {

using tq::Text;

constexpr size_t kNumberSize = 32;
constexpr size_t kBridgeSize = 64;

constexpr int kWriteFailed = -1;
constexpr int kNothingWritten = 1;

// ---- tables: lookups take the first row that fits, so the order matters ----

constexpr char kModeOptions[][10] = {"hwmode", "HT_BW", "VHT_BW", "HT_EXTCHA"};
constexpr size_t kModeOptionCount = std::size(kModeOptions);

struct ModeRow {
    uint8_t mode;
    uint8_t values[kModeOptionCount];  // of the options above
};

constexpr ModeRow kModes[] = {
    {1, {2, 0, 0, 0}},   {2, {1, 0, 0, 0}},   {3, {0, 0, 0, 0}},   {4, {0, 0, 0, 0}},
    {5, {2, 0, 0, 0}},   {6, {0, 0, 0, 0}},   {7, {8, 0, 0, 0}},   {8, {9, 0, 0, 0}},
    {9, {8, 1, 0, 1}},   {10, {8, 1, 0, 0}},  {11, {9, 1, 0, 1}},  {12, {9, 1, 0, 0}},
    {13, {8, 1, 0, 0}},  {14, {9, 1, 0, 0}},  {15, {14, 0, 0, 0}}, {16, {14, 1, 0, 1}},
    {17, {14, 1, 0, 0}}, {18, {14, 1, 0, 0}}, {19, {14, 1, 1, 0}}, {20, {4, 0, 0, 0}},
    {21, {14, 1, 1, 0}}, {22, {17, 0, 0, 0}}, {24, {17, 1, 0, 1}}, {25, {17, 1, 0, 0}},
    {26, {17, 1, 0, 1}}, {30, {17, 1, 1, 0}}, {23, {16, 0, 0, 0}}, {27, {16, 1, 1, 0}},
    {28, {16, 1, 0, 0}}, {29, {16, 1, 0, 1}},
};
static_assert(std::size(kModes) == 30);

struct AuthRow {
    uint8_t type;
    char text[11];
    char psk_text[10];  // empty where there is no pre-shared key
};

constexpr AuthRow kAuthTypes[] = {
    {0, "none", ""},   {1, "wep-shared", ""},    {2, "wep-open", ""},
    {3, "wpa", "psk"}, {4, "wpa2", "psk2"},      {5, "mixed-wpa", "mixed-psk"},
    {6, "ccmp", ""},   {7, "wpa2-wpa3", "psk2"},
};

struct CipherRow {
    uint8_t cipher;
    char text[10];
};

constexpr CipherRow kCiphers[] = {{0, "ccmp"}, {1, "ccmp+tkip"}, {2, "tkip"}, {3, "suite_b"}};

struct McastRow {
    uint8_t rate;
    uint8_t phy_mode;
    uint8_t mcs;
};

// The slowest rate has the highest MCS of its mode: the radio driver counts them so.
constexpr McastRow kMcastRates[] = {
    {1, 1, 3},  {2, 1, 0},  {5, 1, 1},  {11, 1, 2}, {6, 2, 0},  {9, 2, 1},
    {12, 2, 2}, {18, 2, 3}, {24, 2, 4}, {36, 2, 5}, {48, 2, 6}, {54, 2, 7},
};

struct CountryRow {
    uint16_t code;  // ISO 3166
    char alpha2[3];
    uint8_t region;
    uint8_t region_a_band;
};

constexpr CountryRow kCountries[] = {
    {32, "AR", 1, 0},  {36, "AU", 1, 0},  {76, "BR", 1, 0},  {124, "CA", 1, 0}, {756, "CH", 1, 0},
    {152, "CL", 1, 0}, {156, "CN", 1, 0}, {218, "EC", 1, 0}, {276, "DE", 1, 0}, {826, "GB", 1, 0},
    {360, "ID", 1, 0}, {376, "IL", 1, 0}, {356, "IN", 1, 0}, {392, "JP", 1, 0}, {410, "KR", 1, 0},
    {104, "MM", 1, 0}, {484, "MX", 1, 0}, {554, "NZ", 1, 0}, {608, "PH", 1, 0}, {643, "RU", 1, 0},
    {682, "SA", 1, 0}, {764, "TH", 1, 0}, {792, "TR", 1, 0}, {158, "TW", 1, 0}, {840, "US", 1, 0},
    {710, "ZA", 1, 0},
};
static_assert(std::size(kCountries) == 26);

constexpr int kChina = 156;

// Of a RADIUS server and the access point's own side, in the order in which they are deleted.
enum RadiusOption : uint8_t { kServer, kSecret, kPort, kBridge, kPreauthBridge, kOwnAddress };
constexpr char kRadiusOptions[][14] = {"auth_server", "auth_secret",   "auth_port",
                                       "eapifname",   "preauthifname", "ownip"};

// The first row that fits, or null.
template <typename Row, size_t N, typename Fits>
constexpr const Row* find_row(const Row (&rows)[N], Fits fits) {
    for (const Row& row : rows) {
        if (fits(row)) return &row;
    }
    return nullptr;
}

const AuthRow* find_auth_type(int type) {
    return find_row(kAuthTypes, [type](const AuthRow& row) { return row.type == type; });
}

bool has_psk(const AuthRow& row) {
    return *row.psk_text != '\0';
}

bool is_psk_text(const AuthRow& row, const char* text) {
    return has_psk(row) && strcmp(row.psk_text, text) == 0;
}

// ---- options ----

int write_number(uci_config_ctx* session, const char* option, int value) {
    char text[kNumberSize];
    snprintf(text, sizeof(text), "%d", value);
    return set_uci_config(session, option, text);
}

bool read_number(uci_config_ctx* session, const char* option, int& value) {
    const char* text = get_uci_config(session, option);
    if (!text) return false;
    value = tq::leading_int(text);
    return true;
}

int write_address(uci_config_ctx* session, const char* option, const in_addr_t* address) {
    char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, address, text, sizeof(text));
    return set_uci_config(session, option, text);
}

// A setter and a getter of one number; a rejected argument is logged in their caller's name.

int set_number(uci_config_ctx* session, const char* option, int value, const char* caller) {
    if (!session) return tq::reject(caller);
    return write_number(session, option, value);
}

int get_number(uci_config_ctx* session, const char* option, int* value, const char* caller) {
    if (!session || !value) return tq::reject(caller);
    return read_number(session, option, *value) ? 0 : -1;
}

}  // namespace

int wifi_set_country_code(uci_config_ctx* session) {
    if (!session) return tq::reject(__func__);
    // Only this row of the table is stored.
    static constexpr CountryRow kRow =
        *find_row(kCountries, [](const CountryRow& row) { return row.code == kChina; });
    const int country = set_uci_config(session, "country", kRow.alpha2);
    const int region = write_number(session, "CountryRegion", kRow.region);
    const int a_band = write_number(session, "CountryRegionABand", kRow.region_a_band);
    return (country & region & 1) & a_band;
}

int wifi_set_wireless_mode(uci_config_ctx* session, int mode) {
    if (!session) return tq::reject(__func__);
    const ModeRow* found =
        find_row(kModes, [mode](const ModeRow& row) { return row.mode == mode; });
    if (!found) return -1;
    int result = 1;
    for (size_t i = 0; i < kModeOptionCount; i++)
        result &= write_number(session, kModeOptions[i], found->values[i]);
    return result;
}

int wifi_get_wireless_mode(uci_config_ctx* session, int* mode) {
    if (!session || !mode) return tq::reject(__func__);
    int values[kModeOptionCount];
    for (size_t i = 0; i < kModeOptionCount; i++) {
        if (!read_number(session, kModeOptions[i], values[i])) return -1;
    }
    const ModeRow* found = find_row(
        kModes, [&](const ModeRow& row) { return std::ranges::equal(row.values, values); });
    if (!found) return -1;
    *mode = found->mode;
    return 0;
}

int wifi_set_short_gi(uci_config_ctx* session, int value) {
    return set_number(session, "HT_GI", value, __func__);
}

int wifi_get_short_gi(uci_config_ctx* session, int* value) {
    return get_number(session, "HT_GI", value, __func__);
}

int wifi_set_vht_short_gi(uci_config_ctx* session, int value) {
    return set_number(session, "VHT_SGI", value, __func__);
}

int wifi_get_vht_short_gi(uci_config_ctx* session, int* value) {
    return get_number(session, "VHT_SGI", value, __func__);
}

int wifi_set_rts_threshold(uci_config_ctx* session, int /*ignored*/, int value) {
    return set_number(session, "RTSThreshold", value, __func__);
}

int wifi_get_rts_threshold(uci_config_ctx* session, int /*ignored*/, int* value) {
    return get_number(session, "RTSThreshold", value, __func__);
}

int wifi_set_frag_threshold(uci_config_ctx* session, int /*ignored*/, int value) {
    return set_number(session, "FragThreshold", value, __func__);
}

int wifi_get_frag_threshold(uci_config_ctx* session, int /*ignored*/, int* value) {
    return get_number(session, "FragThreshold", value, __func__);
}

int wifi_set_dtim_interval(uci_config_ctx* session, int /*ignored*/, int value) {
    return set_number(session, "DtimPeriod", value, __func__);
}

int wifi_get_dtim_interval(uci_config_ctx* session, int /*ignored*/, int* value) {
    return get_number(session, "DtimPeriod", value, __func__);
}

int wifi_set_beacon_rate(uci_config_ctx* session, int value) {
    return set_number(session, "MinPhyBeaconRate", value, __func__);
}

int wifi_get_beacon_rate(uci_config_ctx* session, int* value) {
    return get_number(session, "MinPhyBeaconRate", value, __func__);
}

int wifi_set_mcast_rate(uci_config_ctx* session, int rate) {
    if (!session) return tq::reject(__func__);
    const McastRow* found =
        find_row(kMcastRates, [rate](const McastRow& row) { return row.rate == rate; });
    if (!found) return TQ_FAIL("not support mcast rate %d\n", rate);
    const int phy_mode = write_number(session, "McastPhyMode", found->phy_mode);
    if (phy_mode == kWriteFailed) return -1;
    return write_number(session, "McastMcs", found->mcs) & phy_mode;
}

int wifi_get_mcast_rate(uci_config_ctx* session, int* rate) {
    if (!session || !rate) return tq::reject(__func__);
    int phy_mode = 0;
    int mcs = 0;
    if (!read_number(session, "McastPhyMode", phy_mode)) return -1;
    if (!read_number(session, "McastMcs", mcs)) return -1;
    const McastRow* found = find_row(kMcastRates, [=](const McastRow& row) {
        return row.phy_mode == phy_mode && row.mcs == mcs;
    });
    if (!found) return TQ_FAIL("not support mcast (mode %d, mcs %d)\n", phy_mode, mcs);
    *rate = found->rate;
    return 0;
}

int wifi_set_auth_type(uci_config_ctx* session, int type) {
    if (!session) return tq::reject(__func__);
    const AuthRow* row = find_auth_type(type);
    if (!row) return -1;
    if (has_psk(*row)) return kNothingWritten;
    return set_uci_config(session, "encryption", row->text);
}

int wifi_get_auth_type(uci_config_ctx* session, int* type) {
    if (!session || !type) return tq::reject(__func__);
    const char* text = get_uci_config(session, "encryption");
    if (!text) return -1;
    const AuthRow* found = find_row(kAuthTypes, [text](const AuthRow& row) {
        return strcmp(row.text, text) == 0 || is_psk_text(row, text);
    });
    if (!found) return -1;
    *type = found->type;
    return 0;
}

int wifi_set_auth_wpa_type(uci_config_ctx* session, int type, int enterprise, int cipher) {
    if (!session) return tq::reject(__func__);
    const CipherRow* cipher_row =
        find_row(kCiphers, [cipher](const CipherRow& row) { return row.cipher == cipher; });
    const AuthRow* auth_row = find_auth_type(type);
    if (!cipher_row || !auth_row) return -1;
    const int aes = set_uci_config(session, "aes", cipher_row->text);
    const char* psk_text = has_psk(*auth_row) ? auth_row->psk_text : nullptr;
    return aes & set_uci_config(session, "encryption", enterprise == 1 ? auth_row->text : psk_text);
}

int wifi_get_auth_wpa_type(uci_config_ctx* session, int type, int* enterprise, int* cipher) {
    if (!session || !enterprise || !cipher) return tq::reject(__func__);
    const char* encryption = get_uci_config(session, "encryption");
    if (!encryption) return -1;
    const AuthRow* auth_row = find_auth_type(type);
    if (!auth_row) return -1;
    const bool with_server = strcmp(auth_row->text, encryption) == 0;
    if (!with_server && !is_psk_text(*auth_row, encryption)) return -1;
    const char* aes = get_uci_config(session, "aes");
    if (!aes) return -1;
    const CipherRow* cipher_row =
        find_row(kCiphers, [aes](const CipherRow& row) { return strcmp(row.text, aes) == 0; });
    if (!cipher_row) return -1;
    *enterprise = with_server;
    *cipher = cipher_row->cipher;
    return 0;
}

int wifi_set_auth_wpa_key(uci_config_ctx* session, const char* key) {
    if (!session || !key) return tq::reject(__func__);
    return set_uci_config(session, "key", key);
}

int wifi_get_auth_wpa_key(uci_config_ctx* session, char* buf, int len) {
    if (!session || !buf || len <= 0) return tq::reject(__func__);
    *buf = '\0';
    const char* key = get_uci_config(session, "key");
    if (!key) return -1;
    tq::copy_text(buf, static_cast<size_t>(len), key);
    return 0;
}

int wifi_set_auth_radius_server(uci_config_ctx* session, const struct wifi_radius_server* server) {
    if (!session || !server) return tq::reject(__func__);
    unsigned wan = 0;
    if (get_wan_if_addr(&wan) != 0) return TQ_FAIL("get wan ip addr failed!\n");
    Text<kBridgeSize> bridge;
    const char* network = get_uci_config(session, "network");
    if (network) bridge.append("br-%s", network);
    if (!network || bridge.cut()) return TQ_FAIL("get vap network failed!\n");
    const in_addr_t address = htonl(server->addr);
    int result = write_address(session, kRadiusOptions[kServer], &address);
    result &= set_uci_config(session, kRadiusOptions[kSecret], server->secret);
    result &= write_number(session, kRadiusOptions[kPort], server->port);
    result &= write_address(session, kRadiusOptions[kOwnAddress], &wan);
    result &= set_uci_config(session, kRadiusOptions[kBridge], bridge.c_str());
    result &= set_uci_config(session, kRadiusOptions[kPreauthBridge], bridge.c_str());
    return result;
}

int wifi_get_auth_radius_server(uci_config_ctx* session, struct wifi_radius_server* server,
                                int* count) {
    if (!session || !server || !count) return tq::reject(__func__);
    const char* address_text = get_uci_config(session, kRadiusOptions[kServer]);
    if (!address_text) return -1;
    in_addr address;
    if (inet_pton(AF_INET, address_text, &address) != 1) {
        return TQ_FAIL("invalid addr: %s\n", address_text);
    }
    int port = 0;
    if (!read_number(session, kRadiusOptions[kPort], port)) return -1;
    const char* secret = get_uci_config(session, kRadiusOptions[kSecret]);
    if (!secret) return -1;
    char* copy = strdup(secret);
    if (!copy) return TQ_FAIL("strdup fail\n");
    *server = {ntohl(address.s_addr), port, copy};
    *count = 1;
    return 0;
}

int wifi_del_auth_radius_server(uci_config_ctx* session) {
    if (!session) return tq::reject(__func__);
    int result = -1;
    for (const char* option : kRadiusOptions)
        result &= del_uci_config(session, option);
    return result;
}

int wifi_set_he_short_gi(uci_config_ctx*, int) {
    return kNothingWritten;
}

int wifi_get_he_short_gi(uci_config_ctx*, int*) {
    return kNothingWritten;
}

int wifi_set_he_max_ampdu(uci_config_ctx*, int) {
    return kNothingWritten;
}

int wifi_get_he_max_ampdu(uci_config_ctx*, int*) {
    return kNothingWritten;
}

int wifi_set_he_qam1024(uci_config_ctx*, int) {
    return kNothingWritten;
}

int wifi_get_he_qam1024(uci_config_ctx*, int*) {
    return kNothingWritten;
}

int wifi_set_he_mu_mimo(uci_config_ctx*, int) {
    return kNothingWritten;
}

int wifi_get_he_mu_mimo(uci_config_ctx*, int*) {
    return kNothingWritten;
}

int wifi_set_he_ulofdma(uci_config_ctx*, int) {
    return kNothingWritten;
}

int wifi_get_he_ulofdma(uci_config_ctx*, int*) {
    return kNothingWritten;
}

int wifi_set_he_dlofdma(uci_config_ctx*, int) {
    return kNothingWritten;
}

int wifi_get_he_dlofdma(uci_config_ctx*, int*) {
    return kNothingWritten;
}

int wifi_set_he_bss_color(uci_config_ctx*, int) {
    return kNothingWritten;
}

int wifi_get_he_bss_color(uci_config_ctx*, int*) {
    return kNothingWritten;
}
