#include "tq/image_switch.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "foundation/guard.h"
#include "foundation/log.h"
#include "tq/redboot.h"

namespace {

constexpr uint32_t kTextSize = 128;
constexpr uint32_t kScriptTimeout = 5;

// The text in the entry of that key and type, or null; the store says 1 for one of another type,
// too.
const char* stored_text(const char* key, uint32_t type) {
    const char* text = nullptr;
    return redboot_get_config(key, &text, type) == 1 ? text : nullptr;
}

// Reads no more of a stored text than its field holds.
bool equals(const char* stored, const char* text) {
    return strncmp(stored, text, kTextSize) == 0;
}

bool redboot_image_exists(bool primary) {
    const char* key = primary ? "pri_pelkin_ver" : "qak_pelkin_ver";
    const char* version = stored_text(key, REDBOOT_CONFIG_STRING);
    return version && !equals(version, "0.0.0");
}

bool is_standard_script(const char* script) {
    return equals(script, redboot_script_default);
}

bool set_number(const char* key, uint32_t type, uint32_t number) {
    return redboot_set_config(key, &number, type) == 1;
}

// True where something was changed.
bool enable_script() {
    const bool script = set_number(redboot_script_en_key, REDBOOT_CONFIG_BOOL, 1);
    const bool timeout = set_number(redboot_script_timeout_key, REDBOOT_CONFIG_INT, kScriptTimeout);
    return script || timeout;
}

// True where something was changed.
bool set_standard_script(const char* script) {
    if (is_standard_script(script)) return false;
    return redboot_set_config(redboot_script_data_key, redboot_script_default,
                              REDBOOT_CONFIG_SCRIPT) == 1;
}

int add_text(const char* key, const char* title, const char* text) {
    const redboot_config_option option = {
        key, title, nullptr, 1, REDBOOT_CONFIG_STRING, reinterpret_cast<uintptr_t>(text)};
    return redboot_add_config(&option);
}

// Turns an alias from one image to the other; false, with the text printed, where that is missing.
// One that is added counts as a change even where there was no room for it.
bool turn(const char* alias, const char* primary, const char* backup, const char* no_primary,
          const char* no_backup, bool& changed) {
    const char* current = "";
    if (redboot_get_config(alias, &current, REDBOOT_CONFIG_STRING) != 1) {
        add_text(alias, alias, redboot_image_exists(false) ? backup : primary);
        changed = true;
        return true;
    }
    const bool to_primary = !equals(current, primary);
    if (!redboot_image_exists(to_primary)) {
        puts(to_primary ? no_primary : no_backup);
        return false;
    }
    const char* value = to_primary ? primary : backup;
    changed |= redboot_set_config(alias, value, REDBOOT_CONFIG_STRING) == 1;
    return true;
}

// The second gives the flash driver time to finish what sync started.
int save() {
    if (redboot_write_config() != 1) return 1;
    sync();
    sleep(1);
    return 0;
}

}  // namespace

int sys_image_switch(void) {
    if (redboot_load_config() != 1) return 1;
    uint32_t enabled = 0;
    if (redboot_get_config(redboot_script_en_key, &enabled, REDBOOT_CONFIG_BOOL) != 1) return 1;
    bool changed = enabled == 0 && enable_script();
    const char* script = stored_text(redboot_script_data_key, REDBOOT_CONFIG_SCRIPT);
    if (!script) return 1;
    changed |= set_standard_script(script);
    const bool turned =
        turn(redboot_kernel_alias, redboot_pri_kernel, redboot_bak_kernel,
             "Primary kernel doesn't exist", "Backup kernel doesn't exist", changed) &&
        turn(redboot_rootdev_alias, redboot_pri_rootdev, redboot_bak_rootdev,
             "Primary image doesn't exist", "Backup image doesn't exist", changed);
    if (!turned) return 1;
    return changed ? save() : 0;
}

int sys_image_check(void) {
    if (redboot_load_config() != 1) return -1;
    const char* script = stored_text(redboot_script_data_key, REDBOOT_CONFIG_SCRIPT);
    if (!script) return -1;
    if (!is_standard_script(script)) return 0;
    const char* kernel = stored_text(redboot_kernel_alias, REDBOOT_CONFIG_STRING);
    if (!kernel) return -1;
    return !equals(kernel, redboot_pri_kernel);
}

int sys_sn_set(const char* serial) {
    if (!serial) return tq::reject(__func__);
    if (redboot_load_config() != 1) return -1;
    if (add_text(redboot_sn_data_key, redboot_sn_title, serial) != 1) return 1;
    return save();
}

int sys_sn_get(char* out, uint32_t length) {
    if (!out || !tq::is_size(length)) return tq::reject(__func__);
    *out = '\0';
    if (redboot_load_config() != 1) return -1;
    const char* serial = stored_text(redboot_sn_data_key, REDBOOT_CONFIG_STRING);
    if (!serial) return 1;
    const uint32_t copied = std::min(length, kTextSize);
    memcpy(out, serial, copied);
    memset(out + copied, 0, length - copied);
    return 0;
}
