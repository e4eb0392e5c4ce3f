// tqctl_config_test.cpp - tqctl config: the files that daemons keep loaded, on the device's own
// set.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;
using testing::IsEmpty;

class TqctlConfigTest : public DeviceTest {
  protected:
    static std::string line(const CommandResult& result, size_t number) {
        size_t start = 0;
        for (; number > 0; number--)
            start = result.out.find('\n', start) + 1;
        return result.out.substr(start, result.out.find('\n', start) - start);
    }
};

const std::vector<std::string> kFiles = {
    "dhcp",  "network",  "bind",    "location", "wireless", "system", "apstats",      "wtp",
    "board", "firewall", "forward", "bwctrl",   "nat",      "mcsd",   "troubleshoot", "ordercfg"};

// list

TEST_F(TqctlConfigTest, ListShowsTheFilesInTheOrderOfTheirIds) {
    const CommandResult result = tqctl("config list");
    EXPECT_EQ(result.status, kDone);
    EXPECT_THAT(result.err, IsEmpty());
    for (size_t id = 0; id < kFiles.size(); id++) {
        EXPECT_THAT(line(result, id), HasSubstr(" " + kFiles[id] + " ")) << id;
        EXPECT_EQ(std::stoul(line(result, id)), id);
    }
    EXPECT_EQ(line(result, 3), " 3  location       1 section");
    EXPECT_EQ(line(result, 4), " 4  wireless       18 sections");
}

TEST_F(TqctlConfigTest, ListKnowsTheLibrarysIds) {
    const Json rows = parse(tqctl("-j config list").out);
    ASSERT_EQ(json_object_array_length(rows.get()), kFiles.size());
    for (size_t id = 0; id < kFiles.size(); id++) {
        const Json row(json_object_get(json_object_array_get_idx(rows.get(), id)));
        EXPECT_EQ(member(row, "id"), std::to_string(id));
        EXPECT_EQ(member(row, "file"), kFiles[id]);
        EXPECT_EQ(member(row, "state"), "present");
        EXPECT_EQ(member(row, "staged"), "false");
    }
}

TEST_F(TqctlConfigTest, ListShowsWhatIsMissingAndWhatIsStagedAndCreatesNothing) {
    run_command("rm /etc/config/mcsd; uci set nat.global.type=x");
    const CommandResult result = tqctl("config list");
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(line(result, 12), "12  nat            3 sections, changes staged");
    EXPECT_EQ(line(result, 13), "13  mcsd           missing");
    EXPECT_FALSE(exists("/etc/config/mcsd"));
}

TEST_F(TqctlConfigTest, ListSaysWhyAFileCannotBeRead) {
    write_file("/etc/config/wtp", "config 'a\n");
    const CommandResult result = tqctl("config list");
    EXPECT_EQ(result.status, kDamaged);
    EXPECT_EQ(line(result, 7), " 7  wtp            unreadable");
    EXPECT_THAT(result.err,
                HasSubstr("tqctl: config list: wtp: the configuration file has a syntax error\n"));
    EXPECT_EQ(line(result, 15), "15  ordercfg       2 sections");
}

// show

TEST_F(TqctlConfigTest, ShowPrintsWhatTheUciCommandPrints) {
    for (const std::string& file : kFiles)
        EXPECT_TRUE(succeeds(tqctl("config show " + file), run_command("uci show " + file).out));
}

TEST_F(TqctlConfigTest, ShowPrintsOneSection) {
    EXPECT_TRUE(succeeds(tqctl("config show nat global"),
                         "nat.global=nat\nnat.global.enable='1'\nnat.global.type='napt'\n"));
    EXPECT_TRUE(succeeds(tqctl("config show bind '@bind[1]'"),
                         "bind.@bind[1]=bind\nbind.@bind[1].ifname='ath11'\n"
                         "bind.@bind[1].profile='guest'\nbind.@bind[1].enable='1'\n"));
    EXPECT_TRUE(succeeds(tqctl("config show wireless '@wifi-iface[1]'"),
                         tqctl("config show wireless default_radio1").out));
}

TEST_F(TqctlConfigTest, ShowPrintsListsAndQuotes) {
    run_command(
        "uci set nat.global.type=\"it's\"; uci add_list nat.global.l=a; "
        "uci add_list nat.global.l='b c'");
    EXPECT_TRUE(succeeds(tqctl("config show nat global"),
                         "nat.global=nat\nnat.global.enable='1'\nnat.global.type='it'\\''s'\n"
                         "nat.global.l='a' 'b c'\n"));
}

TEST_F(TqctlConfigTest, ShowPrintsAnObjectOfSectionsAsJson) {
    EXPECT_TRUE(succeeds(tqctl("-j config show ordercfg apply"),
                         "{\"apply\":{\".type\":\"order\",\"file\":[\"network\",\"dhcp\","
                         "\"wireless\"],\"delay\":\"2\"}}\n"));
    EXPECT_TRUE(succeeds(tqctl("-j config show bind '@bind[0]'"),
                         "{\"@bind[0]\":{\".type\":\"bind\",\"ifname\":\"ath01\",\"profile\":"
                         "\"guest\",\"enable\":\"1\"}}\n"));
    for (const std::string& file : kFiles)
        EXPECT_TRUE(parse(tqctl("-j config show " + file).out)) << file;
}

