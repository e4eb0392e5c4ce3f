// tqctl_wifi_test.cpp - tqctl wifi: the settings of the device's radios and VAPs.
#include <gmock/gmock.h>

#include <string>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;
using testing::Not;

class TqctlWifiTest : public DeviceTest {
  protected:
    static std::string stored(const std::string& option) {
        return run_command("uci -q -P /tmp/none get wireless." + option).out;
    }
};

// show

TEST_F(TqctlWifiTest, ShowPrintsTheSettingsOfARadio) {
    EXPECT_TRUE(succeeds(tqctl("wifi show radio1"),
                         "radio1.mode=19\nradio1.gi=1\nradio1.vht-gi=1\nradio1.rts=2347\n"
                         "radio1.frag=2346\nradio1.dtim=1\nradio1.beacon-rate=6\n"
                         "radio1.mcast-rate=24\nradio1.country=US\n"));
    EXPECT_TRUE(succeeds(tqctl("-j wifi show @wifi-device[1]"),
                         "{\"radio1\":{\"mode\":19,\"gi\":1,\"vht-gi\":1,\"rts\":2347,"
                         "\"frag\":2346,\"dtim\":1,\"beacon-rate\":6,\"mcast-rate\":24,"
                         "\"country\":\"US\"}}\n"));
}

TEST_F(TqctlWifiTest, ShowMasksSecretsUnlessItIsAskedForThem) {
    EXPECT_TRUE(succeeds(tqctl("wifi show default_radio0"),
                         "default_radio0.auth=psk2\ndefault_radio0.cipher=ccmp\n"
                         "default_radio0.key=********\n"));
    EXPECT_TRUE(succeeds(tqctl("wifi show --secrets default_radio0"),
                         "default_radio0.auth=psk2\ndefault_radio0.cipher=ccmp\n"
                         "default_radio0.key=correct horse battery\n"));
    EXPECT_TRUE(succeeds(tqctl("wifi show office_radio1"),
                         "office_radio1.auth=wpa2\noffice_radio1.cipher=ccmp\n"
                         "office_radio1.radius=192.168.1.30 1812 ********\n"));
    for (const char* all : {"wifi show", "-j wifi show"}) {
        const CommandResult result = tqctl(all);
        EXPECT_EQ(result.status, kDone);
        for (const char* secret : {"horse", "secret 1", "phone", "p@ss", "0123456789abcdef"})
            EXPECT_THAT(result.out, Not(HasSubstr(secret)));
    }
    EXPECT_THAT(tqctl("wifi show --secrets").out, HasSubstr("it's a \"phone\" key"));
}

TEST_F(TqctlWifiTest, ShowPrintsEveryRadioAndVap) {
    const Json sections = parse(tqctl("-j wifi show").out);
    EXPECT_EQ(json_object_object_length(sections.get()), 18);
    EXPECT_THAT(member(sections, "@wifi-iface[2]"), HasSubstr("\"none\""));
    EXPECT_THAT(tqctl("wifi show").out, HasSubstr("\n@wifi-iface[2].auth=none\n"));
}

TEST_F(TqctlWifiTest, ShowOfOtherSectionsIsRefused) {
    run_command("printf 'config other other\\n' >>/etc/config/wireless");
    EXPECT_TRUE(fails(tqctl("wifi show radio7"), kRefused,
                      "tqctl: wifi show: radio7: no such radio or VAP\n"));
    EXPECT_TRUE(fails(tqctl("wifi show other"), kRefused, "no such radio or VAP"));
    EXPECT_THAT(tqctl("wifi show").out, Not(HasSubstr("other")));
}

TEST_F(TqctlWifiTest, ShowOfWhatCannotBeReadEndsWithItsCode) {
    write_file("/etc/config/wireless", "config 'a\n");
    EXPECT_TRUE(fails(tqctl("wifi show"), kDamaged, "syntax error"));
    run_command("rm /etc/config/wireless");
    EXPECT_TRUE(fails(tqctl("wifi show"), kRefused, "No such file or directory"));
    EXPECT_FALSE(exists("/etc/config/wireless"));
}

// get

TEST_F(TqctlWifiTest, GetPrintsOneSetting) {
    EXPECT_TRUE(succeeds(tqctl("wifi get radio0 mode"), "8\n"));
    EXPECT_TRUE(succeeds(tqctl("wifi get radio0 mcast-rate"), "6\n"));
    EXPECT_TRUE(succeeds(tqctl("-j wifi get radio0 rts"), "{\"rts\":2347}\n"));
    EXPECT_TRUE(succeeds(tqctl("wifi get voice_radio0 auth"), "mixed-psk\n"));
    EXPECT_TRUE(succeeds(tqctl("wifi get voice_radio0 key"), "********\n"));
    EXPECT_TRUE(succeeds(tqctl("wifi get --secrets voice_radio0 key"), "it's a \"phone\" key\n"));
    EXPECT_TRUE(succeeds(tqctl("-j wifi get --secrets office_radio0 radius"),
                         "{\"radius\":{\"address\":\"192.168.1.30\",\"port\":1812,"
                         "\"secret\":\"radius secret 1\"}}\n"));
}

