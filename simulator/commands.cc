#include "simulator/commands.h"

#include <system_error>

#include "config_client/protocol.h"

static std::string readParameter(const ParameterTree& tree, const std::string& path) {
  const std::string* value = tree.get(path);
  return value != nullptr ? *value : std::string(noSuchParameter);
}

static std::string save(const ParameterTree& tree) {
  try {
    tree.save();
  } catch (const std::system_error& e) {
    return "Cannot save: " + e.code().message();
  }
  return "";
}

std::string answer(ParameterTree& tree, const std::vector<std::string>& words) {
  if (words.empty()) return "";
  const std::string& command = words[0];
  const std::size_t arguments = words.size() - 1;
  if (command == "ls") return arguments == 1 ? readParameter(tree, words[1]) : "Usage: ls NAME";
  if (command == "put") {
    return arguments == 2 ? std::string(tree.put(words[1], words[2])) : "Usage: put NAME VALUE";
  }
  if (command == "apply") return arguments == 0 ? "" : "Usage: apply";
  if (command == "save") return arguments == 0 ? save(tree) : "Usage: save";
  return "Unknown command";
}
