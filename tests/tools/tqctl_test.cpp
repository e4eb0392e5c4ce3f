// tqctl_test.cpp - the companion command as a script meets it: its arguments in, its output and
// exit code out.
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class TqctlTest : public tq_test::DeviceTest {
  protected:
    TqctlTest() {
        write_file("/etc/config/sample",
                   "config thing 'named'\n"
                   "\toption text 'some text'\n"
                   "\tlist items 'one'\n"
                   "\tlist items 'two words'\n"
                   "\n"
                   "config thing\n"
                   "\toption text 'second'\n"
                   "\n"
                   "config other 'last'\n");
    }
};

// get

TEST_F(TqctlTest, GetPrintsTheValueAlone) {
    EXPECT_TRUE(succeeds(tqctl("uci get sample.named.text"), "some text\n"));
}

TEST_F(TqctlTest, GetFindsASectionByTypeAndIndex) {
    EXPECT_TRUE(succeeds(tqctl("uci get sample.@thing[1].text"), "second\n"));
    EXPECT_TRUE(succeeds(tqctl("uci get sample.@thing[-2].text"), "some text\n"));
}

TEST_F(TqctlTest, GetFindsTheLastSectionByMinusOne) {
    EXPECT_TRUE(succeeds(tqctl("uci get sample.@thing[-1].text"), "second\n"));
}

TEST_F(TqctlTest, GetPrintsAListOnOneLine) {
    EXPECT_TRUE(succeeds(tqctl("uci get sample.named.items"), "one two words\n"));
}

TEST_F(TqctlTest, GetOfASectionByIndexPrintsItsName) {
    EXPECT_TRUE(succeeds(tqctl("uci get sample.@thing[0]"), "named\n"));
}

TEST_F(TqctlTest, GetOfTheLastSectionPrintsItsName) {
    EXPECT_TRUE(succeeds(tqctl("uci get sample.@other[-1]"), "last\n"));
    std::string sections;
    for (int i = 0; i < 9; i++) {
        const std::string name = "s" + std::to_string(i);
        sections += "config thing '" + name + "'\n\nconfig other\n\n";
        write_file("/etc/config/many", sections);
        EXPECT_TRUE(succeeds(tqctl("uci get many.@thing[-1]"), name + "\n"));
    }
    EXPECT_TRUE(succeeds(tqctl("-j uci get many.@thing[-1]"), "{\"many.@thing[-1]\":\"s8\"}\n"));
}

TEST_F(TqctlTest, GetOfTheLastSectionReportsTheFileOnce) {
    EXPECT_TRUE(fails(tqctl("uci get sample.@nothing[-1]"), kRefused,
                      "tqctl: uci get: sample.@nothing[-1]: not found\n"));
    const CommandResult result = tqctl("uci get nothing.@thing[-1]");
    EXPECT_TRUE(fails(result, kRefused, "No such file or directory"));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2);
}

TEST_F(TqctlTest, GetOfSeveralPathsPrintsAssignments) {
    EXPECT_TRUE(succeeds(tqctl("uci get sample.named.text sample.@thing[1].text"),
                         "sample.named.text=some text\nsample.@thing[1].text=second\n"));
}

TEST_F(TqctlTest, GetOfSeveralPathsPrintsWhatIsThereAndReportsTheRest) {
    const CommandResult result =
        tqctl("uci get sample.named.text sample.named.nothing sample.@thing[1].text");
    EXPECT_EQ(result.status, kRefused);
    EXPECT_EQ(result.out, "sample.named.text=some text\nsample.@thing[1].text=second\n");
    EXPECT_EQ(result.err, "tqctl: uci get: sample.named.nothing: not found\n");
}

TEST_F(TqctlTest, GetOfSeveralPathsEndsWithTheCodeOfTheFirstFailure) {
    write_file("/etc/config/broken", "config 'a\n");
    EXPECT_EQ(tqctl("uci get broken.a.b sample.named.nothing").status, kDamaged);
    EXPECT_EQ(tqctl("uci get sample.named.nothing broken.a.b").status, kRefused);
}

TEST_F(TqctlTest, GetOfSeveralPathsReadsNothingWhereOneIsMisspelled) {
    EXPECT_TRUE(
        fails(tqctl("uci get sample.named.text sample"), kUsage, "sample: the section is missing"));
}

