// iniparser_test.cpp - INI files: what each form of line gives, what is said about a file that is
// refused, the conversions of the getters and the three dumps.
#include "tq/iniparser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/printed.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using tq_test::write_file;
using tq_test::written;
using tq_test::faults::Fail;
using Entries = std::vector<std::string>;

constexpr const char* kFile = "/tmp/test.ini";

struct Free {
    void operator()(dictionary* d) const { iniparser_freedict(d); }
};
using Dictionary = std::unique_ptr<dictionary, Free>;

// "name" or "name=value" of each entry, in table order.
Entries entries(const dictionary* d) {
    Entries list;
    for (int i = 0; d && i < d->size; i++) {
        if (d->key[i]) list.push_back(d->key[i] + (d->val[i] ? std::string("=") + d->val[i] : ""));
    }
    return list;
}

// The entries of a file, or what is said about it.
Entries load(std::string_view content) {
    write_file(kFile, content);
    const tq_test::CapturedOutput messages(STDERR_FILENO);
    const Dictionary d(iniparser_load(kFile));
    if (!d) return {messages.text()};
    EXPECT_EQ(messages.text(), "");
    return entries(d.get());
}

// What is behind "key=" in a section.
std::string value_of(std::string_view line) {
    const Entries list = load("[s]\nkey=" + std::string(line) + "\n");
    EXPECT_THAT(list, SizeIs(2)) << line;
    EXPECT_EQ(list.back().substr(0, 6), "s:key=") << line;
    return list.back().substr(6);
}

std::string syntax_error(int line, const std::string& text) {
    return "iniparser: syntax error in /tmp/test.ini (" + std::to_string(line) + "):\n-> " + text +
           "\n";
}

std::string too_long(int line) {
    return "iniparser: input line too long in /tmp/test.ini (" + std::to_string(line) + ")\n";
}

Dictionary make(const std::vector<std::pair<const char*, const char*>>& list) {
    Dictionary d(dictionary_new(0));
    for (const auto& [name, value] : list)
        EXPECT_EQ(iniparser_set(d.get(), name, value), 0);
    return d;
}

class IniparserTest : public tq_test::DeviceTest {};
using IniparserLoad = IniparserTest;

// load: the forms of a line

TEST_F(IniparserLoad, JoinsSectionAndKeyByAColon) {
    EXPECT_THAT(load("[net]\nmode = bridge\nmtu=1500\n[wan]\nmode = route\n"),
                ElementsAre("net", "net:mode=bridge", "net:mtu=1500", "wan", "wan:mode=route"));
}

TEST_F(IniparserLoad, KeepsTheCaseOfNames) {
    EXPECT_THAT(load("[Net]\nMode = Bridge\nmode = route\n[net]\n"),
                ElementsAre("Net", "Net:Mode=Bridge", "Net:mode=route", "net"));
}

TEST_F(IniparserLoad, PutsNothingBeforeTheColonOfAKeyWithoutASection) {
    EXPECT_THAT(load("key=value\n[s]\n"), ElementsAre(":key=value", "s"));
}

TEST_F(IniparserLoad, IgnoresEmptyLinesAndComments) {
    EXPECT_THAT(load("\n  \t\n# [a]\n; key=value\n   # b\n\t;c\n#\n;\n[s]\n"), ElementsAre("s"));
}

TEST_F(IniparserLoad, IgnoresBlanksAroundLinesNamesAndValues) {
    EXPECT_THAT(load(" \t[ my net ] \v\n \fmy key\t =\t my value \r\n"),
                ElementsAre("my net", "my net:my key=my value"));
}

TEST_F(IniparserLoad, EndsASectionsNameAtTheFirstBracket) {
    EXPECT_THAT(load("[a]b]\n[c;d]\n[e=f]\n"), ElementsAre("a", "c;d", "e=f"));
}

TEST_F(IniparserLoad, TakesASectionWithoutANameForTheLastOne) {
    EXPECT_THAT(load("[a]\n[]\nkey=1\n"), ElementsAre("a", "a:key=1"));
    EXPECT_THAT(load("[]\nkey=1\n"), ElementsAre("", ":key=1"));
    EXPECT_THAT(load("[a]\n[ ]\nkey=1\n"), ElementsAre("a", "", ":key=1"));
}

