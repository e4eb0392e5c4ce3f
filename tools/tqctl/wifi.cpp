// wifi.cpp - tqctl wifi: the settings of radios and VAPs, in the system's codes.
#include <arpa/inet.h>
#include <tq/uci_session.h>
#include <tq/wifi.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "families.h"
#include "number.h"
#include "uci_sections.h"
#include "uci_store.h"

namespace tqctl {

namespace {

constexpr char kFile[] = "wireless";
constexpr char kRadio[] = "wifi-device";
constexpr char kVap[] = "wifi-iface";
constexpr char kShowSecrets[] = "--secrets";
constexpr char kMask[] = "********";
constexpr char kFromStandardInput[] = "-";
constexpr size_t kSecretSize = 1024;

// ---- reading: a setting's value as JSON, null where it has none ----

using Read = Json (*)(uci_config_ctx* session, bool with_secrets);

template <int (*Get)(uci_config_ctx*, int*)>
Json read_number(uci_config_ctx* session, bool) {
    int number = 0;
    return Get(session, &number) == 0 ? json_number(number) : nullptr;
}

// The three whose second argument has no meaning.
template <int (*Get)(uci_config_ctx*, int, int*)>
Json read_number(uci_config_ctx* session, bool) {
    int number = 0;
    return Get(session, 0, &number) == 0 ? json_number(number) : nullptr;
}

Json read_option(uci_config_ctx* session, const char* option) {
    const char* text = get_uci_config(session, option);
    return text ? json_text(text) : nullptr;
}

Json read_country(uci_config_ctx* session, bool) {
    return read_option(session, "country");
}

Json json_secret(const char* secret, bool with_secrets) {
    return json_text(with_secrets ? secret : kMask);
}

Json read_key(uci_config_ctx* session, bool with_secrets) {
    const char* key = get_uci_config(session, "key");
    return key ? json_secret(key, with_secrets) : nullptr;
}

// In the order in which the words of the command line are.
Json read_radius(uci_config_ctx* session, bool with_secrets) {
    wifi_radius_server server{};
    int count = 0;
    if (wifi_get_auth_radius_server(session, &server, &count) != 0) return nullptr;
    const HeapText secret(server.secret);
    char address[INET_ADDRSTRLEN] = "";
    const in_addr octets{htonl(server.addr)};
    inet_ntop(AF_INET, &octets, address, sizeof(address));
    Json object(json_object_new_object());
    json_add(object.get(), "address", json_text(address));
    json_add(object.get(), "port", json_number(server.port));
    json_add(object.get(), "secret", json_secret(secret.get(), with_secrets));
    return object;
}

// An authentication as it is written in "encryption", with the library's code for it.
struct Auth {
    const char* name;
    int type;
    bool has_cipher;
    bool enterprise;
};

constexpr Auth kAuths[] = {
    {"none", 0, false, false}, {"wep-shared", 1, false, false}, {"wep-open", 2, false, false},
    {"wpa", 3, true, true},    {"psk", 3, true, false},         {"wpa2", 4, true, true},
    {"psk2", 4, true, false},  {"mixed-wpa", 5, true, true},    {"mixed-psk", 5, true, false},
    {"ccmp", 6, false, false}, {"wpa2-wpa3", 7, true, true},
};

constexpr const char* kCiphers[] = {"ccmp", "ccmp+tkip", "tkip", "suite_b"};

const Auth* find_auth(const char* name) {
    for (const Auth& auth : kAuths) {
        if (name && strcmp(auth.name, name) == 0) return &auth;
    }
    return nullptr;
}

// -1 where there is none of that name.
int find_cipher(const char* name) {
    for (size_t i = 0; i < std::size(kCiphers); i++) {
        if (name && strcmp(kCiphers[i], name) == 0) return static_cast<int>(i);
    }
    return -1;
}

Json read_auth(uci_config_ctx* session, bool) {
    const Auth* auth = find_auth(get_uci_config(session, "encryption"));
    return auth ? json_text(auth->name) : nullptr;
}

Json read_cipher(uci_config_ctx* session, bool) {
    const int cipher = find_cipher(get_uci_config(session, "aes"));
    return cipher < 0 ? nullptr : json_text(kCiphers[cipher]);
}

// ---- writing: the result is the library's, kDone where it was asked ----

using Write = ExitCode (*)(const Context&, uci_config_ctx* session, Arguments values, int& result);

template <int (*Set)(uci_config_ctx*, int)>
ExitCode write_number(const Context& context, uci_config_ctx* session, Arguments values,
                      int& result) {
    const std::optional<int> number = take_int(context, values[0]);
    if (!number) return ExitCode::kUsage;
    result = Set(session, *number);
    return ExitCode::kDone;
}

template <int (*Set)(uci_config_ctx*, int, int)>
int without_second(uci_config_ctx* session, int value) {
    return Set(session, 0, value);
}

ExitCode write_mode(const Context& context, uci_config_ctx* session, Arguments values,
                    int& result) {
    const std::optional<int64_t> mode = take_number(context, values[0], "a mode", 1, 30);
    if (!mode) return ExitCode::kUsage;
    result = wifi_set_wireless_mode(session, static_cast<int>(*mode));
    return ExitCode::kDone;
}

ExitCode write_country(const Context&, uci_config_ctx* session, Arguments, int& result) {
    result = wifi_set_country_code(session);
    return ExitCode::kDone;
}

// With the cipher that the VAP has, or else the first.
ExitCode write_auth(const Context& context, uci_config_ctx* session, Arguments values,
                    int& result) {
    const Auth* auth = find_auth(values[0]);
    if (!auth) return context.misuse("%s: no such authentication", values[0]);
    if (!auth->has_cipher) {
        if (values.size() == 2) return context.misuse("%s has no cipher", auth->name);
        result = wifi_set_auth_type(session, auth->type);
        return ExitCode::kDone;
    }
    const bool given = values.size() == 2;
    const int cipher = find_cipher(given ? values[1] : get_uci_config(session, "aes"));
    if (given && cipher < 0) return context.misuse("%s: no such cipher", values[1]);
    result = wifi_set_auth_wpa_type(session, auth->type, auth->enterprise, cipher < 0 ? 0 : cipher);
    return ExitCode::kDone;
}

ExitCode write_cipher(const Context& context, uci_config_ctx* session, Arguments values,
                      int& result) {
    const int cipher = find_cipher(values[0]);
    if (cipher < 0) return context.misuse("%s: no such cipher", values[0]);
    const Auth* auth = find_auth(get_uci_config(session, "encryption"));
    if (!auth || !auth->has_cipher)
        return context.fail(ExitCode::kRefused, "the authentication of this VAP has no cipher");
    // wpa2-wpa3 and wpa2 share the text of their pre-shared key, so that writing one keeps it.
    result = wifi_set_auth_wpa_type(session, auth->type, auth->enterprise, cipher);
    return ExitCode::kDone;
}

// A secret of the command line, where every user sees it, or a line of standard input.
class Secret {
  public:
    explicit Secret(const char* word) : text_(word) {
        if (strcmp(word, kFromStandardInput) != 0) return;
        text_ = fgets(line_, sizeof(line_), stdin) ? line_ : "";
        cut_ = strlen(text_) == sizeof(line_) - 1;
        line_[strcspn(line_, "\n")] = '\0';
    }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    [[nodiscard]] const char* problem() const {
        if (cut_) return "too long";
        return *text_ ? nullptr : "empty";
    }
    [[nodiscard]] const char* c_str() const { return text_; }

