#include "tq/uci_option.h"

#include <uci.h>

#include <cstdio>
#include <cstring>

#include "foundation/log.h"
#include "foundation/text.h"
#include "tq/uci_path.h"
#include "uci/uci_context.h"

namespace {

using tq::Text;
using tq::UciContext;

constexpr size_t kModuleNameSize = 64;
constexpr size_t kNumberSize = 32;

constexpr char kFaultFile[] = "tqfm";
constexpr char kModule[] = "module";
constexpr char kThreshold[] = "threshold";
constexpr char kSuppress[] = "suppress";

// ---- shortcuts ----

// The sections of one type: "%s.@%s" of the file and the type.
constexpr char kRadios[] = "wireless.@wifi-device";
constexpr char kVaps[] = "wireless.@wifi-iface";
constexpr char kRules[] = "firewall.@rule";

// "%s.@%s[%d].%s", and then "=%s". One byte longer than the paths that the functions by path take,
// so that they refuse what was cut. What is null makes no path, which they reject.
class Path : public Text<1024 + 1> {
  public:
    Path(const char* sections, int index, const char* option) {
        append("%s[%d].%s", sections, index, option);
    }
};

int set_text(uci_context* context, int index, const char* option, const char* value,
             const char* sections) {
    if (!option || !value) return set_uci_option(context, nullptr);
    Path path(sections, index, option);
    path.append("=%s", value);
    return set_uci_option(context, path.c_str());
}

// Inlined, it would be three times as long: the buffer is each caller's then.
[[gnu::noinline]] int set_number(uci_context* context, int index, const char* option, int value,
                                 const char* sections) {
    char text[kNumberSize];
    snprintf(text, sizeof(text), "%d", value);
    return set_text(context, index, option, text, sections);
}

// ---- thresholds ----

class ModuleName : public Text<kModuleNameSize> {
  public:
    explicit ModuleName(int module) { append("%d", module); }
};

int get_module_option(int module, const char* option, int* value, const char* caller) {
    if (!value) return tq::reject(caller);
    const ModuleName name(module);
    char text[kNumberSize];
    if (uci_get_str_option_by_name(kFaultFile, name.c_str(), option, text, sizeof(text)) != 0) {
        return -1;
    }
    *value = tq::leading_int(text);
    return 0;
}

int set_module_option(int module, const char* option, unsigned value, const char* caller) {
    const ModuleName name(module);
    if (uci_add_secition_by_name(kFaultFile, kModule, name.c_str()) != 0) {
        return TQ_FAIL_IN(caller, "uci_add_secition_by_name fail, file = %s, type = %s name = %s\n",
                          kFaultFile, kModule, name.c_str());
    }
    if (uci_set_int_option_by_name(kFaultFile, name.c_str(), option, value) != 0) {
        return TQ_FAIL_IN(
            caller,
            "uci_set_int_option_by_name fail, file = %s, name = %s, option = %s, value = %u\n",
            kFaultFile, name.c_str(), option, value);
    }
    return 0;
}

}  // namespace

int set_radio_option_int(struct uci_context* ctx, int radio, const char* option, int value) {
    return set_number(ctx, radio, option, value, kRadios);
}

int set_radio_option_str(struct uci_context* ctx, int radio, const char* option,
                         const char* value) {
    return set_text(ctx, radio, option, value, kRadios);
}

int set_vap_option_int(struct uci_context* ctx, int vap, const char* option, int value) {
    return set_number(ctx, vap, option, value, kVaps);
}

int set_vap_option_str(struct uci_context* ctx, int vap, const char* option, const char* value) {
    return set_text(ctx, vap, option, value, kVaps);
}

int set_fw_rule_option_int(struct uci_context* ctx, int rule, const char* option, int value) {
    return set_number(ctx, rule, option, value, kRules);
}

int set_fw_rule_option_str(struct uci_context* ctx, int rule, const char* option,
                           const char* value) {
    return set_text(ctx, rule, option, value, kRules);
}

int del_radio_option(struct uci_context* ctx, int radio, const char* option) {
    if (!option) return del_uci_element(ctx, nullptr, false);
    const Path path(kRadios, radio, option);
    return del_uci_element(ctx, path.c_str(), false);
}

int del_vap_option(struct uci_context* ctx, int vap, const char* option) {
    if (!option) return del_uci_element(ctx, nullptr, false);
    const Path path(kVaps, vap, option);
    if (del_uci_element(ctx, path.c_str(), false) != 0) {
        return TQ_FAIL("del_uci_option fail: %s\n", path.c_str());
    }
    return 0;
}

int uci_get_threshold(int module, int* value) {
    return get_module_option(module, kThreshold, value, __func__);
}

int uci_set_threshold(int module, unsigned value) {
    return set_module_option(module, kThreshold, value, __func__);
}

int uci_get_suppress(int module, int* value) {
    return get_module_option(module, kSuppress, value, __func__);
}

int uci_set_suppress(int module, unsigned value) {
    return set_module_option(module, kSuppress, value, __func__);
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