TEST_F(IniparserLoad, EndsAValueAtAComment) {
    EXPECT_EQ(value_of("value ; comment # another"), "value");
    EXPECT_EQ(value_of("value # comment ; another"), "value");
    EXPECT_EQ(value_of("value;comment"), "value");
}

TEST_F(IniparserLoad, TakesWhatQuotesHold) {
    EXPECT_EQ(value_of("\"a ; b # c\" ; comment"), "a ; b # c");
    EXPECT_EQ(value_of("'a ; b # c' ; comment"), "a ; b # c");
    EXPECT_EQ(value_of("\"it's\""), "it's");
    EXPECT_EQ(value_of("'say \"no\"'"), "say \"no\"");
    EXPECT_EQ(value_of("\"a\"b"), "a");
    EXPECT_EQ(value_of("'a'b'c'"), "a");
}

TEST_F(IniparserLoad, IgnoresBlanksInsideQuotes) {
    EXPECT_EQ(value_of("\"  a b \t\""), "a b");
    EXPECT_EQ(value_of("' '"), "");
}

TEST_F(IniparserLoad, TakesAQuoteThatIsNotClosedUpToTheEnd) {
    EXPECT_EQ(value_of("\"a ; b"), "a ; b");
    EXPECT_EQ(value_of("'a # b"), "a # b");
    EXPECT_EQ(value_of("\""), "\"");
    EXPECT_EQ(value_of("'"), "'");
}

TEST_F(IniparserLoad, TakesAQuoteInsideAValueAsItIs) {
    EXPECT_EQ(value_of("a \"b; c\""), "a \"b");
    EXPECT_EQ(value_of("\"\"abc"), "\"\"abc");
    EXPECT_EQ(value_of("''; c"), "");
}

TEST_F(IniparserLoad, TakesAnEmptyValue) {
    EXPECT_EQ(value_of(""), "");
    EXPECT_EQ(value_of("  "), "");
    EXPECT_EQ(value_of("; comment"), "");
    EXPECT_EQ(value_of(" # comment"), "");
    EXPECT_EQ(value_of("\"\""), "");
    EXPECT_EQ(value_of("''"), "");
    EXPECT_EQ(value_of("\"\" ; comment"), "");
}

TEST_F(IniparserLoad, TakesAPairOfQuotesInQuotesForAnEmptyValue) {
    EXPECT_EQ(value_of("\"''\""), "");
    EXPECT_EQ(value_of("'\"\"'"), "");
    EXPECT_EQ(value_of("\"'\""), "'");
}

TEST_F(IniparserLoad, EndsAKeyAtTheFirstEqualsSign) {
    EXPECT_EQ(value_of("a=b"), "a=b");
    EXPECT_EQ(value_of("=b"), "=b");
    EXPECT_EQ(value_of(" = b"), "= b");
    EXPECT_THAT(load("a;b#c=1\n"), ElementsAre(":a;b#c=1"));
    EXPECT_THAT(load("[a] = 1\n[b=1\n"), ElementsAre(":[a]=1", ":[b=1"));
}

TEST_F(IniparserLoad, GivesAKeyItsLastValueInItsFirstPlace) {
    EXPECT_THAT(load("[a]\nk=1\nj=2\n[b]\n[a]\nk=3\ni=4\n"),
                ElementsAre("a", "a:k=3", "a:j=2", "b", "a:i=4"));
}

TEST_F(IniparserLoad, TakesBytesBeyondAsciiAsTheyAre) {
    EXPECT_THAT(load("[\xc3\xa9\xff]\n\x80=\xa0\n"),
                ElementsAre("\xc3\xa9\xff", "\xc3\xa9\xff:\x80=\xa0"));
}

TEST_F(IniparserLoad, NeedsNoLineFeedAtTheEnd) {
    EXPECT_THAT(load("[a]\nkey=1"), ElementsAre("a", "a:key=1"));
    EXPECT_THAT(load("[a]"), ElementsAre("a"));
}

