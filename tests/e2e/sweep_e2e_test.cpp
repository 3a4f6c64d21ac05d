// The real executable, run as an ordinary user in a world of its own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <kalmora/sweep.hpp>

#include <atomic>
#include <csignal>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "internal/handles.hpp"
#include "platform/platform.hpp"
#include "support/bad_servers.hpp"
#include "support/sweep_world.hpp"

namespace {

using std::string_literals::operator""s;
using qal::test::answering;
using qal::test::Behaviour;
using qal::test::excessive_behaviours;
using qal::test::exists;
using qal::test::foreign_pid;
using qal::test::LiveOwner;
using qal::test::names_in;
using qal::test::RawServer;
using qal::test::read_file;
using qal::test::record_text;
using qal::test::RecordServer;
using qal::test::RefusingPort;
using qal::test::say_nothing;
using qal::test::succeeded_in_silence;
using qal::test::SweepWorld;
using qal::test::ToolStart;
using qal::test::useless_behaviours;
using qal::test::vanished_pid;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr char malformed[] = "not a record";

class SweepTool : public testing::Test {
 protected:
  void run(const ToolStart &start = {}) {
    EXPECT_TRUE(succeeded_in_silence(world_.run_tool(start)));
  }

  // Leaves `content` as the only record and returns whether it is still there after a run.
  bool keeps(std::string_view content) {
    const auto path = world_.record("halix_server1.dat", content);
    run();
    return exists(path);
  }
  void asks_once_and_forgets(const std::map<std::string, Behaviour> &behaviours) {
    for (const auto &[name, behaviour] : behaviours) {
      const RawServer server{behaviour};
      EXPECT_FALSE(keeps(record_for(server.url()))) << name;
      EXPECT_EQ(server.connections(), 1) << name;
    }
  }
  std::string live_record(std::string_view path = "/settle") const {
    return server_.record(owner_.pid(), path);
  }
  std::string record_for(const std::string &url) const {
    return record_text(url, RecordServer::user, RecordServer::password, owner_.pid());
  }
  std::vector<std::string> left() const { return names_in(world_.temporary()); }

  SweepWorld world_{KALMORA_SWEEP_PATH};
  LiveOwner owner_;
  RecordServer server_;
};

using SweepTable = SweepTool;
using SweepOrder = SweepTool;
using SweepHostileNames = SweepTool;
using SweepHostileContents = SweepTool;
using SweepServers = SweepTool;
using SweepStart = SweepTool;
using SweepCrash = SweepTool;

TEST_F(SweepTable, NotifiesTheServerOfALiveProcessAndDeletesTheRecord) {
  EXPECT_FALSE(keeps(live_record("/stop?now=1")));
  const auto requests = server_.requests();
  ASSERT_THAT(requests, SizeIs(1));
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].target, "/stop?now=1");
  EXPECT_EQ(requests[0].user, RecordServer::user);
  EXPECT_EQ(requests[0].password, RecordServer::password);
  EXPECT_EQ(requests[0].status, 200);
  EXPECT_EQ(requests[0].headers.count("Content-Length"), 0u);
}

TEST_F(SweepTable, TreatsAProcessThatItMayNotSignalLikeALiveOne) {
  EXPECT_FALSE(keeps(server_.record(foreign_pid())));
  EXPECT_THAT(server_.paths(), ElementsAre("/settle"));
}

TEST_F(SweepTable, NotifiesTheSweepingProcessItself) {
  // The tool's own id is not known beforehand; 0 stands for its own process group.
  EXPECT_FALSE(keeps(server_.record(0)));
  EXPECT_THAT(server_.paths(), ElementsAre("/settle"));
}

