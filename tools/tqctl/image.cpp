// image.cpp - tqctl image: which firmware image the boot loader starts next.
#include <tq/image_switch.h>
#include <tq/mtd.h>
#include <tq/redboot.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "boot_block.h"
#include "families.h"

namespace tqctl {

namespace {

const char* name_of(int image) {
    return image == 0 ? "primary" : "backup";
}

// The image that is started next; negative where the block does not say.
int next_image() {
    LibraryOutput output;
    return sys_image_check();
}

ExitCode refuse_unknown_image(const Context& context) {
    return context.fail(ExitCode::kRefused, "the block has no boot script or no alias/kernel");
}

// status

Json stored_version(const char* key) {
    const auto version = find_entry(redboot_config, key);
    return version ? json_text(OneLine(ValueText(*version).view()).c_str()) : nullptr;
}

ExitCode status(Context& context, Arguments) {
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone) return loaded;
    const int next = next_image();
    const Json object(json_object_new_object());
    json_add(object.get(), "active", json_text(name_of(get_active_image_type())));
    json_add(object.get(), "next", json_text(next < 0 ? "unknown" : name_of(next)));
    json_add(object.get(), "primary_version", stored_version("pri_pelkin_ver"));
    json_add(object.get(), "backup_version", stored_version("qak_pelkin_ver"));
    json_add(object.get(), "primary_usable", json_bool(check_primary_image() == 0));
    json_add(object.get(), "backup_usable", json_bool(check_backup_image() == 0));
    context.output.members(object);
    return next < 0 ? refuse_unknown_image(context) : ExitCode::kDone;
}

// check

ExitCode check(Context& context, Arguments) {
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone) return loaded;
    const int next = next_image();
    if (next < 0) return refuse_unknown_image(context);
    context.output.value("next", std::string_view(name_of(next)));
    return ExitCode::kDone;
}

// switch

// The switch on the block in memory, for what it would change. The calls are those of the library's
// switch, in its order; nothing is written.

const char* stored_text(const char* key, uint32_t type) {
    const char* text = nullptr;
    return redboot_get_config(key, &text, type) == 1 ? text : nullptr;
}

// Reads no more of a stored text than its field holds.
bool equals(const char* stored, std::string_view text) {
    return std::string_view(stored, strnlen(stored, kLongestText + 1)) == text;
}

bool has_image(const char* version_key) {
    const char* version = stored_text(version_key, REDBOOT_CONFIG_STRING);
    return version && !equals(version, "0.0.0");
}

void enable_script() {
    const uint32_t yes = 1;
    const uint32_t seconds = 5;
    redboot_set_config(redboot_script_en_key, &yes, REDBOOT_CONFIG_BOOL);
    redboot_set_config(redboot_script_timeout_key, &seconds, REDBOOT_CONFIG_INT);
}

const char* turn(const char* key, const char* primary, const char* backup) {
    const bool has_backup = has_image("qak_pelkin_ver");
    const char* current = "";
    if (redboot_get_config(key, &current, REDBOOT_CONFIG_STRING) != 1) {
        const char* value = has_backup ? backup : primary;
        const redboot_config_option option = {
            key, key, nullptr, 1, REDBOOT_CONFIG_STRING, reinterpret_cast<uintptr_t>(value)};
        if (redboot_add_config(&option) != 1) return "there is no room for an alias";
        return find_entry(redboot_config, key)
                   ? nullptr
                   : "the block's free space is not as it should be; see redboot verify";
    }
    const bool to_backup = equals(current, primary);
    if (to_backup && !has_backup) return "there is no backup image";
    if (!to_backup && !has_image("pri_pelkin_ver")) return "there is no primary image";
    const char* value = to_backup ? backup : primary;
    const bool set = redboot_set_config(key, value, REDBOOT_CONFIG_STRING) == 1;
    return set ? nullptr : "an alias is of another type than string";
}

// What keeps the library from switching, or null.
const char* rehearse_switch() {
    const LibraryOutput output;
    uint32_t enabled = 0;
    if (redboot_get_config(redboot_script_en_key, &enabled, REDBOOT_CONFIG_BOOL) != 1) {
        return "the block has no entry boot_script";
    }
    if (!enabled) enable_script();
    const char* script = stored_text(redboot_script_data_key, REDBOOT_CONFIG_SCRIPT);
    if (!script) return "the block has no script boot_script_data";
    if (!equals(script, redboot_script_default)) {
        redboot_set_config(redboot_script_data_key, redboot_script_default, REDBOOT_CONFIG_SCRIPT);
    }
    const char* problem = turn(redboot_kernel_alias, redboot_pri_kernel, redboot_bak_kernel);
    if (problem) return problem;
    return turn(redboot_rootdev_alias, redboot_pri_rootdev, redboot_bak_rootdev);
}