TEST_F(IniparserLoad, TakesAnEmptyFile) {
    EXPECT_THAT(load(""), IsEmpty());
    EXPECT_THAT(load("\n"), IsEmpty());
}

TEST_F(IniparserLoad, TakesALargeFile) {
    std::string content;
    for (int i = 0; i < 1000; i++)
        content += "[section " + std::to_string(i) + "]\nkey = " + std::string(20, 'v') + "\n";
    write_file(kFile, content);
    const Dictionary d(iniparser_load(kFile));
    ASSERT_TRUE(d);
    EXPECT_EQ(d->n, 2000);
    EXPECT_EQ(d->size, 2048);
    EXPECT_STREQ(d->key[1999], "section 999:key");
    EXPECT_EQ(iniparser_getstring(d.get(), "section 500:key", nullptr), std::string(20, 'v'));
}

// load: lines that go on

TEST_F(IniparserLoad, JoinsLinesThatEndInABackslash) {
    EXPECT_THAT(load("[s]\nkey = a\\\n b\\ \t\r\nc\n"), ElementsAre("s", "s:key=a bc"));
    EXPECT_THAT(load("[a\\\nb]\n"), ElementsAre("ab"));
    EXPECT_THAT(load("\\\n[a]\n\\\n\\\nk=1\n"), ElementsAre("a", "a:k=1"));
    EXPECT_THAT(load("k=\"a\\\n;b\"\n"), ElementsAre(":k=a;b"));
}

TEST_F(IniparserLoad, JoinsNothingAfterTwoBackslashesButOne) {
    EXPECT_THAT(load("k=a\\\\\nj=b\n"), ElementsAre(":k=a\\j=b"));
}

TEST_F(IniparserLoad, LetsACommentGoOn) {
    EXPECT_THAT(load("# a \\\nk=1\nj=2\n"), ElementsAre(":j=2"));
}

TEST_F(IniparserLoad, EndsALineThatGoesOnAtAnEmptyOne) {
    EXPECT_THAT(load("k=a \\\n  \nj=b\n"), ElementsAre(":k=a", ":j=b"));
}

TEST_F(IniparserLoad, DropsALineWhoseRestDoesNotCome) {
    EXPECT_THAT(load("j=1\nk=a\\\n"), ElementsAre(":j=1"));
    EXPECT_THAT(load("j=1\nk=a\\"), ElementsAre(":j=1"));
}

// load: the byte-order mark

TEST_F(IniparserLoad, DropsAByteOrderMark) {
    EXPECT_THAT(load("\xef\xbb\xbf[general]\nkey=1\n"), ElementsAre("general", "general:key=1"));
    EXPECT_THAT(load("\xef\xbb\xbfkey=1\n"), ElementsAre(":key=1"));
}

TEST_F(IniparserLoad, TakesAFileOfAByteOrderMarkAlone) {
    EXPECT_THAT(load("\xef\xbb\xbf"), IsEmpty());
    EXPECT_THAT(load("\xef\xbb\xbf\n"), IsEmpty());
}

TEST_F(IniparserLoad, KeepsAnythingElseThatTheFileStartsWith) {
    EXPECT_THAT(load("\xef\xbb=1\n"), ElementsAre(":\xef\xbb=1"));
    EXPECT_THAT(load("\xef\xbb\xbe=1\n"), ElementsAre(":\xef\xbb\xbe=1"));
    EXPECT_THAT(load("\xef\xbb\xbf\xef\xbb\xbf=1\n"), ElementsAre(":\xef\xbb\xbf=1"));
    EXPECT_THAT(load("a=1\n\xef\xbb\xbf=2\n"), ElementsAre(":a=1", ":\xef\xbb\xbf=2"));
    EXPECT_THAT(load("k="), ElementsAre(":k="));
    EXPECT_THAT(load("#\n[a]\n"), ElementsAre("a"));
    EXPECT_THAT(load("\n\n\n[a]\n"), ElementsAre("a"));
}

