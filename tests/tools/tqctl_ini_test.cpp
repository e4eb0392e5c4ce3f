// tqctl_ini_test.cpp - the commands on INI files.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)

constexpr const char* kFile = "/tmp/test.ini";
constexpr const char* kText =
    "top = 1\n[Net]\nMode = bridge ; the default\nmtu = 1500\n[empty]\n[a:b]\nk = \"x;y\"\n";

class TqctlIniTest : public DeviceTest {
  protected:
    TqctlIniTest() { write_file(kFile, kText); }

    static CommandResult ini(const std::string& verb, const std::string& arguments = "") {
        return tqctl("ini " + verb + " " + kFile + " " + arguments);
    }
    static std::string dump() { return ini("dump").out; }
};

TEST_F(TqctlIniTest, GetPrintsAValue) {
    EXPECT_TRUE(succeeds(ini("get", "Net:Mode"), "bridge\n"));
    EXPECT_TRUE(succeeds(ini("get", ":top"), "1\n"));
    EXPECT_TRUE(succeeds(ini("get", "a:b:k"), "x;y\n"));
    EXPECT_TRUE(succeeds(ini("get", "Net:Mode Net:mtu"), "Net:Mode=bridge\nNet:mtu=1500\n"));
    EXPECT_TRUE(succeeds(tqctl(std::string("-j ini get ") + kFile + " Net:Mode"),
                         "{\"Net:Mode\":\"bridge\"}\n"));
}

TEST_F(TqctlIniTest, GetRefusesWhatIsNotThere) {
    EXPECT_TRUE(fails(ini("get", "net:mode"), kRefused, "net:mode: not found"));
    EXPECT_TRUE(fails(ini("get", "Net"), kRefused, "Net: a section, not an entry"));
    EXPECT_TRUE(fails(ini("get"), kUsage, "an argument is missing"));
    const CommandResult result = ini("get", "x:y Net:mtu");
    EXPECT_EQ(result.status, kRefused);
    EXPECT_EQ(result.out, "Net:mtu=1500\n");
}

TEST_F(TqctlIniTest, DumpPrintsAllEntries) {
    EXPECT_TRUE(succeeds(ini("dump"),
                         ":top=1\n[Net]\nNet:Mode=bridge\nNet:mtu=1500\n[empty]\n[a:b]\n"
                         "a:b:k=x;y\n"));
    EXPECT_TRUE(succeeds(tqctl(std::string("-j ini dump ") + kFile),
                         "{\"\":{\"top\":\"1\"},\"Net\":{\"Mode\":\"bridge\",\"mtu\":\"1500\"},"
                         "\"empty\":{},\"a:b\":{\"k\":\"x;y\"}}\n"));
    write_file(kFile, "");
    EXPECT_TRUE(succeeds(ini("dump"), ""));
    EXPECT_TRUE(succeeds(tqctl(std::string("-j ini dump ") + kFile), "{}\n"));
}

TEST_F(TqctlIniTest, CheckCountsWhatIsThere) {
    EXPECT_TRUE(succeeds(ini("check"), "sections=3\nentries=4\n"));
    EXPECT_TRUE(
        succeeds(tqctl(std::string("-j ini check ") + kFile), "{\"sections\":3,\"entries\":4}\n"));
}

TEST_F(TqctlIniTest, EachVerbTellsADamagedFile) {
    write_file(kFile, "[a]\nbad\n");
    for (const char* arguments :
         {"get /tmp/test.ini a:b", "set /tmp/test.ini a:b c", "unset /tmp/test.ini a",
          "dump /tmp/test.ini", "check /tmp/test.ini"}) {
        const CommandResult result = tqctl(std::string("ini ") + arguments);
        EXPECT_TRUE(fails(result, kDamaged, "/tmp/test.ini: not a valid INI file")) << arguments;
        EXPECT_TRUE(
            fails(result, kDamaged, "iniparser: syntax error in /tmp/test.ini (2):\n-> bad\n"));
    }
    EXPECT_EQ(read_file(kFile), "[a]\nbad\n");
}

TEST_F(TqctlIniTest, EachVerbTellsAFileThatCannotBeRead) {
    for (const char* arguments :
         {"get /tmp/none a:b", "unset /tmp/none a", "dump /tmp/none", "check /tmp/none"}) {
        EXPECT_TRUE(fails(tqctl(std::string("ini ") + arguments), kRefused,
                          "/tmp/none: No such file or directory"))
            << arguments;
    }
    chmod(kFile, 0600);
    const CommandResult result = run_command(kNobody + "tqctl ini check " + kFile);
    EXPECT_TRUE(fails(result, kNotPermitted, "Permission denied"));
}

TEST_F(TqctlIniTest, SetChangesOneEntry) {
    EXPECT_TRUE(succeeds(ini("set", "Net:Mode route"), ""));
    EXPECT_EQ(dump(), ":top=1\n[Net]\nNet:Mode=route\nNet:mtu=1500\n[empty]\n[a:b]\na:b:k=x;y\n");
    EXPECT_EQ(read_file(kFile),
              "top = 1\n\n[Net]\nMode = route\nmtu = 1500\n\n[empty]\n\n[a:b]\nk = \"x;y\"\n");
}

