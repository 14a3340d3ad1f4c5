#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "config_client/protocol.h"
#include "config_client/uds_connection.h"
#include "tests/fake_daemon.h"

static std::string failure(const char* message, int number) {
  return std::string(message) + ": " + std::strerror(number);
}

TEST(UdsStatus, HasACodeAndAMessageEach) {
  const char* const messages[] = {
      "Ready",           "UDS open failed", "UDS connect failed", "UDS write failed",
      "UDS wait failed", "UDS read failed"};
  int code = 0;
  for (const char* message : messages) {
    EXPECT_EQ(statusMessage(static_cast<UdsStatus>(code)), message) << code;
    ++code;
  }
  EXPECT_EQ(statusMessage(static_cast<UdsStatus>(6)), "");
  EXPECT_EQ(statusMessage(static_cast<UdsStatus>(-1)), "");
}

TEST(UdsConnection, StaysClosedWithoutADaemon) {
  for (const int reason : {ENOENT, ECONNREFUSED}) {
    unlink(socketPath);
    if (reason == ECONNREFUSED) {  // what a daemon leaves behind that died
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::memcpy(address.sun_path, socketPath, sizeof socketPath);
      const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
      ASSERT_EQ(bind(dead, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
      close(dead);
    }
    UdsConnection connection;
    std::string reply = "untouched";
    EXPECT_FALSE(connection.isOpen()) << reason;
    EXPECT_FALSE(connection.sendLine("ls /a")) << reason;
    EXPECT_FALSE(connection.sendLine("")) << reason;
    EXPECT_FALSE(connection.readReply(reply)) << reason;
    EXPECT_FALSE(connection.execute("ls /a", reply)) << reason;
    EXPECT_EQ(reply, "untouched") << reason;
    EXPECT_EQ(connection.statusText(), failure("UDS connect failed", reason));
  }
}

TEST(UdsConnection, OpensOnlyWhileDescriptorsLast) {
  FakeDaemon daemon(answersFrom({}));
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{3, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  UdsConnection connection;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_FALSE(connection.isOpen());
  EXPECT_EQ(connection.statusText(), failure("UDS open failed", EMFILE));
  connection.open();
  EXPECT_EQ(connection.statusText(), "Ready");
}

TEST(UdsConnection, EndsEachReplyAtItsFirstPrompt) {
  const struct {
    const char *bytes, *reply;
  } rows[] = {
      {"abc\r\n/> ", "abc\r\n"},
      {"abc/> ", "abc"},
      {"/> ", ""},
      {"//> ", "/"},
      {"/>/ > />/> ", "/>/ > />"},
      {"a\xc3\xa9\x01/> ", "a\xc3\xa9\x01"},
  };
  for (const auto& row : rows) {
    for (const std::size_t piece : {1U, 2U, 3U, 0U}) {
      FakeDaemon daemon([&](const std::string&) { return Answer{row.bytes}; }, piece);
      UdsConnection connection;
      std::string reply = "old";
      EXPECT_EQ(connection.statusText(), "Ready") << row.bytes << piece;
      EXPECT_TRUE(connection.execute("first", reply)) << row.bytes << piece;
      EXPECT_EQ(reply, row.reply) << row.bytes << piece;
      EXPECT_TRUE(connection.execute("second", reply)) << row.bytes << piece;
      EXPECT_EQ(reply, row.reply) << row.bytes << piece;
      EXPECT_EQ(connection.statusText(), "Ready") << row.bytes << piece;
      connection.close();
      EXPECT_EQ(daemon.requests(), (Lines{"first", "second"})) << row.bytes << piece;
    }
  }
}

TEST(UdsConnection, DropsWhatFollowsThePromptInTheSameChunk) {
  FakeDaemon daemon([](const std::string& line) { return Answer{line + "/> stray/> "}; });
  UdsConnection connection;
  std::string reply;
  for (const char* line : {"one", "two"}) {
    EXPECT_TRUE(connection.execute(line, reply));
    EXPECT_EQ(reply, line);
  }
}

TEST(UdsConnection, ReadsOnBehindAPromptWhoseRestCameLater) {
  FakeDaemon daemon([](const std::string& line) { return Answer{line + "/> rest/> "}; }, 1);
  UdsConnection connection;  // "rest" and its prompt are the greeting's
  std::string reply;
  EXPECT_TRUE(connection.readReply(reply));
  EXPECT_EQ(reply, "rest");
}

TEST(UdsConnection, TakesALongReplyWhole) {
  const std::string text(200000, 'x');
  FakeDaemon daemon([&](const std::string&) { return Answer{text + "/> "}; });
  UdsConnection connection;
  std::string reply;
  EXPECT_TRUE(connection.execute("ls /a", reply));
  EXPECT_EQ(reply, text);
}

TEST(UdsConnection, EndsEachRequestWithOneCarriageReturn) {
  FakeDaemon daemon(answersFrom({}));
  UdsConnection connection;
  std::string reply;
  const std::string request = "save";
  EXPECT_TRUE(connection.execute(request, reply));
  EXPECT_EQ(request, "save");
  EXPECT_TRUE(connection.execute("apply\r", reply));
  EXPECT_TRUE(connection.execute("line\n", reply));
  EXPECT_TRUE(connection.sendLine(""));
  connection.close();
  EXPECT_EQ(daemon.requests(), (Lines{"save", "apply", "line\n"}));
}

TEST(UdsConnection, ClosesForGoodWhenASendFails) {
  FakeDaemon daemon([](const std::string&) { return Answer{"/> ", true}; });
  UdsConnection connection;
  daemon.requests();  // the daemon has gone
  std::string reply = "untouched";
  EXPECT_FALSE(connection.execute("ls /a", reply));
  EXPECT_EQ(connection.statusText(), failure("UDS write failed", EPIPE));
  EXPECT_FALSE(connection.isOpen());
  EXPECT_FALSE(connection.execute("ls /a", reply));
  EXPECT_EQ(connection.statusText(), failure("UDS write failed", EPIPE));
  EXPECT_EQ(reply, "untouched");
}

TEST(UdsConnection, KeepsThePartOfAReplyThatAResetCutShort) {
  FakeDaemon daemon([](const std::string& line) {
    return line.empty() ? Answer{"/> "} : Answer{"half a re", true};
  });
  UdsConnection connection;
  std::string reply = "old";
  EXPECT_FALSE(connection.execute("ls /a", reply));
  EXPECT_EQ(reply, "half a re");
  EXPECT_EQ(connection.statusText(), failure("UDS read failed", ECONNRESET));
  EXPECT_FALSE(connection.isOpen());
}