TEST_F(IniparserLoad, CountsLinesAndTheirBytesBehindTheByteOrderMark) {
    EXPECT_THAT(load("\xef\xbb\xbf[a]\nbad\n"), ElementsAre(syntax_error(2, "bad")));
    EXPECT_THAT(load("\xef\xbb\xbfk=" + std::string(1020, 'v') + "\n"), SizeIs(1));
    EXPECT_THAT(load("\xef\xbb\xbfk=" + std::string(1021, 'v') + "\n"), ElementsAre(too_long(1)));
}

// load: what is refused

TEST_F(IniparserLoad, RefusesTheWholeFileForALineThatIsNone) {
    for (const char* line : {"bad", "[a", "[a] ; comment", "=value", " = value", "key: value", "x",
                             "]", "[", "\"a\"", "= "}) {
        const std::string shown(line, std::string_view(line).find_last_not_of(' ') + 1);
        EXPECT_THAT(load("[s]\n" + std::string(line) + "\nkey=value\n"),
                    ElementsAre(syntax_error(2, shown)));
    }
    EXPECT_THAT(load("[s]\nx"), ElementsAre(syntax_error(2, "x")));
}

TEST_F(IniparserLoad, SaysEachLineThatIsNone) {
    EXPECT_THAT(
        load("a\nk=1\n  b  \nc\\\n d\n"),
        ElementsAre(syntax_error(1, "a") + syntax_error(3, "  b") + syntax_error(5, "c d")));
}

TEST_F(IniparserLoad, TakesNoFormatFromAFile) {
    EXPECT_THAT(load("%s%n%999999d\n"), ElementsAre(syntax_error(1, "%s%n%999999d")));
}

TEST_F(IniparserLoad, TakesALineOf1023Bytes) {
    EXPECT_THAT(load("k=" + std::string(1020, 'v') + "\n"),
                ElementsAre(":k=" + std::string(1020, 'v')));
    EXPECT_THAT(load("j=1\nk=" + std::string(1020, 'v')),
                ElementsAre(":j=1", ":k=" + std::string(1020, 'v')));
    EXPECT_THAT(load("[" + std::string(1020, 's') + "]\nk=v\n"),
                ElementsAre(std::string(1020, 's'), std::string(1020, 's') + ":k=v"));
    EXPECT_THAT(load("[" + std::string(1020, 's') + "]\n" + std::string(1021, 'k') + "=\n"),
                ElementsAre(std::string(1020, 's'),
                            std::string(1020, 's') + ":" + std::string(1021, 'k') + "="));
}

TEST_F(IniparserLoad, RefusesALongerLine) {
    EXPECT_THAT(load("a=1\nk=" + std::string(1021, 'v') + "\nb=2\n"), ElementsAre(too_long(2)));
    EXPECT_THAT(load("k=" + std::string(1021, 'v')), ElementsAre(too_long(1)));
    EXPECT_THAT(load("[" + std::string(1100, 's') + "]\n"), ElementsAre(too_long(1)));
    EXPECT_THAT(load(std::string(5000, 'k') + "=1\n"), ElementsAre(too_long(1)));
    EXPECT_THAT(load(std::string(100000, ' ')), ElementsAre(too_long(1)));
}

TEST_F(IniparserLoad, CountsWhatALineContinues) {
    const std::string half = std::string(500, 'a') + "\\\n";
    EXPECT_THAT(load("k=" + half + half + std::string(20, 'b') + "\n"), SizeIs(1));
    EXPECT_THAT(load("k=" + half + half + std::string(21, 'b') + "\n"), ElementsAre(too_long(3)));
    std::string endless;
    for (int i = 0; i < 1000; i++)
        endless += "ab\\\n";
    EXPECT_THAT(load(endless), ElementsAre(too_long(511)));
}

TEST_F(IniparserLoad, RefusesANulByte) {
    using std::string_literals::operator""s;
    EXPECT_THAT(load("a=1\nk=v\0w\n"s), ElementsAre(too_long(2)));
    EXPECT_THAT(load("a=1\n\0k=v\n"s), ElementsAre(too_long(2)));
    EXPECT_THAT(load("k=v\0"s), ElementsAre(too_long(1)));
    EXPECT_THAT(load("\0"s), ElementsAre(too_long(1)));
    EXPECT_THAT(load("# \0\n"s), ElementsAre(too_long(1)));
}

