// serial.cpp - tqctl sn: the product serial number.
#include <tq/image_switch.h>
#include <tq/redboot.h>

#include <cstring>

#include "boot_block.h"
#include "families.h"

namespace tqctl {

namespace {

ExitCode get(Context& context, Arguments) {
    char serial[129];
    LibraryOutput output;
    const int result = sys_sn_get(serial, sizeof(serial));
    output.stop();
    if (result < 0) return explain_failed_load(context);
    if (result > 0) return context.fail(ExitCode::kRefused, "there is no serial number");
    context.output.value("serial_number", std::string_view(serial));
    return ExitCode::kDone;
}

ExitCode set(Context& context, Arguments arguments) {
    // A script's unset variable must not take the unit its number.
    if (!*arguments[0]) return context.misuse("the serial number is empty");
    if (strlen(arguments[0]) > kLongestText) {
        return context.fail(ExitCode::kRefused, "a serial number is at most %zu bytes long",
                            kLongestText);
    }
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone) return loaded;
    const auto entry = find_entry(redboot_config, redboot_sn_data_key);
    if (entry && entry->type != REDBOOT_CONFIG_STRING) {
        return context.fail(ExitCode::kRefused, "%s is of another type than string",
                            redboot_sn_data_key);
    }
    // A rehearsal: the library stores it in the block as it loads it anew.
    const ExitCode rehearsed =
        add_entry(context, {redboot_sn_data_key, redboot_sn_title, nullptr, 1,
                            REDBOOT_CONFIG_STRING, reinterpret_cast<uintptr_t>(arguments[0])});
    if (rehearsed != ExitCode::kDone) return rehearsed;
    LibraryOutput output;
    const int result = sys_sn_set(arguments[0]);
    output.stop();
    if (result < 0) return explain_failed_load(context);
    if (result == 0) return compare_with_flash(context);
    return context.fail(ExitCode::kInputOutput, "the block could not be written");
}

constexpr Command kCommands[] = {
    {"get", "", 0, 0, "prints the serial number", "Up to 128 bytes, as they are stored.",
     "tqctl sn get", get},
    {"set", "TEXT", 1, 1, "stores the serial number",
     "From 1 to 127 bytes. It is written at once, read back and compared.", "tqctl sn set A1B2C3D4",
     set},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kSerial = {"sn", "the product serial number",
                                  "It is kept in the boot loader's configuration block.",
                                  kCommands};

}  // namespace tqctl
