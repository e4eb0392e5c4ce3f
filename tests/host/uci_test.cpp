// uci_test.cpp - the workstation's libuci and its command: the syntax, looking up, changing,
// staging and committing, against files whose normal form is the firmware's own.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <uci.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "support/device.h"
#include "support/faults.h"
#include "support/printed.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tq_test::CommandResult;
using tq_test::DeviceTest;
using tq_test::exists;
using tq_test::FullDisk;
using tq_test::read_file;
using tq_test::ReadOnly;
using tq_test::run_command;
using tq_test::write_file;
using tq_test::faults::Fail;

constexpr const char* kConfig = "/tmp/uci/config";
constexpr const char* kStaged = "/tmp/uci/staged";

std::string config_path(const std::string& name) {
    return std::string(kConfig) + "/" + name;
}

std::string staged_path(const std::string& name) {
    return std::string(kStaged) + "/" + name;
}

void write_config(std::string_view content, const std::string& name = "x") {
    write_file(config_path(name), content);
}

std::string staged(const std::string& name = "x") {
    return exists(staged_path(name)) ? read_file(staged_path(name)) : "";
}

std::vector<std::string> names_in(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// A context on directories of the test's own.
class Context {
  public:
    Context() : context_(uci_alloc_context(), uci_free_context) {
        uci_set_confdir(get(), kConfig);
        uci_set_savedir(get(), kStaged);
        uci_set_conf2dir(get(), nullptr);
    }

    uci_context* get() const { return context_.get(); }

    uci_package* load(const char* name = "x") const {
        uci_package* package = nullptr;
        const int error = uci_load(get(), name, &package);
        return error == UCI_OK ? package : nullptr;
    }

    std::string error_text() const {
        char* text = nullptr;
        uci_get_errorstr(get(), &text, nullptr);
        std::string result = text ? text : "";
        free(text);
        return result;
    }

  private:
    std::unique_ptr<uci_context, decltype(&uci_free_context)> context_;
};

// A path text, looked up.
class Path {
  public:
    Path(Context& context, std::string text) : text_(std::move(text)) {
        error = uci_lookup_ptr(context.get(), &ptr, text_.data(), true);
    }
    Path(const Path&) = delete;
    Path& operator=(const Path&) = delete;

    bool complete() const { return (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0; }

    int error = UCI_OK;
    uci_ptr ptr = {};

  private:
    std::string text_;
};

using Change = int (*)(uci_context*, uci_ptr*);

int change(Context& context, Change function, const std::string& text) {
    Path path(context, text);
    return path.error ? path.error : function(context.get(), &path.ptr);
}

std::string exported(Context& context, uci_package* package, bool header = false) {
    return tq_test::written([&](FILE* stream) {
        EXPECT_EQ(uci_export(context.get(), stream, package, header), UCI_OK);
    });
}

// The normal form of a loaded file.
std::string normal_form(const char* name = "x") {
    Context context;
    uci_package* package = context.load(name);
    EXPECT_NE(package, nullptr) << context.error_text();
    return package ? exported(context, package) : "";
}

std::string value_of(const uci_option* option) {
    if (!option) return "(none)";
    if (option->type == UCI_TYPE_STRING) return option->v.string;
    std::string text;
    const uci_element* item = nullptr;
    uci_foreach_element(&option->v.list, item) text += std::string("[") + item->name + "]";
    return text;
}

std::string value_at(Context& context, const std::string& text) {
    const Path path(context, text);
    return path.error ? "(error)" : value_of(path.ptr.o);
}

std::vector<std::string> section_names(const uci_package* package) {
    std::vector<std::string> names;
    const uci_element* element = nullptr;
    uci_foreach_element(&package->sections, element) names.emplace_back(element->name);
    return names;
}

int save_and_commit(Context& context, uci_package* package, bool overwrite = false) {
    const int error = uci_save(context.get(), package);
    return error ? error : uci_commit(context.get(), &package, overwrite);
}

class UciTest : public DeviceTest {
  protected:
    UciTest() {
        std::filesystem::create_directories(kConfig);
        std::filesystem::create_directories(kStaged);
    }
};

// ---- the corpus ----

std::filesystem::path corpus() {
    return TQ_SOURCE_DIR "/tests/data/uci";
}

std::vector<std::string> corpus_names(const std::filesystem::path& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.path().extension() == ".conf") names.push_back(entry.path().stem());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class UciValidFile : public UciTest, public testing::WithParamInterface<std::string> {};

TEST_P(UciValidFile, HasItsNormalForm) {
    write_config(read_file(corpus() / (GetParam() + ".conf")), "corpus");
    Context context;
    uci_package* package = context.load("corpus");
    ASSERT_NE(package, nullptr) << context.error_text();
    EXPECT_EQ(exported(context, package, true), read_file(corpus() / (GetParam() + ".expected")));
}

TEST_P(UciValidFile, KeepsItsNormalForm) {
    const std::string expected = read_file(corpus() / (GetParam() + ".expected"));
    write_config(expected, "corpus");
    Context context;
    uci_package* package = context.load("corpus");
    ASSERT_NE(package, nullptr) << context.error_text();
    EXPECT_EQ(exported(context, package, true), expected);
}

INSTANTIATE_TEST_SUITE_P(Corpus, UciValidFile, testing::ValuesIn(corpus_names(corpus())),
                         [](const auto& test) { return test.param; });

class UciBadFile : public UciTest, public testing::WithParamInterface<std::string> {};

TEST_P(UciBadFile, IsRefusedWithTheErrorsPlace) {
    const std::string content = read_file(corpus() / "bad" / (GetParam() + ".conf"));
    write_config(content, "corpus");
    Context context;
    uci_package* package = nullptr;
    EXPECT_EQ(uci_load(context.get(), "corpus", &package), UCI_ERR_PARSE);
    EXPECT_EQ(context.error_text() + "\n",
              read_file(corpus() / "bad" / (GetParam() + ".expected")));
    EXPECT_TRUE(uci_list_empty(&context.get()->root));
}

TEST_P(UciBadFile, CannotBeCommittedAndStaysUntouched) {
    const std::string content = read_file(corpus() / "bad" / (GetParam() + ".conf"));
    write_config("config t 'b'\n", "corpus");
    Context context;
    uci_package* package = context.load("corpus");
    ASSERT_EQ(change(context, uci_set, "corpus.b.o=1"), UCI_OK);
    ASSERT_EQ(uci_save(context.get(), package), UCI_OK);
    write_config(content, "corpus");
    EXPECT_EQ(uci_commit(context.get(), &package, false), UCI_ERR_PARSE);
    EXPECT_EQ(read_file(config_path("corpus")), content);
    EXPECT_EQ(staged("corpus"), "corpus.b.o='1'\n");
}

INSTANTIATE_TEST_SUITE_P(Corpus, UciBadFile, testing::ValuesIn(corpus_names(corpus() / "bad")),
                         [](const auto& test) { return test.param; });

// ---- parsing ----

TEST_F(UciTest, ReadsLongValuesWhole) {
    const std::string value(65536, 'v'), lines(65536, '\n');
    write_config("config a 'b'\n\toption o '" + value + "'\n\tlist l \"" + lines + "\"\n");
    Context context;
    ASSERT_NE(context.load(), nullptr);
    EXPECT_EQ(value_at(context, "x.b.o"), value);
    EXPECT_EQ(value_at(context, "x.b.l"), "[" + lines + "]");
}

TEST_F(UciTest, ReadsLongNames) {
    const std::string name(5000, 'n'), type(5000, '!');
    write_config("config " + type + " " + name + "\n\toption " + name + " 1\n");
    Context context;
    ASSERT_NE(context.load(), nullptr);
    EXPECT_EQ(value_at(context, "x." + name + "." + name), "1");
}

// Hostile files: a megabyte each, whose shape would cost a careless reader a quadratic time.
struct HugeFile {
    const char* name;
    std::function<std::string()> content;
};

void PrintTo(const HugeFile& file, std::ostream* stream) {
    *stream << file.name;
}

class UciHugeFile : public UciTest, public testing::WithParamInterface<HugeFile> {};

std::string repeated(std::string_view text, size_t count) {
    std::string result;
    for (size_t i = 0; i < count; ++i)
        result += text;
    return result;
}

std::string numbered(std::string_view before, std::string_view after, size_t count) {
    std::string result;
    for (size_t i = 0; i < count; ++i) {
        result.append(before).append(std::to_string(i)).append(after);
    }
    return result;
}

// What is linear takes some 40 ms; what is quadratic, minutes, and runs into the program's time
// limit.
TEST_P(UciHugeFile, IsRead) {
    write_config(GetParam().content());
    const Context context;
    EXPECT_NE(context.load(), nullptr) << context.error_text();
}

const HugeFile kHugeFiles[] = {
    {"options", [] { return "config a\n" + numbered("\toption o", " 1\n", 60000); }},
    {"sections", [] { return numbered("config a s", "\n", 70000); }},
    {"anonymous_sections", [] { return repeated("config a\n", 110000); }},
    {"items", [] { return "config a\n" + repeated("\tlist l x\n", 100000); }},
    {"line_breaks", [] { return "config a\n\toption o '" + std::string(1000000, '\n') + "'\n"; }},
    {"continuations", [] { return "config a\n\toption o " + repeated("\\\n", 500000) + "x\n"; }},
    {"statements", [] { return "config a\n" + repeated("option o \"1\";", 80000) + "#\n"; }},
    {"quotes", [] { return "config a\n\toption o " + repeated("''", 500000) + "x\n"; }},
    {"nuls", [] { return "config a\n" + repeated(std::string_view("\0\n", 2), 500000) + "\n"; }},
    {"blanks", [] { return "config a\n" + std::string(1000000, ' ') + "option o 1\n"; }},
};

INSTANTIATE_TEST_SUITE_P(Megabyte, UciHugeFile, testing::ValuesIn(kHugeFiles),
                         [](const auto& test) { return test.param.name; });

TEST_F(UciTest, HidesWhatFollowsANulByteInItsLine) {
    write_config(std::string_view("config a 'b'\n\toption o x\0y\n\n\toption p 1\n", 39));
    EXPECT_EQ(normal_form(), "\nconfig a 'b'\n\toption o 'x'\n\toption p '1'\n\n");
}

TEST_F(UciTest, GoesOnBehindASyntaxErrorUnlessStrict) {
    write_config("foo\nconfig a 'b'\n\toption o 1 2\n\tbar\n\toption p 1\nconfig c 'b'\n");
    Context context;
    context.get()->flags =
        static_cast<uci_flags>(static_cast<unsigned>(context.get()->flags) & ~1U);
    uci_package* package = context.load();
    ASSERT_NE(package, nullptr);
    EXPECT_EQ(exported(context, package), "\nconfig c 'b'\n\toption o '1'\n\toption p '1'\n\n");
}

TEST_F(UciTest, NamesAnonymousSectionsByPositionAndType) {
    write_config("config a\nconfig b 'n'\nconfig c\n\toption o 1\nconfig a\n");
    Context context;
    uci_package* package = context.load();
    ASSERT_NE(package, nullptr);
    EXPECT_THAT(section_names(package), ElementsAre("cfg01b606", "n", "cfg03b608", "cfg04b606"));
}

TEST_F(UciTest, QuotesATypeThatWouldBeReadOtherwise) {
    const std::string text =
        "\nconfig 'a'\\''b' 'c'\n\nconfig '#'\n\nconfig 'x;y'\n\nconfig a-b\n\n";
    write_config(text);
    EXPECT_EQ(normal_form(), text);
}

TEST_F(UciTest, ExportsGeneratedNamesWhereAsked) {
    write_config("config a\n");
    Context context;
    uci_package* package = context.load();
    ASSERT_NE(package, nullptr);
    context.get()->flags =
        static_cast<uci_flags>(static_cast<unsigned>(context.get()->flags) | UCI_FLAG_EXPORT_NAME);
    EXPECT_EQ(exported(context, package, true), "package x\n\nconfig a 'cfg01b606'\n\n");
}

int import_text(Context& context, std::string text, const char* name, uci_package** package,
                bool single) {
    FILE* stream = fmemopen(text.data(), text.size(), "r");
    const int error = uci_import(context.get(), stream, name, package, single);
    fclose(stream);
    return error;
}

TEST_F(UciTest, ImportsSeveralPackages) {
    Context context;
    uci_package* last = nullptr;
    ASSERT_EQ(
        import_text(context, "package p\nconfig a\npackage q\nconfig b\n", nullptr, &last, false),
        UCI_OK);
    ASSERT_NE(last, nullptr);
    EXPECT_STREQ(last->e.name, "q");
    EXPECT_NE(uci_lookup_package(context.get(), "p"), nullptr);
    EXPECT_EQ(exported(context, nullptr, true),
              "package p\n\nconfig a\n\npackage q\n\nconfig b\n\n");
}

TEST_F(UciTest, ImportsNoPackageTwice) {
    Context context;
    EXPECT_EQ(import_text(context, "package p\npackage p\n", nullptr, nullptr, false),
              UCI_ERR_DUPLICATE);
}

TEST_F(UciTest, ImportsNothingWithoutAPackageName) {
    Context context;
    EXPECT_EQ(import_text(context, "config a\n", nullptr, nullptr, false), UCI_ERR_PARSE);
    EXPECT_EQ(context.error_text(),
              "Parse error (attempting to import a file without a package name) at line 1, byte 0");
}

TEST_F(UciTest, MergesAnImportAsChanges) {
    write_config("config a 'b'\n\toption o 1\n\toption p 2\n");
    Context context;
    uci_package* package = context.load();
    ASSERT_EQ(
        import_text(context, "config a 'b'\n\toption o 9\n\toption p 2\n\tlist l x\nconfig c\n",
                    "x", &package, true),
        UCI_OK);
    ASSERT_EQ(uci_save(context.get(), package), UCI_OK);
    EXPECT_EQ(staged(), "x.b.o='9'\n|x.b.l='x'\n+x.cfg02b608='c'\n");
}

// ---- arguments ----

std::vector<std::string> arguments(Context& context, FILE* stream, int* error) {
    std::vector<std::string> words;
    char *rest = nullptr, *word = nullptr;
    while ((*error = uci_parse_argument(context.get(), stream, &rest, &word)) == UCI_OK && *word) {
        words.emplace_back(word);
    }
    return words;
}

TEST_F(UciTest, SplitsALineIntoArguments) {
    Context context;
    std::string text = "set  a.b.c='two words' \"x\\\"y\" it\\'s # comment\n'two\nlines' z\n\n";
    FILE* stream = fmemopen(text.data(), text.size(), "r");
    int error = UCI_OK;
    EXPECT_THAT(arguments(context, stream, &error),
                ElementsAre("set", "a.b.c=two words", "x\"y", "it's"));
    EXPECT_THAT(arguments(context, stream, &error), ElementsAre("two\nlines", "z"));
    EXPECT_THAT(arguments(context, stream, &error), IsEmpty());
    EXPECT_EQ(error, UCI_OK);
    fclose(stream);
}

TEST_F(UciTest, RefusesAnUnterminatedArgument) {
    Context context;
    std::string text = "a 'b\n";
    FILE* stream = fmemopen(text.data(), text.size(), "r");
    int error = UCI_OK;
    EXPECT_THAT(arguments(context, stream, &error), ElementsAre("a"));
    EXPECT_EQ(error, UCI_ERR_PARSE);
    EXPECT_EQ(context.error_text(), "Parse error (EOF with unterminated ') at line 1, byte 5");
    fclose(stream);
}

TEST_F(UciTest, TellsTextFromControlBytes) {
    EXPECT_TRUE(uci_validate_text(""));
    EXPECT_TRUE(uci_validate_text("a\tb\r\n\xff"));
    EXPECT_FALSE(uci_validate_text("a\x01"));
    EXPECT_FALSE(uci_validate_text("\x1b["));
}

// ---- looking up ----

class UciLookup : public UciTest {
  protected:
    UciLookup() {
        write_config(
            "config a\n\toption o first\nconfig t 'b'\n\toption o val\n\tlist l 1\n\tlist l 2\n"
            "config a 'q'\n\toption o last\n");
    }
    Context context_;
};

TEST_F(UciLookup, FindsPackagesSectionsAndOptions) {
    const Path package(context_, "x"), section(context_, "x.b"), option(context_, "x.b.o=v");
    EXPECT_TRUE(package.complete() && section.complete() && option.complete());
    EXPECT_EQ(package.ptr.target, UCI_TYPE_PACKAGE);
    EXPECT_EQ(section.ptr.target, UCI_TYPE_SECTION);
    EXPECT_EQ(option.ptr.target, UCI_TYPE_OPTION);
    EXPECT_EQ(package.ptr.last, &package.ptr.p->e);
    EXPECT_EQ(section.ptr.last, &section.ptr.s->e);
    EXPECT_EQ(option.ptr.last, &option.ptr.o->e);
    EXPECT_STREQ(option.ptr.value, "v");
    EXPECT_EQ(value_of(option.ptr.o), "val");
}

TEST_F(UciLookup, CountsSectionsOfATypeFromEitherEnd) {
    EXPECT_EQ(value_at(context_, "x.@a[0].o"), "first");
    EXPECT_EQ(value_at(context_, "x.@a[1].o"), "last");
    EXPECT_EQ(value_at(context_, "x.@a[-1].o"), "last");
    EXPECT_EQ(value_at(context_, "x.@a[-2].o"), "first");
    EXPECT_EQ(value_at(context_, "x.@[1].o"), "val");
    EXPECT_EQ(value_at(context_, "x.@a[].o"), "first");
    EXPECT_EQ(value_at(context_, "x.@a[010].o"), "(none)");
    EXPECT_EQ(value_at(context_, "x.@a[01].o"), "last");
}

TEST_F(UciLookup, LeavesWhatIsMissingIncomplete) {
    for (const char* text :
         {"x.b.nope", "x.nope", "x.nope.o", "x.@a[2]", "x.@a[-3].o", "x.@z[0]"}) {
        const Path path(context_, text);
        EXPECT_EQ(path.error, UCI_OK) << text;
        EXPECT_FALSE(path.complete()) << text;
    }
    EXPECT_EQ(Path(context_, "nope.b").error, UCI_ERR_NOTFOUND);
}

TEST_F(UciLookup, RefusesMalformedPaths) {
    for (const char* text : {"", ".b", "=v", "x.b.o.p", "x.b.o-p", "x.b.", "x y.b", "x.b.o=\x01"}) {
        EXPECT_EQ(Path(context_, text).error, UCI_ERR_PARSE) << text;
    }
    for (const char* text : {"x.", "x..o", "x.b-c", "x.@a", "x.@a[0", "x.@a[z]", "x.@a[0]z",
                             "x.@a b[0]", "x.@\xe9[0]", "x.@\x7f[0]"}) {
        EXPECT_EQ(Path(context_, text).error, UCI_ERR_INVAL) << text;
    }
}

TEST_F(UciLookup, TakesTheExtendedSyntaxOnlyWhereAllowed) {
    std::string text = "x.@a[0]";
    uci_ptr ptr = {};
    EXPECT_EQ(uci_lookup_ptr(context_.get(), &ptr, text.data(), false), UCI_ERR_INVAL);
}

TEST_F(UciLookup, FindsOptionsOfAKind) {
    const Path path(context_, "x.b");
    const uci_parse_option wanted[] = {
        {"l", UCI_TYPE_LIST}, {"o", UCI_TYPE_STRING}, {"l", UCI_TYPE_STRING}};
    uci_option* found[3] = {};
    uci_parse_section(path.ptr.s, wanted, 3, found);
    EXPECT_EQ(value_of(found[0]), "[1][2]");
    EXPECT_EQ(value_of(found[1]), "val");
    EXPECT_EQ(found[2], nullptr);
    const uint32_t before = uci_hash_options(found, 3);
    ASSERT_EQ(change(context_, uci_set, "x.b.o=other"), UCI_OK);
    uci_parse_section(path.ptr.s, wanted, 3, found);
    EXPECT_NE(uci_hash_options(found, 3), before);
}

TEST_F(UciLookup, LoadsAFileByItsAbsolutePath) {
    write_file("/tmp/elsewhere", "config a 'b'\n\toption o 1\n");
    uci_package* package = context_.load("/tmp/elsewhere");
    ASSERT_NE(package, nullptr);
    EXPECT_STREQ(package->e.name, "elsewhere");
    EXPECT_FALSE(package->has_delta);
}

TEST_F(UciLookup, FindsWhatIsInAFileByItsAbsolutePath) {
    write_file("/tmp/else-where!", "config a 'b'\n\toption o 1\n");
    EXPECT_EQ(value_at(context_, "/tmp/else-where!.b.o"), "1");
}

TEST_F(UciLookup, LoadsNothingByAnotherKindOfName) {
    write_config("", ".hidden");
    write_config("", "two words");
    uci_package* package = nullptr;
    for (const char* name : {".hidden", "./x", "../config/x", "config/x", "/tmp", "nope"})
        EXPECT_EQ(uci_load(context_.get(), name, &package), UCI_ERR_NOTFOUND) << name;
    for (const char* name : {"", "two words", "/tmp/two words", "x\x7f"})
        EXPECT_EQ(uci_load(context_.get(), name, &package), UCI_ERR_INVAL) << name;
    EXPECT_EQ(package, nullptr);
}

TEST_F(UciLookup, LeavesThePackageAsItIsWhereThereIsNone) {
    uci_package* package = context_.load();
    uci_package* const before = package;
    ASSERT_NE(before, nullptr);
    EXPECT_EQ(uci_load(context_.get(), "nope", &package), UCI_ERR_NOTFOUND);
    EXPECT_EQ(package, before);
}

TEST_F(UciLookup, PrefersTheOverridingDirectory) {
    write_file("/tmp/uci/over/x", "config a 'over'\n");
    uci_set_conf2dir(context_.get(), "/tmp/uci/over");
    uci_package* package = context_.load();
    ASSERT_NE(package, nullptr);
    EXPECT_TRUE(package->uses_conf2);
    EXPECT_THAT(section_names(package), ElementsAre("over"));
}

TEST_F(UciLookup, LoadsNothingTwice) {
    ASSERT_NE(context_.load(), nullptr);
    uci_package* again = nullptr;
    EXPECT_EQ(uci_load(context_.get(), "x", &again), UCI_ERR_DUPLICATE);
}

TEST_F(UciLookup, ListsConfigurationFilesInOrder) {
    for (const char* name : {"z", "A", "b-c", "d.e", ".hidden"})
        write_config("", name);
    std::filesystem::create_directory(config_path("directory"));
    char** list = nullptr;
    ASSERT_EQ(uci_list_configs(context_.get(), &list), UCI_OK);
    std::vector<std::string> names;
    for (char** name = list; *name; ++name)
        names.emplace_back(*name);
    free(list);
    EXPECT_THAT(names, ElementsAre("A", "b-c", "x", "z"));
}

// ---- changing ----

class UciChange : public UciLookup {
  protected:
    UciChange() : package_(context_.load()) {}

    // What the change stages.
    std::string stage(Change function, const std::string& text) {
        EXPECT_EQ(change(context_, function, text), UCI_OK) << text;
        EXPECT_EQ(uci_save(context_.get(), package_), UCI_OK);
        std::string lines = staged();
        EXPECT_TRUE(truncate(staged_path("x").c_str(), 0) == 0 || lines.empty());
        return lines;
    }

    uci_package* package_;
};

TEST_F(UciChange, StagesWhatIsSet) {
    EXPECT_EQ(stage(uci_set, "x.b.o=new"), "x.b.o='new'\n");
    EXPECT_EQ(stage(uci_set, "x.b.n=it's"), "x.b.n='it'\\''s'\n");
    EXPECT_EQ(stage(uci_set, "x.b.l=one"), "x.b.l='one'\n");
    EXPECT_EQ(stage(uci_set, "x.@a[0].o=1"), "x.cfg01b606.o='1'\n");
    EXPECT_EQ(stage(uci_set, "x.n=t"), "x.n='t'\n");
    EXPECT_EQ(stage(uci_set, "x.b=other"), "x.b='other'\n");
    EXPECT_EQ(exported(context_, package_),
              "\nconfig a\n\toption o '1'\n\nconfig other 'b'\n\toption o 'new'\n\toption l 'one'\n"
              "\toption n 'it'\\''s'\n\nconfig a 'q'\n\toption o 'last'\n\nconfig t 'n'\n\n");
}

TEST_F(UciChange, StagesNothingThatIsEqual) {
    EXPECT_EQ(stage(uci_set, "x.b.o=val"), "");
    EXPECT_EQ(stage(uci_set, "x.b=t"), "");
    EXPECT_EQ(stage(uci_set, "x.b.nope="), "");
    EXPECT_EQ(stage(uci_del_list, "x.b.nope=1"), "");
    EXPECT_EQ(stage(uci_del_list, "x.b.o=val"), "");
}

TEST_F(UciChange, PointsToWhatItSets) {
    Path created(context_, "x.b.new=1"), section(context_, "x.n=t");
    ASSERT_EQ(uci_set(context_.get(), &created.ptr), UCI_OK);
    ASSERT_EQ(uci_set(context_.get(), &section.ptr), UCI_OK);
    ASSERT_NE(created.ptr.o, nullptr);
    EXPECT_EQ(created.ptr.last, &created.ptr.o->e);
    EXPECT_EQ(section.ptr.last, &section.ptr.s->e);
}

TEST_F(UciChange, KeepsAnOptionsAddressWhenItsValueChanges) {
    const Path path(context_, "x.b.o");
    ASSERT_EQ(change(context_, uci_set, "x.b.o=something longer"), UCI_OK);
    ASSERT_EQ(change(context_, uci_add_list, "x.b.o=item"), UCI_OK);
    ASSERT_EQ(change(context_, uci_set, "x.b.o=s"), UCI_OK);
    EXPECT_EQ(value_of(path.ptr.o), "s");
}

TEST_F(UciChange, SetsThroughAPointerFilledByHand) {
    uci_ptr ptr = {};
    ptr.p = package_;
    ptr.package = package_->e.name;
    ptr.s = uci_lookup_section(context_.get(), package_, "b");
    ptr.section = ptr.s->e.name;
    ptr.option = "o";
    ptr.value = "by hand";
    ASSERT_EQ(uci_set(context_.get(), &ptr), UCI_OK);
    EXPECT_STREQ(uci_lookup_option_string(context_.get(), ptr.s, "o"), "by hand");
}

TEST_F(UciChange, DeletesByAnEmptyValue) {
    EXPECT_EQ(stage(uci_set, "x.b.o="), "-x.b.o\n");
    EXPECT_EQ(stage(uci_set, "x.b="), "-x.b\n");
    EXPECT_THAT(section_names(package_), ElementsAre("cfg01b606", "q"));
}

TEST_F(UciChange, RefusesToSetWhatHasNoPlace) {
    EXPECT_EQ(change(context_, uci_set, "x=v"), UCI_ERR_INVAL);
    EXPECT_EQ(change(context_, uci_set, "x.b.o"), UCI_ERR_INVAL);
    EXPECT_EQ(change(context_, uci_set, "x.nope.o=1"), UCI_ERR_INVAL);
    EXPECT_EQ(change(context_, uci_set, "x.b=two words"), UCI_ERR_INVAL);
    EXPECT_EQ(change(context_, uci_add_list, "x.b.o"), UCI_ERR_INVAL);
    EXPECT_EQ(change(context_, uci_add_list, "x.nope.o=1"), UCI_ERR_INVAL);
    EXPECT_EQ(change(context_, uci_del_list, "x.b.l"), UCI_ERR_INVAL);
}

TEST_F(UciChange, AddsAndRemovesItems) {
    EXPECT_EQ(stage(uci_add_list, "x.b.l=2"), "|x.b.l='2'\n");
    EXPECT_EQ(stage(uci_add_list, "x.b.o=more"), "|x.b.o='more'\n");
    EXPECT_EQ(stage(uci_add_list, "x.b.n=only"), "|x.b.n='only'\n");
    EXPECT_EQ(stage(uci_add_list, "x.b.n="), "|x.b.n=''\n");
    EXPECT_EQ(stage(uci_del_list, "x.b.l=2"), "~x.b.l='2'\n");
    EXPECT_EQ(value_at(context_, "x.b.l"), "[1]");
    EXPECT_EQ(value_at(context_, "x.b.o"), "[val][more]");
    EXPECT_EQ(value_at(context_, "x.b.n"), "[only][]");
}

TEST_F(UciChange, DeletesOptionsSectionsAndItems) {
    EXPECT_EQ(stage(uci_delete, "x.b.l=1"), "-x.b.l='1'\n");
    EXPECT_EQ(value_at(context_, "x.b.l"), "[1]");
    EXPECT_EQ(stage(uci_delete, "x.b.l=7"), "");
    EXPECT_EQ(stage(uci_delete, "x.b.l=-1"), "");
    EXPECT_EQ(change(context_, uci_delete, "x.b.l=first"), UCI_ERR_INVAL);
    EXPECT_EQ(stage(uci_delete, "x.b.o=0"), "-x.b.o\n");
    EXPECT_EQ(stage(uci_delete, "x.@a[0]"), "-x.cfg01b606\n");
    EXPECT_EQ(stage(uci_delete, "x.b"), "-x.b\n");
    EXPECT_EQ(change(context_, uci_delete, "x.b"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(change(context_, uci_delete, "x.q.nope"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(change(context_, uci_delete, "x"), UCI_ERR_INVAL);
}

TEST_F(UciChange, Renames) {
    EXPECT_EQ(stage(uci_rename, "x.b.o=p"), "@x.b.o='p'\n");
    EXPECT_EQ(stage(uci_rename, "x.b=c"), "@x.b='c'\n");
    EXPECT_EQ(stage(uci_rename, "x.@a[0]=named"), "@x.cfg01b606='named'\n");
    EXPECT_EQ(value_at(context_, "x.c.p"), "val");
    EXPECT_FALSE(uci_lookup_section(context_.get(), package_, "named")->anonymous);
    EXPECT_EQ(change(context_, uci_rename, "x.c"), UCI_ERR_INVAL);
    EXPECT_EQ(change(context_, uci_rename, "x=y"), UCI_ERR_INVAL);
    EXPECT_EQ(change(context_, uci_rename, "x.nope=y"), UCI_ERR_NOTFOUND);
}

TEST_F(UciChange, MovesSections) {
    uci_section* section = uci_lookup_section(context_.get(), package_, "b");
    ASSERT_EQ(uci_reorder_section(context_.get(), section, 1), UCI_OK);
    EXPECT_TRUE(uci_list_empty(&package_->delta));
    ASSERT_EQ(uci_reorder_section(context_.get(), section, 0), UCI_OK);
    EXPECT_THAT(section_names(package_), ElementsAre("b", "cfg01b606", "q"));
    ASSERT_EQ(uci_reorder_section(context_.get(), section, 99), UCI_OK);
    EXPECT_THAT(section_names(package_), ElementsAre("cfg01b606", "q", "b"));
    ASSERT_EQ(uci_save(context_.get(), package_), UCI_OK);
    EXPECT_EQ(staged(), "^x.b='0'\n^x.b='99'\n");
}

TEST_F(UciChange, AddsSectionsWithoutAName) {
    uci_section* section = nullptr;
    ASSERT_EQ(uci_add_section(context_.get(), package_, "foo", &section), UCI_OK);
    EXPECT_STREQ(section->e.name, "cfg047389");
    EXPECT_TRUE(section->anonymous);
    ASSERT_EQ(uci_save(context_.get(), package_), UCI_OK);
    EXPECT_EQ(staged(), "+x.cfg047389='foo'\n");
}

TEST_F(UciChange, NamesASectionWhoseTypeChangesInLength) {
    ASSERT_EQ(change(context_, uci_set, "x.@a[0]=z"), UCI_OK);
    EXPECT_TRUE(uci_lookup_section(context_.get(), package_, "cfg01b606")->anonymous);
    ASSERT_EQ(change(context_, uci_set, "x.@z[0]=longer"), UCI_OK);
    EXPECT_FALSE(uci_lookup_section(context_.get(), package_, "cfg01b606")->anonymous);
}

// ---- staged changes ----

class UciStaged : public UciLookup {
  protected:
    static void stage(std::string_view lines) { write_file(staged_path("x"), lines); }
};

TEST_F(UciStaged, AreAppliedByEveryLoad) {
    stage(
        "x.b.o='new'\n-x.b.l='0'\n+x.cfg047389='foo'\nx.cfg047389.n='1'\n|x.b.l='3'\n~x.b.l='2'\n"
        "@x.q='renamed'\n^x.renamed='0'\n-x.cfg01b606.o\n");
    EXPECT_EQ(normal_form(),
              "\nconfig a 'renamed'\n\toption o 'last'\n\nconfig a\n\nconfig t 'b'\n"
              "\toption o 'new'\n\tlist l '3'\n\nconfig foo\n\toption n '1'\n\n");
}

TEST_F(UciStaged, ArePassedOverWhereTheyMakeNoSense) {
    stage(
        "garbage\nx.b.o\nx.b\n+x.b\n-x.nope\ny.b.o=1\nx.@a[0].o=1\nx.b.o=two words\n@x.b='b-c'\n"
        "^x.b.o='1'\n|x.b='1'\n# comment\n\nx.b.p='kept'\nx.b.q='unterminated\n");
    Context context;
    uci_package* package = context.load();
    ASSERT_NE(package, nullptr);
    EXPECT_EQ(value_at(context, "x.b.o"), "val");
    EXPECT_EQ(value_at(context, "x.b.p"), "kept");
    EXPECT_EQ(value_at(context, "x.b.q"), "(none)");
}

TEST_F(UciStaged, AreKeptInMemoryForWhoShowsThem) {
    stage("x.b.o='new'\n-x.q\n");
    uci_package* package = context_.load();
    ASSERT_NE(package, nullptr);
    const uci_delta* first = uci_to_delta(list_to_element(package->saved_delta.next));
    EXPECT_EQ(first->cmd, UCI_CMD_CHANGE);
    EXPECT_STREQ(first->section, "b");
    EXPECT_STREQ(first->e.name, "o");
    EXPECT_STREQ(first->value, "new");
    const uci_delta* second = uci_to_delta(list_to_element(first->e.list.next));
    EXPECT_EQ(second->cmd, UCI_CMD_REMOVE);
    EXPECT_EQ(second->e.name, nullptr);
    EXPECT_EQ(second->value, nullptr);
}

TEST_F(UciStaged, AreFoundInFurtherDirectoriesBeforeTheirOwn) {
    stage("x.b.o='last word'\n");
    write_file("/tmp/uci/more/x", "x.b.o='overruled'\nx.b.p='seen'\n");
    ASSERT_EQ(uci_add_delta_path(context_.get(), "/tmp/uci/more"), UCI_OK);
    EXPECT_EQ(uci_add_delta_path(context_.get(), "/tmp/uci/more"), UCI_ERR_DUPLICATE);
    EXPECT_EQ(uci_add_delta_path(context_.get(), kStaged), UCI_ERR_DUPLICATE);
    ASSERT_NE(context_.load(), nullptr);
    EXPECT_EQ(value_at(context_, "x.b.o"), "last word");
    EXPECT_EQ(value_at(context_, "x.b.p"), "seen");
}

TEST_F(UciStaged, AreAppendedInANewDirectory) {
    std::filesystem::remove_all(kStaged);
    uci_package* package = context_.load();
    ASSERT_EQ(change(context_, uci_set, "x.b.o=1"), UCI_OK);
    ASSERT_EQ(uci_save(context_.get(), package), UCI_OK);
    ASSERT_EQ(change(context_, uci_set, "x.b.o=2"), UCI_OK);
    ASSERT_EQ(uci_save(context_.get(), package), UCI_OK);
    ASSERT_EQ(uci_save(context_.get(), package), UCI_OK);
    EXPECT_EQ(staged(), "x.b.o='1'\nx.b.o='2'\n");
}

TEST_F(UciStaged, AreRevertedByOptionSectionAndPackage) {
    const std::string lines = "x.b.o='1'\nx.b.p='it'\\''s\nlong'\nx.q.o='2'\n-x.cfg01b606\n";
    const auto after = [&](const char* path) {
        stage(lines);
        Context context;
        EXPECT_EQ(change(context, uci_revert, path), UCI_OK);
        return staged();
    };
    EXPECT_EQ(after("x.b.o"), "x.b.p='it'\\''s\nlong'\nx.q.o='2'\n-x.cfg01b606\n");
    EXPECT_EQ(after("x.b"), "x.q.o='2'\n-x.cfg01b606\n");
    EXPECT_EQ(after("x.nope"), lines);
    EXPECT_EQ(after("x"), "");
}

TEST_F(UciStaged, AreForgottenInMemoryByARevert) {
    context_.load();
    ASSERT_EQ(change(context_, uci_set, "x.b.o=unsaved"), UCI_OK);
    Path path(context_, "x.b");
    ASSERT_EQ(uci_revert(context_.get(), &path.ptr), UCI_OK);
    ASSERT_NE(path.ptr.p, nullptr);
    EXPECT_EQ(value_at(context_, "x.b.o"), "val");
}

// ---- commits ----

class UciCommit : public UciLookup {};

TEST_F(UciCommit, ReplacesTheFileAndClearsTheChanges) {
    uci_package* package = context_.load();
    ASSERT_EQ(change(context_, uci_set, "x.b.o=new"), UCI_OK);
    ASSERT_EQ(save_and_commit(context_, package), UCI_OK);
    EXPECT_THAT(read_file(config_path("x")), HasSubstr("\toption o 'new'\n"));
    EXPECT_EQ(staged(), "");
    EXPECT_THAT(names_in(kConfig), ElementsAre("x"));
}

TEST_F(UciCommit, SavesWhatIsUnsaved) {
    uci_package* package = context_.load();
    ASSERT_EQ(change(context_, uci_set, "x.b.o=new"), UCI_OK);
    ASSERT_EQ(uci_commit(context_.get(), &package, false), UCI_OK);
    EXPECT_THAT(read_file(config_path("x")), HasSubstr("\toption o 'new'\n"));
    EXPECT_EQ(package, uci_lookup_package(context_.get(), "x"));
    EXPECT_EQ(value_at(context_, "x.b.o"), "new");
}

TEST_F(UciCommit, LeavesTheFileAloneWithoutChanges) {
    const std::string before = read_file(config_path("x"));
    uci_package* package = context_.load();
    ASSERT_EQ(uci_commit(context_.get(), &package, false), UCI_OK);
    ASSERT_EQ(uci_commit(context_.get(), &package, true), UCI_OK);
    EXPECT_EQ(read_file(config_path("x")), before);
}

TEST_F(UciCommit, KeepsWhatOthersCommittedMeanwhile) {
    uci_package* package = context_.load();
    ASSERT_EQ(change(context_, uci_set, "x.b.o=mine"), UCI_OK);
    ASSERT_EQ(uci_save(context_.get(), package), UCI_OK);
    write_config("config t 'b'\n\toption o theirs\n\toption p theirs\n");
    ASSERT_EQ(uci_commit(context_.get(), &package, false), UCI_OK);
    EXPECT_EQ(read_file(config_path("x")),
              "\nconfig t 'b'\n\toption o 'mine'\n\toption p 'theirs'\n\n");
}

TEST_F(UciCommit, OverwritesWhatOthersCommittedWhereAsked) {
    uci_package* package = context_.load();
    uci_section* section = nullptr;
    ASSERT_EQ(uci_add_section(context_.get(), package, "foo", &section), UCI_OK);
    ASSERT_EQ(uci_save(context_.get(), package), UCI_OK);
    write_config("config lost\n");
    ASSERT_EQ(uci_commit(context_.get(), &package, true), UCI_OK);
    EXPECT_EQ(read_file(config_path("x")),
              "\nconfig a\n\toption o 'first'\n\nconfig t 'b'\n\toption o 'val'\n\tlist l '1'\n"
              "\tlist l '2'\n\nconfig a 'q'\n\toption o 'last'\n\nconfig foo\n\n");
    EXPECT_EQ(staged(), "");
}

TEST_F(UciCommit, IsWhatASaveDoesWithAFileLoadedByItsPath) {
    write_file("/tmp/elsewhere", "config a 'b'\n");
    ASSERT_EQ(change(context_, uci_set, "/tmp/elsewhere.b.o=1"), UCI_OK);
    ASSERT_EQ(uci_save(context_.get(), uci_lookup_package(context_.get(), "elsewhere")), UCI_OK);
    EXPECT_EQ(read_file("/tmp/elsewhere"), "\nconfig a 'b'\n\toption o '1'\n\n");
    EXPECT_EQ(staged("elsewhere"), "");
}

TEST_F(UciCommit, WritesAnImportedPackageAsANewFile) {
    uci_package* package = nullptr;
    ASSERT_EQ(import_text(context_, "config a 'b'\n", "new", &package, true), UCI_OK);
    EXPECT_EQ(uci_save(context_.get(), package), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(context_.get(), &package, false), UCI_ERR_INVAL);
    ASSERT_EQ(uci_commit(context_.get(), &package, true), UCI_OK);
    EXPECT_EQ(read_file(config_path("new")), "\nconfig a 'b'\n\n");
    EXPECT_EQ(std::filesystem::status(config_path("new")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(UciCommit, KeepsTheFilesModeAndOwner) {
    for (const mode_t mode : {0U, 0640U}) {
        ASSERT_EQ(chmod(config_path("x").c_str(), mode), 0);
        ASSERT_EQ(chown(config_path("x").c_str(), 1, 2), 0);
        Context context;
        uci_package* package = context.load();
        ASSERT_EQ(change(context, uci_set, "x.b.o=" + std::to_string(mode)), UCI_OK);
        ASSERT_EQ(save_and_commit(context, package), UCI_OK);
        struct stat status = {};
        ASSERT_EQ(stat(config_path("x").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode);
        EXPECT_EQ(status.st_uid, 1U);
        EXPECT_EQ(status.st_gid, 2U);
    }
}

TEST_F(UciCommit, ReplacesWhatASymbolicLinkNames) {
    std::filesystem::create_directory("/tmp/uci/real");
    std::filesystem::rename(config_path("x"), "/tmp/uci/real/file");
    std::filesystem::create_symlink("/tmp/uci/real/file", config_path("x"));
    uci_package* package = context_.load();
    ASSERT_EQ(change(context_, uci_set, "x.b.o=new"), UCI_OK);
    ASSERT_EQ(save_and_commit(context_, package), UCI_OK);
    EXPECT_TRUE(std::filesystem::is_symlink(config_path("x")));
    EXPECT_THAT(read_file("/tmp/uci/real/file"), HasSubstr("\toption o 'new'\n"));
    EXPECT_THAT(names_in("/tmp/uci/real"), ElementsAre("file"));
}

// ---- failures: the old file and the staged changes stay, and nothing else ----

class UciFailure : public UciLookup {
  protected:
    UciFailure() : before_(read_file(config_path("x"))) {
        write_file(staged_path("x"), kChange);
        package_ = context_.load();
    }

    void expect_nothing_lost() {
        EXPECT_EQ(read_file(config_path("x")), before_);
        EXPECT_EQ(staged(), kChange);
        for (const std::string& name : names_in(kConfig)) {
            EXPECT_EQ(name.find(".uci-"), std::string::npos) << name;
        }
        EXPECT_EQ(package_, uci_lookup_package(context_.get(), "x"));
        EXPECT_EQ(value_at(context_, "x.b.o"), "new");
    }

    // The next attempt succeeds.
    void expect_recovery() {
        ASSERT_EQ(uci_commit(context_.get(), &package_, false), UCI_OK);
        EXPECT_THAT(read_file(config_path("x")), HasSubstr("\toption o 'new'\n"));
        EXPECT_EQ(staged(), "");
    }

    static constexpr const char* kChange = "x.b.o='new'\n";
    std::string before_;
    uci_package* package_ = nullptr;
};

class UciFailingCommit : public UciFailure, public testing::WithParamInterface<const char*> {};

TEST_P(UciFailingCommit, LosesNothing) {
    {
        const Fail fail(GetParam(), 1, EIO);
        EXPECT_EQ(uci_commit(context_.get(), &package_, false), UCI_ERR_IO);
        EXPECT_TRUE(fail.fired());
    }
    expect_nothing_lost();
    expect_recovery();
}

INSTANTIATE_TEST_SUITE_P(Call, UciFailingCommit,
                         testing::Values("open", "flock", "fsync", "rename"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(UciFailure, FullDiskLosesNothing) {
    {
        const FullDisk full(kConfig);
        EXPECT_EQ(uci_commit(context_.get(), &package_, false), UCI_ERR_IO);
        expect_nothing_lost();
    }
    expect_recovery();
}

TEST_F(UciFailure, ReadOnlyDirectoryLosesNothing) {
    {
        const ReadOnly locked(kConfig);
        EXPECT_EQ(uci_commit(context_.get(), &package_, false), UCI_ERR_IO);
        EXPECT_EQ(read_file(config_path("x")), before_);
        EXPECT_EQ(staged(), kChange);
    }
}

TEST_F(UciFailure, FileSizeLimitLosesNothing) {
    rlimit old = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    const auto old_handler = signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {16, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const int error = uci_commit(context_.get(), &package_, false);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
    signal(SIGXFSZ, old_handler);
    EXPECT_EQ(error, UCI_ERR_IO);
    expect_nothing_lost();
    expect_recovery();
}

TEST_F(UciFailure, FailedImportLeavesNoEmptyFile) {
    uci_package* package = nullptr;
    ASSERT_EQ(import_text(context_, "config a 'b'\n", "new", &package, true), UCI_OK);
    {
        const Fail fail("fsync", 1, EIO);
        EXPECT_EQ(uci_commit(context_.get(), &package, true), UCI_ERR_IO);
    }
    EXPECT_FALSE(exists(config_path("new")));
    EXPECT_EQ(uci_commit(context_.get(), &package, true), UCI_OK);
    EXPECT_TRUE(exists(config_path("new")));
}

TEST_F(UciFailure, FailedCommitKeepsWhatAnotherHasMadeMeanwhile) {
    uci_package* package = nullptr;
    ASSERT_EQ(import_text(context_, "config a 'b'\n", "new", &package, true), UCI_OK);
    write_config("config of another\n", "new");
    {
        const Fail absent("access", 1, ENOENT);
        const Fail fail("fsync", 1, EIO);
        EXPECT_EQ(uci_commit(context_.get(), &package, true), UCI_ERR_IO);
        EXPECT_TRUE(absent.fired());
    }
    EXPECT_EQ(read_file(config_path("new")), "config of another\n");
}

TEST_F(UciFailure, FailedSaveKeepsTheChangesInMemory) {
    const std::string value(65536, 'v');
    ASSERT_EQ(change(context_, uci_set, "x.b.p=" + value), UCI_OK);
    {
        const FullDisk full(kStaged);
        EXPECT_EQ(uci_save(context_.get(), package_), UCI_ERR_IO);
        EXPECT_EQ(staged(), kChange);
    }
    ASSERT_EQ(uci_save(context_.get(), package_), UCI_OK);
    EXPECT_EQ(staged(), "x.b.o='new'\nx.b.p='" + value + "'\n");
}

// Looks up, changes and commits; allocates nothing but what the library does.
int look_up_change_and_commit() {
    const std::unique_ptr<uci_context, decltype(&uci_free_context)> context(uci_alloc_context(),
                                                                            uci_free_context);
    if (!context) return UCI_ERR_MEM;
    uci_context* ctx = context.get();
    char path[] = "x.b.p=1", list_path[] = "x.b.l=3", type_path[] = "x.q=longer",
         rename_path[] = "x.b.o=renamed";
    uci_ptr ptr = {};
    uci_section* section = nullptr;
    int error = uci_set_confdir(ctx, kConfig);
    if (!error) error = uci_set_savedir(ctx, kStaged);
    if (!error) error = uci_lookup_ptr(ctx, &ptr, path, true);
    if (!error) error = uci_set(ctx, &ptr);
    if (!error) error = uci_add_list(ctx, &ptr);
    if (!error) error = uci_lookup_ptr(ctx, &ptr, rename_path, true);
    if (!error) error = uci_rename(ctx, &ptr);
    if (!error) error = uci_lookup_ptr(ctx, &ptr, list_path, true);
    if (!error) error = uci_add_list(ctx, &ptr);
    if (!error) error = uci_del_list(ctx, &ptr);
    if (!error) error = uci_lookup_ptr(ctx, &ptr, type_path, true);
    if (!error) error = uci_set(ctx, &ptr);
    if (!error) error = uci_add_section(ctx, ptr.p, "t", &section);
    if (!error) error = uci_commit(ctx, &ptr.p, false);
    return error;
}

class UciAllocation : public UciFailure, public testing::WithParamInterface<const char*> {};

TEST_P(UciAllocation, ThatFailsIsToldAndLosesNothing) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    ASSERT_EQ(look_up_change_and_commit(), UCI_OK);
    const std::string after = read_file(config_path("x"));
    unsigned failures = 0;
    for (bool fired = true; fired; ++failures) {
        write_config(before_);
        write_file(staged_path("x"), kChange);
        int error = UCI_OK;
        {
            const Fail fail(GetParam(), failures + 1, ENOMEM);
            error = look_up_change_and_commit();
            fired = fail.fired();
        }
        // The C library does without a stream's buffer; the result is then as complete as ever.
        EXPECT_THAT(error, AnyOf(UCI_OK, UCI_ERR_MEM)) << failures;
        const std::string content = read_file(config_path("x"));
        EXPECT_THAT(content, AnyOf(before_, after)) << failures;
        EXPECT_TRUE(error || content == after) << failures;
        // What is staged is cleared only once the file is replaced, and may have grown before.
        EXPECT_TRUE(content == after || staged().starts_with(kChange)) << failures;
        EXPECT_THAT(names_in(kConfig), ElementsAre("x"));
    }
    EXPECT_GT(failures, 1U);
}

INSTANTIATE_TEST_SUITE_P(Call, UciAllocation, testing::Values("malloc", "calloc", "realloc"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(UciTest, RefusesNullArguments) {
    Context context;
    uci_context* ctx = context.get();
    uci_package* package = nullptr;
    EXPECT_EQ(uci_load(nullptr, "x", &package), UCI_ERR_INVAL);
    EXPECT_EQ(uci_load(ctx, nullptr, &package), UCI_ERR_INVAL);
    EXPECT_EQ(uci_unload(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_save(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(ctx, &package, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_ptr(ctx, nullptr, nullptr, true), UCI_ERR_INVAL);
    EXPECT_EQ(uci_import(ctx, nullptr, "x", nullptr, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_export(ctx, nullptr, nullptr, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_list_configs(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_confdir(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_savedir(ctx, nullptr), UCI_ERR_INVAL);
    uci_free_context(nullptr);
}

TEST_F(UciTest, DescribesErrors) {
    Context context;
    EXPECT_EQ(context.error_text(), "Success");
    uci_package* package = nullptr;
    EXPECT_EQ(uci_load(context.get(), "nope", &package), UCI_ERR_NOTFOUND);
    EXPECT_EQ(package, nullptr);
    char* text = nullptr;
    uci_get_errorstr(context.get(), &text, "program");
    EXPECT_STREQ(text, "program: Entry not found");
    free(text);
}

TEST_F(UciTest, ForgetsTheLastErrorsPlace) {
    write_config("bad\n");
    Context context;
    EXPECT_EQ(context.load(), nullptr);
    EXPECT_EQ(context.error_text(), "Parse error (invalid command) at line 1, byte 0");
    EXPECT_EQ(Path(context, "a.b.c.d").error, UCI_ERR_PARSE);
    EXPECT_EQ(context.error_text(), "Parse error");
}

// ---- several processes ----

pid_t in_child(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body() ? 0 : 1);
    return child;
}

bool ended_well(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(UciCommit, LosesNoChangeOfConcurrentProcesses) {
    constexpr int kRounds = 60;
    const auto writer = [](const std::string& option) {
        for (int i = 0; i < kRounds; ++i) {
            Context context;
            uci_package* package = context.load();
            if (!package) return false;
            const std::string text = "x.b." + option + "=" + std::to_string(i);
            if (change(context, uci_add_list, text)) return false;
            if (save_and_commit(context, package)) return false;
        }
        return true;
    };
    const pid_t first = in_child([&] { return writer("first"); });
    const pid_t second = in_child([&] { return writer("second"); });
    EXPECT_TRUE(ended_well(first));
    EXPECT_TRUE(ended_well(second));

    std::string all;
    for (int i = 0; i < kRounds; ++i)
        all += "[" + std::to_string(i) + "]";
    ASSERT_NE(context_.load(), nullptr);
    EXPECT_EQ(value_at(context_, "x.b.first"), all);
    EXPECT_EQ(value_at(context_, "x.b.second"), all);
    EXPECT_EQ(staged(), "");
    EXPECT_THAT(names_in(kConfig), ElementsAre("x"));
}

TEST_F(UciCommit, NeverShowsAPartOfAFile) {
    const std::string tail = "\nconfig end 'end'\n\toption o 'end'\n\n";
    write_config(numbered("config t s", "\n\toption o 1\n", 300) + tail);
    const pid_t writer = in_child([] {
        for (int i = 0; i < 60; ++i) {
            Context context;
            uci_package* package = context.load();
            if (!package || change(context, uci_set, "x.s0.o=" + std::to_string(i + 2)))
                return false;
            if (save_and_commit(context, package)) return false;
        }
        return true;
    });
    int status = 0;
    while (waitpid(writer, &status, WNOHANG) == 0) {
        EXPECT_TRUE(read_file(config_path("x")).ends_with(tail));
    }
    EXPECT_EQ(status, 0);
}

TEST_F(UciCommit, WaitsForWhoeverHoldsTheFile) {
    const int fd = open(config_path("x").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    const pid_t child = in_child([] {
        Context context;
        uci_package* package = context.load();
        return package && value_at(context, "x.b.o") == "written under the lock";
    });
    usleep(50000);
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0);
    const std::string content = "config t 'b'\n\toption o 'written under the lock'\n";
    ASSERT_EQ(ftruncate(fd, 0), 0);
    ASSERT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    // The child has the descriptor, too: closing it here would not unlock.
    flock(fd, LOCK_UN);
    close(fd);
    EXPECT_TRUE(ended_well(child));
}

// Who waits for a file that is replaced meanwhile reads the new one.
TEST_F(UciCommit, ReadsTheReplacementOfWhatItWaitedFor) {
    const int fd = open(config_path("x").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    const pid_t child = in_child([] {
        Context context;
        uci_package* package = context.load();
        return package && value_at(context, "x.b.o") == "replaced";
    });
    usleep(50000);
    write_config("config t 'b'\n\toption o 'replaced'\n", "x.new");
    std::filesystem::rename(config_path("x.new"), config_path("x"));
    // The child has the descriptor, too: closing it here would not unlock.
    flock(fd, LOCK_UN);
    close(fd);
    EXPECT_TRUE(ended_well(child));
}

TEST_F(UciCommit, SurvivesAKillAtAnyTime) {
    for (int delay = 0; delay < 40; ++delay) {
        const pid_t child = in_child([] {
            for (int i = 0;; ++i) {
                Context context;
                uci_package* package = context.load();
                if (!package || change(context, uci_set, "x.b.o=" + std::to_string(i)))
                    return false;
                if (save_and_commit(context, package)) return false;
            }
        });
        usleep(static_cast<useconds_t>(500 + delay * 97));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        Context context;
        ASSERT_NE(context.load(), nullptr) << context.error_text();
        EXPECT_EQ(value_at(context, "x.q.o"), "last");
    }
}

// ---- the command ----

class UciCommand : public UciLookup {
  protected:
    static CommandResult run(const std::string& arguments) {
        return run_command(std::string("uci -c ") + kConfig + " -t " + kStaged + " " + arguments);
    }
};

TEST_F(UciCommand, ShowsAndGets) {
    EXPECT_EQ(run("show x").out,
              "x.@a[0]=a\nx.@a[0].o='first'\nx.b=t\nx.b.o='val'\nx.b.l='1' '2'\nx.q=a\n"
              "x.q.o='last'\n");
    EXPECT_EQ(run("-X show x.@a[0]").out, "x.cfg01b606=a\nx.cfg01b606.o='first'\n");
    EXPECT_EQ(run("-d , get x.b.l").out, "1,2\n");
    EXPECT_EQ(run("get x.b").out, "t\n");
    const CommandResult missing = run("get x.b.nope");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "uci: Entry not found\n");
    EXPECT_EQ(run("-q get x.b.nope").err, "");
}

TEST_F(UciCommand, ChangesAndCommits) {
    EXPECT_EQ(run("add x foo").out, "cfg047389\n");
    EXPECT_EQ(run("set x.@foo[-1].o='two words'").status, 0);
    EXPECT_EQ(run("add_list x.b.l=3").status, 0);
    EXPECT_EQ(run("del_list x.b.l=1").status, 0);
    EXPECT_EQ(run("delete x.b.o").status, 0);
    EXPECT_EQ(run("rename x.q=r").status, 0);
    EXPECT_EQ(run("reorder x.r=0").status, 0);
    EXPECT_EQ(run("changes").out,
              "x.cfg047389='foo'\nx.cfg047389.o='two words'\nx.b.l+='3'\nx.b.l-='1'\n-x.b.o\n"
              "x.q='r'\nx.r='0'\n");
    EXPECT_EQ(run("commit").status, 0);
    EXPECT_EQ(read_file(config_path("x")),
              "\nconfig a 'r'\n\toption o 'last'\n\nconfig a\n\toption o 'first'\n\nconfig t 'b'\n"
              "\tlist l '2'\n\tlist l '3'\n\nconfig foo\n\toption o 'two words'\n\n");
    EXPECT_EQ(run("changes").out, "");
}

TEST_F(UciCommand, HasTheFirmwaresSecondCommit) {
    ASSERT_EQ(run("set x.b.o=new").status, 0);
    EXPECT_EQ(run("commit2 x").status, 0);
    EXPECT_THAT(read_file(config_path("x")), HasSubstr("\toption o 'new'\n"));
}

TEST_F(UciCommand, RunsABatch) {
    const CommandResult result =
        run("batch <<'END'\n# a comment\nset x.b.o='two words'\nget x.b.o\nfrob\nget x.nope\n"
            "get a b c\ncommit\nexit\nget x.b\nEND");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "two words\n");
    EXPECT_EQ(result.err, "Unknown command\nuci: Entry not found\nToo many arguments\n");
    EXPECT_THAT(read_file(config_path("x")), HasSubstr("\toption o 'two words'\n"));
}

TEST_F(UciCommand, ImportsAndExports) {
    EXPECT_EQ(run("import new <<'END'\nconfig a b\nEND").status, 0);
    EXPECT_EQ(read_file(config_path("new")), "\nconfig a 'b'\n\n");
    EXPECT_EQ(run("export new").out, "package new\n\nconfig a 'b'\n\n");
    const CommandResult bad = run("import new <<'END'\nconfig a b c\nEND");
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err, "uci: Parse error (too many arguments) at line 1, byte 13\n");
    EXPECT_EQ(read_file(config_path("new")), "\nconfig a 'b'\n\n");
}

TEST_F(UciCommand, StagesElsewhereWithoutCommitting) {
    EXPECT_EQ(run("-P /tmp/uci/other set x.b.o=other").status, 0);
    EXPECT_EQ(run("-P /tmp/uci/other get x.b.o").out, "other\n");
    EXPECT_EQ(run("-P /tmp/uci/other commit").status, 0);
    EXPECT_EQ(run("get x.b.o").out, "val\n");
}

TEST_F(UciCommand, ExplainsItself) {
    const CommandResult unknown = run("frob");
    EXPECT_EQ(unknown.status, 255);
    EXPECT_THAT(unknown.err, HasSubstr("Usage: uci [<options>] <command> [<arguments>]\n"));
    EXPECT_EQ(run("get").status, 255);
    EXPECT_EQ(run("get x.b x.q").status, 255);
}

}  // namespace