TEST_F(IniparserLoad, SaysThatThereIsNoFile) {
    const tq_test::CapturedOutput messages(STDERR_FILENO);
    EXPECT_EQ(iniparser_load("/tmp/no such file"), nullptr);
    EXPECT_EQ(messages.text(), "iniparser: cannot open /tmp/no such file\n");
}

TEST_F(IniparserLoad, SaysThatAFileCannotBeRead) {
    const tq_test::CapturedOutput messages(STDERR_FILENO);
    EXPECT_EQ(iniparser_load("/tmp"), nullptr);
    EXPECT_EQ(messages.text(), "iniparser: cannot open /tmp\n");
}

TEST_F(IniparserLoad, SaysThatTheRestOfAFileCannotBeRead) {
    write_file(kFile, std::string(20000, '\n'));
    const tq_test::CapturedOutput messages(STDERR_FILENO);
    const Fail fail("read", 2, EIO);
    EXPECT_EQ(iniparser_load(kFile), nullptr);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(messages.text(), "iniparser: cannot open /tmp/test.ini\n");
}

TEST_F(IniparserLoad, ReadsOnAfterASignal) {
    write_file(kFile, "[a]\n");
    const Fail fail("read", 1, EINTR);
    const Dictionary d(iniparser_load(kFile));
    EXPECT_TRUE(fail.fired());
    EXPECT_THAT(entries(d.get()), ElementsAre("a"));
}

TEST_F(IniparserLoad, ReadsWhatComesInPieces) {
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    std::thread writer([] {
        FILE* pipe = fopen("/tmp/pipe", "w");
        for (const char* piece : {"\xef", "\xbb", "\xbf[a", "]\nk=", "v\n"}) {
            fputs(piece, pipe);
            fflush(pipe);
            usleep(2000);
        }
        fclose(pipe);
    });
    const Dictionary d(iniparser_load("/tmp/pipe"));
    writer.join();
    EXPECT_THAT(entries(d.get()), ElementsAre("a", "a:k=v"));
}

TEST_F(IniparserLoad, RefusesNullWithoutAWord) {
    const tq_test::CapturedOutput messages(STDERR_FILENO);
    EXPECT_EQ(iniparser_load(nullptr), nullptr);
    EXPECT_EQ(messages.text(), "");
}

TEST_F(IniparserLoad, SaysThatMemoryHasRunOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    std::string content = "[a]\n";
    for (int i = 0; i < 200; i++)
        content += "key" + std::to_string(i) + "=1\n";
    write_file(kFile, content);
    for (const auto& [call, nth] : std::vector<std::pair<const char*, unsigned>>{
             {"malloc", 1}, {"calloc", 1}, {"calloc", 2}, {"strdup", 1}, {"strdup", 3}}) {
        const tq_test::CapturedOutput messages(STDERR_FILENO);
        const Fail fail(call, nth, ENOMEM);
        EXPECT_EQ(iniparser_load(kFile), nullptr) << call << nth;
        EXPECT_TRUE(fail.fired());
        EXPECT_EQ(messages.text(), "iniparser: memory allocation failure\n") << call << nth;
    }
}

TEST_F(IniparserLoad, OpensReadsAndClosesOnce) {
    write_file(kFile, "[a]\nk=v\n");
    tq_test::faults::reset();
    const Dictionary d(iniparser_load(kFile));
    EXPECT_EQ(tq_test::faults::count("open"), 1U);
    EXPECT_EQ(tq_test::faults::count("read"), 2U);
    EXPECT_EQ(tq_test::faults::count("close"), 1U);
}

TEST_F(IniparserLoad, LogsNothing) {
    tq_test::LogCapture log;
    load("bad\n");
    iniparser_load(nullptr);
    iniparser_set(nullptr, nullptr, nullptr);
    EXPECT_THAT(log.take(), IsEmpty());
}

// getters