  private:
    const char* text_;
    bool cut_ = false;
    char line_[kSecretSize] = "";
};

ExitCode write_key(const Context& context, uci_config_ctx* session, Arguments values, int& result) {
    const Secret key(values[0]);
    if (key.problem()) return context.misuse("the key is %s", key.problem());
    result = wifi_set_auth_wpa_key(session, key.c_str());
    return ExitCode::kDone;
}

ExitCode write_radius(const Context& context, uci_config_ctx* session, Arguments values,
                      int& result) {
    if (values.size() == 1 && strcmp(values[0], "off") == 0) {
        result = wifi_del_auth_radius_server(session);
        return ExitCode::kDone;
    }
    if (values.size() != 3) return context.misuse("ADDRESS, PORT and SECRET are needed, or off");
    in_addr address{};
    if (inet_pton(AF_INET, values[0], &address) != 1)
        return context.misuse("%s: not an IPv4 address", values[0]);
    const std::optional<uint16_t> port = take_port(context, values[1]);
    if (!port) return ExitCode::kUsage;
    const Secret secret(values[2]);
    if (secret.problem()) return context.misuse("the secret is %s", secret.problem());
    HeapText copy(strdup(secret.c_str()));
    const wifi_radius_server server{ntohl(address.s_addr), *port, copy.get()};
    result = wifi_set_auth_radius_server(session, &server);
    return ExitCode::kDone;
}

// ---- the settings ----

struct Setting {
    const char* name;
    const char* type;  // of the sections that have it
    size_t min_values;
    size_t max_values;
    Read read;
    Write write;
};

constexpr Setting kSettings[] = {
    {"mode", kRadio, 1, 1, read_number<wifi_get_wireless_mode>, write_mode},
    {"gi", kRadio, 1, 1, read_number<wifi_get_short_gi>, write_number<wifi_set_short_gi>},
    {"vht-gi", kRadio, 1, 1, read_number<wifi_get_vht_short_gi>,
     write_number<wifi_set_vht_short_gi>},
    {"rts", kRadio, 1, 1, read_number<wifi_get_rts_threshold>,
     write_number<without_second<wifi_set_rts_threshold>>},
    {"frag", kRadio, 1, 1, read_number<wifi_get_frag_threshold>,
     write_number<without_second<wifi_set_frag_threshold>>},
    {"dtim", kRadio, 1, 1, read_number<wifi_get_dtim_interval>,
     write_number<without_second<wifi_set_dtim_interval>>},
    {"beacon-rate", kRadio, 1, 1, read_number<wifi_get_beacon_rate>,
     write_number<wifi_set_beacon_rate>},
    {"mcast-rate", kRadio, 1, 1, read_number<wifi_get_mcast_rate>,
     write_number<wifi_set_mcast_rate>},
    {"country", kRadio, 0, 0, read_country, write_country},
    {"auth", kVap, 1, 2, read_auth, write_auth},
    {"cipher", kVap, 1, 1, read_cipher, write_cipher},
    {"key", kVap, 1, 1, read_key, write_key},
    {"radius", kVap, 1, 3, read_radius, write_radius},
};

const Setting* find_setting(const char* name) {
    for (const Setting& setting : kSettings) {
        if (strcmp(setting.name, name) == 0) return &setting;
    }
    return nullptr;
}

// ---- sessions ----

ExitCode load(const Context& context, uci_config_ctx& session) {
    return load_session(context, *get_uci_entry_by_name(kFile), session);
}

bool is_radio_or_vap(const uci_section& section) {
    return strcmp(section.type, kRadio) == 0 || strcmp(section.type, kVap) == 0;
}

// Points the session to the section of that spelling.
ExitCode select(const Context& context, uci_config_ctx& session, const char* spelling) {
    for_each(session.pkg->sections, [&](uci_element& element) {
        uci_section* section = uci_to_section(&element);
        if (is_radio_or_vap(*section) && Spelling(*section).is(spelling)) session.ptr.s = section;
    });
    if (session.ptr.s) return ExitCode::kDone;
    return context.fail(ExitCode::kRefused, "%s: no such radio or VAP", spelling);
}

ExitCode select_for(const Context& context, uci_config_ctx& session, const char* spelling,
                    const Setting& setting) {
    ExitCode code = load(context, session);
    if (code != ExitCode::kDone || !session.pkg) return code;
    code = select(context, session, spelling);
    if (code != ExitCode::kDone || !session.ptr.s) return code;
    if (strcmp(session.ptr.s->type, setting.type) == 0) return ExitCode::kDone;
    return context.fail(ExitCode::kRefused, "%s: a %s has no %s", spelling, session.ptr.s->type,
                        setting.name);
}

// ---- verbs ----

// The option that asks for secrets, and what is behind it.
struct Request {
    explicit Request(Arguments arguments)
        : with_secrets(!arguments.empty() && strcmp(arguments[0], kShowSecrets) == 0),
          words(arguments.subspan(with_secrets ? 1 : 0)) {}

