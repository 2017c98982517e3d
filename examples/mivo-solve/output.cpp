// SPDX-License-Identifier: Apache-2.0
#include "output.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <streambuf>
#include <thread>

namespace mivo_solve {
namespace {

/// Passes text on and remembers its last line.
class LastLine : public std::streambuf {
 public:
  /// Lines of common length need no memory when there may be none left.
  explicit LastLine(std::streambuf* next) : next_(next) {
    line_.reserve(4096);
    last_.reserve(4096);
  }
  const std::string& text() const { return line_.empty() ? last_ : line_; }

 protected:
  int overflow(int c) override {
    if (c == traits_type::eof()) return traits_type::not_eof(c);
    note(static_cast<char>(c));
    return next_->sputc(static_cast<char>(c));
  }
  std::streamsize xsputn(const char* text, std::streamsize length) override {
    for (std::streamsize i = 0; i < length; ++i) note(text[i]);
    return next_->sputn(text, length);
  }
  int sync() override { return next_->pubsync(); }

 private:
  void note(char c) {
    if (c != '\n') {
      line_ += c;
    } else if (!line_.empty()) {
      last_.swap(line_);
      line_.clear();
    }
  }
  std::streambuf* next_;
  std::string line_, last_;
};

// The library ends the process through `exit`, where no object of `main` is left to speak.
Output* g_output = nullptr;
LastLine* g_last = nullptr;

void flush() {
  std::cout.flush();
  std::fflush(stdout);
}

}  // namespace

Output::Output(bool asJson) {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) != -1) continue;
    wasClosed_ = wasClosed_ || fd == STDOUT_FILENO;
    [[maybe_unused]] const int same = open("/dev/null", O_RDWR);
  }
  if (!asJson) return;
  own_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  g_output = this;
  // Until the end of the process, when the standard streams are written for the last time.
  g_last = new LastLine(std::cout.rdbuf());
  std::cout.rdbuf(g_last);
  std::atexit([] {
    if (g_output == nullptr) return;
    const std::string text = g_last->text();
    g_output->printFault(text.empty() ? "the run ended early" : text);
  });
}

Output::~Output() { giveBack(); }

void Output::giveBack() {
  g_output = nullptr;
  if (own_ < 0) return;
  flush();
  dup2(own_, STDOUT_FILENO);
  close(own_);
  own_ = -1;
  // What standard error refused is no fault of standard output.
  std::cout.clear();
  std::clearerr(stdout);
}

void Output::printLine(const json& line) {
  if (g_output == nullptr) return;
  // Numbers that are not finite become null. The text comes first: memory may end here.
  const std::string text = line.dump(-1, ' ', true, json::error_handler_t::replace);
  giveBack();
  std::cout << text << std::endl;
}

void Output::printFault(const std::string& text) {
  if (rank_ != 0 && g_output != nullptr)
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
  printLine({{"status", 1}, {"error", text}});
}

void Output::printUncaught(const char* text) {
  if (g_output == nullptr || g_output->own_ < 0) return;
  char line[256];
  const int length = std::snprintf(line, sizeof(line), "{\"error\":\"%s\",\"status\":1}\n", text);
  const int to = g_output->own_;
  g_output = nullptr;
  [[maybe_unused]] const ssize_t written = write(to, line, static_cast<std::size_t>(length));
}

bool Output::finish() {
  giveBack();
  flush();
  return std::cout.good() && std::ferror(stdout) == 0;
}

}  // namespace mivo_solve
