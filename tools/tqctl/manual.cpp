// manual.cpp - tqctl man and tqctl completion: the table as a man page, and as bash's completion.
#include <cctype>
#include <cstdio>
#include <cstring>

#include "families.h"
#include "help.h"

namespace tqctl {

namespace {

// The day of this release, which a man page bears.
constexpr char kReleased[] = "2026-11-21";

ExitCode refuse_json(const Context& context) {
    return context.misuse("there is no JSON form of this");
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

// Two blanks begin a row of a list, four continue it. Rows, and what follows them, are lines of
// their own.
void print_roff_lines(const char* text, const char* paragraph) {
    bool in_list = false;
    for (const char* line = text; *line;) {
        const size_t length = strcspn(line, "\n");
        const size_t blanks = strspn(line, " ");
        if (length == 0) printf("%s", paragraph);
        if (length > 0 && (blanks == 2 || (in_list && blanks == 0))) printf(".br\n");
        if (length > 0) {
            print_roff(line + blanks, length - blanks);
            putchar('\n');
        }
        in_list = blanks > 0;
        line += length + (line[length] == '\n');
    }
}

void print_font(char font, const char* text) {
    printf("\\f%c", font);
    print_roff(text);
    printf("\\fR");
}

void print_bold(const char* text) {
    print_font('B', text);
}

// A word behind others, where there is one.
void print_next(char font, const char* text) {
    if (!*text) return;
    printf(" ");
    print_font(font, text);
}

void print_man_command(const Family& family, const Command& command) {
    printf(".TP\n");
    print_bold(family.name);
    print_next('B', command.verb);
    print_next('I', command.arguments);
    printf("\n%c", toupper(*command.summary));
    print_roff(command.summary + 1);
    printf(".\n");
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
    printf(".TH TQCTL 1 \"%s\" \"libtq %s\" \"User Commands\"\n.SH NAME\ntqctl \\- ", kReleased,
           TQ_VERSION);
    print_roff(kPurpose);
    printf("\n.SH SYNOPSIS\n");
    print_bold(kSynopsis);
    printf(
        "\n.SH DESCRIPTION\n"
        "Reads and changes an access point's state through libtq. Standard output\n"
        "carries data only; diagnostics, the library's own error lines among them, go\n"
        "to standard error.\n"
        ".PP\n"
        "In JSON lines of KEY=VALUE are the members of an object, a value alone is its\n"
        "one member, and rows are an array. The documents' shapes are told by\n"
        "tqctl.schema.json, a JSON schema with a definition for each command. Each byte\n"
        "that is not UTF\\-8 is replaced by U+FFFD.\n"
        ".SH OPTIONS\n");
}

void print_man_options() {
    for (const OptionText& option : option_texts()) {
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
    for (const ExitText& exit : exit_texts()) {
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
    printf(".SH SEE ALSO\n\\fBtq\\fR(3), \\fBsyslog\\fR(3)\n");
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
    for (const OptionText& option : option_texts()) {
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

constexpr Command kManCommands[] = {
    {"", "", 0, 0, "prints the man page", "The source of tqctl(1), for man -l.",
     "tqctl man | man -l -", man},
};
constexpr Command kCompletionCommands[] = {
    {"bash", "", 0, 0, "prints the completion for bash",
     "Read it with source, or from the shell's start file.", "source <(tqctl completion bash)",
     complete_bash},
};
static_assert(is_complete(kManCommands) && is_complete(kCompletionCommands));

}  // namespace

constinit const Family kMan = {"man", "the man page's source", "", kManCommands};
constinit const Family kCompletion = {"completion", "completion for a shell", "",
                                      kCompletionCommands};

}  // namespace tqctl