TEST_F(TqctlTest, GetTakesAnyNumberOfPaths) {
    std::string paths;
    std::string lines;
    for (int i = 0; i < 300; i++) {
        paths += " sample.named.text";
        lines += "sample.named.text=some text\n";
    }
    EXPECT_TRUE(succeeds(tqctl("uci get" + paths), lines));
}

TEST_F(TqctlTest, GetPrintsAValueOfAnySize) {
    const std::string value(300000, 'v');
    write_file("/etc/config/large", "config large 'a'\n\toption text '" + value + "'\n");
    EXPECT_TRUE(succeeds(tqctl("uci get large.a.text"), value + "\n"));
}

TEST_F(TqctlTest, GetPrintsAnObjectOfPathsAsJson) {
    const CommandResult result = tqctl("-j uci get sample.named.text sample.@thing[1].text");
    EXPECT_TRUE(succeeds(
        result, "{\"sample.named.text\":\"some text\",\"sample.@thing[1].text\":\"second\"}\n"));
    EXPECT_EQ(member(parse(result.out), "sample.named.text"), "some text");
}

// set

TEST_F(TqctlTest, SetChangesAnOption) {
    EXPECT_TRUE(succeeds(tqctl("uci set sample.named.text=changed"), ""));
    EXPECT_EQ(run_command("uci get sample.named.text").out, "changed\n");
}

TEST_F(TqctlTest, SetCreatesAnOption) {
    EXPECT_TRUE(succeeds(tqctl("uci set sample.@thing[1].fresh=1"), ""));
    EXPECT_TRUE(succeeds(tqctl("uci set sample.@thing[-1].fresher=2"), ""));
    EXPECT_EQ(run_command("uci get sample.@thing[1].fresh").out, "1\n");
    EXPECT_EQ(run_command("uci get sample.@thing[1].fresher").out, "2\n");
}

TEST_F(TqctlTest, SetWritesTheFileBeforeItEnds) {
    ASSERT_EQ(tqctl("uci set sample.named.text=changed").status, kDone);
    EXPECT_THAT(read_file("/etc/config/sample"), HasSubstr("\toption text 'changed'\n"));
    EXPECT_EQ(run_command("uci changes").out, "");
}

TEST_F(TqctlTest, SetDefinesANamedSection) {
    EXPECT_TRUE(succeeds(tqctl("uci set sample.fresh=thing"), ""));
    EXPECT_EQ(run_command("uci get sample.fresh").out, "thing\n");
}

TEST_F(TqctlTest, SetKeepsTheBytesOfAValue) {
    std::string value;
    for (int byte = 0x20; byte < 0x100; byte++)
        value += static_cast<char>(byte);
    value += "\ttab\nline\n'quoted' \"twice\" a=b.c end";
    EXPECT_TRUE(succeeds(tqctl("uci set " + quote("sample.named.text=" + value)), ""));
    EXPECT_TRUE(succeeds(tqctl("uci get sample.named.text"), value + "\n"));
    EXPECT_EQ(run_command("uci get sample.named.text").out, value + "\n");
}

TEST_F(TqctlTest, SetTakesAPathOf1023BytesAndRefusesOneMore) {
    const std::string start = "sample.named.text=";
    const std::string longest(1023 - start.size(), 'v');
    EXPECT_TRUE(succeeds(tqctl("uci set " + start + longest), ""));
    EXPECT_TRUE(succeeds(tqctl("uci get sample.named.text"), longest + "\n"));
    EXPECT_TRUE(fails(tqctl("uci set " + start + longest + "w"), kRefused, "at most 1023 bytes"));
    EXPECT_TRUE(succeeds(tqctl("uci get sample.named.text"), longest + "\n"));
}

TEST_F(TqctlTest, SetInASectionThatIsMissingIsRefused) {
    const std::string before = read_file("/etc/config/sample");
    EXPECT_TRUE(fails(tqctl("uci set sample.nothing.text=1"), kRefused,
                      "tqctl: uci set: sample: refused: no such section"));
    EXPECT_TRUE(fails(tqctl("uci set sample.@thing[9].text=1"), kRefused,
                      "tqctl: uci set: sample: refused"));
    EXPECT_EQ(read_file("/etc/config/sample"), before);
}

