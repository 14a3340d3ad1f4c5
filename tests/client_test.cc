#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "cgi/reply.h"
#include "config_client/change_set_entries.h"
#include "config_client/config_client.h"
#include "config_client/trim.h"
#include "tests/fake_daemon.h"

TEST(JsonEscape, EscapesEightBytesAndNoOther) {
  const std::string controls("\x00\x01\x07\x0b\x0e\x1f\x7f\x80\xff\xc3\xa9", 11);
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {"/a/b", R"(\/a\/b)"},
      {R"(a"b\c)", R"(a\"b\\c)"},
      {"\b\f\n\r\t", R"(\b\f\n\r\t)"},
      {controls, controls},
  };
  for (const auto& [text, escaped] : rows) EXPECT_EQ(jsonEscape(text), escaped) << text;
}

TEST(Trim, TakesWhiteSpaceFromTheEndsOnly) {
  const std::string rows[] = {"", "a", "a \t b", "\xa0\xff", "\x1f"};
  for (const std::string& row : rows) {
    std::string text = " \t\n\v\f\r" + row + "\r\n \v";
    trim(text);
    EXPECT_EQ(text, row);
  }
  std::string left = " a ";
  std::string right = left;
  trimLeft(left);
  trimRight(right);
  EXPECT_EQ(left + "|" + right, "a | a");
}

TEST(ChangeSetEntries, SelectsAndCompares) {
  const ChangeSet base{{"/a", "1"}, {"/b", "2"}, {"/c", "3"}};
  const ChangeSet other{{"/z", "9"}, {"/c", "x"}, {"/b", "2"}, {"/A", ""}};
  EXPECT_EQ(selectEntries(base, {"/c", "/none", "/a", "/c"}),
            (ChangeSet{{"/a", "1"}, {"/c", "3"}}));
  EXPECT_EQ(changedEntries(base, other), (ChangeSetEntries{{"/c", "x"}}));
  EXPECT_EQ(addedEntries(base, other), (ChangeSetEntries{{"/A", ""}, {"/z", "9"}}));
}

TEST(ConfigClient, SendsEachCommandAndPassesTheAnswerOn) {
  FakeDaemon daemon(answersFrom({{"/a", " \t4 2\r\n\n"}}, {{"put", "Done"}, {"apply", " on "}}));
  std::string text = "old";
  {
    ConfigClient client;
    ASSERT_TRUE(client.isConnected());
    EXPECT_TRUE(client.get("/a", text));
    EXPECT_EQ(text, "4 2");
    EXPECT_TRUE(client.get("/none", text));
    EXPECT_EQ(text, "No such file or directory");
    EXPECT_TRUE(client.put({}, text));
    EXPECT_EQ(text, "");
    EXPECT_TRUE(client.put({{"/b", "two words"}, {"/B", ""}, {"/b/c", "\"q\""}}, text));
    EXPECT_EQ(text, "Done\r\nDone\r\nDone\r\n");
    EXPECT_TRUE(client.put("/d", "1", text));
    EXPECT_EQ(text, "Done\r\n");
    EXPECT_TRUE(client.apply(text));
    EXPECT_EQ(text, " on \r\n");
    EXPECT_TRUE(client.save(text));
    EXPECT_EQ(text, "");
    EXPECT_EQ(client.statusText(), "Ready");
  }
  EXPECT_EQ(daemon.requests(), (Lines{"ls /a", "ls /none", "put /B ", "put /b two words",
                                      "put /b/c \"q\"", "put /d 1", "apply", "save"}));
}

TEST(ConfigClient, EndsABatchAtTheFirstFailureAndIsSpentThen) {
  int puts = 0;
  FakeDaemon daemon([&puts](const std::string& line) -> Answer {
    if (line.empty()) return {"/> "};
    return ++puts == 1 ? Answer{"one\r\n/> "} : Answer{"tw", true};
  });
  ConfigClient client;
  std::string text = "old";
  EXPECT_FALSE(client.put({{"/a", "1"}, {"/b", "2"}, {"/c", "3"}}, text));
  EXPECT_EQ(text, "one\r\ntw");
  EXPECT_EQ(daemon.requests(), (Lines{"put /a 1", "put /b 2"}));
  EXPECT_FALSE(client.isConnected());

  text = " kept ";
  EXPECT_FALSE(client.apply(text));
  EXPECT_FALSE(client.save(text));
  EXPECT_FALSE(client.put("/a", "1", text));
  EXPECT_EQ(text, " kept ");
  EXPECT_FALSE(client.get("/a", text));
  EXPECT_EQ(text, "kept");
  EXPECT_EQ(client.statusText(), std::string("UDS read failed: ") + std::strerror(ECONNRESET));
}

TEST(ConfigClient, HasNoSocketOnceMovedFrom) {
  ConfigClient client;  // no daemon either
  EXPECT_FALSE(client.isConnected());
  EXPECT_EQ(client.statusText().rfind("UDS connect failed: ", 0), 0U);
  const ConfigClient other(std::move(client));
  std::string text = " kept ";
  // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): defined on purpose
  EXPECT_FALSE(client.isConnected());
  EXPECT_FALSE(client.get("/a", text));
  EXPECT_FALSE(client.put({{"/a", "1"}}, text));
  EXPECT_FALSE(client.put("/a", "1", text));
  EXPECT_FALSE(client.apply(text));
  EXPECT_FALSE(client.save(text));
  EXPECT_EQ(text, " kept ");
  EXPECT_EQ(client.statusText(), "No socket");
}
