#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "config_client/protocol.h"
#include "config_client/uds_connection.h"
#include "tests/fake_daemon.h"

static std::string failure(const char* message, int number) {
  return std::string(message) + ": " + std::strerror(number);
}

TEST(UdsStatus, HasACodeAndAMessageEach) {
  int code = -1;
  for (const char* message : {"", "Ready", "UDS open failed", "UDS connect failed",
                              "UDS write failed", "UDS wait failed", "UDS read failed", ""}) {
    EXPECT_EQ(statusMessage(static_cast<UdsStatus>(code++)), message) << code;
  }
}

TEST(UdsConnection, StaysClosedWithoutADaemon) {
  unlink(socketPath);
  for (const int reason : {ENOENT, ECONNREFUSED}) {
    UdsConnection connection;
    std::string reply = "untouched";
    EXPECT_FALSE(connection.isOpen() || connection.sendLine("") || connection.readReply(reply) ||
                 connection.execute("ls /a", reply));
    EXPECT_EQ(reply, "untouched") << reason;
    EXPECT_EQ(connection.statusText(), failure("UDS connect failed", reason));
    FakeDaemon leavesItsSocketBehind(answersFrom({}));
  }
}

TEST(UdsConnection, OpensOnlyWhileDescriptorsLast) {
  FakeDaemon daemon(answersFrom({}));
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{3, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  UdsConnection connection;
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(connection.statusText(), failure("UDS open failed", EMFILE));
  connection.open();
  EXPECT_EQ(connection.statusText(), "Ready");
}

TEST(UdsConnection, EndsEachReplyAtItsFirstPrompt) {
  const std::string large(200000, 'x');
  const std::pair<std::string, std::string> rows[] = {
      {"abc\r\n/> ", "abc\r\n"},
      {"abc/> ", "abc"},
      {"/> ", ""},
      {"//> ", "/"},
      {"/>/ > />/> ", "/>/ > />"},
      {"a\xc3\xa9\x01/> ", "a\xc3\xa9\x01"},
      {large + "/> ", large},
  };
  for (const auto& [bytes, text] : rows) {
    for (const std::size_t piece : {1U, 2U, 3U, 0U}) {
      if (piece != 0 && bytes.size() > 100) continue;
      FakeDaemon daemon([bytes = bytes](const std::string&) { return Answer{bytes}; }, piece);
      UdsConnection connection;
      std::string reply = "old";
      for (const char* line : {"first", "second"}) {
        EXPECT_TRUE(connection.execute(line, reply)) << text << piece;
        EXPECT_EQ(reply, text) << piece;
        EXPECT_EQ(connection.statusText(), "Ready") << text << piece;
      }
    }
  }
}

TEST(UdsConnection, TakesOnlyWhatCameLaterForTheNextReply) {
  for (const std::size_t piece : {0U, 1U}) {
    FakeDaemon daemon([](const std::string& line) { return Answer{line + "/> rest/> "}; }, piece);
    UdsConnection connection;
    std::string reply;
    EXPECT_TRUE(piece == 0 ? connection.execute("one", reply) : connection.readReply(reply));
    EXPECT_EQ(reply, piece == 0 ? "one" : "rest");
  }
}

TEST(UdsConnection, EndsEachRequestWithOneCarriageReturn) {
  FakeDaemon daemon(answersFrom({}));
  {
    UdsConnection connection;
    std::string reply;
    for (const char* line : {"save", "apply\r", "line\n"}) connection.execute(line, reply);
    EXPECT_TRUE(connection.sendLine(""));
  }
  EXPECT_EQ(daemon.requests(), (Lines{"save", "apply", "line\n"}));
}

TEST(UdsConnection, ClosesForGoodWhenTheDaemonGoes) {
  // By itself, process 1 would not die of it.
  static_cast<void>(std::signal(SIGPIPE, [](int) { _exit(1); }));
  std::string reply = "untouched";
  {
    FakeDaemon daemon([](const std::string&) { return Answer{"/> ", true}; });
    UdsConnection connection;
    daemon.requests();  // it has gone
    for (int i = 0; i < 2; ++i) EXPECT_FALSE(connection.execute("ls /a", reply));
    EXPECT_EQ(connection.statusText(), failure("UDS write failed", EPIPE));
    EXPECT_EQ(reply, "untouched");
  }
  FakeDaemon daemon([](const std::string& line) {
    return line.empty() ? Answer{"/> "} : Answer{"half a re", true};
  });
  UdsConnection connection;
  EXPECT_FALSE(connection.execute("ls /a", reply));
  EXPECT_EQ(reply, "half a re");
  EXPECT_EQ(connection.statusText(), failure("UDS read failed", ECONNRESET));
  EXPECT_FALSE(connection.isOpen());
}