    bool with_secrets;
    Arguments words;
};

// A value of several parts has them behind each other, as the command line takes them.
void print_value(json_object* value) {
    if (!json_object_is_type(value, json_type_object)) {
        printf("%s\n", json_object_get_string(value));
        return;
    }
    const char* blank = "";
    json_object_object_foreach(value, key, part) {
        (void)key;
        printf("%s%s", blank, json_object_get_string(part));
        blank = " ";
    }
    putchar('\n');
}

// The settings that the selected section has.
Json read_all(uci_config_ctx& session, bool with_secrets) {
    Json object(json_object_new_object());
    for (const Setting& setting : kSettings) {
        if (strcmp(session.ptr.s->type, setting.type) != 0) continue;
        Json value = setting.read(&session, with_secrets);
        if (value) json_add(object.get(), setting.name, std::move(value));
    }
    return object;
}

void print_settings(const char* section, json_object* settings) {
    json_object_object_foreach(settings, name, value) {
        printf("%s.%s=", section, name);
        print_value(value);
    }
}

ExitCode show(Context& context, Arguments arguments) {
    const Request request(arguments);
    if (request.words.size() > 1) return context.misuse("too many arguments");
    const char* wanted = request.words.empty() ? nullptr : request.words[0];
    uci_config_ctx session{};
    const ExitCode code = load(context, session);
    if (code != ExitCode::kDone || !session.pkg) return code;

    const Json sections(json_object_new_object());
    bool found = false;
    for_each(session.pkg->sections, [&](uci_element& element) {
        uci_section& section = *uci_to_section(&element);
        const Spelling spelling(section);
        if (!is_radio_or_vap(section) || (wanted && !spelling.is(wanted))) return;
        found = true;
        session.ptr.s = &section;
        Json settings = read_all(session, request.with_secrets);
        if (!context.output.is_json()) print_settings(spelling.c_str(), settings.get());
        json_add(sections.get(), spelling.c_str(), std::move(settings));
    });
    if (wanted && !found)
        return context.fail(ExitCode::kRefused, "%s: no such radio or VAP", wanted);
    if (context.output.is_json()) context.output.document(sections);
    return ExitCode::kDone;
}

ExitCode get(Context& context, Arguments arguments) {
    const Request request(arguments);
    if (request.words.size() != 2) return context.misuse("a SECTION and a SETTING are needed");
    const Setting* setting = find_setting(request.words[1]);
    if (!setting) return context.misuse("no setting is named '%s'", request.words[1]);
    uci_config_ctx session{};
    const ExitCode code = select_for(context, session, request.words[0], *setting);
    if (code != ExitCode::kDone) return code;
    Json value = setting->read(&session, request.with_secrets);
    if (!value) {
        return context.fail(ExitCode::kRefused, "%s: %s is not set, or to no known value",
                            request.words[0], setting->name);
    }
    if (!context.output.is_json()) {
        print_value(value.get());
        return ExitCode::kDone;
    }
    const Json object(json_object_new_object());
    json_add(object.get(), setting->name, std::move(value));
    context.output.document(object);
    return ExitCode::kDone;
}

ExitCode commit(const Context& context) {
    if (save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0) == 0) return ExitCode::kDone;
    return explain(context, kFile, {ExitCode::kInputOutput, "the change could not be committed"});
}

ExitCode set(Context& context, Arguments arguments) {
    const Setting* setting = find_setting(arguments[1]);
    if (!setting) return context.misuse("no setting is named '%s'", arguments[1]);
    const Arguments values = arguments.subspan(2);
    if (values.size() < setting->min_values) return context.misuse("a value is missing");
    if (values.size() > setting->max_values) return context.misuse("too many values");
    if (const auto obstacle = obstacle_to_change(kFile)) return explain(context, kFile, *obstacle);
    uci_config_ctx session{};
    ExitCode code = select_for(context, session, arguments[0], *setting);
    if (code != ExitCode::kDone) return code;
    int result = -1;
    code = setting->write(context, &session, values, result);
    if (code != ExitCode::kDone) return code;
    if (result == 0) return commit(context);
    if (result == 1) return ExitCode::kDone;
    return context.fail(ExitCode::kRefused, "%s: %s cannot be set to that", arguments[0],
                        setting->name);
}

constexpr Command kCommands[] = {
    {"show", "[--secrets] [SECTION]", 0, 2, "prints the settings of radios and VAPs",
     "Without a SECTION those of all, each on a line of its own as\n"
     "SECTION.SETTING=VALUE; what is not set is left out. JSON is an object of\n"
     "sections. Keys and RADIUS secrets are printed with --secrets only.",
     "tqctl wifi show radio0", show},
    {"get", "[--secrets] SECTION SETTING", 2, 3, "prints one setting",
     "As wifi set takes it. JSON is an object with the SETTING as its key; radius is\n"
     "an object of address, port and secret. Keys and RADIUS secrets are printed\n"
     "with --secrets only.",
     "tqctl wifi get radio0 mode", get},
    {"set", "SECTION SETTING [VALUE...]", 2, 5, "changes one setting",
     "Where the value is new it is written to the file, together with what other\n"
     "programs have staged for it in /tmp/.uci.\n"
     "\n"
     "A KEY or SECRET that is - is read from a line of standard input: other users\n"
     "see the command line. The access point's own side of radius is set along with\n"
     "the server: the WAN's address, and the bridge of the VAP's network.",
     "tqctl wifi set default_radio0 auth wpa2-wpa3 suite_b", set},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kWifi = {
    "wifi", "settings of radios and VAPs",
    "SECTION is a section of the file wireless, by its name or as @TYPE[N], where\n"
    "TYPE is wifi-device (a radio) or wifi-iface (a VAP).\n"
    "\n"
    "SETTING of a radio, with its value:\n"
    "  mode NUMBER: wireless mode, 1 to 30\n"
    "  gi NUMBER, vht-gi NUMBER: short guard interval\n"
    "  rts NUMBER, frag NUMBER: thresholds in bytes\n"
    "  dtim NUMBER: interval in beacons\n"
    "  beacon-rate NUMBER, as the driver counts\n"
    "  mcast-rate NUMBER: 1, 2, 5, 6, 9, 11, 12, 18, 24, 36, 48 or 54 Mbit/s\n"
    "  country, set without a value: it is CN\n"
    "\n"
    "SETTING of a VAP:\n"
    "  auth NAME [CIPHER]: none, wep-shared, wep-open, ccmp, wpa, wpa2, mixed-wpa,\n"
    "    wpa2-wpa3, psk, psk2 or mixed-psk\n"
    "  cipher CIPHER: ccmp, ccmp+tkip, tkip or suite_b\n"
    "  key KEY\n"
    "  radius ADDRESS PORT SECRET, or radius off",
    kCommands};

}  // namespace tqctl