// Deliberate: the sweep follows the probe's answer, and that is 1 for a process that is gone.
TEST_F(SweepTable, KeepsTheRecordOfAVanishedProcessWithoutARequest) {
  EXPECT_TRUE(keeps(server_.record(vanished_pid())));
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(SweepTable, DeletesAMalformedRecordWithoutARequest) {
  EXPECT_FALSE(keeps(""));
  EXPECT_FALSE(keeps(" \n"));
  EXPECT_FALSE(keeps(server_.url() + " halix " + std::to_string(owner_.pid())));
  EXPECT_FALSE(keeps(server_.url() + " halix " + std::to_string(vanished_pid())));
  EXPECT_FALSE(keeps(server_.url() + " halix secret pid"));
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(SweepTable, DeletesALiveProcesssRecordWithAnEmptyTextWithoutARequest) {
  const auto pid = std::to_string(owner_.pid());
  EXPECT_FALSE(keeps(server_.url() + " \0 s3cret:word "s + pid));
  EXPECT_FALSE(keeps(server_.url() + " halix \0x "s + pid));
  EXPECT_FALSE(keeps("\0"s + server_.url() + " halix s3cret:word " + pid));
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(SweepTable, KeepsARecordThatItCannotOpen) {
  const auto path = world_.record("halix_server1.dat", live_record());
  chmod(path.c_str(), 0);
  run();
  EXPECT_TRUE(exists(path));
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(SweepTable, TriesRecordsAgainThatItCouldNotDelete) {
  world_.record("halix_server1.dat", live_record("/1"));
  world_.record("halix_server2.dat", live_record("/2"));
  chmod(world_.temporary().c_str(), 0555);
  run();
  EXPECT_THAT(server_.paths(), UnorderedElementsAre("/1", "/2"));
  EXPECT_THAT(left(), SizeIs(2));
  chmod(world_.temporary().c_str(), 0755);
  run();
  EXPECT_THAT(server_.requests(), SizeIs(4));
  EXPECT_THAT(left(), IsEmpty());
}

TEST_F(SweepOrder, SettlesTheResourceDirectoryFirstAndThenTheTemporaryOne) {
  world_.file(world_.resources() + "/halix_server1.dat", live_record("/resources"));
  world_.record("halix_server1.dat", live_record("/temporary"));
  run();
  EXPECT_THAT(server_.paths(), ElementsAre("/resources", "/temporary"));
  EXPECT_THAT(names_in(world_.resources()), IsEmpty());
  EXPECT_THAT(left(), IsEmpty());
}

TEST_F(SweepOrder, MakesOneRequestPerRecordInTheListingsOrder) {
  std::map<std::string, std::string> request_of;
  for (int i = 0; i < 25; ++i) {
    const auto path = "/" + std::to_string(i);
    request_of[world_.record("halix_server" + std::to_string(i * 7919) + ".dat",
                             live_record(path))] = path;
  }
  std::vector<std::string> expected;
  for (const auto &path : find_files(world_.temporary().c_str(), "halix_server*.dat")) {
    if (request_of.count(path)) expected.push_back(request_of[path]);
  }
  ASSERT_THAT(expected, SizeIs(25));
  run();
  EXPECT_EQ(server_.paths(), expected);
  EXPECT_THAT(left(), IsEmpty());
}

TEST_F(SweepOrder, AsksAServerOncePerRecord) {
  world_.record("halix_server1.dat", live_record());
  world_.record("halix_server2.dat", live_record());
  run();
  EXPECT_THAT(server_.paths(), ElementsAre("/settle", "/settle"));
}

TEST_F(SweepOrder, SweepsOneDirectoryTwiceWhenBothNamesMeanIt) {
  const auto in_resources = [this](const char *name, const std::string &content) {
    return world_.file(world_.resources() + "/" + name, content);
  };
  in_resources("halix_server1.dat", live_record("/first"));
  const auto kept = in_resources("halix_server2.dat", server_.record(vanished_pid()));
  // Too late for the first sweep's list, in time for the second.
  bool added = false;
  server_.before_answer([&] {
    if (!added) in_resources("halix_server3.dat", live_record("/second"));
    added = true;
  });
  run({.environment = {{"TMPDIR", world_.resources()}}});
  EXPECT_THAT(server_.paths(), ElementsAre("/first", "/second"));
  EXPECT_EQ(names_in(world_.resources()), std::vector{"halix_server2.dat"s});
}

TEST_F(SweepOrder, SweepsATemporaryDirectoryThatIsMadeMeanwhile) {
  const auto late = world_.root() + "/late";
  world_.file(world_.resources() + "/halix_server1.dat", live_record("/first"));
  server_.before_answer([&] {
    if (exists(late)) return;
    world_.directory("late");
    world_.file(late + "/halix_server2.dat", live_record("/second"));
  });
  run({.environment = {{"TMPDIR", late}}});
  EXPECT_THAT(server_.paths(), ElementsAre("/first", "/second"));
  EXPECT_THAT(names_in(late), IsEmpty());
}

TEST_F(SweepHostileNames, LeadNowhere) {
  world_.directory("tmp/halix_server");
  world_.directory("victim");
  for (const auto name : {"precious.dat", "halix_server1.dat", "notes.txt"}) {
    world_.file(world_.root() + "/victim/" + name, malformed);
    world_.file(world_.home() + "/" + name, malformed);
  }
  world_.record("notes.txt", malformed);
  for (const auto name :
       {"halix_server\\..\\..\\victim\\precious.dat",
        "halix_server\\..\\..\\victim\\halix_server1.dat",
        "halix_server\\..\\..\\home\\halix_server1.dat", "halix_server\nnotes.txt\n.dat",
        "halix_server\n\\..\\..\\victim\\halix_server1.dat",
        "halix_server\n..\\home\\notes.txt\n.dat",
        "halix_server\n..\\victim\\halix_server1.dat\n.dat", "halix_server\\.dat",
        "halix_server\n.dat", "halix_server\\\n.dat"}) {
    world_.record(name, malformed);
  }
  const auto before = world_.contents();
  run();
  EXPECT_EQ(world_.contents(), before);
}

TEST_F(SweepHostileNames, WithAnyOtherByteAreRecordNames) {
  int records = 0;
  for (const auto name :
       {"halix_server%s%n%d.dat", "halix_server\xff\xfe.dat", "halix_server\r\t .dat",
        "halix_server$(touch x);`id`.dat", "halix_server..dat", "halix_server.dat",
        "halix_server\x1b[2J.dat", "halix_server*?[].dat", "halix_server~.dat"}) {
    world_.record(name, live_record("/" + std::to_string(records++)));
  }
  run();
  EXPECT_THAT(left(), IsEmpty());
  EXPECT_THAT(server_.requests(), SizeIs(records));
}

// A name's piece may be the name of a record that really is there. It is settled once.
TEST_F(SweepHostileNames, ThatRepeatARecordsNameBringNoSecondRequest) {
  world_.record("halix_server1.dat", live_record());
  world_.record("halix_serverA\nhalix_server1.dat", live_record("/never"));
  run();
  EXPECT_THAT(server_.paths(), ElementsAre("/settle"));
  EXPECT_EQ(left(), std::vector{"halix_serverA\nhalix_server1.dat"s});
}

TEST_F(SweepHostileContents, OfAFifoAreNotWaitedFor) {
  ASSERT_EQ(mkfifo((world_.temporary() + "/halix_server1.dat").c_str(), 0666), 0);
  run();
  EXPECT_THAT(left(), IsEmpty());
}

TEST_F(SweepHostileContents, OfADeviceAreNotRead) {
  ASSERT_EQ(symlink("/dev/zero", (world_.temporary() + "/halix_server1.dat").c_str()), 0);
  run();
  EXPECT_THAT(left(), IsEmpty());
}

TEST_F(SweepHostileContents, OfADirectoryAreLeftAlone) {
  world_.directory("tmp/halix_server1.dat");
  world_.file(world_.temporary() + "/halix_server1.dat/halix_server2.dat", live_record());
  const auto before = world_.contents();
  run();
  EXPECT_EQ(world_.contents(), before);
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(SweepHostileContents, WithAnOverlongFieldSendNoCredentials) {
  const auto pid = std::to_string(owner_.pid());
  const auto longest = server_.url() + "/" + std::string(254 - server_.url().size(), 'x');
  EXPECT_FALSE(keeps(record_for(longest)));
  EXPECT_THAT(server_.requests(), SizeIs(1));
  EXPECT_FALSE(keeps(record_for(longest + "x")));
  // Split at 255 bytes, the rest would be user and password.
  EXPECT_FALSE(keeps(longest + "user password 1 " + pid));
  EXPECT_FALSE(keeps(server_.url() + " " + std::string(256, 'u') + " secret " + pid));
  EXPECT_FALSE(keeps(server_.url() + " halix " + std::string(256, 'p') + " " + pid));
  EXPECT_THAT(server_.requests(), SizeIs(1));
}

TEST_F(SweepHostileContents, WithAnIdOutOfRangeSendNoCredentials) {
  const std::string fields = server_.url() + " halix s3cret:word ";
  EXPECT_FALSE(keeps(fields + "2147483648"));
  EXPECT_FALSE(keeps(fields + "-2147483649"));
  EXPECT_FALSE(keeps(fields + std::to_string(4294967296 + owner_.pid())));
  EXPECT_FALSE(keeps(fields + "99999999999999999999999"));
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(SweepHostileContents, AreReadForOneMebibyteOnly) {
  EXPECT_FALSE(keeps(std::string(1 << 20, ' ') + live_record()));
  EXPECT_THAT(server_.requests(), IsEmpty());
  const auto record = live_record();
  EXPECT_FALSE(keeps(std::string((1 << 20) - record.size(), ' ') + record));
  EXPECT_THAT(server_.requests(), SizeIs(1));
}

TEST_F(SweepHostileContents, ThatReplaceTheRecordMeanwhileWaitForTheNextRun) {
  const auto path = world_.record("halix_server1.dat", live_record("/first"));
  const auto next = world_.file(world_.home() + "/next", live_record("/second"));
  server_.before_answer([&] { rename(next.c_str(), path.c_str()); });
  run();
  EXPECT_THAT(server_.paths(), ElementsAre("/first"));
  ASSERT_TRUE(exists(path));
  EXPECT_EQ(read_file(path), live_record("/second"));
  server_.before_answer(nullptr);
  run();
  EXPECT_THAT(server_.paths(), ElementsAre("/first", "/second"));
  EXPECT_FALSE(exists(path));
}

TEST_F(SweepHostileContents, OfALinkAreReadAndTheLinkIsDeleted) {
  const auto target = world_.file(world_.home() + "/target", live_record());
  ASSERT_EQ(symlink(target.c_str(), (world_.temporary() + "/halix_server1.dat").c_str()), 0);
  // Some systems follow no other user's link in a shared directory; this one is the user's own.
  ASSERT_EQ(
      lchown((world_.temporary() + "/halix_server1.dat").c_str(), geteuid() ? -1u : 65534u, -1u),
      0);
  run();
  EXPECT_THAT(server_.paths(), ElementsAre("/settle"));
  EXPECT_THAT(left(), IsEmpty());
  EXPECT_TRUE(exists(target));
}

// Only root can make a directory and links of others.
TEST_F(SweepHostileContents, OfAStrangersLinkInASharedDirectoryAreNotRead) {
  const bool root = geteuid() == 0;
  const auto link_to_record = [&](const std::string &name, uid_t owner) {
    const auto target = world_.file(world_.home() + "/" + name, live_record("/" + name));
    const auto path = world_.temporary() + "/halix_server_" + name + ".dat";
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
    ASSERT_EQ(lchown(path.c_str(), root ? owner : geteuid(), -1u), 0);
  };
  link_to_record("own", 65534);
  if (root) {
    ASSERT_EQ(chown(world_.temporary().c_str(), 0, 0), 0);
    link_to_record("keepers", 0);
    link_to_record("strangers", 1);
  }
  ASSERT_EQ(chmod(world_.temporary().c_str(), 01777), 0);
  run();
  if (!root) {
    EXPECT_THAT(server_.paths(), ElementsAre("/own"));
    EXPECT_THAT(left(), IsEmpty());
    return;
  }
  EXPECT_THAT(server_.paths(), UnorderedElementsAre("/own", "/keepers"));
  // What belongs to another cannot be deleted there either.
  EXPECT_THAT(left(), ElementsAre("halix_server_keepers.dat", "halix_server_strangers.dat"));
}

TEST_F(SweepServers, ThatRefuseTheCredentialsAreAskedOnce) {
  EXPECT_FALSE(keeps(record_text(server_.url(), "halix", "wrong", owner_.pid())));
  const auto requests = server_.requests();
  ASSERT_THAT(requests, SizeIs(1));
  EXPECT_EQ(requests[0].status, 401);
  EXPECT_EQ(requests[0].password, "wrong");
}

TEST_F(SweepServers, ThatRedirectAreNotFollowed) {
  EXPECT_FALSE(keeps(live_record(RecordServer::redirecting_path)));
  EXPECT_THAT(server_.paths(), ElementsAre(RecordServer::redirecting_path));
}

TEST_F(SweepServers, ThatNeverStopSendingAreCutOff) {
  asks_once_and_forgets(excessive_behaviours());
}

TEST_F(SweepServers, AreReadForLittleMoreThanOneMebibyte) {
  std::atomic<std::size_t> sent{0};
  const std::string piece = "HTTP/1.1 200 OK\r\n\r\n" + std::string(65'536, 'x');
  const RawServer server{[&](int connection) {
    while (send(connection, piece.data(), piece.size(), 0) > 0) sent += piece.size();
  }};
  EXPECT_FALSE(keeps(record_for(server.url())));
  EXPECT_GT(sent, 1U << 20U);
  EXPECT_LT(sent, 64U << 20U);  // the system's buffers hold some of it
}

TEST_F(SweepServers, ThatAnswerGarbageAreForgotten) { asks_once_and_forgets(useless_behaviours()); }

TEST_F(SweepServers, ThatAreNotThereAreForgotten) {
  const RefusingPort port;
  EXPECT_FALSE(keeps(record_for(port.url())));
}

// Takes as long as the tool's patience lasts.
TEST_F(SweepServers, ThatStaySilentAreGivenUp) {
  const RawServer silent{say_nothing};
  world_.record("halix_server1.dat", record_for(silent.url()));
  world_.record("halix_server2.dat", live_record());
  run();
  EXPECT_EQ(silent.connections(), 1);
  EXPECT_THAT(server_.paths(), ElementsAre("/settle"));
  EXPECT_THAT(left(), IsEmpty());
}

TEST_F(SweepServers, AreReachedPastEveryProxyOfTheEnvironment) {
  const RawServer proxy{answering("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")};
  world_.record("halix_server1.dat", live_record());
  ToolStart start;
  for (const auto name :
       {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
    start.environment[name] = "http://" + proxy.authority();
  }
  run(start);
  EXPECT_EQ(proxy.connections(), 0);
  EXPECT_THAT(server_.paths(), ElementsAre("/settle"));
}

TEST_F(SweepServers, GetTheRecordsCredentialsAndNoOthers) {
  // Of no use to libcurl anyway where it is given a name, as it is here.
  world_.file(world_.home() + "/.netrc", "machine 127.0.0.1 login other password other\n");
  const ToolStart start{.environment = {{"HOME", world_.home()}}};
  int number = 0;
  for (const auto embedded : {"", "other:wrong@", "other@", ":wrong@", "other:@"}) {
    world_.record("halix_server" + std::to_string(number++) + ".dat",
                  record_for("http://" + std::string(embedded) + server_.authority() + "/"));
  }
  run(start);
  const auto requests = server_.requests();
  ASSERT_THAT(requests, SizeIs(5));
  for (const auto &request : requests) {
    EXPECT_EQ(request.user, RecordServer::user);
    EXPECT_EQ(request.password, RecordServer::password);
  }
}

TEST_F(SweepServers, AreAskedByHttpWhenTheUrlNamesNoProtocol) {
  EXPECT_FALSE(keeps(record_for(server_.authority() + "/plain")));
  EXPECT_THAT(server_.paths(), ElementsAre("/plain"));
}

TEST_F(SweepServers, AreAskedByNoOtherProtocol) {
  const RawServer server{answering("")};
  for (const auto protocol : {"ftp", "gopher", "dict", "telnet", "ldap", "rtsp", "tftp", "mqtt"}) {
    EXPECT_FALSE(keeps(record_for(protocol + "://"s + server.authority() + "/"))) << protocol;
  }
  EXPECT_FALSE(keeps(record_for("\x01\x02://%zz")));
  EXPECT_FALSE(keeps(record_for("http://")));
  EXPECT_EQ(server.connections(), 0);
}

// As it stands in a record, whose fields end at blanks.
std::string file_url(const std::string &path) {
  std::string url = "file://";
  for (const char c : path) url += c == ' ' ? "%20" : std::string{c};
  EXPECT_LE(url.size(), 255U);
  return url;
}

TEST_F(SweepServers, AreNoFiles) {
  const auto fifo = world_.root() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
  chmod(fifo.c_str(), 0666);
  const qal::internal::Descriptor held{open(fifo.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)};
  ASSERT_EQ(write(held.get(), "untouched", 9), 9);
  EXPECT_FALSE(keeps(record_for(file_url(fifo))));
  char bytes[16];
  EXPECT_EQ(read(held.get(), bytes, sizeof bytes), 9);
}

TEST_F(SweepStart, WithNothingToDoSucceeds) {
  run();
  run({.unset = {"TMPDIR"}});
  run({.unset = {"TMPDIR", "ZUL_HOME"}});
}

TEST_F(SweepStart, WithAUselessTemporaryDirectorySweepsTheOtherOne) {
  for (const auto &useless : {world_.root() + "/missing", world_.file(world_.home() + "/file", ""),
                              std::string(3000, 'x'), "~nobody-of-this-name"s}) {
    world_.file(world_.resources() + "/halix_server1.dat", live_record());
    run({.environment = {{"TMPDIR", useless}}});
    EXPECT_THAT(names_in(world_.resources()), IsEmpty()) << useless;
  }
}

TEST_F(SweepStart, WithAHomeThatDoesNotFitSweepsTheTemporaryDirectoryAlone) {
  world_.record("halix_server1.dat", live_record());
  for (const std::size_t length : {1023u, 1024u, 5000u}) {
    run({.environment = {{"ZUL_USER_HOMEDIR", "/" + std::string(length, 'x')}}});
  }
  EXPECT_THAT(server_.paths(), ElementsAre("/settle"));
}

TEST_F(SweepStart, TakesNoArguments) {
  world_.record("halix_server1.dat", live_record());
  run({.arguments = {"kalmora-sweep", "--help", world_.home()}});
  EXPECT_THAT(server_.paths(), ElementsAre("/settle"));
}

TEST_F(SweepStart, UnderAnyNameSettlesRecords) {
  for (const auto &arguments : {std::vector<std::string>{},
                                {""},
                                {std::string(1023, 'n')},
                                {std::string(5000, 'n')},
                                {"%s%n"}}) {
    world_.record("halix_server1.dat", live_record());
    run({.arguments = arguments});
    EXPECT_THAT(left(), IsEmpty());
  }
  EXPECT_THAT(server_.requests(), SizeIs(5));
}

TEST_F(SweepStart, WithClosedStreamsSettlesRecords) {
  for (const auto &closed : {std::vector{0}, {1}, {2}, {0, 1}, {1, 2}, {0, 1, 2}}) {
    world_.record("halix_server1.dat", live_record());
    run({.closed_streams = closed});
    EXPECT_THAT(left(), IsEmpty());
  }
  EXPECT_THAT(server_.requests(), SizeIs(6));
}

// A file that is no library stands in for libcurl: a tool linked with libcurl could not start.
TEST_F(SweepStart, WithoutLibcurlKeepsWhatNeedsARequest) {
  const std::string library = qal::internal::platform::curl_library_name();
  world_.directory("lib");
  world_.file(world_.root() + "/lib/" + library, "not a library");
  world_.record("halix_server1.dat", live_record());
  world_.record("halix_server2.dat", server_.record(vanished_pid()));
  world_.record("halix_server3.dat", malformed);
  run({.environment = {{"LD_LIBRARY_PATH", world_.root() + "/lib"}}});
  EXPECT_THAT(server_.requests(), IsEmpty());
  EXPECT_THAT(left(), ElementsAre("halix_server1.dat", "halix_server2.dat"));
  run();
  EXPECT_THAT(server_.paths(), ElementsAre("/settle"));
  EXPECT_EQ(left(), std::vector{"halix_server2.dat"s});
}

TEST_F(SweepCrash, DuringARequestLeavesTheRecordToTheNextRun) {
  const auto path = world_.record("halix_server1.dat", live_record());
  server_.before_answer([this] {
    while (world_.tool_pid() == 0) std::this_thread::yield();
    kill(world_.tool_pid(), SIGKILL);
  });
  EXPECT_TRUE(world_.run_tool().killed_by(SIGKILL));
  EXPECT_TRUE(exists(path));
  server_.before_answer(nullptr);
  run();
  EXPECT_FALSE(exists(path));
  EXPECT_THAT(server_.paths(), ElementsAre("/settle", "/settle"));
}

TEST_F(SweepTool, SettlesEveryRecordBesideOtherSweeps) {
  constexpr int record_count = 200;
  constexpr int tool_count = 4;
  for (int i = 0; i < record_count; ++i) {
    world_.record("halix_server" + std::to_string(i) + ".dat",
                  live_record("/" + std::to_string(i)));
  }
  std::vector<std::thread> tools;
  for (int i = 0; i < tool_count; ++i) tools.emplace_back([this] { run(); });
  for (auto &tool : tools) tool.join();
  EXPECT_THAT(left(), IsEmpty());
  std::map<std::string, int> asked;
  for (const auto &path : server_.paths()) ++asked[path];
  EXPECT_THAT(asked, SizeIs(record_count));
  for (const auto &[path, times] : asked) EXPECT_LE(times, tool_count) << path;
}

TEST_F(SweepTool, KeepsAmongManyFilesWhatIsNotItsOwn) {
  for (int i = 0; i < 1000; ++i) {
    const auto number = std::to_string(i);
    world_.record("other" + number + ".dat", malformed);
    world_.record("halix_server" + number + ".dat", malformed);
    world_.record("halix_server" + number + "_gone.dat", server_.record(2147483647));
  }
  run();
  EXPECT_THAT(left(), SizeIs(2000));
  EXPECT_THAT(server_.requests(), IsEmpty());
}

}  // namespace
