#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "simulator/commands.h"
#include "simulator/words.h"

TEST(Simulator, AnswersInOneLineAndKeepsAllElseOfItsFile) {
  const char* const file = "/tmp/test.tree";
  std::ofstream(file) << "# top\n/x \"\"\n\n# below\n /y  'y\"\n# end\n";
  ParameterTree tree(file);
  const std::pair<std::string, std::string> rows[] = {
      {"ls /x", ""},
      {"ls /z", "No such file or directory"},
      {"put /z 1", "No such file or directory"},
      {"put /x 2 3", "Usage: put NAME VALUE"},
      {"put /x \"/> \"", "Value holds the prompt text"},
      {"put /x \"a\rb \n'\"", ""},
      {"ls  \"/x\"", "a\rb \n'"},
      {"ls /y", "'y\""},
      {"  ", ""},
      {"quit", "Unknown command"},
      {"save", ""},
  };
  for (const auto& [line, text] : rows) {
    WordSplitter words('\r');
    for (const char byte : line) EXPECT_FALSE(words.add(byte)) << line;
    EXPECT_TRUE(words.add('\r')) << line;
    EXPECT_EQ(answer(tree, words.words()), text) << line;
  }
  std::ifstream stream(file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}),
            "# top\n/x \"a\rb \n'\"\n\n# below\n/y 'y\"\n# end\n");
}