TEST_F(TqctlTest, SetOfANameThatIsNotValidIsRefused) {
    EXPECT_TRUE(
        fails(tqctl("uci set 'sample.named.te xt=1'"), kRefused, "a name that is not valid"));
}

TEST_F(TqctlTest, SetDeletesTheOptionWithAnEmptyValue) {
    EXPECT_TRUE(succeeds(tqctl("uci set sample.named.text="), ""));
    EXPECT_TRUE(succeeds(tqctl("uci set sample.named.items="), ""));
    EXPECT_TRUE(succeeds(tqctl("uci set sample.named.fresh="), ""));
    EXPECT_THAT(read_file("/etc/config/sample"), StartsWith("\nconfig thing 'named'\n\nconfig"));
    EXPECT_THAT(tqctl("uci set --help").out, HasSubstr("An empty VALUE\n  deletes the option."));
}

// add

TEST_F(TqctlTest, AddPrintsTheIndexOfTheNewSection) {
    EXPECT_TRUE(succeeds(tqctl("uci add sample thing"), "2\n"));
    EXPECT_TRUE(succeeds(tqctl("uci add sample thing"), "3\n"));
    EXPECT_TRUE(succeeds(tqctl("uci add sample fresh"), "0\n"));
    EXPECT_EQ(run_command("uci get sample.@thing[3]").out, "thing\n");
}

TEST_F(TqctlTest, AddPrintsTheIndexAsJson) {
    const CommandResult result = tqctl("-j uci add sample thing");
    EXPECT_TRUE(succeeds(result, "{\"index\":2}\n"));
    EXPECT_EQ(member(parse(result.out), "index"), "2");
}

TEST_F(TqctlTest, AddDefinesANamedSection) {
    EXPECT_TRUE(succeeds(tqctl("uci add sample thing fresh"), ""));
    EXPECT_EQ(run_command("uci get sample.fresh").out, "thing\n");
    EXPECT_TRUE(succeeds(tqctl("uci add sample thing named"), ""));
    EXPECT_EQ(run_command("uci get sample.named.text").out, "some text\n");
}

TEST_F(TqctlTest, AddTakesNoPathInTheNameOfAPart) {
    const std::string before = read_file("/etc/config/sample");
    for (const char* arguments :
         {"sample thing named.text", "sample.named thing text", "sample thing a=b", "'' thing",
          "sample ''", "sample '' name", "../sample thing", "sample thing ''"}) {
        EXPECT_EQ(tqctl("uci add " + std::string(arguments)).status, kUsage) << arguments;
    }
    EXPECT_EQ(read_file("/etc/config/sample"), before);
}

TEST_F(TqctlTest, AddRefusesAPathThatIsTooLong) {
    EXPECT_TRUE(fails(tqctl("uci add sample thing " + std::string(1024, 'n')), kRefused,
                      "at most 1023 bytes"));
}

// del

TEST_F(TqctlTest, DelDeletesAnOptionOrASection) {
    EXPECT_TRUE(succeeds(tqctl("uci del sample.named.text"), ""));
    EXPECT_TRUE(succeeds(tqctl("uci del sample.@thing[1].text"), ""));
    EXPECT_TRUE(succeeds(tqctl("uci del sample.last"), ""));
    EXPECT_THAT(run_command("uci export sample").out,
                AllOf(Not(HasSubstr("text")), Not(HasSubstr("last")), HasSubstr("two words")));
    EXPECT_TRUE(succeeds(tqctl("uci del sample.@thing[1]"), ""));
    EXPECT_EQ(run_command("uci -q get sample.@thing[1]").status, 1);
}

TEST_F(TqctlTest, DelOfWhatIsMissingIsDone) {
    EXPECT_TRUE(succeeds(tqctl("uci del sample.named.nothing"), ""));
    EXPECT_TRUE(succeeds(tqctl("uci del sample.nothing"), ""));
}

TEST_F(TqctlTest, DelTakesNoValue) {
    EXPECT_TRUE(fails(tqctl("uci del sample.named.text=1"), kUsage, "del-list"));
}