// The image that the block in memory names, its alias having been turned or added.
const char* rehearsed_image() {
    const char* kernel = stored_text(redboot_kernel_alias, REDBOOT_CONFIG_STRING);
    return name_of(kernel && !equals(kernel, redboot_pri_kernel));
}

Json difference(const std::optional<BlockEntry>& from, const BlockEntry& to) {
    Json object(json_object_new_object());
    const bool whole =
        (!from || json_add(object.get(), "from", json_text(ValueText(*from).view()))) &&
        json_add(object.get(), "to", json_text(ValueText(to).view()));
    return whole ? std::move(object) : nullptr;
}

void print_change(const std::optional<BlockEntry>& from, const BlockEntry& to) {
    const OneLine key(to.key);
    const OneLine value(ValueText(to).view());
    if (from) {
        printf("%s: %s -> %s\n", key.c_str(), OneLine(ValueText(*from).view()).c_str(),
               value.c_str());
    } else {
        printf("%s: added as %s\n", key.c_str(), value.c_str());
    }
}

// The entries of the block in memory that are others than before. None has moved; what was added
// stands behind the last.
void print_difference(Context& context, const unsigned char* before) {
    Json differences(json_object_new_object());
    BlockReader reader(redboot_config);
    BlockReader reader_before(before);
    while (const auto entry = reader.next()) {
        const auto old = reader_before.next();
        if (old && memcmp(old->value, entry->value, entry->value_size) == 0) continue;
        if (context.output.is_json()) {
            json_add(differences.get(), entry->key, difference(old, *entry));
        } else {
            print_change(old, *entry);
        }
    }
    if (context.output.is_json()) context.output.document(differences);
}

// Standard input answers; its end is a no, and so is it where the question cannot be seen.
bool confirms(const Context& context, const char* image) {
    if (context.is_quiet) return false;
    fprintf(stderr, "tqctl: image switch: start the %s image next time? [y/N] ", image);
    char answer[16] = "";
    if (!fgets(answer, sizeof(answer), stdin)) return false;
    return strcmp(answer, "y\n") == 0 || strcmp(answer, "yes\n") == 0;
}

ExitCode switch_now(Context& context) {
    LibraryOutput output;
    const int result = sys_image_switch();
    output.stop();
    if (result != 0 && !output.is_empty()) {
        return context.fail(ExitCode::kRefused, "%s", output.text());
    }
    if (result != 0) {
        return context.fail(ExitCode::kInputOutput, "the block could not be written");
    }
    const ExitCode code = compare_with_flash(context);
    if (code != ExitCode::kDone) return code;
    context.output.value("next", std::string_view(name_of(next_image())));
    return ExitCode::kDone;
}

struct SwitchOptions {
    bool yes = false;
    bool dry_run = false;
};

bool parse_options(Arguments arguments, SwitchOptions& options) {
    for (const char* argument : arguments) {
        if (strcmp(argument, "--yes") == 0) {
            options.yes = true;
        } else if (strcmp(argument, "--dry-run") == 0) {
            options.dry_run = true;
        } else {
            return false;
        }
    }
    return true;
}

ExitCode switch_image(Context& context, Arguments arguments) {
    SwitchOptions options;
    if (!parse_options(arguments, options)) return context.misuse("--yes and --dry-run only");
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone) return loaded;
    unsigned char before[kBlockSize];
    memcpy(before, redboot_config, sizeof(before));
    const char* problem = rehearse_switch();
    if (problem) return context.fail(ExitCode::kRefused, "%s", problem);
    if (options.dry_run) {
        print_difference(context, before);
        return ExitCode::kDone;
    }
    if (!options.yes && !confirms(context, rehearsed_image())) {
        return context.fail(ExitCode::kRefused, "not confirmed, nothing was changed");
    }
    return switch_now(context);
}

constexpr Command kCommands[] = {
    {"status", "", 0, 0, "prints what is known of both images",
     "The image that runs, the one that is started next, their versions in the boot\n"
     "loader's block, and whether fw_printenv marks them as usable.",
     "tqctl image status", status},
    {"switch", "[--yes] [--dry-run]", 0, 2, "starts the other image next time",
     "Asks first, on standard error; --yes answers, and -q without it is refused.\n"
     "With --dry-run it prints which entries of the block would change and how, and\n"
     "changes nothing. The image that is started next is printed when the block was\n"
     "written, read back and compared.",
     "tqctl image switch --dry-run", switch_image},
    {"check", "", 0, 0, "prints which image is started next", "It is primary or backup.",
     "tqctl image check", check},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kImage = {
    "image", "which image is started next",
    "The boot loader's configuration block names it, in its aliases and its script.", kCommands};

}  // namespace tqctl
