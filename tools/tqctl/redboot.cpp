// redboot.cpp - tqctl redboot: the entries of the boot loader's configuration block.
#include <tq/redboot.h>

#include <arpa/inet.h>
#include <strings.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "boot_block.h"
#include "families.h"
#include "mac_text.h"

namespace tqctl {

namespace {

// A value as the command line spells it, in the form that the library takes.
class ParsedValue {
  public:
    // What is wrong with the spelling, or null.
    const char* parse(uint32_t type, const char* spelling);

    // What redboot_set_config takes.
    [[nodiscard]] const void* get() const {
        return text_ ? static_cast<const void*>(text_) : bytes_;
    }

    // What redboot_config_option takes as the default.
    [[nodiscard]] uintptr_t as_default(uint32_t type) const;

  private:
    const char* parse_bool(const char* spelling);
    const char* parse_int(const char* spelling);
    const char* parse_ip(const char* spelling);
    const char* parse_ethernet_address(const char* spelling);

    const char* text_ = nullptr;
    alignas(uint32_t) unsigned char bytes_[6] = {};
};

const char* ParsedValue::parse_bool(const char* spelling) {
    const uint32_t number = strcmp(spelling, "true") == 0;
    if (!number && strcmp(spelling, "false") != 0) return "a bool is true or false";
    memcpy(bytes_, &number, sizeof(number));
    return nullptr;
}

const char* ParsedValue::parse_int(const char* spelling) {
    char* end = nullptr;
    errno = 0;
    const bool is_hexadecimal = strncasecmp(spelling, "0x", 2) == 0;
    const unsigned long long number = strtoull(spelling, &end, is_hexadecimal ? 16 : 10);
    const bool is_number = *spelling >= '0' && *spelling <= '9' && !*end;
    if (!is_number || errno || number > UINT32_MAX) {
        return "an int is a number from 0 to 4294967295";
    }
    const auto word = static_cast<uint32_t>(number);
    memcpy(bytes_, &word, sizeof(word));
    return nullptr;
}

const char* ParsedValue::parse_ip(const char* spelling) {
    return inet_pton(AF_INET, spelling, bytes_) == 1 ? nullptr : "an ip is written as 192.0.2.1";
}

const char* ParsedValue::parse_ethernet_address(const char* spelling) {
    const std::optional<Mac> mac = parse_mac(spelling);
    if (!mac) return "an esa is written as 02:00:5e:00:53:01";
    memcpy(bytes_, mac->data(), mac->size());
    return nullptr;
}

const char* ParsedValue::parse(uint32_t type, const char* spelling) {
    switch (type) {
        case REDBOOT_CONFIG_BOOL:
            return parse_bool(spelling);
        case REDBOOT_CONFIG_INT:
            return parse_int(spelling);
        case REDBOOT_CONFIG_IP:
            return parse_ip(spelling);
        case REDBOOT_CONFIG_ESA:
            return parse_ethernet_address(spelling);
        case REDBOOT_CONFIG_STRING:
        case REDBOOT_CONFIG_SCRIPT:
        case REDBOOT_CONFIG_NET_PORT:
            text_ = spelling;
            return strlen(spelling) > kLongestText ? "a text is at most 127 bytes long" : nullptr;
        default:
            return "an entry of unknown type has no value";
    }
}

uintptr_t ParsedValue::as_default(uint32_t type) const {
    if (text_ || type == REDBOOT_CONFIG_ESA) return reinterpret_cast<uintptr_t>(get());
    uint32_t number = 0;
    memcpy(&number, bytes_, sizeof(number));
    return number;
}

// list

Json describe(const BlockEntry& entry) {
    Json object(json_object_new_object());
    const char* type = type_name(entry.type);
    const ValueText value(entry);
    bool whole = json_add(object.get(), "key", json_text(entry.key)) &&
                 json_add(object.get(), "type", json_text(type ? type : "unknown")) &&
                 json_add(object.get(), "value", json_text(value.view()));
    if (!entry.enable_key.empty()) {
        whole = whole && json_add(object.get(), "enable_key", json_text(entry.enable_key)) &&
                json_add(object.get(), "enable_sense", json_bool(entry.enable_sense));
    }
    return whole ? std::move(object) : nullptr;
}

void print(const BlockEntry& entry) {
    const ValueText value(entry);
    printf("%s=%s\n", OneLine(entry.key).c_str(), OneLine(value.view()).c_str());
}

ExitCode list(Context& context, Arguments) {
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone) return loaded;
    Rows rows(context.output);
    BlockReader reader(redboot_config);
    while (const auto entry = reader.next())
        rows.add(*entry, describe, print);
    return report_damage(context);
}

// get

ExitCode refuse_unknown_key(const Context& context, const char* key) {
    return context.fail(ExitCode::kRefused, "%s: no entry has this key", key);
}

ExitCode get(Context& context, Arguments arguments) {
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone) return loaded;
    const auto entry = find_entry(redboot_config, arguments[0]);
    if (!entry) return refuse_unknown_key(context, arguments[0]);
    context.output.value(arguments[0], ValueText(*entry).view());
    return ExitCode::kDone;
}

