#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <tuple>

#include "cgi/reply.h"
#include "config_client/change_set_entries.h"
#include "config_client/config_client.h"
#include "config_client/protocol.h"
#include "config_client/trim.h"
#include "tests/fake_daemon.h"
#include "write_service/parameter_access.h"

static std::string failure(const char* message, int number) {
  return std::string(message) + ": " + std::strerror(number);
}

TEST(Texts, AreEscapedAndTrimmed) {
  const std::string others("\x00\x01\x07\x0b\x0e\x1f\x7f\x80\xff\xc3\xa9", 11);
  EXPECT_EQ(jsonEscape(others + "/\"\\\b\f\n\r\t"), others + R"(\/\"\\\b\f\n\r\t)");
  for (const std::string inner : {"", "a \t b", "\xa0\xff", "\x1f"}) {
    std::string text = " \t\n\v\f\r" + inner + "\r\n \v";
    trim(text);
    EXPECT_EQ(text, inner);
  }
}

TEST(ChangeSetEntries, AreSelectedAndCompared) {
  const ChangeSet base{{"/a", "1"}, {"/b", "2"}, {"/c", "3"}};
  const ChangeSet other{{"/z", "9"}, {"/c", "x"}, {"/b", "2"}, {"/A", ""}};
  const ChangeSet selected{{"/a", "1"}, {"/c", "3"}};
  EXPECT_EQ(selectEntries(base, {"/c", "/none", "/a", "/c"}), selected);
  EXPECT_EQ(changedEntries(base, other), (ChangeSetEntries{{"/c", "x"}}));
  EXPECT_EQ(addedEntries(base, other), (ChangeSetEntries{{"/A", ""}, {"/z", "9"}}));
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
  const std::string large(1U << 20U, '/');
  const std::string rows[] = {"abc\r\n", "abc", "", "/", "/>/ > />", {"a\0\xc3\xa9\x01", 5}, large};
  const std::clock_t begin = std::clock();
  for (std::size_t from = 0; from < 50; ++from) EXPECT_GT(large.find(prompt, from), large.size());
  const std::clock_t searches = std::clock() - begin;
  for (const std::string& text : rows) {
    for (const std::size_t piece : {1U, 2U, 3U, 1024U, 0U}) {
      if (piece != 0 && text.size() > piece * 1024) continue;
      FakeDaemon daemon([&](const std::string&) { return text + "/> "; }, piece);
      UdsConnection connection;
      std::string reply = "old";
      for (const char* line : {"first", "second"}) {
        EXPECT_TRUE(connection.execute(line, reply)) << piece;
        EXPECT_TRUE(reply == text) << text.substr(0, 9) << piece << reply.substr(0, 9);
      }
    }
  }
  // It does not search all of the large reply again for each piece.
  EXPECT_LT(std::clock() - begin, 20 * searches);
}

TEST(UdsConnection, TakesOnlyWhatCameLaterForTheNextReply) {
  for (const std::size_t piece : {0U, 1U}) {
    FakeDaemon daemon([](const std::string& line) { return line + "/> rest/> "; }, piece);
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
  EXPECT_EQ(daemon.requests(), "save\napply\nline\n\n");
}

/// A spent client fails every request and only trims the texts.
static void expectSpent(ConfigClient& client, const char* readText, const std::string& status) {
  std::string text = " kept ";
  EXPECT_FALSE(client.isConnected() || client.apply(text) || client.save(text) ||
               client.put("/a", "1", text));
  EXPECT_EQ(text, " kept ");
  EXPECT_FALSE(client.get("/a", text));
  EXPECT_EQ(text, readText);
  EXPECT_EQ(client.statusText(), status);
}

TEST(ConfigClient, EndsABatchAtTheFirstFailure) {
  FakeDaemon daemon(
      [](const std::string& line) { return line == "put /b 2" ? "tw" : "one\r\n/> "; });
  ConfigClient client;
  std::string text = "old";
  EXPECT_TRUE(client.put({}, text) && text.empty());
  EXPECT_FALSE(client.put({{"/a", "1"}, {"/b", "2"}, {"/c", "3"}}, text));
  EXPECT_EQ(text, "one\r\ntw");
  EXPECT_EQ(daemon.requests(), "put /a 1\nput /b 2\n");
  expectSpent(client, "kept", failure("UDS read failed", ECONNRESET));
  ChangeSet changes;
  EXPECT_FALSE(setIfChanged(client, changes, "/a", "1"));
  EXPECT_FALSE(getEffectiveValue(client, changes, "/a", text));

  const ConfigClient other(std::move(client));
  expectSpent(client, " kept ", "No socket");
  EXPECT_FALSE(client.put({{"/a", "1"}}, text));
  EXPECT_EQ(text, "one\r\ntw");
}

TEST(ConfigClient, FailsWithoutASignalWhenTheDaemonHasGone) {
  // By itself, process 1 would not die of it.
  std::ignore = std::signal(SIGPIPE, [](int) { _exit(1); });
  FakeDaemon daemon([](const std::string&) { return "/> that was it"; });
  ConfigClient client;
  daemon.requests();  // it has gone
  std::string text = "old";
  EXPECT_FALSE(client.put("/a", "1", text));
  expectSpent(client, "kept", failure("UDS write failed", EPIPE));
  EXPECT_EQ(text, "old");
}
