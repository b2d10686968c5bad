#include "tests/fakes/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>

namespace tavo::fakes {
namespace {

thread_local int interruptions = 0;  // reads of this thread that are still to be interrupted

std::mutex mutex;
std::string root;  // empty: no FakeFiles
std::map<std::string, int, std::less<>> opens;
std::map<std::string, int, std::less<>> refused;

// Counts the call. The error that it fails with, or 0.
int note_open(const char *path) {
  const std::scoped_lock lock(mutex);
  ++opens[path];
  const auto refusal = refused.find(path);
  return refusal == refused.end() ? 0 : refusal->second;
}

}  // namespace

FakeFiles::FakeFiles() {
  const std::scoped_lock lock(mutex);
  if (!root.empty()) {
    throw std::logic_error("two sets of fake files at once");
  }
  std::string directory = std::filesystem::temp_directory_path() / "module-test-XXXXXX";
  if (mkdtemp(directory.data()) == nullptr) {
    throw std::runtime_error("no temporary directory");
  }
  root = directory;
  std::filesystem::create_directory(root + "/var");
  std::filesystem::create_directory(root + "/tmp");
  opens.clear();
  refused.clear();
}

FakeFiles::~FakeFiles() {
  const std::scoped_lock lock(mutex);
  std::filesystem::remove_all(root);
  root.clear();
  opens.clear();
  refused.clear();
}

std::string FakeFiles::real_path(std::string_view path) {
  const std::scoped_lock lock(mutex);
  const bool led = path.starts_with("/var/") || path.starts_with("/tmp/snmp_");
  return led ? root + std::string(path) : std::string(path);
}

void FakeFiles::write(std::string_view path, std::string_view content) const {
  const std::filesystem::path real = real_path(path);
  std::filesystem::create_directories(real.parent_path());
  std::ofstream file(real, std::ios::binary | std::ios::trunc);
  file << content;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + real.string());
  }
}

void FakeFiles::make_directory(std::string_view path) const {
  std::filesystem::create_directories(real_path(path));
}

void FakeFiles::remove(std::string_view path) const {
  std::filesystem::remove_all(real_path(path));
}

std::string FakeFiles::read(std::string_view path) const {
  const std::ifstream file(real_path(path), std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void interrupt_reads(int times) {
  interruptions = times;
}

int opens_of(std::string_view path) {
  const std::scoped_lock lock(mutex);
  const auto found = opens.find(path);
  return found == opens.end() ? 0 : found->second;
}

void refuse_open(std::string_view path, int error) {
  const std::scoped_lock lock(mutex);
  refused.insert_or_assign(std::string(path), error);
}

}  // namespace tavo::fakes

using namespace tavo::fakes;

extern "C" {

int __real_open64(const char *path, int flags, ...);
FILE *__real_fopen64(const char *path, const char *mode);
int __real_access(const char *path, int mode);
int __real_unlink(const char *path);
int __real_stat64(const char *path, struct stat *status);
int __real_rename(const char *from, const char *to);
ssize_t __real_read(int descriptor, void *buffer, std::size_t size);

int __wrap_open64(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (const int error = note_open(path); error != 0) {
    errno = error;
    return -1;
  }
  return __real_open64(FakeFiles::real_path(path).c_str(), flags, mode);
}

FILE *__wrap_fopen64(const char *path, const char *mode) {
  if (const int error = note_open(path); error != 0) {
    errno = error;
    return nullptr;
  }
  return __real_fopen64(FakeFiles::real_path(path).c_str(), mode);
}

int __wrap_access(const char *path, int mode) {
  return __real_access(FakeFiles::real_path(path).c_str(), mode);
}

int __wrap_unlink(const char *path) {
  return __real_unlink(FakeFiles::real_path(path).c_str());
}

ssize_t __wrap_read(int descriptor, void *buffer, std::size_t size) {
  if (interruptions > 0) {
    --interruptions;
    errno = EINTR;
    return -1;
  }
  return __real_read(descriptor, buffer, size);
}

int __wrap_rename(const char *from, const char *to) {
  return __real_rename(FakeFiles::real_path(from).c_str(), FakeFiles::real_path(to).c_str());
}

int __wrap_stat64(const char *path, struct stat *status) {
  return __real_stat64(FakeFiles::real_path(path).c_str(), status);
}
}
