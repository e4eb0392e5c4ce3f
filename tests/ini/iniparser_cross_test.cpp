// iniparser_cross_test.cpp - the same files through libtq and through Debian's libiniparser 4.1.
//
// With names in lower case every result is the same, but for these:
//
//   - the byte-order mark, which 4.1 takes for a part of the first line;
//   - blanks inside quotes, which 4.1 keeps, and with them '""' and "''", which it takes as they
//     are: in 3.x they do not count;
//   - a last line of one byte without a line feed, which 4.1 ignores; here it is what it says;
//   - a NUL byte, which 4.1 takes for the end of the file's last line, or of the line where it is
//     its first byte; here it is always refused;
//   - a directory, which 4.1 takes for an empty file;
//   - a slot that was emptied: 4.1 fills the first free one behind the n-th, 3.x the first;
//   - iniparser_dump(), whose format is another, and names, which 4.1 turns into lower case;
//   - an integer beyond 32 bits, which 4.1 cuts where a long is wider;
//   - an empty name, "[]", behind a section whose name holds "=" or a bracket: 4.1 keeps a part of
//     that name, here all of it stays;
//   - a getter on a section, which has no value: 4.1 reads through a null pointer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/device.h"
#include "support/printed.h"
#include "tq/iniparser.h"

#ifdef TQ_OTHER_INIPARSER
#include "ini/other_iniparser.h"