TEST(IniparserGetstring, KeepsCaseApart) {
    const Dictionary d = make({{"Net", nullptr}, {"Net:Mode", "bridge"}});
    EXPECT_STREQ(iniparser_getstring(d.get(), "Net:Mode", "none"), "bridge");
    EXPECT_STREQ(iniparser_getstring(d.get(), "net:mode", "none"), "none");
    EXPECT_STREQ(iniparser_getstring(d.get(), "NET:MODE", "none"), "none");
}

TEST(IniparserGetstring, GivesNullForASectionAndTheDefaultForNoEntry) {
    const Dictionary d = make({{"net", nullptr}, {"net:mode", ""}});
    const char* none = "none";
    EXPECT_EQ(iniparser_getstring(d.get(), "net", none), nullptr);
    EXPECT_STREQ(iniparser_getstring(d.get(), "net:mode", none), "");
    EXPECT_EQ(iniparser_getstring(d.get(), "net:", none), none);
    EXPECT_EQ(iniparser_getstring(d.get(), nullptr, none), none);
    EXPECT_EQ(iniparser_getstring(nullptr, "net", none), none);
    EXPECT_EQ(iniparser_getstring(d.get(), "other", nullptr), nullptr);
}

TEST(IniparserGetstring, LooksAtTheFirst1024BytesOfAName) {
    const std::string name(1024, 'n');
    const Dictionary d = make({{(name + "mmm").c_str(), "value"}});
    EXPECT_THAT(entries(d.get()), ElementsAre(name + "=value"));
    EXPECT_STREQ(iniparser_getstring(d.get(), name.c_str(), "none"), "value");
    EXPECT_STREQ(iniparser_getstring(d.get(), (name + "x").c_str(), "none"), "value");
    EXPECT_STREQ(iniparser_getstring(d.get(), name.substr(1).c_str(), "none"), "none");
    iniparser_unset(d.get(), (name + "y").c_str());
    EXPECT_EQ(d->n, 0);
}

TEST(IniparserGetint, ReadsWhatTheValueStartsWith) {
    const struct {
        const char* text;
        int number;
    } values[] = {
        {"42", 42},
        {"042", 34},
        {"0x42", 66},
        {"0X1f", 31},
        {" -7x", -7},
        {"+5", 5},
        {"0", 0},
        {"", 0},
        {"junk", 0},
        {"12 34", 12},
        {"08", 0},
        {"1e3", 1},
        {"0x", 0},
        {"-0x10", -16},
        {"2147483647", INT_MAX},
        {"2147483648", INT_MAX},
        {"-2147483648", INT_MIN},
        {"-2147483649", INT_MIN},
        {"0xffffffff", INT_MAX},
        {"99999999999999999999", INT_MAX},
    };
    for (const auto& [text, number] : values) {
        const Dictionary d = make({{"s:k", text}});
        EXPECT_EQ(iniparser_getint(d.get(), "s:k", 7), number) << text;
    }
}

TEST(IniparserGetint, GivesNotfoundWhereThereIsNoValue) {
    const Dictionary d = make({{"s", nullptr}, {"s:k", "1"}});
    EXPECT_EQ(iniparser_getint(d.get(), "s", 7), 7);
    EXPECT_EQ(iniparser_getint(d.get(), "s:other", -1), -1);
    EXPECT_EQ(iniparser_getint(nullptr, "s:k", 7), 7);
    EXPECT_EQ(iniparser_getint(d.get(), nullptr, 7), 7);
}

TEST(IniparserGetdouble, ReadsWhatTheValueStartsWith) {
    const struct {
        const char* text;
        double number;
    } values[] = {{"1.5", 1.5}, {" -2e3x", -2000}, {"0x10", 16},       {"junk", 0},
                  {"", 0},      {".5", 0.5},       {"1e999", HUGE_VAL}};
    for (const auto& [text, number] : values) {
        const Dictionary d = make({{"s:k", text}});
        EXPECT_EQ(iniparser_getdouble(d.get(), "s:k", 7.5), number) << text;
    }
}

