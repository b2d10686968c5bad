#include "tests/fakes/shell.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>

#include "tests/fakes/files.h"

namespace tavo::fakes {
namespace {

struct Command {
  bool by_system;
  std::string text;
};

std::mutex mutex;
bool active = false;
std::vector<Command> run;
std::map<std::string, std::function<std::optional<std::string>(int)>> outputs;
std::set<FILE *> streams;
std::string last_mode;

// Records the command and returns what it prints; empty when it cannot be run.
std::optional<std::string> answer(bool by_system, const char *command) {
  std::function<std::optional<std::string>(int)> output;
  int call = 0;
  {
    const std::scoped_lock lock(mutex);
    run.push_back({by_system, command});
    const auto told = outputs.find(command);
    if (told == outputs.end()) {
      return "";
    }
    output = told->second;
    call = static_cast<int>(std::ranges::count(run, told->first, &Command::text));
  }
  return output(call);
}

bool is_active() {
  const std::scoped_lock lock(mutex);
  return active;
}

std::vector<std::string> texts(std::optional<bool> by_system) {
  const std::scoped_lock lock(mutex);
  std::vector<std::string> found;
  for (const Command &command : run) {
    if (!by_system || command.by_system == *by_system) {
      found.push_back(command.text);
    }
  }
  return found;
}

}  // namespace

FakeShell::FakeShell() {
  const std::scoped_lock lock(mutex);
  if (active) {
    throw std::logic_error("two fake shells at once");
  }
  active = true;
}

FakeShell::~FakeShell() {
  const std::scoped_lock lock(mutex);
  active = false;
  run.clear();
  outputs.clear();
}

void FakeShell::prints(const std::string &command, std::string output) {
  answers(command, [output = std::move(output)](int) { return output; });
}

void FakeShell::answers(const std::string &command, std::function<std::optional<std::string>(int)> output) {
  const std::scoped_lock lock(mutex);
  outputs.insert_or_assign(command, std::move(output));
}

std::vector<std::string> FakeShell::commands() const {
  return texts(std::nullopt);
}

std::vector<std::string> FakeShell::system_commands() const {
  return texts(true);
}

std::vector<std::string> FakeShell::popen_commands() const {
  return texts(false);
}

std::string last_popen_mode() {
  const std::scoped_lock lock(mutex);
  return last_mode;
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

extern "C" {

int __real_system(const char *command);
FILE *__real_popen(const char *command, const char *mode);
int __real_pclose(FILE *stream);

int __wrap_system(const char *command) {
  if (!is_active()) {
    return __real_system(command);
  }
  const std::optional<std::string> output = answer(true, command);
  if (!output) {
    return -1;
  }
  const std::string_view text = command;
  if (const std::size_t redirection = text.rfind(" > "); redirection != std::string_view::npos) {
    std::ofstream file(FakeFiles::real_path(text.substr(redirection + 3)), std::ios::binary | std::ios::trunc);
    file << *output;
  }
  return 0;
}

FILE *__wrap_popen(const char *command, const char *mode) {
  {
    const std::scoped_lock lock(mutex);
    last_mode = mode;
  }
  if (!is_active()) {
    return __real_popen(command, mode);
  }
  const std::optional<std::string> output = answer(false, command);
  if (!output) {
    errno = EAGAIN;  // as without a process
    return nullptr;
  }
  FILE *stream = std::tmpfile();
  if (stream == nullptr) {
    return nullptr;
  }
  std::fwrite(output->data(), 1, output->size(), stream);
  std::rewind(stream);
  const std::scoped_lock lock(mutex);
  streams.insert(stream);
  return stream;
}

int __wrap_pclose(FILE *stream) {
  {
    const std::scoped_lock lock(mutex);
    if (streams.erase(stream) != 0) {
      return std::fclose(stream);
    }
  }
  return __real_pclose(stream);
}
}