// set, add

ExitCode set_entry(const Context& context, const char* key, uint32_t type,
                   const ParsedValue& value) {
    LibraryOutput output;
    const bool set = redboot_set_config(key, value.get(), type) == 1;
    output.stop();
    if (set) return ExitCode::kDone;
    return context.fail(ExitCode::kRefused, "%s", output.is_empty() ? key : output.text());
}

ExitCode set(Context& context, Arguments arguments) {
    char* key = arguments[0];
    char* spelling = strchr(key, '=');
    if (!spelling || spelling == key) return context.misuse("%s: not KEY=VALUE", key);
    *spelling++ = '\0';
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone) return loaded;
    const auto entry = find_entry(redboot_config, key);
    if (!entry) return refuse_unknown_key(context, key);
    ParsedValue value;
    const char* problem = value.parse(entry->type, spelling);
    if (problem) return context.fail(ExitCode::kRefused, "%s: %s", key, problem);
    const ExitCode code = set_entry(context, key, entry->type, value);
    return code == ExitCode::kDone ? save_block(context) : code;
}

ExitCode add(Context& context, Arguments arguments) {
    const char* key = arguments[1];
    const uint32_t type = type_of(arguments[0]);
    if (type == 0) return context.misuse("there is no type '%s'", arguments[0]);
    if (!*key || strchr(key, '=')) return context.misuse("'%s' is not a key", key);
    const char* enable_key = arguments.size() > 3 ? arguments[3] : nullptr;
    if (enable_key && !*enable_key) return context.misuse("'' is not a key");
    const char* sense = arguments.size() > 4 ? arguments[4] : "true";
    const bool is_true = strcmp(sense, "true") == 0;
    if (!is_true && strcmp(sense, "false") != 0)
        return context.misuse("'%s' is neither true nor false", sense);
    ParsedValue value;
    const char* problem = value.parse(type, arguments[2]);
    if (problem) return context.fail(ExitCode::kRefused, "%s: %s", key, problem);
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone) return loaded;
    if (find_entry(redboot_config, key)) {
        return context.fail(ExitCode::kRefused, "%s: is there already; see set", key);
    }
    ExitCode code =
        add_entry(context, {key, key, enable_key, is_true, type, value.as_default(type)});
    // The library leaves the value of a script that it adds to the setter.
    if (code == ExitCode::kDone && type == REDBOOT_CONFIG_SCRIPT)
        code = set_entry(context, key, type, value);
    return code == ExitCode::kDone ? save_block(context) : code;
}

// verify