// add-list, del-list

TEST_F(TqctlTest, AddListAppendsAnItem) {
    EXPECT_TRUE(succeeds(tqctl("uci add-list sample.named.items=three"), ""));
    EXPECT_TRUE(succeeds(tqctl("uci add-list sample.@thing[1].items=first"), ""));
    EXPECT_TRUE(succeeds(tqctl("uci add-list sample.@thing[1].text=more"), ""));
    EXPECT_THAT(read_file("/etc/config/sample"),
                HasSubstr("\tlist items 'one'\n\tlist items 'two words'\n\tlist items 'three'\n"));
    EXPECT_EQ(run_command("uci get sample.@thing[1].items").out, "first\n");
    EXPECT_THAT(read_file("/etc/config/sample"),
                HasSubstr("\tlist text 'second'\n\tlist text 'more'\n"));
}

TEST_F(TqctlTest, DelListRemovesAnItem) {
    EXPECT_TRUE(succeeds(tqctl("uci del-list 'sample.named.items=two words'"), ""));
    EXPECT_TRUE(succeeds(tqctl("uci del-list sample.@thing[0].items=nothing"), ""));
    EXPECT_EQ(run_command("uci get sample.named.items").out, "one\n");
}

// What is misspelled is said, with the command's usage, and nothing is done.

struct Misuse {
    const char* arguments;
    const char* diagnostic;
};

class MisuseTest : public TqctlTest, public testing::WithParamInterface<Misuse> {};

TEST_P(MisuseTest, EndsWithTwoAndTheUsage) {
    const CommandResult result = tqctl(GetParam().arguments);
    EXPECT_TRUE(fails(result, kUsage, GetParam().diagnostic));
    EXPECT_THAT(result.err, AllOf(StartsWith("tqctl: "), HasSubstr("\nusage: tqctl [-j] [-q] ")));
}

INSTANTIATE_TEST_SUITE_P(
    CommandLine, MisuseTest,
    testing::Values(
        Misuse{"",
               "a family of commands and a verb are needed\nusage: tqctl [-j] [-q] FAMILY "
               "VERB [ARGUMENTS]\n'tqctl help' shows the commands\n"},
        Misuse{"nothing", "no family of commands is named 'nothing'"},
        Misuse{"uci",
               "uci needs a verb\nusage: tqctl [-j] [-q] FAMILY VERB [ARGUMENTS]\n"
               "'tqctl help uci' shows the commands\n"},
        Misuse{"uci nothing", "uci has no verb 'nothing'"},
        Misuse{"-x uci get a.b.c", "unknown option '-x'"},
        Misuse{"--nothing", "unknown option '--nothing'"},
        Misuse{"--json=1 help", "unknown option '--json=1'"},
        Misuse{"help nothing", "no family of commands is named 'nothing'"},
        Misuse{"help uci nothing", "uci has no verb 'nothing'"},
        Misuse{"help uci get more", "too many arguments"}, Misuse{"man more", "too many arguments"},
        Misuse{"completion", "completion needs a verb"}));

INSTANTIATE_TEST_SUITE_P(
    Paths, MisuseTest,
    testing::Values(Misuse{"uci get", "an argument is missing"},
                    Misuse{"uci get ''", "the file is missing"},
                    Misuse{"uci get sample", "the section is missing"},
                    Misuse{"uci get sample.", "the section is missing"},
                    Misuse{"uci get .named.text", "the file is missing"},
                    Misuse{"uci get ../config/sample.named.text", "the file is missing"},
                    Misuse{"uci get /etc/config/sample.named.text", "a file goes by its name"},
                    Misuse{"uci get sample.named", "the option is missing"},
                    Misuse{"uci get sample.named.", "the option is missing"},
                    Misuse{"uci get sample.named.text=1", "nothing can be set here"},
                    Misuse{"uci get sample.@thing.text", "written as @type[index]"},
                    Misuse{"uci get sample.@[0].text", "written as @type[index]"},
                    Misuse{"uci get sample.@thing[].text", "written as @type[index]"},
                    Misuse{"uci get sample.@thing[x].text", "written as @type[index]"},
                    Misuse{"uci get sample.@thing[0.text", "written as @type[index]"},
                    Misuse{"uci get sample.@thing[0]x.text", "written as @type[index]"},
                    Misuse{"uci get sample.@thing[99999999999].text", "out of range"}));

