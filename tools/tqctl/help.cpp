// help.cpp - tqctl help: the table as a map, and its rows in full.
#include "help.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <utility>

#include "families.h"

namespace tqctl {

namespace {

constexpr OptionText kOptions[] = {
    {"-j", "--json", "print JSON: {} or [] where there is nothing to show"},
    {"-q", "--quiet", "nothing on standard error"},
    {"-h", "--help", "a map of the commands; behind a family or a verb, its help"},
    {"-V", "--version", "the version"},
};

constexpr ExitText kExitCodes[] = {
    {ExitCode::kDone, "done"},
    {ExitCode::kRefused, "not found, or refused"},
    {ExitCode::kUsage, "wrong usage"},
    {ExitCode::kBusy, "busy, or timed out"},
    {ExitCode::kNotPermitted, "not permitted"},
    {ExitCode::kDamaged, "damaged data, such as a configuration file with a syntax error"},
    {ExitCode::kInputOutput, "input/output error, such as a full or read-only file system"},
};

Json describe(const Family& family, const Command& command) {
    Json object(json_object_new_object());
    const bool whole = json_add(object.get(), "family", json_text(family.name)) &&
                       json_add(object.get(), "verb", json_text(command.verb)) &&
                       json_add(object.get(), "arguments", json_text(command.arguments)) &&
                       json_add(object.get(), "summary", json_text(command.summary)) &&
                       json_add(object.get(), "help", json_text(command.help)) &&
                       json_add(object.get(), "example", json_text(command.example));
    return whole ? std::move(object) : nullptr;
}

void print_indented(const char* text) {
    for (const char* line = text; *line;) {
        const size_t length = strcspn(line, "\n");
        printf("%s%.*s\n", length > 0 ? "  " : "", static_cast<int>(length), line);
        line += length + (line[length] == '\n');
    }
}

// A family's verbs, or what the command that it is takes; the width is that of the column.
void print_verbs(const Family& family, int width) {
    int used = 0;
    if (is_single(family)) used = printf("%s", family.commands.front().arguments);
    for (const Command& command : family.commands)
        used += printf("%s%s", used > 0 ? " " : "", command.verb);
    printf("%*s", width > used ? width - used : 1, "");
}

void print_map_line(const Family& family) {
    if (const char* title = title_before(family)) printf("%s:\n", title);
    printf("  %-11s", family.name);
    print_verbs(family, 37);
    printf("%s\n", family.summary);
}

void print_options(std::span<const OptionText> texts) {
    for (const OptionText& option : texts)
        printf("  %s, %-10s %s\n", option.letter, option.name, option.help);
}

void print_exit_codes() {
    printf("\nExit codes:\n");
    for (const ExitText& exit : exit_texts())
        printf("  %d  %s\n", static_cast<int>(exit.code), exit.meaning);
}

void print_map() {
    printf("tqctl - %s\n\nusage: %s\n\n", kPurpose, kSynopsis);
    print_options(option_texts());
    printf("\n");
    for (const Family* family : families())
        print_map_line(*family);
    print_exit_codes();
    printf("\n'tqctl help FAMILY [VERB]' tells the rest, with an example of each command.\n");
}

void print_command(const Family& family, const Command& command) {
    print_synopsis(stdout, family, command);
    printf("  %c%s.\n", toupper(*command.summary), command.summary + 1);
    print_indented(command.help);
    printf("  Example: %s\n\n", command.example);
}

void add_commands(Rows& rows, const Family& family, std::span<const Command> commands) {
    for (const Command& each : commands)
        rows.add(
            each, [&](const Command& command) { return describe(family, command); },
            [&](const Command& command) { print_command(family, command); });
}

// What holds for all commands of the family, and for all commands.
void print_common(const Family& family) {
    if (*family.help) printf("%s\n\n", family.help);
    printf("Options:\n");
    print_options(option_texts().first(2));
    print_exit_codes();
}

ExitCode help(Context& context, Arguments words) {
    if (words.empty()) return show_map(context);
    const Family* family = find_family(words[0]);
    if (!family) return context.misuse("no family of commands is named '%s'", words[0]);
    if (words.size() == 1) return show_commands(context, *family, family->commands);
    const Command* command = find_command(*family, words[1]);
    if (!command) return context.misuse("%s has no verb '%s'", words[0], words[1]);
    return show_commands(context, *family, {command, 1});
}

constexpr Command kHelpCommands[] = {
    {"", "[FAMILY [VERB]]", 0, 2, "shows the commands",
     "All of them with a line each; those of a FAMILY, or one of them, in full.\n"
     "JSON is an array with an object for each command.",
     "tqctl help uci get", help},
};
static_assert(is_complete(kHelpCommands));

}  // namespace

constinit const Family kHelp = {"help", "the commands in full", "", kHelpCommands};

std::span<const OptionText> option_texts() {
    return kOptions;
}

std::span<const ExitText> exit_texts() {
    return kExitCodes;
}

const char* blank_before(const char* text) {
    return *text ? " " : "";
}

void print_synopsis(FILE* stream, const Family& family, const Command& command) {
    fprintf(stream, "tqctl [-j] [-q] %s%s%s%s%s\n", family.name, blank_before(command.verb),
            command.verb, blank_before(command.arguments), command.arguments);
}

ExitCode show_version(Context& context) {
    context.output.value("version", std::string_view(TQ_VERSION));
    return ExitCode::kDone;
}

ExitCode show_map(Context& context) {
    if (!context.output.is_json()) {
        print_map();
        return ExitCode::kDone;
    }
    Rows rows(context.output);
    for (const Family* family : families())
        add_commands(rows, *family, family->commands);
    return ExitCode::kDone;
}

ExitCode show_commands(Context& context, const Family& family, std::span<const Command> commands) {
    Rows rows(context.output);
    add_commands(rows, family, commands);
    if (!context.output.is_json()) print_common(family);
    return ExitCode::kDone;
}

}  // namespace tqctl