TEST_F(TqctlWifiTest, GetOfWhatIsNotThereIsRefused) {
    EXPECT_TRUE(fails(tqctl("wifi get radio0 vht-gi"), kRefused,
                      "tqctl: wifi get: radio0: vht-gi is not set, or to no known value\n"));
    run_command("uci set wireless.radio0.hwmode=77; uci commit");
    EXPECT_TRUE(fails(tqctl("wifi get radio0 mode"), kRefused, "mode is not set"));
    EXPECT_TRUE(fails(tqctl("wifi get radio0 key"), kRefused,
                      "tqctl: wifi get: radio0: a wifi-device has no key\n"));
    EXPECT_TRUE(fails(tqctl("wifi get default_radio0 mode"), kRefused,
                      "default_radio0: a wifi-iface has no mode"));
    EXPECT_TRUE(fails(tqctl("wifi get radio7 mode"), kRefused, "no such radio or VAP"));
}

// set

TEST_F(TqctlWifiTest, SetWritesEachNumberOfARadio) {
    const std::pair<const char*, const char*> settings[] = {{"gi 0", "HT_GI"},
                                                            {"vht-gi 0", "VHT_SGI"},
                                                            {"rts 2000", "RTSThreshold"},
                                                            {"frag 1000", "FragThreshold"},
                                                            {"dtim 3", "DtimPeriod"},
                                                            {"beacon-rate 12", "MinPhyBeaconRate"}};
    for (const auto& [words, option] : settings) {
        EXPECT_TRUE(succeeds(tqctl(std::string("wifi set radio1 ") + words), ""));
        const std::string value = std::string(words).substr(std::string(words).find(' ') + 1);
        EXPECT_EQ(stored(std::string("radio1.") + option), value + "\n") << words;
    }
    EXPECT_TRUE(succeeds(tqctl("wifi get radio1 rts"), "2000\n"));
    EXPECT_TRUE(succeeds(tqctl("wifi set radio0 gi -1"), ""));
    EXPECT_EQ(stored("radio0.HT_GI"), "-1\n");
}

TEST_F(TqctlWifiTest, SetWritesWhatHasSeveralOptions) {
    EXPECT_TRUE(succeeds(tqctl("wifi set radio0 mode 9"), ""));
    EXPECT_EQ(stored("radio0.hwmode") + stored("radio0.HT_BW") + stored("radio0.HT_EXTCHA"),
              "8\n1\n1\n");
    EXPECT_TRUE(succeeds(tqctl("wifi set radio0 mcast-rate 1"), ""));
    EXPECT_EQ(stored("radio0.McastPhyMode") + stored("radio0.McastMcs"), "1\n3\n");
    EXPECT_TRUE(succeeds(tqctl("wifi set radio0 country"), ""));
    EXPECT_EQ(stored("radio0.country"), "CN\n");
}

TEST_F(TqctlWifiTest, SetWritesTheAuthenticationWithTheCipherThatIsThere) {
    EXPECT_TRUE(succeeds(tqctl("wifi set voice_radio0 auth psk2"), ""));
    EXPECT_TRUE(succeeds(tqctl("wifi show voice_radio0"),
                         "voice_radio0.auth=psk2\nvoice_radio0.cipher=ccmp+tkip\n"
                         "voice_radio0.key=********\n"));
    EXPECT_TRUE(succeeds(tqctl("wifi set voice_radio0 auth wpa2-wpa3 suite_b"), ""));
    EXPECT_EQ(stored("voice_radio0.encryption") + stored("voice_radio0.aes"),
              "wpa2-wpa3\nsuite_b\n");
    EXPECT_TRUE(succeeds(tqctl("wifi set voice_radio0 cipher tkip"), ""));
    EXPECT_EQ(stored("voice_radio0.encryption") + stored("voice_radio0.aes"), "wpa2-wpa3\ntkip\n");
    EXPECT_TRUE(succeeds(tqctl("wifi set voice_radio0 auth wep-open"), ""));
    EXPECT_EQ(stored("voice_radio0.encryption"), "wep-open\n");
    EXPECT_TRUE(succeeds(tqctl("wifi set legacy_radio0 auth mixed-psk"), ""));
    EXPECT_EQ(stored("legacy_radio0.encryption") + stored("legacy_radio0.aes"),
              "mixed-psk\nccmp\n");
}

