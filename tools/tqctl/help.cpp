// help.cpp - what the table says about itself: help, the man page, the completion.
#include "help.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "families.h"

namespace tqctl {

namespace {

constexpr char kPurpose[] = "the companion command of libtq, an access point's platform library";
constexpr char kSynopsis[] = "tqctl [-j] [-q] FAMILY VERB [ARGUMENTS]";

struct OptionText {
    const char* letter;
    const char* name;
    const char* help;
};

constexpr OptionText kOptions[] = {
    {"-j", "--json", "print JSON: always one document, {} or [] where there is nothing"},
    {"-q", "--quiet", "nothing on standard error"},
    {"-h", "--help", "this map; behind a family or a verb, its help"},
    {"-V", "--version", "the version"},
};

struct ExitText {
    ExitCode code;
    const char* meaning;
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

const char* blank_before(const char* text) {
    return *text ? " " : "";
}

// JSON: an array with an object for each row of the table.

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

void append_command(Json& array, const Family& family, const Command& command) {
    json_append(array.get(), describe(family, command));
}

void append_family(Json& array, const Family& family) {
    for (const Command& command : family.commands) {
        append_command(array, family, command);
    }
}

// Text for a terminal.

void print_indented(const char* text) {
    for (const char* line = text; *line;) {
        const size_t length = strcspn(line, "\n");
        printf("%s%.*s\n", length > 0 ? "  " : "", static_cast<int>(length), line);
        line += length + (line[length] == '\n');
    }
}

void print_common(const Family& family) {
    if (*family.help) printf("%s\n", family.help);
}

void print_map_of(const Family& family) {
    if (is_single(family)) {
        const Command& command = family.commands.front();
        printf("\n%s%s%s - %s\n", family.name, blank_before(command.arguments), command.arguments,
               family.summary);
        return;
    }
    printf("\n%s - %s\n", family.name, family.summary);
    for (const Command& command : family.commands) {
        const int width = printf("  %s %s", command.verb, command.arguments);
        printf("%*s%s\n", width < 28 ? 28 - width : 2, "", command.summary);
    }
}

void print_options() {
    for (const OptionText& option : kOptions) {
        printf("  %s, %-10s %s\n", option.letter, option.name, option.help);
    }
}

void print_exit_codes() {
    printf("\nExit codes:\n");
    for (const ExitText& exit : kExitCodes) {
        printf("  %d  %s\n", static_cast<int>(exit.code), exit.meaning);
    }
}

void print_map() {
    printf("tqctl - %s\n\nusage: %s\n\n", kPurpose, kSynopsis);
    print_options();
    for (const Family* family : families()) {
        print_map_of(*family);
    }
    print_exit_codes();
}

void print_synopsis(const Family& family, const Command& command) {
    printf("tqctl [-j] [-q] %s%s%s%s%s - %s\n", family.name, blank_before(command.verb),
           command.verb, blank_before(command.arguments), command.arguments, command.summary);
}

void print_command(const Family& family, const Command& command) {
    print_synopsis(family, command);
    print_indented(command.help);
    printf("  Example: %s\n\n", command.example);
}

// The man page.

// Text of a roff line: no byte of it is a request or an escape.
void print_roff(const char* text, size_t length) {
    if (length > 0 && (*text == '.' || *text == '\'')) printf("\\&");
    for (size_t i = 0; i < length; i++) {
        if (text[i] == '\\') {
            printf("\\e");
        } else if (text[i] == '-') {
            printf("\\-");
        } else {
            putchar(text[i]);
        }
    }
}

void print_roff(const char* text) {
    print_roff(text, strlen(text));
}

void print_roff_lines(const char* text, const char* paragraph) {
    for (const char* line = text; *line;) {
        const size_t length = strcspn(line, "\n");
        if (length == 0) printf("%s", paragraph);
        print_roff(line, length);
        putchar('\n');
        line += length + (line[length] == '\n');
    }
}

void print_bold(const char* text) {
    printf("\\fB");
    print_roff(text);
    printf("\\fR");
}

void print_man_command(const Family& family, const Command& command) {
    printf(".TP\n");
    print_bold(family.name);
    printf("%s", blank_before(command.verb));
    print_bold(command.verb);
    printf("%s\\fI", blank_before(command.arguments));
    print_roff(command.arguments);
    printf("\\fR\n");
    print_roff_lines(command.help, ".IP\n");
    printf(".IP\nExample:\n");
    print_bold(command.example);
    printf("\n");
}

void print_man_family(const Family& family) {
    printf(".SS ");
    print_roff(family.name);
    printf(" \\- ");
    print_roff(family.summary);
    printf("\n");
    print_roff_lines(family.help, ".PP\n");
    for (const Command& command : family.commands) {
        print_man_command(family, command);
    }
}

void print_man_head() {
    printf(".TH TQCTL 1 \"\" \"libtq %s\" \"User Commands\"\n.SH NAME\ntqctl \\- ", TQ_VERSION);
    print_roff(kPurpose);
    printf("\n.SH SYNOPSIS\n");
    print_bold(kSynopsis);
    printf(
        "\n.SH DESCRIPTION\n"
        "Reads and changes an access point's state through libtq. Standard output\n"
        "carries data only; diagnostics, the library's own error lines among them, go\n"
        "to standard error. In JSON each byte that is not UTF\\-8 is replaced by U+FFFD.\n"
        ".SH OPTIONS\n");
}

void print_man_options() {
    for (const OptionText& option : kOptions) {
        printf(".TP\n");
        print_bold(option.letter);
        printf(", ");
        print_bold(option.name);
        printf("\n");
        print_roff(option.help);
        printf("\n");
    }
}

void print_man_exit_codes() {
    printf(".SH EXIT STATUS\n");
    for (const ExitText& exit : kExitCodes) {
        printf(".TP\n.B %d\n", static_cast<int>(exit.code));
        print_roff(exit.meaning);
        printf("\n");
    }
}

void print_man() {
    print_man_head();
    print_man_options();
    printf(".SH COMMANDS\n");
    for (const Family* family : families()) {
        print_man_family(*family);
    }
    print_man_exit_codes();
    printf(".SH SEE ALSO\n\\fBsyslog\\fR(3)\n");
}

// The completion.

void print_verb_words(const Family& family) {
    printf("        %s) echo '", family.name);
    for (const Command& command : family.commands) {
        printf("%s ", command.verb);
    }
    printf("--help' ;;\n");
}

void print_family_words() {
    for (const Family* family : families()) {
        printf("%s ", family->name);
    }
}

void print_option_words() {
    for (const OptionText& option : kOptions) {
        printf("%s %s ", option.letter, option.name);
    }
}

void print_bash_completion() {
    printf("# bash completion for tqctl(1)\n\n_tqctl_verbs()\n{\n    case $1 in\n");
    for (const Family* family : families()) {
        if (!is_single(*family)) print_verb_words(*family);
    }
    printf("    esac\n}\n\n_tqctl()\n{\n    local families='");
    print_family_words();
    printf("' options='");
    print_option_words();
    printf(
        "'\n"
        "    local at=1 words=''\n"
        "    while ((at < COMP_CWORD)) && [[ ${COMP_WORDS[at]} == -* ]]; do ((at++)); done\n"
        "    if ((COMP_CWORD > at)) && [[ ${COMP_WORDS[at]} == help ]]; then\n"
        "        ((at++))\n"
        "        options=''\n"
        "    fi\n"
        "    case $((COMP_CWORD - at)) in\n"
        "        0) words=\"$families $options\" ;;\n"
        "        1) words=$(_tqctl_verbs \"${COMP_WORDS[at]}\") ;;\n"
        "    esac\n"
        "    COMPREPLY=($(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\"))\n"
        "}\n\n"
        "complete -o default -F _tqctl tqctl\n");
}

// The commands.

ExitCode help(Context& context, Arguments words) {
    if (words.empty()) return show_map(context);
    const Family* family = find_family(words[0]);
    if (!family) return context.misuse("no family of commands is named '%s'", words[0]);
    if (words.size() == 1) return show_family(context, *family);
    const Command* command = find_command(*family, words[1]);
    if (!command) return context.misuse("%s has no verb '%s'", words[0], words[1]);
    return show_command(context, *family, *command);
}

ExitCode refuse_json(const Context& context) {
    return context.misuse("there is no JSON form of this");
}

ExitCode man(Context& context, Arguments) {
    if (context.output.is_json()) return refuse_json(context);
    print_man();
    return ExitCode::kDone;
}

ExitCode complete_bash(Context& context, Arguments) {
    if (context.output.is_json()) return refuse_json(context);
    print_bash_completion();
    return ExitCode::kDone;
}

constexpr Command kHelpCommands[] = {
    {"", "[FAMILY [VERB]]", 0, 2, "shows the commands",
     "All of them with a line each; those of a FAMILY, or one of them, in full.\n"
     "JSON is an array with an object for each command.",
     "tqctl help uci get", help},
};
constexpr Command kManCommands[] = {
    {"", "", 0, 0, "prints the man page", "The source of tqctl(1), for man -l.",
     "tqctl man | man -l -", man},
};
constexpr Command kCompletionCommands[] = {
    {"bash", "", 0, 0, "prints the completion for bash",
     "Read it with source, or from the shell's start file.", "source <(tqctl completion bash)",
     complete_bash},
};
static_assert(is_complete(kHelpCommands) && is_complete(kManCommands) &&
              is_complete(kCompletionCommands));

}  // namespace

constinit const Family kHelp = {"help", "shows the commands", "", kHelpCommands};
constinit const Family kMan = {"man", "prints the man page", "", kManCommands};
constinit const Family kCompletion = {"completion", "completion of the command line", "",
                                      kCompletionCommands};

ExitCode show_version(Context& context) {
    context.output.value("version", std::string_view(TQ_VERSION));
    return ExitCode::kDone;
}

ExitCode show_map(Context& context) {
    if (!context.output.is_json()) {
        print_map();
        return ExitCode::kDone;
    }
    Json array(json_object_new_array());
    for (const Family* family : families()) {
        append_family(array, *family);
    }
    context.output.document(array);
    return ExitCode::kDone;
}

ExitCode show_family(Context& context, const Family& family) {
    if (context.output.is_json()) {
        Json array(json_object_new_array());
        append_family(array, family);
        context.output.document(array);
        return ExitCode::kDone;
    }
    for (const Command& command : family.commands) {
        print_command(family, command);
    }
    print_common(family);
    return ExitCode::kDone;
}

ExitCode show_command(Context& context, const Family& family, const Command& command) {
    if (context.output.is_json()) {
        Json array(json_object_new_array());
        append_command(array, family, command);
        context.output.document(array);
        return ExitCode::kDone;
    }
    print_command(family, command);
    print_common(family);
    return ExitCode::kDone;
}

}  // namespace tqctl
