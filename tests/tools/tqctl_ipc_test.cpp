// tqctl_ipc_test.cpp - tqctl ipc, with a daemon that the test plays.
#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <thread>

#include "eloop/ipc_server.h"
#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::EndsWith;
using testing::StartsWith;

class TqctlIpc : public DeviceTest {
  protected:
    // The command's result with a daemon that gives this reply; what it got is in `request`.
    CommandResult answered(const std::string& arguments, const std::string& reply) {
        std::thread daemon([&] {
            request = server.receive();
            server.answer(request, reply);
        });
        CommandResult result = tqctl(arguments);
        daemon.join();
        return result;
    }

    IpcServer server{"fmd"};
    Request request;
};

TEST_F(TqctlIpc, SendPrintsTheReply) {
    EXPECT_TRUE(succeeds(answered("ipc send fmd status", "running"), "running\n"));
    EXPECT_EQ(request.bytes, "status");
    EXPECT_TRUE(succeeds(answered("-j ipc send fmd status 10", "\"x\" \xff"),
                         "{\"reply\":\"\\\"x\\\" \xEF\xBF\xBD\"}\n"));
    EXPECT_TRUE(succeeds(answered("ipc send fmd status", ""), "\n"));
}

TEST_F(TqctlIpc, AProcessesFirstSocketIsZeroOne) {
    answered("ipc send fmd status", "running");
    EXPECT_THAT(abstract_name(request.client), StartsWith("fmd-ipc-"));
    EXPECT_THAT(abstract_name(request.client), EndsWith("-0-1"));
}

TEST_F(TqctlIpc, SendTakesBytesFromStandardInput) {
    std::thread daemon([&] {
        request = server.receive();
        server.answer(request, "done");
    });
    EXPECT_TRUE(succeeds(run_command("printf '\\1\\0\\377' | tqctl ipc send fmd -"), "done\n"));
    daemon.join();
    EXPECT_EQ(request.bytes, std::string("\1\0\xff", 3));
}

TEST_F(TqctlIpc, SendWithoutAReplyDoesNotWait) {
    EXPECT_TRUE(succeeds(tqctl("ipc send fmd event 0"), ""));
    EXPECT_EQ(server.receive().bytes, "event");
    EXPECT_TRUE(succeeds(tqctl("-j ipc send fmd event 0"), "{}\n"));
}

TEST_F(TqctlIpc, ADaemonThatIsNotThereEndsWithOne) {
    EXPECT_TRUE(fails(tqctl("ipc send nobody status"), kRefused, "nobody: nobody is there\n"));
    EXPECT_TRUE(fails(tqctl("ipc send nobody event 0"), kRefused, "nobody: nobody is there\n"));
}

TEST_F(TqctlIpc, ADaemonThatDoesNotAnswerEndsWithThree) {
    EXPECT_TRUE(
        fails(tqctl("ipc send fmd status"), kBusy, "tqctl: ipc send: fmd: Connection timed out\n"));
}

TEST_F(TqctlIpc, ADaemonWhoseQueueIsFullEndsWithThree) {
    const int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = abstract_address("fmd");
    while (sendto(sock, "x", 1, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address),
                  sizeof(address)) == 1)
        continue;
    close(sock);
    EXPECT_TRUE(fails(tqctl("ipc send fmd status 5"), kBusy, "Resource temporarily unavailable\n"));
}

TEST_F(TqctlIpc, ARequestThatIsTooLongEndsWithSix) {
    EXPECT_TRUE(fails(run_command("head -c 300000 /dev/zero | tqctl ipc send fmd -"), kInputOutput,
                      "standard input: Message too long\n"));
    EXPECT_TRUE(fails(run_command("head -c 262143 /dev/zero | tqctl ipc send fmd -"), kInputOutput,
                      "fmd: Message too long\n"));
    EXPECT_TRUE(fails(run_command("tqctl ipc send fmd - < /tmp"), kInputOutput,
                      "standard input: Is a directory\n"));
}

TEST_F(TqctlIpc, MisuseEndsWithTwo) {
    EXPECT_TRUE(fails(tqctl("ipc send fmd"), kUsage, "an argument is missing\nusage: "));
    EXPECT_TRUE(fails(tqctl("ipc send fmd ''"), kUsage, "an empty request is none\nusage: "));
    EXPECT_TRUE(fails(run_command("tqctl ipc send fmd - < /dev/null"), kUsage,
                      "an empty request is none\nusage: "));
    for (const std::string seconds : {"-1", "x", "", "1x", "2147483648"}) {
        EXPECT_TRUE(fails(tqctl("ipc send fmd status " + quote(seconds)), kUsage,
                          "'" + seconds + "' is not a number of seconds\nusage: "));
    }
}

}  // namespace