ExitCode verify(Context& context, Arguments) {
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone) return loaded;
    const ExitCode code = report_damage(context);
    if (code != ExitCode::kDone) return code;
    int64_t entries = 0;
    BlockReader reader(redboot_config);
    while (reader.next()) {
        entries++;
    }
    const auto used = static_cast<int64_t>(reader.offset()) - 8;
    if (context.output.is_json()) {
        context.output.value("entries", entries);
        context.output.value("used", used);
        context.output.value("free", 4080 - used);
        return ExitCode::kDone;
    }
    printf("sound: %lld entries in %lld of 4080 bytes\n", static_cast<long long>(entries),
           static_cast<long long>(used));
    return ExitCode::kDone;
}

// dump

void print_dump_line(size_t offset) {
    const unsigned char* bytes = &redboot_config[offset];
    char text[17] = "";
    printf("%04zx ", offset);
    for (size_t i = 0; i < 16; i++) {
        printf(" %02x", bytes[i]);
        text[i] = bytes[i] >= ' ' && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
    }
    printf("  %s\n", text);
}

// Lines like the one before are one "*".
void print_dump() {
    bool repeats = false;
    for (size_t offset = 0; offset < kBlockSize; offset += 16) {
        const bool same =
            offset > 0 && memcmp(&redboot_config[offset], &redboot_config[offset - 16], 16) == 0;
        if (!same) print_dump_line(offset);
        if (same && !repeats) printf("*\n");
        repeats = same;
    }
}

void print_dump_as_json(Context& context) {
    char hex[2 * kBlockSize + 1];
    for (size_t i = 0; i < kBlockSize; i++) {
        snprintf(&hex[2 * i], 3, "%02x", redboot_config[i]);
    }
    context.output.value("block", hex);
}

// What could be read is shown, damaged or not.
ExitCode dump(Context& context, Arguments) {
    const ExitCode loaded = load_block(context);
    if (loaded != ExitCode::kDone && loaded != ExitCode::kDamaged) return loaded;
    if (context.output.is_json()) {
        print_dump_as_json(context);
    } else {
        print_dump();
    }
    return loaded == ExitCode::kDone ? report_damage(context) : loaded;
}

constexpr Command kCommands[] = {
    {"list", "", 0, 0, "prints all entries",
     "One line each, as KEY=VALUE; a line feed in a value is printed as \\n,\n"
     "another control character as \\xNN and a backslash as two. JSON is an array\n"
     "with an object for each entry, with its type and what enables it.",
     "tqctl redboot list", list},
    {"get", "KEY", 1, 1, "prints a value", "A script is printed with its lines as they are.",
     "tqctl redboot get alias/kernel", get},
    {"set", "KEY=VALUE", 1, 1, "changes a value",
     "VALUE is written by the entry's type: true or false, a number as 255 or 0xff,\n"
     "an address as 192.0.2.1 or 02:00:5e:00:53:01, a text of at most 127 bytes.",
     "tqctl redboot set boot_script_timeout=5", set},
    {"add", "TYPE KEY VALUE [ENABLE-KEY [true|false]]", 3, 5, "adds an entry",
     "TYPE is bool, int, string, script, ip, esa or netport. The boot loader shows\n"
     "and uses the entry only where the bool of the ENABLE-KEY is true, or false.",
     "tqctl redboot add int boot_script_timeout 5 boot_script", add},
    {"verify", "", 0, 0, "says what is wrong with the block",
     "Checksum and magic numbers, and then what they do not prove: each entry's\n"
     "lengths, its type, its key, and the free space. A sound block prints one line.",
     "tqctl redboot verify", verify},
    {"dump", "", 0, 0, "prints the 4096 bytes",
     "In hexadecimal, also of a damaged block; lines like the one before are one\n"
     "\"*\".",
     "tqctl redboot dump", dump},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kRedboot = {
    "redboot", "the boot loader's block",
    "The block is the first 4096 bytes of /dev/mtdblock1. Each change is written at\n"
    "once, read back and compared. A damaged block is exit code 5, and what is\n"
    "wrong with which bytes is said on standard error.",
    kCommands};

}  // namespace tqctl