INSTANTIATE_TEST_SUITE_P(
    Changes, MisuseTest,
    testing::Values(Misuse{"uci set", "an argument is missing"},
                    Misuse{"uci set sample.named.text=1 more", "too many"},
                    Misuse{"uci set sample.named.text", "the value is missing"},
                    Misuse{"uci set sample.named", "the option is missing"},
                    Misuse{"uci set sample.named=", "type is missing"},
                    Misuse{"uci set sample.@thing[0]=other", "the option is missing"},
                    Misuse{"uci set sample.@thing[-1]=other", "the option is missing"},
                    Misuse{"uci add sample", "an argument is missing"},
                    Misuse{"uci add a b c d", "too many arguments"},
                    Misuse{"uci del sample", "the section is missing"},
                    Misuse{"uci add-list sample.named=1", "the option is missing"},
                    Misuse{"uci add-list sample.named.items", "the value is missing"},
                    Misuse{"uci del-list sample.named.items", "the value is missing"}));

// Each exit code by what really causes it.

const char* const kReading = "uci get sample.named.text";
const char* const kChanges[] = {
    "uci set sample.named.text=x",       "uci add sample thing",
    "uci add sample thing fresh",        "uci del sample.named.text",
    "uci add-list sample.named.items=x", "uci del-list sample.named.items=one"};

TEST_F(TqctlTest, AValueThatIsMissingEndsWithOneAndOneLine) {
    for (const char* path : {"sample.named.nothing", "sample.nothing.text", "sample.@thing[9].text",
                             "sample.@nothing[0]"}) {
        const CommandResult result = tqctl("uci get " + std::string(path));
        EXPECT_TRUE(fails(result, kRefused, std::string(path) + ": not found\n"));
        EXPECT_EQ(result.err, "tqctl: uci get: " + std::string(path) + ": not found\n");
    }
}

TEST_F(TqctlTest, AFileThatIsMissingEndsWithOne) {
    std::remove("/etc/config/sample");
    EXPECT_TRUE(fails(tqctl(kReading), kRefused, "No such file or directory"));
    for (const char* change : kChanges) {
        EXPECT_TRUE(fails(tqctl(change), kRefused, "No such file or directory")) << change;
    }
    EXPECT_FALSE(exists("/etc/config/sample"));
}

TEST_F(TqctlTest, ASyntaxErrorEndsWithFiveAndTheFileStays) {
    const std::string broken = "config thing 'named'\n\toption text 'unterminated\n";
    write_file("/etc/config/sample", broken);
    EXPECT_TRUE(fails(tqctl(kReading), kDamaged, "the configuration file has a syntax error"));
    for (const char* change : kChanges) {
        EXPECT_TRUE(fails(tqctl(change), kDamaged, "the configuration file has a syntax error"))
            << change;
    }
    EXPECT_EQ(read_file("/etc/config/sample"), broken);
}

TEST_F(TqctlTest, AnythingElseInPlaceOfTheFileEndsWithOne) {
    for (const char* command :
         {"mkdir /etc/config/odd", "mkfifo /etc/config/odd", "ln -s /dev/null /etc/config/odd"}) {
        SCOPED_TRACE(command);
        ASSERT_EQ(run_command(command).status, 0);
        for (const char* call :
             {"get odd.a.b", "get odd.@a[-1]", "set odd.a.b=c", "add odd a", "add odd a b",
              "del odd.a", "add-list odd.a.b=c", "del-list odd.a.b=c"}) {
            const CommandResult result = tqctl(std::string("uci ") + call);
            EXPECT_TRUE(fails(result, kRefused, ": not a regular file\n")) << call;
            EXPECT_THAT(result.err, Not(HasSubstr("syntax error"))) << call;
        }
        run_command("rm -r /etc/config/odd");
    }
    EXPECT_FALSE(exists("/tmp/.uci/odd"));
}

