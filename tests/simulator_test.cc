#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "simulator/commands.h"
#include "simulator/words.h"

static const char* const file = "/tmp/test.tree";

static void write(const std::string& text) { std::ofstream(file) << text; }

TEST(ParameterTree, SaysWhatIsWrongAndWhere) {
  const std::pair<const char*, const char*> rows[] = {
      {"# comment\n\n/a 1\n/b\n", ":4: No value"},
      {"/a \"1\n2\"\n/b 1 2\n", ":3: Too many words"},
      {"a 1\n", ":1: Path does not begin with '/'"},
      {"/a 1\n/b 2\n/a 3", ":3: Duplicate path"},
      {"/a 1\n/b \"x\n\n", ":2: Unclosed quote"},
      {"/a \"x\"y\n", ":1: Text directly after a closing quote"},
      {"/a x/>\n/b \"/> \"\n", ":2: Value holds the prompt text"},
  };
  for (const auto& [text, error] : rows) {
    write(text);
    std::string what;
    try {
      const ParameterTree tree(file);
    } catch (const std::runtime_error& e) {
      what = e.what();
    }
    EXPECT_EQ(what, file + std::string(error));
  }
}

TEST(ParameterTree, KeepsEveryValueAndAllElseOfItsFile) {
  write("# top\n/x \"\"\n\n# below\n /y  'y\"\n# end\n");
  for (const char* value : {"", "a b", "\r\n\t", "a\"b", "#", "\\", "\xc3\xa9", "'"}) {
    ParameterTree tree(file);
    EXPECT_EQ(answer(tree, {"put", "/x", value}), "");
    EXPECT_EQ(answer(tree, {"save"}), "");
    EXPECT_EQ(*ParameterTree(file).get("/x"), value);
  }
  std::ifstream stream(file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}),
            "# top\n/x '\n\n# below\n/y 'y\"\n# end\n");
}

TEST(Commands, AreAnsweredInOneLine) {
  write("/x 1\n");
  ParameterTree tree(file);
  const std::pair<std::string, std::string> rows[] = {
      {"ls /x", "1"},
      {"  ", ""},
      {"ls", "Usage: ls NAME"},
      {"ls /y", "No such file or directory"},
      {"put /x 2 3", "Usage: put NAME VALUE"},
      {"put /y 1", "No such file or directory"},
      {"put /x \"/> \"", "Value holds the prompt text"},
      {"put /x \"a\rb c\"", ""},
      {"ls  \"/x\"", "a\rb c"},
      {"apply x", "Usage: apply"},
      {"save x", "Usage: save"},
      {"quit", "Unknown command"},
  };
  for (const auto& [line, text] : rows) {
    WordSplitter words('\r');
    for (const char byte : line) EXPECT_FALSE(words.add(byte)) << line;
    EXPECT_TRUE(words.add('\r')) << line;
    EXPECT_EQ(answer(tree, words.words()), text) << line;
  }
}