namespace {

using tq_test::write_file;
using tq_test::written;

constexpr const char* kFile = "/tmp/test.ini";

struct Free {
    void operator()(dictionary* d) const { iniparser_freedict(d); }
    void operator()(other_dictionary* d) const { other_iniparser_freedict(d); }
};
using Ours = std::unique_ptr<dictionary, Free>;
using Other = std::unique_ptr<other_dictionary, Free>;

// Everything that the interface tells about a table, a line for each.
template <typename Table>
std::vector<std::string> fields(const Table* d) {
    std::vector<std::string> lines{"n=" + std::to_string(d->n), "size=" + std::to_string(d->size)};
    for (int i = 0; i < static_cast<int>(d->size); i++) {
        if (!d->key[i]) continue;
        lines.push_back(std::to_string(i) + " " + std::to_string(d->hash[i]) + " " + d->key[i] +
                        (d->val[i] ? std::string("=") + d->val[i] : ""));
    }
    return lines;
}

std::string printable(const char* text) {
    return text ? text : "(null)";
}

void expect_same_answers(const dictionary* d, const other_dictionary* other) {
    EXPECT_EQ(fields(d), fields(other));
    EXPECT_EQ(written([&](FILE* f) { dictionary_dump(d, f); }),
              written([&](FILE* f) { other_dictionary_dump(other, f); }));
    EXPECT_EQ(written([&](FILE* f) { iniparser_dump_ini(d, f); }),
              written([&](FILE* f) { other_iniparser_dump_ini(other, f); }));
    const int sections = iniparser_getnsec(d);
    EXPECT_EQ(sections, other_iniparser_getnsec(other));
    for (int i = -1; i <= sections; i++)
        EXPECT_EQ(printable(iniparser_getsecname(d, i)),
                  printable(other_iniparser_getsecname(other, i)));
    for (int i = 0; i < d->size; i++) {
        const char* key = d->key[i];
        if (!key) continue;
        EXPECT_EQ(iniparser_find_entry(d, key), other_iniparser_find_entry(other, key));
        EXPECT_EQ(printable(iniparser_getstring(d, key, "none")),
                  printable(other_iniparser_getstring(other, key, "none")));
        if (!d->val[i]) continue;
        EXPECT_EQ(iniparser_getint(d, key, 7), other_iniparser_getint(other, key, 7));
        EXPECT_EQ(iniparser_getdouble(d, key, 7), other_iniparser_getdouble(other, key, 7));
        EXPECT_EQ(iniparser_getboolean(d, key, 7), other_iniparser_getboolean(other, key, 7));
    }
}

// What is said about a file that is refused, or nothing; the tables are compared where it is not.
std::string load_both(const std::string& content) {
    SCOPED_TRACE(content);
    write_file(kFile, content);
    std::string said;
    Ours ours;
    {
        const tq_test::CapturedOutput messages(STDERR_FILENO);
        ours.reset(iniparser_load(kFile));
        said = messages.text();
    }
    const tq_test::CapturedOutput messages(STDERR_FILENO);
    const Other other(other_iniparser_load(kFile));
    EXPECT_EQ(said, messages.text());
    EXPECT_EQ(ours != nullptr, other != nullptr);
    if (ours && other) expect_same_answers(ours.get(), other.get());
    return said;
}

// The same in every run, or what --gtest_random_seed says.
unsigned seed() {
    return static_cast<unsigned>(GTEST_FLAG_GET(random_seed));
}

class IniparserCross : public tq_test::DeviceTest {};

TEST_F(IniparserCross, FilesGiveTheSame) {
    for (const char* content :
         {"[net]\nmode = bridge\nmtu=1500\n[wan]\nmode=route\n",
          "key=value\n[s]\nx = 1 ; c\n",
          "# c\n; c\n\n  \n[ a b ]\n k e y\t= v a l \n",
          "[a]\r\nk=v\r\n",
          "[a]\nk='v'x\nl=\"it's\"\nm='a\"b' ; c\nn=\"a;b#c\"\n",
          "[a]\nk=\nl=;\nm= # c\nn=\"\"\no='' ; c\np=\"\"abc\nq=\"\nr='\ns=\"abc\nt='a;b\n",
          "[a]\nk=1\nk=2\n[b]\n[a]\nj=3\n",
          "[a]b]\n[c;d]\n[e=f]\n[a:b]\nk=v\n",
          "[]\nk=v\n[b]\n[]\nk=v\n[ ]\nk=v\n",
          "[a]\nk=a=b\nl==b\nm= = b\n[x] = 1\n[y=1\n",
          "[a]\nk=v\\\nw\nl=v \\  \n  w\nm=\"a\\\nb\"\n\\\nn=1\n\\\n\\\no=2\np=x\\\\\nq=y\n",
          "[a]\n# c \\\nk=v\n",
          "[a]\nk=v\\\n",
          "[a]\nk=v\\",
          "[a]\nk =\v v\f\n",
          "[\xc3\xa9]\n\x80\xff=\xa0\n",
          "[a]\na=42\nb=042\nc=0x2a\nd= -7x\ne=junk\nf=1e3\ng=08\n",
          "[a]\nh=yes\ni=No\nj=true\nk=F\nl=1.5\n",
          "",
          "\n\n"}) {
        EXPECT_EQ(load_both(content), "");
    }
}

TEST_F(IniparserCross, BadFilesAreRefusedInTheSameWords) {
    const std::string bad[] = {"x\n",
                               "[a] ; c\n",
                               "[a\nk=v\n",
                               "=v\n",
                               "[a]\n = v\n",
                               "[a]\nk:v\n",
                               "[a]\nbad\nk=v\nworse\n",
                               "a\\\nb\n",
                               "[" + std::string(1100, 's') + "]\n",
                               "k=" + std::string(1021, 'v') + "\n",
                               "k=" + std::string(1021, 'v'),
                               std::string("k=v\0w\nj=1\n", 10)};
    for (const std::string& content : bad)
        EXPECT_NE(load_both(content), "") << content;
    EXPECT_EQ(load_both("k=" + std::string(1020, 'v') + "\n"), "");
    EXPECT_EQ(load_both("[" + std::string(1020, 's') + "]\nk=v\n"), "");
}

// Lines of what matters to a loader, in lower case, without what the two are known to differ in.
TEST_F(IniparserCross, FilesOfChanceGiveTheSame) {
    const std::vector<std::string> pieces = {"[",  "]", "=", " ", "\t", ";",  "#",  "\\",    "\n",
                                             "\n", "a", "b", ":", "1",  "0x", "k=", "[s]\n", "v\n"};
    std::mt19937 random(seed());
    for (int round = 0; round < 3000 && !HasFailure(); round++) {
        std::string content;
        for (int i = 0; i < 24; i++)
            content += pieces[std::uniform_int_distribution<size_t>(0, pieces.size() - 1)(random)];
        if (content.find("[]") == std::string::npos) load_both(content + "\n");
    }
}

TEST_F(IniparserCross, HashesAreTheSame) {
    std::mt19937 random(seed());
    std::uniform_int_distribution<int> byte(1, 255);
    for (int round = 0; round < 2000; round++) {
        std::string key(static_cast<size_t>(round % 40), ' ');
        std::ranges::generate(key, [&] { return static_cast<char>(byte(random)); });
        EXPECT_EQ(dictionary_hash(key.c_str()), other_dictionary_hash(key.c_str()));
    }
}

TEST_F(IniparserCross, TablesThatOnlyGrowAreTheSame) {
    const Ours ours(dictionary_new(0));
    const Other other(other_dictionary_new(0));
    for (int i = 0; i < 1000; i++) {
        const std::string key = "s:" + std::to_string(i % 700);
        const std::string value = std::to_string(i);
        const char* val = i % 5 == 0 ? nullptr : value.c_str();
        EXPECT_EQ(dictionary_set(ours.get(), key.c_str(), val),
                  other_dictionary_set(other.get(), key.c_str(), val));
    }
    EXPECT_EQ(fields(ours.get()), fields(other.get()));
}

// The differences, so that a change on either side is noticed.

TEST_F(IniparserCross, BlanksInsideQuotesCountFor41Only) {
    write_file(kFile, "[s]\nk=\" v \"\nl=\"''\"\n");
    const Ours ours(iniparser_load(kFile));
    const Other other(other_iniparser_load(kFile));
    EXPECT_STREQ(iniparser_getstring(ours.get(), "s:k", "none"), "v");
    EXPECT_STREQ(other_iniparser_getstring(other.get(), "s:k", "none"), " v ");
    EXPECT_STREQ(iniparser_getstring(ours.get(), "s:l", "none"), "");
    EXPECT_STREQ(other_iniparser_getstring(other.get(), "s:l", "none"), "''");
}

TEST_F(IniparserCross, NamesAreTurnedIntoLowerCaseBy41Only) {
    write_file(kFile, "[Net]\nMode=v\n");
    const Ours ours(iniparser_load(kFile));
    const Other other(other_iniparser_load(kFile));
    EXPECT_STREQ(iniparser_getstring(ours.get(), "Net:Mode", "none"), "v");
    EXPECT_STREQ(iniparser_getstring(ours.get(), "net:mode", "none"), "none");
    EXPECT_STREQ(other_iniparser_getstring(other.get(), "net:mode", "none"), "v");
}

TEST_F(IniparserCross, ALastLineOfOneByteIsIgnoredBy41Only) {
    write_file(kFile, "[a]\nx");
    const tq_test::CapturedOutput messages(STDERR_FILENO);
    EXPECT_FALSE(Ours(iniparser_load(kFile)));
    EXPECT_TRUE(Other(other_iniparser_load(kFile)));
}

TEST_F(IniparserCross, AnEmptiedSlotIsFilledFirstIn3xOnly) {
    const Ours ours(dictionary_new(0));
    const Other other(other_dictionary_new(0));
    for (const char* key : {"a", "b", "c"}) {
        dictionary_set(ours.get(), key, nullptr);
        other_dictionary_set(other.get(), key, nullptr);
    }
    dictionary_unset(ours.get(), "a");
    other_dictionary_unset(other.get(), "a");
    dictionary_set(ours.get(), "d", nullptr);
    other_dictionary_set(other.get(), "d", nullptr);
    EXPECT_STREQ(ours->key[0], "d");
    EXPECT_EQ(other->key[0], nullptr);
}

}  // namespace

#else

TEST(IniparserCross, NeedsTheOtherLibrary) {
    GTEST_SKIP() << "libiniparser is not there for this machine (Debian: libiniparser-dev)";
}

#endif