TEST(IniparserGetdouble, GivesNotfoundWhereThereIsNoValue) {
    const Dictionary d = make({{"s", nullptr}});
    EXPECT_EQ(iniparser_getdouble(d.get(), "s", 7.5), 7.5);
    EXPECT_EQ(iniparser_getdouble(d.get(), "s:k", -0.25), -0.25);
    EXPECT_EQ(iniparser_getdouble(nullptr, "s:k", 7.5), 7.5);
    EXPECT_EQ(iniparser_getdouble(d.get(), nullptr, 7.5), 7.5);
}

TEST(IniparserGetboolean, GoesByTheFirstLetter) {
    for (int first = 1; first < 256; first++) {
        const std::string text(1, static_cast<char>(first));
        const bool is_true = std::string_view("yYtT1").find(text) != std::string_view::npos;
        const bool is_false = std::string_view("nNfF0").find(text) != std::string_view::npos;
        const int expected = is_true ? 1 : is_false ? 0 : 7;
        for (const char* rest : {"", "x"}) {
            const Dictionary d = make({{"s:k", (text + rest).c_str()}});
            EXPECT_EQ(iniparser_getboolean(d.get(), "s:k", 7), expected) << text;
        }
    }
}

TEST(IniparserGetboolean, GivesNotfoundWhereThereIsNoValue) {
    const Dictionary d = make({{"s", nullptr}, {"s:k", ""}});
    EXPECT_EQ(iniparser_getboolean(d.get(), "s", 7), 7);
    EXPECT_EQ(iniparser_getboolean(d.get(), "s:k", -1), -1);
    EXPECT_EQ(iniparser_getboolean(d.get(), "s:j", 7), 7);
    EXPECT_EQ(iniparser_getboolean(nullptr, "s:k", 7), 7);
    EXPECT_EQ(iniparser_getboolean(d.get(), nullptr, 7), 7);
}

TEST(IniparserFindEntry, FindsSectionsAndKeys) {
    const Dictionary d = make({{"s", nullptr}, {"s:k", ""}});
    EXPECT_EQ(iniparser_find_entry(d.get(), "s"), 1);
    EXPECT_EQ(iniparser_find_entry(d.get(), "s:k"), 1);
    EXPECT_EQ(iniparser_find_entry(d.get(), "S"), 0);
    EXPECT_EQ(iniparser_find_entry(d.get(), ""), 0);
    EXPECT_EQ(iniparser_find_entry(d.get(), nullptr), 0);
    EXPECT_EQ(iniparser_find_entry(nullptr, "s"), 0);
}

// set, unset

TEST(IniparserSet, MakesOrReplacesAnEntry) {
    const Dictionary d = make({{"Net", nullptr}, {"Net:Mode", "a"}, {"Net:Mode", "b"}});
    EXPECT_THAT(entries(d.get()), ElementsAre("Net", "Net:Mode=b"));
    EXPECT_EQ(iniparser_set(d.get(), "Net:Mode", nullptr), 0);
    EXPECT_EQ(iniparser_set(d.get(), "other:key", "c"), 0);
    EXPECT_THAT(entries(d.get()), ElementsAre("Net", "Net:Mode", "other:key=c"));
}

TEST(IniparserSet, RefusesNull) {
    const Dictionary d = make({});
    EXPECT_EQ(iniparser_set(nullptr, "a", "b"), -1);
    EXPECT_EQ(iniparser_set(d.get(), nullptr, "b"), -1);
    EXPECT_THAT(entries(d.get()), IsEmpty());
}

TEST(IniparserUnset, RemovesAnEntryAndLeavesASectionsKeys) {
    const Dictionary d = make({{"s", nullptr}, {"s:k", "1"}, {"s:j", "2"}});
    iniparser_unset(d.get(), "S:K");
    iniparser_unset(d.get(), "s:k");
    iniparser_unset(d.get(), "s");
    iniparser_unset(d.get(), nullptr);
    iniparser_unset(nullptr, "s:j");
    EXPECT_THAT(entries(d.get()), ElementsAre("s:j=2"));
}

// sections

TEST(IniparserGetnsec, CountsTheEntriesWithoutAColon) {
    EXPECT_EQ(iniparser_getnsec(make({}).get()), 0);
    EXPECT_EQ(iniparser_getnsec(
                  make({{"a", nullptr}, {"a:k", "1"}, {"b", "x"}, {"", nullptr}, {"c:d", nullptr}})
                      .get()),
              3);
    EXPECT_EQ(iniparser_getnsec(nullptr), -1);
}