TEST_F(TqctlTest, AReadOnlyFileSystemEndsWithSix) {
    const std::string before = read_file("/etc/config/sample");
    const ReadOnly locked("/etc/config");
    EXPECT_TRUE(succeeds(tqctl(kReading), "some text\n"));
    for (const char* change : kChanges) {
        EXPECT_TRUE(fails(tqctl(change), kInputOutput, "Read-only file system")) << change;
    }
    EXPECT_EQ(run_command("uci changes").out, "");
    EXPECT_EQ(read_file("/etc/config/sample"), before);
}

TEST_F(TqctlTest, AFullFileSystemEndsWithSix) {
    const std::string before = read_file("/etc/config/sample");
    const FullDisk full("/etc/config");
    EXPECT_TRUE(succeeds(tqctl(kReading), "some text\n"));
    EXPECT_TRUE(
        fails(tqctl("uci set sample.named.text=x"), kInputOutput, "No space left on device"));
    EXPECT_EQ(read_file("/etc/config/sample"), before);
}

TEST_F(TqctlTest, StagedChangesThatHaveNoPlaceEndWithSix) {
    const std::string before = read_file("/etc/config/sample");
    {
        const ReadOnly locked("/tmp");
        EXPECT_TRUE(
            fails(tqctl("uci set sample.named.text=x"), kInputOutput, "Read-only file system"));
    }
    const FullDisk full("/tmp");
    EXPECT_TRUE(
        fails(tqctl("uci set sample.named.text=x"), kInputOutput, "No space left on device"));
    EXPECT_EQ(read_file("/etc/config/sample"), before);
}

TEST_F(TqctlTest, AFileSystemWithoutASizeIsNotFull) {
    const std::string file = read_file("/etc/config/sample");
    const tq_test::ScopedMount memory("ramfs", "/etc/config", "ramfs", 0, "");
    write_file("/etc/config/sample", file);
    EXPECT_TRUE(succeeds(tqctl("uci set sample.named.text=x"), ""));
    EXPECT_EQ(run_command("uci get sample.named.text").out, "x\n");
}

class NobodyTest : public TqctlTest {
  protected:
    void SetUp() override {
        if (run_command(kNobody + "tqctl --version").status != kDone)
            GTEST_SKIP() << "the build tree is not for every user";
    }
};

TEST_F(NobodyTest, AFileThatMayNotBeReadEndsWithFour) {
    run_command("chmod 600 /etc/config/sample");
    EXPECT_TRUE(
        fails(run_command(kNobody + "tqctl " + kReading), kNotPermitted, "Permission denied"));
    EXPECT_TRUE(fails(run_command(kNobody + "tqctl uci set sample.named.text=x"), kNotPermitted,
                      "Permission denied"));
}

TEST_F(NobodyTest, AFileThatMayNotBeChangedEndsWithFour) {
    const std::string before = read_file("/etc/config/sample");
    EXPECT_TRUE(succeeds(run_command(kNobody + "tqctl " + kReading), "some text\n"));
    for (const char* change : kChanges) {
        EXPECT_TRUE(
            fails(run_command(kNobody + "tqctl " + change), kNotPermitted, "Permission denied"))
            << change;
    }
    EXPECT_EQ(read_file("/etc/config/sample"), before);
}

TEST_F(TqctlTest, OutputThatIsLostEndsWithSix) {
    for (const char* where : {">/dev/full", ">&-"}) {
        const CommandResult result = tqctl(std::string(kReading) + " " + where);
        EXPECT_TRUE(fails(result, kInputOutput, "standard output: ")) << where;
        EXPECT_EQ(tqctl("-j help " + std::string(where)).status, kInputOutput) << where;
    }
}

// Diagnostics

TEST_F(TqctlTest, ALibraryErrorIsShownBeforeTheVerdict) {
    const CommandResult result = tqctl("uci get nothing.a.b");
    EXPECT_THAT(result.err,
                testing::MatchesRegex(
                    "tqctl: \\[get_uci_option:[0-9]+\\] uci_lookup_ptr fail, nothing.a.b\n"
                    "tqctl: uci get: nothing.a.b: No such file or directory\n"));
}

