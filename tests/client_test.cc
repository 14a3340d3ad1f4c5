#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "cgi/reply.h"
#include "config_client/change_set_entries.h"
#include "config_client/config_client.h"
#include "config_client/trim.h"
#include "tests/fake_daemon.h"

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

TEST(ConfigClient, SendsEachCommandAndPassesTheAnswerOn) {
  FakeDaemon daemon(answersFrom({{"/a", " \t4 2\r\n\n"}}, {{"put", "ok"}, {"apply", " on "}}));
  std::string text = "old";
  {
    ConfigClient client;
    EXPECT_TRUE(client.put({}, text) && text.empty());
    EXPECT_TRUE(client.get("/a", text) && text == "4 2") << text;
    EXPECT_TRUE(client.get("/none", text) && text == "No such file or directory") << text;
    EXPECT_TRUE(client.put({{"/b", "two words"}, {"/B", ""}, {"/b/c", "\"q\""}}, text));
    EXPECT_EQ(text, "ok\r\nok\r\nok\r\n");
    EXPECT_TRUE(client.put("/d", "1", text) && text == "ok\r\n") << text;
    EXPECT_TRUE(client.apply(text) && text == " on \r\n") << text;
    EXPECT_TRUE(client.save(text) && text.empty()) << text;
    EXPECT_EQ(client.statusText(), "Ready");
  }
  EXPECT_EQ(daemon.requests(), (Lines{"ls /a", "ls /none", "put /B ", "put /b two words",
                                      "put /b/c \"q\"", "put /d 1", "apply", "save"}));
}

/// A spent client, whatever spent it, fails every request and touches no text but to trim it.
static void expectSpent(ConfigClient& client, const char* readText) {
  std::string text = " kept ";
  EXPECT_FALSE(client.isConnected());
  EXPECT_FALSE(client.apply(text));
  EXPECT_FALSE(client.save(text));
  EXPECT_FALSE(client.put("/a", "1", text));
  EXPECT_EQ(text, " kept ");
  EXPECT_FALSE(client.get("/a", text));
  EXPECT_EQ(text, readText);
}

TEST(ConfigClient, EndsABatchAtTheFirstFailure) {
  FakeDaemon daemon([](const std::string& line) {
    return line == "put /b 2" ? Answer{"tw", true} : Answer{"one\r\n/> "};
  });
  ConfigClient client;
  std::string text = "old";
  EXPECT_FALSE(client.put({{"/a", "1"}, {"/b", "2"}, {"/c", "3"}}, text));
  EXPECT_EQ(text, "one\r\ntw");
  EXPECT_EQ(daemon.requests(), (Lines{"put /a 1", "put /b 2"}));
  expectSpent(client, "kept");
  EXPECT_EQ(client.statusText(), std::string("UDS read failed: ") + std::strerror(ECONNRESET));

  const ConfigClient other(std::move(client));
  expectSpent(client, " kept ");  // NOLINT(bugprone-use-after-move): defined on purpose
  EXPECT_FALSE(client.put({{"/a", "1"}}, text));
  EXPECT_EQ(text, "one\r\ntw");
  EXPECT_EQ(client.statusText(), "No socket");
}
