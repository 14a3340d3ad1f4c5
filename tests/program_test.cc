#include <gtest/gtest.h>
#include <unistd.h>

#include "config_client/protocol.h"
#include "tests/program.h"

TEST(Program, AnswersReads) {
  const Tree stored{{"/a", "1"}, {"/b", "\"2\"\n\\"},   {"/c", "No such file or directory!"},
                    {"/\t", ""}, {" /a", "never sent"}, {" ", "never sent"}};
  const std::pair<const char*, const char*> rows[] = {
      {"READ=/a&read=/b", R"({ "\/a": "1" })"},
      {"read=/a&write=/a&value=2", R"({ "\/a": "1" })"},
      {"x=1&read=,/a,", R"({ "\/a": "1" })"},
      {"read=/a,%0D%0A/b", R"({ "\/a": "1", "\/b": "\"2\"\n\\" })"},
      {"read=/a,/a", R"({ "\/a": "1", "\/a": "1" })"},
      {"read=/c", R"({ "\/c": "No such file or directory!" })"},
      {"read=/%09", R"({ "\/\t": "" })"},
      {"read=/x, /a,/\"x,/x", R"({ "invalid": [ "/x", " /a", "/"x", "/x" ] })"},
      {"read=/x,/a", R"({ "\/a": "1", "invalid": [ "/x" ] })"},
      {"read=+", R"({ "invalid": [ " " ] })"},
      {"read=,", ""},
  };
  for (const auto& [fields, body] : rows) {
    FakeDaemon daemon(answersFrom(stored));
    EXPECT_EQ(runProgram({{query(fields)}}), replied(json + body + (*body == '\0' ? "" : "\n")))
        << fields;
  }
}

TEST(Program, TakesItsFieldsFromEveryKindOfRequest) {
  const Response tooLong{"", 1, noProcess, {}};
  const std::string noNames = "11 parent No parameter names in read request";
  const std::string readA = query("read=/a");
  const std::string limit = "CGICC_MAX_CONTENTLENGTH=";
  const struct {
    Strings environment;
    std::string body;
    Response response;
  } rows[] = {
      {{post, form, length + "7", query("read=/b")}, "read=/a", usual},
      {{post, form, length + "7", limit + "7"}, "read=/a", usual},
      {{"REQUEST_METHOD=Post", form, length + "7", limit + "6"}, "read=/a", tooLong},
      {{"REQUEST_METHOD=pUt", form, length + "7", limit + "x"}, "read=/a", tooLong},
      {{"REQUEST_METHOD=GET", length + "1", limit + "0", readA}, "-", usual},
      {{length + "1", limit + "x", readA}, "", usual},
      {{post, limit + "x", readA}, "", usual},
      {{post, form, length + "9"}, "read=/a", failed("I/O error")},
      {{query("read=")}, "", {"HTTP/1.1 400 Bad Request\n\n", 0, noProcess, {noNames}}},
      {{query("write=/a")}, "", replied("")},
      {{query("value=1&reads=/a")}, "", replied("")},
  };
  for (const auto& [environment, body, response] : rows) {
    FakeDaemon daemon(answersFrom({{"/a", "1"}}));
    EXPECT_EQ(runProgram({environment, body}), response) << testing::PrintToString(environment);
  }
}

TEST(Program, RefusesEveryRequestWithoutADaemon) {
  unlink(socketPath);
  for (const char* fields : {"read=/a", "read=", "write=/a&value=1", "write=/a%0A&value=1"}) {
    EXPECT_EQ(runProgram({{query(fields)}}), replied(serverError)) << fields;
  }
}