TEST_F(TqctlWifiTest, SetWritesEveryAuthenticationByItsName) {
    for (const std::string name : {"none", "wep-shared", "wep-open", "wpa", "psk", "wpa2", "psk2",
                                   "mixed-wpa", "mixed-psk", "ccmp", "wpa2-wpa3"}) {
        EXPECT_TRUE(succeeds(tqctl("wifi set cafe_radio0 auth " + name), ""));
        EXPECT_EQ(stored("cafe_radio0.encryption"), name + "\n");
        EXPECT_TRUE(succeeds(tqctl("wifi get cafe_radio0 auth"), name + "\n"));
    }
}

TEST_F(TqctlWifiTest, SetTakesSecretsFromStandardInput) {
    EXPECT_TRUE(
        succeeds(run_command("echo \"it's - a key\" | tqctl wifi set default_radio0 key -"), ""));
    EXPECT_EQ(stored("default_radio0.key"), "it's - a key\n");
    EXPECT_TRUE(succeeds(tqctl("wifi set default_radio0 key 'on the line'"), ""));
    EXPECT_EQ(stored("default_radio0.key"), "on the line\n");
    EXPECT_EQ(run_command("tqctl wifi set default_radio0 key - </dev/null").status, kUsage);
    EXPECT_EQ(run_command("echo | tqctl wifi set default_radio0 key -").status, kUsage);
    EXPECT_EQ(
        run_command("head -c 5000 /dev/zero | tr '\\0' x | tqctl wifi set default_radio0 key -")
            .status,
        kUsage);
    EXPECT_EQ(stored("default_radio0.key"), "on the line\n");
}

TEST_F(TqctlWifiTest, SetWritesTheRadiusServerAndTheApsOwnSide) {
    run_command("ip addr add 192.0.2.9/24 dev eth1");
    EXPECT_TRUE(
        succeeds(run_command("echo s3 | tqctl wifi set cafe_radio1 radius 10.1.2.3 1645 -"), ""));
    run_command("ip addr flush dev eth1");
    EXPECT_TRUE(succeeds(tqctl("wifi get --secrets cafe_radio1 radius"), "10.1.2.3 1645 s3\n"));
    EXPECT_EQ(stored("cafe_radio1.ownip") + stored("cafe_radio1.eapifname"),
              "192.0.2.9\nbr-guest\n");
    EXPECT_TRUE(succeeds(tqctl("wifi set cafe_radio1 radius off"), ""));
    EXPECT_EQ(tqctl("wifi get cafe_radio1 radius").status, kRefused);
    EXPECT_EQ(stored("cafe_radio1.eapifname"), "");
    EXPECT_TRUE(fails(tqctl("wifi set cafe_radio1 radius 10.1.2.3 1645 x"), kRefused,
                      "get wan ip addr failed!"));
}

TEST_F(TqctlWifiTest, SetLeavesTheFileAloneWhereTheValueIsTheSame) {
    const std::string before = read_file("/etc/config/wireless");
    run_command("uci set wireless.radio1.channel=36");
    EXPECT_TRUE(succeeds(tqctl("wifi set radio0 rts 2347"), ""));
    EXPECT_EQ(read_file("/etc/config/wireless"), before);
    EXPECT_TRUE(succeeds(tqctl("wifi set radio0 rts 2346"), ""));
    EXPECT_EQ(run_command("uci changes").out, "");
    EXPECT_EQ(stored("radio1.channel"), "36\n");
}

TEST_F(TqctlWifiTest, SetRefusesWhatTheLibraryDoesNotTake) {
    const std::string before = read_file("/etc/config/wireless");
    EXPECT_TRUE(fails(tqctl("wifi set radio0 mcast-rate 3"), kRefused,
                      "tqctl: wifi set: radio0: mcast-rate cannot be set to that\n"));
    EXPECT_TRUE(fails(tqctl("wifi set legacy_radio0 cipher tkip"), kRefused,
                      "the authentication of this VAP has no cipher"));
    EXPECT_TRUE(fails(tqctl("wifi set default_radio0 rts 5"), kRefused, "has no rts"));
    EXPECT_TRUE(fails(tqctl("wifi set nothing rts 5"), kRefused, "no such radio or VAP"));
    EXPECT_EQ(read_file("/etc/config/wireless"), before);
}

TEST_F(TqctlWifiTest, SetOnAReadOnlyFileSystemEndsWithSix) {
    const ReadOnly locked("/etc/config");
    EXPECT_TRUE(fails(tqctl("wifi set radio0 rts 5"), kInputOutput, "Read-only file system"));
    EXPECT_EQ(run_command("uci changes").out, "");
}

