// tqctl_help_test.cpp - what tqctl says of itself: the map, help, the man page and the completion,
// all of one table.
#include <gmock/gmock.h>

#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

struct Row {
    std::string family, verb, arguments, summary, help, example;
    std::string name() const { return verb.empty() ? family : family + " " + verb; }
};

std::vector<Row> rows_of(const std::string& command) {
    const Json array = parse(tqctl(command).out);
    std::vector<Row> rows;
    if (!array || !json_object_is_type(array.get(), json_type_array)) return rows;
    for (std::size_t i = 0; i < json_object_array_length(array.get()); i++) {
        const Json row(json_object_get(json_object_array_get_idx(array.get(), i)));
        rows.push_back({member(row, "family"), member(row, "verb"), member(row, "arguments"),
                        member(row, "summary"), member(row, "help"), member(row, "example")});
    }
    return rows;
}

std::string first_line(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

class TableTest : public DeviceTest {
  protected:
    const std::vector<Row> rows = rows_of("-j help");
};

TEST_F(TableTest, HasEveryCommand) {
    std::vector<std::string> names;
    for (const Row& row : rows)
        names.push_back(row.name());
    EXPECT_THAT(names,
                testing::IsSupersetOf({"uci get", "uci set", "uci add", "uci del", "uci add-list",
                                       "uci del-list", "help", "man", "completion bash"}));
}

TEST_F(TableTest, IsSelectedByFamilyAndVerb) {
    EXPECT_EQ(rows_of("-j help uci").size(), 6U);
    ASSERT_EQ(rows_of("-j help uci set").size(), 1U);
    EXPECT_EQ(rows_of("-j help uci set").front().name(), "uci set");
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// The line of the map that has the family, its verbs or arguments, and what it is about.
std::string map_line(const std::vector<std::string>& map, const std::string& family) {
    for (const std::string& line : map) {
        if (line.rfind("  " + family + " ", 0) == 0) return line + " ";
    }
    return "";
}

TEST_F(TableTest, IsInTheMap) {
    const CommandResult map = tqctl("help");
    EXPECT_TRUE(succeeds(tqctl("--help"), map.out));
    EXPECT_TRUE(succeeds(tqctl("-h"), map.out));
    for (const Row& row : rows) {
        EXPECT_THAT(map_line(lines_of(map.out), row.family),
                    HasSubstr(row.verb.empty() ? row.arguments : " " + row.verb + " "))
            << row.name();
    }
}

TEST_F(TableTest, FitsTwoScreens) {
    const std::vector<std::string> map = lines_of(tqctl("help").out);
    EXPECT_LE(map.size(), 62U);
    for (const std::string& line : map)
        EXPECT_LE(line.size(), 80U) << line;
}

TEST_F(TableTest, IsInTheHelpOfEachCommand) {
    for (const Row& row : rows) {
        const CommandResult help = tqctl("help " + row.name());
        EXPECT_TRUE(succeeds(tqctl(row.name() + " --help"), help.out)) << row.name();
        EXPECT_THAT(
            help.out,
            AllOf(StartsWith("tqctl [-j] [-q] " + row.name()), HasSubstr(row.arguments),
                  HasSubstr(first_line(row.help)), HasSubstr("Example: " + row.example),
                  HasSubstr("\n  -j, --json "), HasSubstr("\n  1  not found, or refused\n")))
            << row.name();
        EXPECT_THAT(help.out, HasSubstr(row.summary.substr(1) + ".\n")) << row.name();
        for (const std::string& line : lines_of(help.out))
            EXPECT_LE(line.size(), 80U) << row.name() << ": " << line;
    }
}

TEST_F(TableTest, IsInTheHelpOfTheFamily) {
    const CommandResult help = tqctl("uci --help");
    EXPECT_TRUE(succeeds(tqctl("uci -h"), help.out));
    EXPECT_TRUE(succeeds(tqctl("uci get -h"), tqctl("help uci get").out));
    EXPECT_TRUE(succeeds(tqctl("help uci"), help.out));
    for (const Row& row : rows) {
        if (row.family != "uci") continue;
        EXPECT_THAT(help.out, HasSubstr("tqctl [-j] [-q] " + row.name() + " " + row.arguments));
    }
}

TEST_F(TableTest, ExitCodesAreInHelpAndManPage) {
    const std::string map = tqctl("help").out;
    const std::string page = tqctl("man").out;
    const std::string meanings[] = {"done",          "not found", "wrong usage", "busy",
                                    "not permitted", "damaged",   "input/output"};
    for (std::size_t code = 0; code < std::size(meanings); code++) {
        EXPECT_THAT(map, HasSubstr("\n  " + std::to_string(code) + "  " + meanings[code]));
        EXPECT_THAT(page, HasSubstr("\n.B " + std::to_string(code) + "\n" + meanings[code]));
    }
}

const std::string kPage = TQ_SOURCE_DIR "/docs/man/tqctl.1";

TEST_F(TableTest, ManPageIsTheOneThatIsInstalled) {
    EXPECT_TRUE(succeeds(tqctl("man"), read_file(kPage)))
        << "tqctl man >docs/man/tqctl.1 brings it up to date";
}

// The page as a reader sees it, one blank wherever it has white space or a line break.
std::string rendered_page() {
    return run_command("groff -ww -man -Tascii -P-cbou -rLL=1000n -rHY=0 " + kPage +
                       " | tr -s ' \\n' ' '")
        .out;
}

TEST_F(TableTest, IsInTheManPage) {
    EXPECT_TRUE(succeeds(run_command("groff -wall -man -Tutf8 " + kPage + " >/dev/null"), ""));
    EXPECT_TRUE(succeeds(run_command("mandoc -T lint -W warning " + kPage), ""));
    const std::string page = rendered_page();
    for (const Row& row : rows) {
        const std::string synopsis =
            row.name() + (row.arguments.empty() ? "" : " " + row.arguments);
        EXPECT_THAT(page, HasSubstr(" " + synopsis + " ")) << row.name();
        EXPECT_THAT(page, HasSubstr(row.summary.substr(1) + ".")) << row.name();
        EXPECT_THAT(page, HasSubstr(first_line(row.help))) << row.name();
        EXPECT_THAT(page, HasSubstr("Example: " + row.example)) << row.name();
    }
}

std::vector<std::string> completions(const std::string& words) {
    const CommandResult result = run_command(
        "bash -c 'source <(tqctl completion bash); COMP_WORDS=(" + words +
        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tqctl; printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
    EXPECT_THAT(result.err, IsEmpty());
    std::vector<std::string> words_found;
    for (std::size_t at = 0; at < result.out.size();) {
        const std::size_t end = result.out.find('\n', at);
        words_found.push_back(result.out.substr(at, end - at));
        at = end + 1;
    }
    return words_found;
}

TEST_F(TableTest, IsInTheCompletion) {
    EXPECT_TRUE(succeeds(
        run_command("tqctl completion bash >/tmp/completion && bash -n /tmp/completion"), ""));
    std::map<std::string, std::vector<std::string>> verbs;
    for (const Row& row : rows)
        verbs[row.family].push_back(row.verb);
    for (const std::string start : {"tqctl ", "tqctl help "}) {
        const std::vector<std::string> families = completions(start + "\"\"");
        for (const auto& [family, expected] : verbs) {
            EXPECT_THAT(families, testing::Contains(family));
            if (expected == std::vector<std::string>{""}) continue;
            EXPECT_THAT(completions(std::string(start).append(family).append(" \"\"")),
                        testing::IsSupersetOf(expected));
        }
    }
}

// Options of the command line itself, and those that single commands have among their arguments.
TEST_F(TableTest, OptionsAreInTheManPage) {
    const std::string page = rendered_page();
    for (const char* option : {"-j, --json", "-q, --quiet", "-h, --help", "-V, --version"})
        EXPECT_THAT(page, HasSubstr(option));
    const std::regex option("--[a-z0-9-]+");
    for (const Row& row : rows) {
        for (std::sregex_iterator at(row.arguments.begin(), row.arguments.end(), option), end;
             at != end; ++at)
            EXPECT_THAT(row.help, HasSubstr(at->str())) << row.name();
    }
}

// Each command of the page is one of the table, in the table's order, and each has its example.
TEST_F(TableTest, ManPageHasNoOtherCommand) {
    const std::string page = read_file(kPage);
    const std::string commands = page.substr(
        page.find(".SH COMMANDS\n"), page.find(".SH EXIT STATUS\n") - page.find(".SH COMMANDS\n"));
    std::vector<std::string> names;
    std::size_t examples = 0;
    const std::vector<std::string> lines = lines_of(commands);
    for (std::size_t i = 0; i + 1 < lines.size(); i++) {
        if (lines[i] == "Example:") examples++;
        if (lines[i] != ".TP") continue;
        const std::string bold = std::regex_replace(
            lines[i + 1].substr(0, lines[i + 1].find("\\fI")), std::regex(R"(\\f[BR])"), "");
        names.push_back(std::regex_replace(bold, std::regex(R"(\\-)"), "-"));
    }
    std::vector<std::string> expected;
    for (const Row& row : rows)
        expected.push_back(row.name() + (row.arguments.empty() ? "" : " "));
    EXPECT_EQ(names, expected);
    EXPECT_EQ(examples, rows.size());
}

TEST_F(TableTest, CompletionFollowsTheWord) {
    using testing::ElementsAre;
    EXPECT_THAT(completions("tqctl uc"), ElementsAre("uci"));
    EXPECT_THAT(completions("tqctl --j"), ElementsAre("--json"));
    EXPECT_THAT(completions("tqctl -j uci add"), ElementsAre("add", "add-list"));
    EXPECT_THAT(completions("tqctl uci get sample.x"), ElementsAre(""));
}

}  // namespace