TEST_F(TqctlTest, QuietLeavesTheExitCodeAlone) {
    write_file("/etc/config/broken", "config 'a\n");
    const std::pair<const char*, Code> cases[] = {
        {"uci get sample.named.nothing", kRefused},
        {"uci get sample.named.nothing broken.a.b nothing.a.b", kRefused},
        {"uci set nothing.a.b=c", kRefused},
        {"uci get", kUsage},
        {"nothing", kUsage},
        {"uci set broken.a.b=c", kDamaged},
        {"uci get sample.named.text >/dev/full", kInputOutput}};
    for (const auto& [arguments, code] : cases) {
        const CommandResult result = tqctl("-q " + std::string(arguments));
        EXPECT_TRUE(fails(result, code, "")) << arguments;
        EXPECT_THAT(result.err, IsEmpty()) << arguments;
    }
    EXPECT_TRUE(succeeds(tqctl("--quiet " + std::string(kReading)), "some text\n"));
}

TEST_F(TqctlTest, DiagnosticsNeverReachAFileInPlaceOfAClosedStandardError) {
    write_file("/etc/config/broken", "config 'a\n");
    EXPECT_EQ(tqctl("uci set broken.a.b=c 2>&-").status, kDamaged);
    EXPECT_EQ(tqctl("uci set broken.a.b=c <&- >&- 2>&-").status, kDamaged);
    EXPECT_EQ(read_file("/etc/config/broken"), "config 'a\n");
}

// JSON

TEST_F(TqctlTest, JsonIsAnEmptyObjectWhereThereIsNothing) {
    for (const char* arguments :
         {"uci get sample.named.nothing", "uci get nothing.a.b", "uci set sample.named.text=1",
          "uci del sample.last", "uci add sample thing fresh", "uci get", "nothing", "man",
          "completion bash", "--nothing", ""}) {
        EXPECT_EQ(tqctl("-j " + std::string(arguments)).out, "{}\n") << arguments;
        EXPECT_TRUE(parse(tqctl("--json " + std::string(arguments)).out)) << arguments;
    }
}

TEST_F(TqctlTest, JsonReplacesBytesThatAreNotUtf8) {
    const std::string u = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> cases[] = {
        {"\x80", u},
        {"a\xFFz", "a" + u + "z"},
        {"\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80", "\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {"\xC0\xAF", u + u},                                       // overlong
        {"\xE0\x80\xAF", u + u + u},                               // overlong
        {"\xED\xA0\x80", u + u + u},                               // a surrogate
        {"\xED\x9F\xBF", "\xED\x9F\xBF"},                          // the last before them
        {"\xF4\x90\x80\x80", u + u + u + u},                       // beyond U+10FFFF
        {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},                  // U+10FFFF
        {"\xC3", u},                                               // cut
        {"\xE2\x82", u + u},                                       // cut
        {"\xF0\x9F\x98", u + u + u},                               // cut
        {"\xC3(", u + "("},                                        // no second byte
        {"\xE2\x82(", u + u + "("},                                // no third byte
        {"quote \" slash / back \\", "quote \" slash / back \\"},  // what JSON escapes
        {"a\tb\nc", "a\tb\nc"},
    };
    for (const auto& [value, expected] : cases) {
        ASSERT_EQ(tqctl("uci set " + quote("sample.named.text=" + value)).status, kDone) << value;
        EXPECT_EQ(tqctl("uci get sample.named.text").out, value + "\n");
        EXPECT_EQ(member(parse(tqctl("-j uci get sample.named.text").out), "sample.named.text"),
                  expected);
    }
}

TEST_F(TqctlTest, JsonReplacesBytesOfAKeyToo) {
    const CommandResult result = tqctl("-j uci get sample.named.text 'sample.named.\xFF'");
    EXPECT_EQ(member(parse(result.out), "sample.named.text"), "some text");
    write_file("/etc/config/b\xFF", "config thing 'named'\n\toption text 'found'\n");
    EXPECT_TRUE(parse(tqctl("-j uci get 'b\xFF.named.text'").out));
}

// Version

TEST_F(TqctlTest, VersionIsPrinted) {
    const CommandResult text = tqctl("--version");
    EXPECT_THAT(text.out, testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_TRUE(succeeds(tqctl("-V"), text.out));
    EXPECT_EQ(member(parse(tqctl("-j --version").out), "version") + "\n", text.out);
}

}  // namespace
