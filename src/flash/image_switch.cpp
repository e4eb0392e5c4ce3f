#include "tq/image_switch.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "foundation/log.h"
#include "tq/redboot.h"

namespace {

constexpr uint32_t kTextSize = 128;
constexpr uint32_t kScriptTimeout = 5;

enum class Image { kPrimary, kBackup };

// Where one of the aliases points to for each image, and what is said where that is missing.
struct Alias {
    const char* key;
    const char* primary;
    const char* backup;
    const char* no_primary;
    const char* no_backup;
};

constexpr Alias kKernel = {redboot_kernel_alias, redboot_pri_kernel, redboot_bak_kernel,
                           "Primary kernel doesn't exist", "Backup kernel doesn't exist"};
constexpr Alias kRootdev = {redboot_rootdev_alias, redboot_pri_rootdev, redboot_bak_rootdev,
                            "Primary image doesn't exist", "Backup image doesn't exist"};

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

bool redboot_image_exists(Image image) {
    const char* key = image == Image::kPrimary ? "pri_pelkin_ver" : "qak_pelkin_ver";
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
bool enable_script(bool enabled) {
    if (enabled) return false;
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

enum class Turn { kMissingImage, kUnchanged, kChanged };

// Turns an alias to the other image. One that is added counts as a change even where there was no
// room for it.
Turn turn(const Alias& alias) {
    const char* current = "";
    if (redboot_get_config(alias.key, &current, REDBOOT_CONFIG_STRING) != 1) {
        const bool has_backup = redboot_image_exists(Image::kBackup);
        add_text(alias.key, alias.key, has_backup ? alias.backup : alias.primary);
        return Turn::kChanged;
    }
    const Image target = equals(current, alias.primary) ? Image::kBackup : Image::kPrimary;
    const bool to_primary = target == Image::kPrimary;
    if (!redboot_image_exists(target)) {
        printf("%s", to_primary ? alias.no_primary : alias.no_backup);
        return Turn::kMissingImage;
    }
    const char* value = to_primary ? alias.primary : alias.backup;
    const bool set = redboot_set_config(alias.key, value, REDBOOT_CONFIG_STRING) == 1;
    return set ? Turn::kChanged : Turn::kUnchanged;
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
    bool changed = enable_script(enabled != 0);
    const char* script = stored_text(redboot_script_data_key, REDBOOT_CONFIG_SCRIPT);
    if (!script) return 1;
    changed |= set_standard_script(script);
    const Turn kernel_turn = turn(kKernel);
    if (kernel_turn == Turn::kMissingImage) return 1;
    changed |= kernel_turn == Turn::kChanged;
    const Turn rootdev_turn = turn(kRootdev);
    if (rootdev_turn == Turn::kMissingImage) return 1;
    changed |= rootdev_turn == Turn::kChanged;
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
    if (!out || static_cast<int32_t>(length) <= 0) return tq::reject(__func__);
    *out = '\0';
    if (redboot_load_config() != 1) return -1;
    const char* serial = stored_text(redboot_sn_data_key, REDBOOT_CONFIG_STRING);
    if (!serial) return 1;
    const uint32_t copied = std::min(length, kTextSize);
    memcpy(out, serial, copied);
    memset(out + copied, 0, length - copied);
    return 0;
}