TEST_F(TqctlConfigTest, ShowOfAnEmptyFileIsEmpty) {
    write_file("/etc/config/nat", "");
    EXPECT_TRUE(succeeds(tqctl("config show nat"), ""));
    EXPECT_TRUE(succeeds(tqctl("-j config show nat"), "{}\n"));
}

TEST_F(TqctlConfigTest, ShowOfWhatIsMissingIsRefusedAndCreatesNothing) {
    run_command("rm /etc/config/nat");
    EXPECT_TRUE(fails(tqctl("config show nat"), kRefused,
                      "tqctl: config show: nat: No such file or directory\n"));
    EXPECT_FALSE(exists("/etc/config/nat"));
    EXPECT_TRUE(fails(tqctl("config show wireless radio7"), kRefused,
                      "tqctl: config show: wireless.radio7: no such section\n"));
    EXPECT_TRUE(fails(tqctl("config show tqfm"), kRefused, "tqfm: not one of the files"));
    EXPECT_EQ(tqctl("-j config show wireless radio7").out, "{}\n");
}

TEST_F(TqctlConfigTest, ShowOfADamagedFileEndsWithFive) {
    write_file("/etc/config/nat", "config 'a\n");
    EXPECT_TRUE(fails(tqctl("config show nat"), kDamaged, "syntax error"));
}

// save

TEST_F(TqctlConfigTest, SaveCommitsWhatIsStagedInEveryFile) {
    run_command(
        "uci set nat.global.type=x; uci set wireless.radio0.channel=11; "
        "uci set capwap.global.dtls=1");
    EXPECT_TRUE(succeeds(tqctl("config save"), ""));
    EXPECT_EQ(run_command("uci changes").out, "capwap.global.dtls='1'\n");
    EXPECT_THAT(read_file("/etc/config/nat"), HasSubstr("\toption type 'x'\n"));
    EXPECT_THAT(read_file("/etc/config/wireless"), HasSubstr("\toption channel '11'\n"));
}

TEST_F(TqctlConfigTest, SaveCommitsTheNamedFilesOnly) {
    run_command(
        "uci set nat.global.type=x; uci set wireless.radio0.channel=11; "
        "uci set system.ntp.enabled=0");
    EXPECT_TRUE(succeeds(tqctl("config save nat system"), ""));
    EXPECT_EQ(run_command("uci changes").out, "wireless.radio0.channel='11'\n");
}

TEST_F(TqctlConfigTest, SaveRunsCommit2ForTheSavedFilesWhereItIsAskedTo) {
    write_file("/tmp/bin/uci", "#!/bin/sh\necho \"$*\" >>/tmp/calls\n");
    run_command("chmod 755 /tmp/bin/uci");
    const std::string path = "PATH=/tmp/bin:$PATH tqctl ";
    EXPECT_TRUE(succeeds(run_command(path + "config save nat"), ""));
    EXPECT_FALSE(exists("/tmp/calls"));
    write_file("/etc/config/wtp", "config 'a\n");
    EXPECT_EQ(run_command(path + "config save --commit2 wireless wtp nat").status, kDamaged);
    EXPECT_EQ(read_file("/tmp/calls"), "commit2 wireless\ncommit2 nat\n");
}

TEST_F(TqctlConfigTest, SaveRefusesWhatItCannotSaveAndSavesTheRest) {
    run_command("rm /etc/config/mcsd; uci set nat.global.type=x");
    EXPECT_TRUE(fails(tqctl("config save mcsd nat"), kRefused,
                      "tqctl: config save: mcsd: No such file or directory\n"));
    EXPECT_EQ(run_command("uci changes").out, "");
    EXPECT_FALSE(exists("/etc/config/mcsd"));
    EXPECT_TRUE(succeeds(tqctl("config save"), ""));
    EXPECT_FALSE(exists("/etc/config/mcsd"));
}

TEST_F(TqctlConfigTest, SaveKnowsEveryNameBeforeItBegins) {
    run_command("uci set nat.global.type=x");
    EXPECT_TRUE(fails(tqctl("config save nat capwap"), kRefused, "capwap: not one of the files"));
    EXPECT_EQ(run_command("uci changes").out, "nat.global.type='x'\n");
}

TEST_F(TqctlConfigTest, SaveOnAReadOnlyFileSystemEndsWithSixAndKeepsWhatIsStaged) {
    run_command("uci set nat.global.type=x");
    {
        const ReadOnly locked("/etc/config");
        EXPECT_TRUE(fails(tqctl("config save nat"), kInputOutput, "Read-only file system"));
    }
    EXPECT_EQ(run_command("uci changes").out, "nat.global.type='x'\n");
}

TEST_F(TqctlConfigTest, MisuseEndsWithTwo) {
    for (const char* arguments :
         {"config", "config nothing", "config show", "config show a b c", "config list x",
          "config save a b c d e f g h i j k l m n o p q"}) {
        EXPECT_EQ(tqctl(arguments).status, kUsage) << arguments;
    }
}

}  // namespace
