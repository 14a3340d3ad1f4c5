#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>

#include "config_client/protocol.h"
#include "simulator/parameter_tree.h"
#include "simulator/server.h"

/// Throws like `ParameterTree` and `serve`.
static int run(int argc, char** argv) {
  CLI::App app{"Plays the appliance's configuration daemon, for work without the appliance."};
  std::string treeFile;
  std::string socketFile = socketPath;
  bool verbose = false;
  app.add_option("--tree", treeFile, "The parameters and their values; \"save\" rewrites it")
      ->required()
      ->option_text("FILE (required)");
  app.add_option("--socket", socketFile, "Where to listen; " + socketFile + " unless given")
      ->option_text("PATH");
  app.add_flag("--verbose", verbose, "Write the dialogues to standard error");
  CLI11_PARSE(app, argc, argv);
  ParameterTree tree(treeFile);
  serve(tree, socketFile, verbose);
  return 0;
}

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
  }
}