TEST(IniparserGetsecname, GivesTheSectionsInTableOrder) {
    const Dictionary d = make({{"a", nullptr}, {"a:k", "1"}, {"b", nullptr}, {"c", nullptr}});
    iniparser_unset(d.get(), "a:k");
    iniparser_set(d.get(), "d", nullptr);
    for (const auto& [n, name] : {std::pair{0, "a"}, {1, "d"}, {2, "b"}, {3, "c"}})
        EXPECT_STREQ(iniparser_getsecname(d.get(), n), name);
    EXPECT_EQ(iniparser_getsecname(d.get(), 0), d->key[0]);
    EXPECT_EQ(iniparser_getsecname(d.get(), 4), nullptr);
    EXPECT_EQ(iniparser_getsecname(d.get(), -1), nullptr);
    EXPECT_EQ(iniparser_getsecname(nullptr, 0), nullptr);
}

// dumps

TEST(IniparserDump, WritesEachEntryInTableOrder) {
    const Dictionary d =
        make({{"net", nullptr}, {"x", "1"}, {"net:mode", "%s"}, {"net:none", nullptr}});
    iniparser_unset(d.get(), "x");
    iniparser_set(d.get(), "net:first", "");
    EXPECT_EQ(written([&](FILE* f) { iniparser_dump(d.get(), f); }),
              "[net]\nnet:first=\nnet:mode=%s\n[net:none]\n");
}

TEST(IniparserDumpAppend, WritesEachEntryInTableOrder) {
    const Dictionary d = make({{"net", nullptr}, {"net:mode", "bridge"}, {"net:empty", ""}});
    EXPECT_EQ(written([&](FILE* f) { iniparser_dump_append(d.get(), f); }),
              "net=UNDEF\nnet:mode       bridge\nnet:empty       \n");
}

TEST(IniparserDumpIni, WritesAFilePerSection) {
    const Dictionary d = make({{"a:before its section", "0"},
                               {"b", nullptr},
                               {"b:k", "1"},
                               {"a", nullptr},
                               {"a:a name of more than thirty bytes", "2"},
                               {"b:none", nullptr},
                               {"a:x:y", "%d"},
                               {"ab:k", "orphan"},
                               {":k", "without a section"}});
    EXPECT_EQ(written([&](FILE* f) { iniparser_dump_ini(d.get(), f); }),
              "\n[b]\n"
              "k                              = 1\n"
              "none                           = \n"
              "\n"
              "\n[a]\n"
              "before its section             = 0\n"
              "a name of more than thirty bytes = 2\n"
              "x:y                            = %d\n"
              "\n"
              "\n");
}

TEST(IniparserDumpIni, WritesWhatThereIsWithoutSections) {
    const Dictionary d = make({{":k", "1"}, {"s:k", "2"}, {"s:j", nullptr}});
    EXPECT_EQ(written([&](FILE* f) { iniparser_dump_ini(d.get(), f); }),
              ":k = 1\ns:k = 2\ns:j = (null)\n");
    EXPECT_EQ(written([&](FILE* f) { iniparser_dump_ini(make({}).get(), f); }), "");
}

TEST(IniparserDumpIni, ReadsBackAsTheSame) {
    const Dictionary d = make({{"Net", nullptr}, {"Net:Mode", "bridge"}, {"Net:mtu", "1500"}});
    EXPECT_EQ(load(written([&](FILE* f) { iniparser_dump_ini(d.get(), f); })), entries(d.get()));
}

TEST(IniparserDumps, WriteNothingForNull) {
    const Dictionary d = make({{"a", nullptr}});
    for (const auto dump : {iniparser_dump, iniparser_dump_ini, iniparser_dump_append}) {
        EXPECT_EQ(written([&](FILE* f) { dump(nullptr, f); }), "");
        dump(d.get(), nullptr);
    }
}

TEST(IniparserFreedict, TakesNull) {
    iniparser_freedict(nullptr);
}

}  // namespace
