#include "support/subprocess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

namespace velmo_test {
namespace {

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void Redirect(int descriptor, const std::string& path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  dup2(file, descriptor);
}

}  // namespace

Outcome RunForked(const std::function<void()>& body) {
  const TempDir dir;
  const std::string out = dir.path() + "/out";
  const std::string err = dir.path() + "/err";
  std::cout.flush();
  const pid_t child = fork();
  if (child == 0) {
    Redirect(STDOUT_FILENO, out);
    Redirect(STDERR_FILENO, err);
    body();
    std::cout.flush();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  Outcome outcome;
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  outcome.out = ReadAll(out);
  outcome.err = ReadAll(err);
  return outcome;
}

Outcome RunVelmo(const std::vector<std::string>& args, const std::string& dir) {
  return RunForked([&] {
    if (!dir.empty() && chdir(dir.c_str()) != 0) _exit(127);
    std::vector<char*> argv = {const_cast<char*>("velmo")};
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(VELMO_BINARY, argv.data());
    _exit(127);
  });
}

TempDir::TempDir() {
  std::string name = "/tmp/velmo_test_XXXXXX";
  if (mkdtemp(name.data()) == nullptr) std::terminate();
  path_ = name;
}

TempDir::~TempDir() { std::filesystem::remove_all(path_); }

std::string TempDir::Write(const std::string& name, const std::string& text) const {
  const std::filesystem::path path = std::filesystem::path(path_) / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

}  // namespace velmo_test
