#include "tq/uci_option.h"

#include <uci.h>

#include <cstring>

#include "foundation/log.h"
#include "foundation/text.h"
#include "tq/uci_path.h"
#include "uci/uci_context.h"

namespace {

using tq::LogSite;
using tq::Text;
using tq::UciContext;

constexpr size_t kModuleNameSize = 64;
constexpr size_t kNumberSize = 32;

constexpr char kWireless[] = "wireless";
constexpr char kRadio[] = "wifi-device";
constexpr char kVap[] = "wifi-iface";
constexpr char kFirewall[] = "firewall";
constexpr char kRule[] = "rule";
constexpr char kFaultFile[] = "tqfm";
constexpr char kModule[] = "module";
constexpr char kThreshold[] = "threshold";
constexpr char kSuppress[] = "suppress";

// ---- shortcuts ----

// The n-th section of a type.
struct Place {
    const char* file;
    const char* type;
    int index;
};

// One byte longer than the paths that the functions by path take, so that they refuse what was cut.
class Path : public Text<1024 + 1> {
  public:
    Path(const Place& place, const char* option) {
        append("%s.@%s[%d].%s", place.file, place.type, place.index, option);
    }
};

int set_number(LogSite site, uci_context* context, const Place& place, const char* option,
               int value) {
    if (!option) return TQ_FAIL_AS(site, "invalid parameters\n");
    Path path(place, option);
    path.append("=%d", value);
    return set_uci_option(context, path.c_str());
}

int set_text(LogSite site, uci_context* context, const Place& place, const char* option,
             const char* value) {
    if (!option || !value) return TQ_FAIL_AS(site, "invalid parameters\n");
    Path path(place, option);
    path.append("=%s", value);
    return set_uci_option(context, path.c_str());
}

// ---- thresholds ----

class ModuleName : public Text<kModuleNameSize> {
  public:
    explicit ModuleName(int module) { append("%d", module); }
};

int get_module_option(LogSite site, int module, const char* option, int* value) {
    if (!value) return TQ_FAIL_AS(site, "invalid parameters\n");
    const ModuleName name(module);
    char text[kNumberSize] = "";
    if (uci_get_str_option_by_name(kFaultFile, name.c_str(), option, text, sizeof(text)) != 0) {
        return -1;
    }
    *value = tq::leading_int(text).value_or(0);
    return 0;
}

int set_module_option(LogSite site, int module, const char* option, unsigned value) {
    const ModuleName name(module);
    if (uci_add_secition_by_name(kFaultFile, kModule, name.c_str()) != 0) {
        return TQ_FAIL_AS(site, "uci_add_secition_by_name fail, file = %s, type = %s name = %s\n",
                          kFaultFile, kModule, name.c_str());
    }
    if (uci_set_int_option_by_name(kFaultFile, name.c_str(), option, value) != 0) {
        return TQ_FAIL_AS(
            site,
            "uci_set_int_option_by_name fail, file = %s, name = %s, option = %s, value = %u\n",
            kFaultFile, name.c_str(), option, value);
    }
    return 0;
}

}  // namespace

int set_radio_option_int(struct uci_context* ctx, int radio, const char* option, int value) {
    return set_number(TQ_HERE, ctx, {kWireless, kRadio, radio}, option, value);
}

int set_radio_option_str(struct uci_context* ctx, int radio, const char* option,
                         const char* value) {
    return set_text(TQ_HERE, ctx, {kWireless, kRadio, radio}, option, value);
}

int set_vap_option_int(struct uci_context* ctx, int vap, const char* option, int value) {
    return set_number(TQ_HERE, ctx, {kWireless, kVap, vap}, option, value);
}

int set_vap_option_str(struct uci_context* ctx, int vap, const char* option, const char* value) {
    return set_text(TQ_HERE, ctx, {kWireless, kVap, vap}, option, value);
}

int set_fw_rule_option_int(struct uci_context* ctx, int rule, const char* option, int value) {
    return set_number(TQ_HERE, ctx, {kFirewall, kRule, rule}, option, value);
}

int set_fw_rule_option_str(struct uci_context* ctx, int rule, const char* option,
                           const char* value) {
    return set_text(TQ_HERE, ctx, {kFirewall, kRule, rule}, option, value);
}

int del_radio_option(struct uci_context* ctx, int radio, const char* option) {
    if (!option) return TQ_FAIL("invalid parameters\n");
    const Path path({kWireless, kRadio, radio}, option);
    return del_uci_element(ctx, path.c_str(), false);
}

int del_vap_option(struct uci_context* ctx, int vap, const char* option) {
    if (!option) return TQ_FAIL("invalid parameters\n");
    const Path path({kWireless, kVap, vap}, option);
    if (del_uci_element(ctx, path.c_str(), false) != 0) {
        return TQ_FAIL("del_uci_option fail: %s\n", path.c_str());
    }
    return 0;
}

int uci_get_threshold(int module, int* value) {
    return get_module_option(TQ_HERE, module, kThreshold, value);
}

int uci_set_threshold(int module, unsigned value) {
    return set_module_option(TQ_HERE, module, kThreshold, value);
}

int uci_get_suppress(int module, int* value) {
    return get_module_option(TQ_HERE, module, kSuppress, value);
}

int uci_set_suppress(int module, unsigned value) {
    return set_module_option(TQ_HERE, module, kSuppress, value);
}

int uci_set_suppress_defaults(unsigned value) {
    const UciContext context;
    uci_package* package = nullptr;
    if (!context || uci_load(context.get(), kFaultFile, &package) != UCI_OK) {
        return TQ_FAIL("uci_load %s fail\n", kFaultFile);
    }
    // Each step commits through a context of its own: what was loaded here only lends the names.
    uci_element* element = nullptr;
    uci_foreach_element(&package->sections, element) {
        if (strcmp(uci_to_section(element)->type, kModule) != 0) continue;
        if (uci_set_int_option_by_name(kFaultFile, element->name, kSuppress, value) != 0) {
            TQ_LOG(LOG_ERR, "uci_set_int_option_by_name config fail\n");
        }
    }
    return 0;
}
