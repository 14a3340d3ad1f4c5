#include "simulator/parameter_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "config_client/protocol.h"
#include "simulator/words.h"

namespace {

/// A file descriptor, closed on destruction.
struct Descriptor {
  explicit Descriptor(int number) : fd(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(fd); }

  const int fd;
};

}  // namespace

/// Returns the `result` of a system call, and throws if it is negative: the call has failed.
template <typename Result>
static Result check(Result result, const std::string& file) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), file);
  return result;
}

static std::string readFile(const std::string& name) {
  const Descriptor source(check(open(name.c_str(), O_RDONLY | O_CLOEXEC), name));
  std::string text;
  char buffer[16384];
  while (const ssize_t size = check(read(source.fd, buffer, sizeof buffer), name)) {
    text.append(buffer, static_cast<std::size_t>(size));
  }
  return text;
}

static void fillFile(const std::string& name, int fd, const std::string& text, mode_t mode) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t size = check(write(fd, text.data() + done, text.size() - done), name);
    done += static_cast<std::size_t>(size);
  }
  check(fchmod(fd, mode), name);
  check(fsync(fd), name);
}

static void replaceFile(const std::string& name, const std::string& text) {
  struct stat old = {};
  const mode_t mode = stat(name.c_str(), &old) == 0 ? old.st_mode & 07777 : 0644;
  std::string temporary = name + ".XXXXXX";
  const Descriptor target(check(mkstemp(temporary.data()), temporary));
  try {
    fillFile(temporary, target.fd, text, mode);
    check(std::rename(temporary.c_str(), name.c_str()), name);
  } catch (...) {
    unlink(temporary.c_str());
    throw;
  }
  const std::string folder = std::filesystem::path(name).parent_path().string();
  check(fsync(Descriptor(check(open(folder.c_str(), O_RDONLY | O_CLOEXEC), folder)).fd), folder);
}

static constexpr std::string_view promptInValue = "Value holds the prompt text";

// Keep the real path: saving must not replace a symbolic link to the file.
ParameterTree::ParameterTree(const std::string& fileName)
    : file(std::filesystem::weakly_canonical(fileName).string()) {
  const std::string text = readFile(fileName);
  for (std::size_t position = 0; position < text.size();) {
    const std::size_t start = position;
    const std::size_t first = text.find_first_not_of(" \t\r\v\f", start);
    if (first == std::string::npos || text[first] == '\n' || text[first] == '#') {
      position = std::min(text.find('\n', start), text.size() - 1) + 1;
      lastComments.append(text, start, position - start);
      continue;
    }
    const std::string_view fault = readParameter(text, position);
    if (!fault.empty()) {
      const auto end = text.begin() + static_cast<std::ptrdiff_t>(start);
      const std::string line = std::to_string(std::count(text.begin(), end, '\n') + 1);
      throw std::runtime_error(
          std::string(fileName).append(":").append(line).append(": ").append(fault));
    }
  }
}

/// Reads the parameter at `position` and moves `position` behind its line. Returns the fault, or
/// nothing.
std::string_view ParameterTree::readParameter(const std::string& text, std::size_t& position) {
  WordSplitter line('\n');
  while (position < text.size() && !line.add(text[position])) ++position;
  ++position;
  if (!line.error().empty()) return line.error();
  const std::vector<std::string>& words = line.words();
  if (words[0].rfind('/', 0) != 0) return "Path does not begin with '/'";
  if (words.size() < 2) return "No value";
  if (words.size() > 2) return "Too many words";
  if (words[1].find(prompt) != std::string::npos) return promptInValue;
  if (!positions.emplace(words[0], parameters.size()).second) return "Duplicate path";
  parameters.push_back({std::exchange(lastComments, {}), words[0], words[1]});
  return {};
}

const std::string* ParameterTree::get(const std::string& path) const {
  const auto found = positions.find(path);
  return found != positions.end() ? &parameters[found->second].value : nullptr;
}

std::string_view ParameterTree::put(const std::string& path, const std::string& value) {
  const auto found = positions.find(path);
  if (found == positions.end()) return noSuchParameter;
  if (value.find(prompt) != std::string::npos) return promptInValue;
  parameters[found->second].value = value;
  return {};
}

void ParameterTree::save() const {
  std::string text;
  for (const Parameter& parameter : parameters) {
    text += parameter.comments + quoteIfNeeded(parameter.path) + ' ' +
            quoteIfNeeded(parameter.value) + '\n';
  }
  replaceFile(file, text + lastComments);
}
