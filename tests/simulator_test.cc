#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "config_client/config_client.h"
#include "config_client/protocol.h"
#include "simulator/commands.h"
#include "simulator/parameter_tree.h"

static const char* const file = "/tmp/test.tree";

static void write(const std::string& text) { std::ofstream(file) << text; }

static std::string read() {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

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
    try {
      const ParameterTree tree(file);
      ADD_FAILURE() << text;
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(e.what(), file + std::string(error));
    }
  }
}

TEST(ParameterTree, KeepsEveryValueAndAllElseOfItsFile) {
  write("# top\n/x \"\"\n\n# below\n /y  'y\"\n# end\n");
  for (const char* value : {"", "a b", "\r\n\t", "a\"b", "#", "\\", "\xc3\xa9", "'"}) {
    ParameterTree tree(file);
    EXPECT_EQ(answer(tree, {"put", "/x", value}), "");
    EXPECT_EQ(answer(tree, {"ls", "/x"}), value);
    EXPECT_EQ(answer(tree, {"save"}), "");
    EXPECT_EQ(*ParameterTree(file).get("/x"), value);
  }
  EXPECT_EQ(read(), "# top\n/x '\n\n# below\n/y 'y\"\n# end\n");
}

TEST(Commands, AnswerMistakesInOneLine) {
  write("/x 1\n");
  ParameterTree tree(file);
  const std::string unknown = "No such file or directory";
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{}, ""},
      {{"ls"}, "Usage: ls NAME"},
      {{"ls", "/y"}, unknown},
      {{"put", "/x", "2", "3"}, "Usage: put NAME VALUE"},
      {{"put", "/y", "1"}, unknown},
      {{"put", "/x", "/> "}, "Value holds the prompt text"},
      {{"apply", "x"}, "Usage: apply"},
      {{"save", "x"}, "Usage: save"},
      {{"quit"}, "Unknown command"},
      {{"ls", "/x"}, "1"},
  };
  for (const auto& [words, text] : rows) EXPECT_EQ(answer(tree, words), text);
}

/// Starts the simulator; returns when it listens or has failed.
static pid_t start(std::string& output) {
  int out[2];
  EXPECT_EQ(pipe(out), 0);
  const pid_t process = fork();
  if (process == 0) {
    dup2(out[1], STDOUT_FILENO);
    dup2(out[1], STDERR_FILENO);
    close(out[1]);
    execl(TEST_SIMULATOR, TEST_SIMULATOR, "--tree", file, nullptr);
    _exit(127);
  }
  close(out[1]);
  output.clear();
  for (char byte = 0; byte != '\n' && ::read(out[0], &byte, 1) == 1;) output += byte;
  close(out[0]);
  return process;
}

static int end(pid_t process, int signal) {
  int status = 0;
  kill(process, signal);
  waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Simulator, ServesSeveralClientsAndLeavesNoSocketBehind) {
  write("/x 1\n");
  std::string output;
  pid_t daemon = start(output);
  EXPECT_EQ(output, "Listening on /tmp/cffs_uds\n");
  UdsConnection one;
  UdsConnection two;
  std::string reply;
  EXPECT_TRUE(one.execute("put /x \"a\rb c\"", reply));
  EXPECT_EQ(reply, "");
  for (const char* request : {"put /x \"open", "put /x \"a\"b", "put /y 1"}) {
    EXPECT_TRUE(two.execute(request, reply)) << request;
    EXPECT_NE(reply, "") << request;
  }
  EXPECT_TRUE(two.execute("ls /x", reply));
  EXPECT_EQ(reply, "a\rb c\r\n");
  EXPECT_TRUE(one.execute("save", reply));

  std::string other;
  const pid_t second = start(other);
  EXPECT_EQ(end(second, 0), 1);
  EXPECT_EQ(other, "/tmp/cffs_uds: a daemon already listens there\n");

  end(daemon, SIGKILL);  // its socket stays
  EXPECT_EQ(access(socketPath, F_OK), 0);
  for (const int signal : {SIGINT, SIGTERM}) {
    daemon = start(output);
    EXPECT_TRUE(ConfigClient().isConnected());
    EXPECT_EQ(end(daemon, signal), 0);
    EXPECT_NE(access(socketPath, F_OK), 0);
  }
  EXPECT_EQ(read(), "/x \"a\rb c\"\n");
  std::ofstream stray(socketPath);
  EXPECT_EQ(end(start(output), 0), 1);
  EXPECT_EQ(output, "/tmp/cffs_uds: exists and is not a socket\n");
}