TEST_F(TqctlIniTest, SetAddsWhatIsMissing) {
    EXPECT_TRUE(succeeds(ini("set", "Net:new 1"), ""));
    EXPECT_TRUE(succeeds(ini("set", "more:key 2"), ""));
    EXPECT_TRUE(succeeds(ini("set", ":other 3"), ""));
    EXPECT_TRUE(succeeds(ini("set", "a:b:j 4"), ""));
    EXPECT_EQ(dump(),
              ":top=1\n:other=3\n[Net]\nNet:Mode=bridge\nNet:mtu=1500\nNet:new=1\n[empty]\n[a:b]\n"
              "a:b:k=x;y\na:b:j=4\n[more]\nmore:key=2\n");
    EXPECT_TRUE(succeeds(tqctl("ini set /tmp/new.ini x:y z"), ""));
    EXPECT_EQ(read_file("/tmp/new.ini"), "\n[x]\ny = z\n");
}

TEST_F(TqctlIniTest, SetWritesWhatReadsBackAsTheSame) {
    for (const char* value : {"", "a;b", "#", "\"quoted\"", "'", "it's; \"", "say \"a;b\"", "a\\",
                              "C:\\dir\\", "a = b", "%s%n", "\xc3\xa9"}) {
        const CommandResult result = ini("set", "s:k " + quote(value));
        const std::string got = ini("get", "s:k").out;
        if (result.status == kDone) {
            EXPECT_EQ(got, std::string(value) + "\n");
        } else {
            EXPECT_TRUE(fails(result, kRefused, "no INI file can hold")) << value;
            EXPECT_NE(std::string(value).find_first_of("'\""), std::string::npos) << value;
        }
    }
}

TEST_F(TqctlIniTest, SetRefusesWhatAFileCannotHold) {
    const std::string values[] = {"' blank before'", "'blank behind '", "\"'a;\\\"'\"",
                                  "\"two\nlines\"", std::string(1023, 'v')};
    for (const std::string& value : values)
        EXPECT_TRUE(fails(ini("set", "s:k " + value), kRefused, "no INI file can hold")) << value;
    for (const char* name : {"'a]b:k'", "s:", "'s:a=b'", "'s:;'", "'s: k'"})
        EXPECT_TRUE(fails(ini("set", std::string(name) + " v"), kRefused, "no INI file can hold"))
            << name;
    EXPECT_TRUE(fails(ini("set", std::string(3000, 's') + ":k v"), kRefused, "too long"));
    EXPECT_TRUE(fails(ini("set", "nocolon v"), kUsage, "an entry is SECTION:KEY"));
    EXPECT_EQ(read_file(kFile), kText);
    EXPECT_EQ(run_command("ls /tmp").out, "test.ini\n");
}

TEST_F(TqctlIniTest, SetKeepsModeOwnerAndLinks) {
    chmod(kFile, 0640);
    ASSERT_EQ(chown(kFile, 1234, 4321), 0);
    ASSERT_EQ(symlink(kFile, "/tmp/link.ini"), 0);
    EXPECT_TRUE(succeeds(tqctl("ini set /tmp/link.ini Net:mtu 1400"), ""));
    struct stat status;
    ASSERT_EQ(lstat("/tmp/link.ini", &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    ASSERT_EQ(stat(kFile, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_EQ(status.st_uid, 1234U);
    EXPECT_EQ(status.st_gid, 4321U);
    EXPECT_TRUE(succeeds(ini("get", "Net:mtu"), "1400\n"));
}

TEST_F(TqctlIniTest, SetAndUnsetPutNoFileInTheWayOfADevice) {
    run_command("ln -s /dev/null /tmp/device; mkfifo /tmp/fifo");
    EXPECT_TRUE(fails(tqctl("ini set /tmp/device a:b c"), kRefused, "not a regular file"));
    EXPECT_TRUE(fails(run_command("printf '[a]\nb=c\n' >/tmp/fifo & tqctl ini unset /tmp/fifo a:b"),
                      kRefused, "not a regular file"));
    EXPECT_EQ(run_command("stat -c %F /dev/null /tmp/fifo").out, "character special file\nfifo\n");
    EXPECT_EQ(run_command("ls /tmp").out, "device\nfifo\ntest.ini\n");
}

TEST_F(TqctlIniTest, SetLeavesTheFileWhereTheDiskIsFull) {
    write_file("/etc/config/test.ini", kText);
    {
        const FullDisk full("/etc/config");
        EXPECT_TRUE(fails(tqctl("ini set /etc/config/test.ini Net:mtu 1400"), kInputOutput,
                          "No space left on device"));
    }
    EXPECT_EQ(read_file("/etc/config/test.ini"), kText);
    const ReadOnly locked("/etc/config");
    EXPECT_TRUE(fails(tqctl("ini set /etc/config/test.ini Net:mtu 1400"), kInputOutput,
                      "Read-only file system"));
}

TEST_F(TqctlIniTest, UnsetRemovesAnEntry) {
    EXPECT_TRUE(succeeds(ini("unset", "Net:Mode"), ""));
    EXPECT_TRUE(succeeds(ini("unset", ":top"), ""));
    EXPECT_EQ(dump(), "[Net]\nNet:mtu=1500\n[empty]\n[a:b]\na:b:k=x;y\n");
    EXPECT_TRUE(fails(ini("unset", "Net:Mode"), kRefused, "not found"));
}

TEST_F(TqctlIniTest, UnsetRemovesASectionWithItsEntries) {
    EXPECT_TRUE(succeeds(ini("unset", "Net"), ""));
    EXPECT_TRUE(succeeds(ini("unset", "a:b"), ""));
    EXPECT_EQ(dump(), ":top=1\n[empty]\n");
}

}  // namespace