TEST_F(TqctlWifiTest, MisuseEndsWithTwoAndChangesNothing) {
    const std::string before = read_file("/etc/config/wireless");
    for (const char* arguments : {"wifi",
                                  "wifi nothing",
                                  "wifi show a b",
                                  "wifi show --secrets a b",
                                  "wifi get radio0",
                                  "wifi get --secrets radio0",
                                  "wifi get radio0 nothing",
                                  "wifi set radio0",
                                  "wifi set radio0 nothing 1",
                                  "wifi set radio0 rts",
                                  "wifi set radio0 rts 1 2",
                                  "wifi set radio0 rts x",
                                  "wifi set radio0 rts 99999999999",
                                  "wifi set radio0 mode 0",
                                  "wifi set radio0 mode 31",
                                  "wifi set radio0 country US",
                                  "wifi set default_radio0 auth wpa3",
                                  "wifi set default_radio0 auth psk2 aes",
                                  "wifi set default_radio0 auth none ccmp",
                                  "wifi set default_radio0 cipher aes",
                                  "wifi set default_radio0 key ''",
                                  "wifi set default_radio0 radius on",
                                  "wifi set default_radio0 radius 1.2.3.4 1812",
                                  "wifi set default_radio0 radius 1.2.3 1812 x",
                                  "wifi set default_radio0 radius 1.2.3.4 0 x",
                                  "wifi set default_radio0 radius 1.2.3.4 65536 x",
                                  "wifi set default_radio0 radius 1.2.3.4 1812 ''"}) {
        EXPECT_EQ(tqctl(arguments).status, kUsage) << arguments;
    }
    EXPECT_EQ(read_file("/etc/config/wireless"), before);
    EXPECT_EQ(run_command("uci changes").out, "");
}

// fm threshold, fm suppress

class TqctlFmTest : public DeviceTest {};

TEST_F(TqctlFmTest, ThresholdShowsAndStoresANumber) {
    EXPECT_TRUE(succeeds(tqctl("fm threshold 7"), "80\n"));
    EXPECT_TRUE(succeeds(tqctl("-j fm threshold 7"), "{\"threshold\":80}\n"));
    EXPECT_TRUE(succeeds(tqctl("fm threshold 9 4000000000"), ""));
    EXPECT_TRUE(succeeds(tqctl("fm threshold 9"), "4000000000\n"));
    EXPECT_EQ(run_command("uci show tqfm.9").out, "tqfm.9=module\ntqfm.9.threshold='4000000000'\n");
}

TEST_F(TqctlFmTest, SuppressShowsAndStoresANumberForOneOrAll) {
    EXPECT_TRUE(succeeds(tqctl("fm suppress 1"), "300\n"));
    EXPECT_TRUE(succeeds(tqctl("fm suppress 1 5"), ""));
    EXPECT_TRUE(succeeds(tqctl("fm suppress 2"), "60\n"));
    EXPECT_TRUE(succeeds(tqctl("fm suppress all 9"), ""));
    for (const char* module : {"1", "2", "7"})
        EXPECT_TRUE(succeeds(tqctl(std::string("fm suppress ") + module), "9\n"));
    EXPECT_TRUE(succeeds(tqctl("-j fm suppress 7"), "{\"suppress\":9}\n"));
}

TEST_F(TqctlFmTest, WhatIsNotThereIsRefused) {
    EXPECT_TRUE(fails(tqctl("fm threshold 3"), kRefused,
                      "tqctl: fm threshold: tqfm: the module has no such value\n"));
    EXPECT_TRUE(fails(tqctl("fm suppress 7"), kRefused, "no such value"));
    write_file("/etc/config/tqfm", "config 'a\n");
    EXPECT_TRUE(fails(tqctl("fm suppress all 1"), kDamaged, "syntax error"));
    run_command("rm /etc/config/tqfm");
    EXPECT_TRUE(fails(tqctl("fm threshold 7 1"), kRefused, "No such file or directory"));
    EXPECT_TRUE(fails(tqctl("fm threshold 7"), kRefused, "No such file or directory"));
}

TEST_F(TqctlFmTest, AReadOnlyFileSystemEndsWithSix) {
    const ReadOnly locked("/etc/config");
    EXPECT_TRUE(fails(tqctl("fm threshold 7 1"), kInputOutput, "Read-only file system"));
    EXPECT_TRUE(fails(tqctl("fm suppress all 1"), kInputOutput, "Read-only file system"));
}

TEST_F(TqctlFmTest, MisuseEndsWithTwo) {
    for (const char* arguments :
         {"fm threshold", "fm threshold x", "fm threshold -1", "fm threshold 7 x",
          "fm threshold 7 -1", "fm threshold 7 4294967296", "fm threshold 7 1 2",
          "fm threshold all 5", "fm suppress all", "fm suppress all x"}) {
        EXPECT_EQ(tqctl(arguments).status, kUsage) << arguments;
    }
}

}  // namespace
