#include "solver/process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <tvx/core/error.h>

namespace tvx {

namespace {

// The most of the child's standard error kept for messages.
constexpr std::size_t kErrorTail = 2000;

bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

void close_fd(int& fd) {
  if (fd >= 0) {
    ::close(fd);
    fd = -1;
  }
}

}  // namespace

// ------------------------------------------------------------------------ SexprScanner

std::size_t SexprScanner::scan(char const* text, std::size_t from, std::size_t size) {
  for (std::size_t i = from; i < size; ++i) {
    char const c = text[i];
    switch (mode_) {
      case Mode::kString:
        if (quote_pending_) {
          quote_pending_ = false;
          if (c == '"') {
            continue;  // "" stands for one quote inside the string
          }
          mode_ = Mode::kCode;
          if (depth_ == 0) {
            in_atom_ = false;
            return i;  // a string on its own ended just before c
          }
          break;  // c is code
        }
        if (c == '"') {
          quote_pending_ = true;
        }
        continue;
      case Mode::kQuoted:
        if (c == '|') {
          mode_ = Mode::kCode;
          if (depth_ == 0) {
            in_atom_ = false;
            return i + 1;
          }
        }
        continue;
      case Mode::kComment:
        if (c == '\n') {
          mode_ = Mode::kCode;
        }
        continue;
      case Mode::kCode:
        break;
    }
    if (is_blank(c) || c == '(' || c == ')' || c == ';') {
      if (in_atom_ && depth_ == 0) {
        in_atom_ = false;
        return i;  // an atom on its own ended just before c
      }
    }
    switch (c) {
      case ';':
        mode_ = Mode::kComment;
        break;
      case '"':
        mode_ = Mode::kString;
        in_atom_ = in_atom_ || depth_ == 0;
        break;
      case '|':
        mode_ = Mode::kQuoted;
        in_atom_ = in_atom_ || depth_ == 0;
        break;
      case '(':
        ++depth_;
        break;
      case ')':
        if (depth_ == 0 || --depth_ == 0) {
          return i + 1;  // a list ended (or a stray parenthesis, which is one on its own)
        }
        break;
      default:
        if (!is_blank(c) && depth_ == 0) {
          in_atom_ = true;
        }
        break;
    }
  }
  return npos;
}

// ------------------------------------------------------------------------ Process

Process::Process(std::vector<std::string> const& argv) {
  if (argv.empty() || argv[0].empty()) {
    throw EngineError("no solver command given");
  }
  for (std::string const& a : argv) {
    name_ += (name_.empty() ? "" : " ") + a;
  }
  // The child's input is a socket, so that writing to a child that is gone fails with EPIPE
  // (MSG_NOSIGNAL) instead of raising SIGPIPE in the application.
  int in[2] = {-1, -1};
  int out[2] = {-1, -1};
  int err[2] = {-1, -1};
  auto close_all = [&] {
    for (int* p : {in, out, err}) {
      close_fd(p[0]);
      close_fd(p[1]);
    }
  };
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in) != 0 || pipe2(out, O_CLOEXEC) != 0 ||
      pipe2(err, O_CLOEXEC) != 0) {
    int const e = errno;
    close_all();
    throw EngineError("cannot start '" + name_ + "': " + std::strerror(e));
  }
  std::vector<char*> args;
  for (std::string const& a : argv) {
    args.push_back(const_cast<char*>(a.c_str()));
  }
  args.push_back(nullptr);
  // posix_spawn rather than fork: it runs no fork handlers, which libraries in the same
  // process install (z3's, for one, waits in them for its timer threads, and so can stall
  // an application that forks while another thread solves), and it reports a failed exec as
  // its result. Every descriptor is close-on-exec, so the child gets exactly these three;
  // SIGPIPE goes back to its default, as a solver started from a shell would have it.
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_adddup2(&actions, in[1], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t pid = -1;
  int const spawned = posix_spawnp(&pid, args[0], &actions, &attributes, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (spawned != 0) {
    close_all();
    throw EngineError("cannot start '" + name_ + "': " + std::strerror(spawned));
  }
  pid_ = pid;
  close_fd(in[1]);
  close_fd(out[1]);
  close_fd(err[1]);
  in_ = in[0];
  out_ = out[0];
  err_ = err[0];
  out_open_ = err_open_ = true;
  fcntl(out_, F_SETFL, fcntl(out_, F_GETFL) | O_NONBLOCK);
  fcntl(err_, F_SETFL, fcntl(err_, F_GETFL) | O_NONBLOCK);
}

Process::~Process() {
  kill();
}

void Process::kill() {
  close_fd(in_);
  if (pid_ > 0) {
    // Most solvers end at the end of their input; give them a moment before forcing it.
    int status = 0;
    pid_t r = 0;
    for (int i = 0; i < 20 && (r = waitpid(pid_, &status, WNOHANG)) == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (r == 0) {
      ::kill(pid_, SIGKILL);
      while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
      }
    }
    pid_ = -1;
  }
  if (out_ >= 0) {
    drain(out_, output_, out_open_);
  }
  if (err_ >= 0) {
    drain(err_, errors_, err_open_);
  }
  close_fd(out_);
  close_fd(err_);
  out_open_ = err_open_ = false;
}

void Process::fail(std::string const& what) {
  kill();
  std::string message = "solver '" + name_ + "' " + what;
  std::string const words = last_words();
  if (!words.empty()) {
    message += "; its last words: " + words;
  }
  throw EngineError(message);
}

std::string Process::last_words() {
  // What the solver wrote to its error stream before its answer is there by now, though the
  // answer may have been read without waiting on that stream.
  if (err_ >= 0) {
    drain(err_, errors_, err_open_);
  }
  std::string words = errors_;
  std::string const unread = output_.substr(0, 500);
  if (!unread.empty()) {
    words += (words.empty() ? "" : " ") + unread;
  }
  while (!words.empty() && is_blank(words.back())) {
    words.pop_back();
  }
  std::size_t start = 0;
  while (start < words.size() && is_blank(words[start])) {
    ++start;
  }
  return words.substr(start);
}

// Reads what is available on fd into `into`, without blocking; notes the end of the stream.
void Process::drain(int fd, std::string& into, bool& open) {
  char buf[65536];
  for (;;) {
    ssize_t const n = ::read(fd, buf, sizeof(buf));
    if (n > 0) {
      into.append(buf, static_cast<std::size_t>(n));
      if (&into == &errors_ && errors_.size() > 2 * kErrorTail) {
        errors_.erase(0, errors_.size() - kErrorTail);
      }
      if (static_cast<std::size_t>(n) < sizeof(buf)) {
        return;  // a pipe gives all it holds: it is empty now
      }
      continue;
    }
    if (n == 0) {
      open = false;
    } else if (errno == EINTR) {
      continue;
    }
    return;  // EAGAIN: nothing more for now
  }
}

// Waits up to timeout_ms (-1: no limit) for output and reads what is there.
void Process::read_available(bool block, int timeout_ms) {
  pollfd fds[2] = {{out_open_ ? out_ : -1, POLLIN, 0}, {err_open_ ? err_ : -1, POLLIN, 0}};
  int const n = poll(fds, 2, block ? timeout_ms : 0);
  if (n < 0 && errno != EINTR) {
    fail(std::string("cannot be read: ") + std::strerror(errno));
  }
  if (fds[0].revents != 0) {
    drain(out_, output_, out_open_);
  }
  if (fds[1].revents != 0) {
    drain(err_, errors_, err_open_);
  }
}

void Process::send(std::string const& text) {
  if (in_ < 0) {
    fail("is not running");
  }
  // Written without waiting while the socket takes it; when it is full, the child's output is
  // read while waiting, so that a child blocked on a full output pipe cannot stall both.
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t const n =
        ::send(in_, text.data() + done, text.size() - done, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
      done += static_cast<std::size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      fail(errno == EPIPE ? "closed its input (has it died?)"
                          : std::string("cannot be written to: ") + std::strerror(errno));
    }
    pollfd fds[3] = {
        {in_, POLLOUT, 0}, {out_open_ ? out_ : -1, POLLIN, 0}, {err_open_ ? err_ : -1, POLLIN, 0}};
    if (poll(fds, 3, -1) < 0 && errno != EINTR) {
      fail(std::string("cannot be written to: ") + std::strerror(errno));
    }
    if (fds[1].revents != 0) {
      drain(out_, output_, out_open_);
    }
    if (fds[2].revents != 0) {
      drain(err_, errors_, err_open_);
    }
    if ((fds[0].revents & (POLLERR | POLLHUP)) != 0 && (fds[0].revents & POLLOUT) == 0) {
      fail("closed its input");
    }
  }
}

std::string Process::receive(double timeout) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point const deadline =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(timeout > 0 ? timeout : 0));
  for (;;) {
    std::size_t const end = scanner_.scan(output_.data(), scanned_, output_.size());
    if (end != SexprScanner::npos) {
      std::size_t start = 0;
      // Blanks and comments before the expression are not part of it.
      while (start < end && (is_blank(output_[start]) || output_[start] == ';')) {
        if (output_[start] == ';') {
          while (start < end && output_[start] != '\n') {
            ++start;
          }
        } else {
          ++start;
        }
      }
      std::string expression = output_.substr(start, end - start);
      output_.erase(0, end);
      scanned_ = 0;
      return expression;
    }
    scanned_ = output_.size();
    if (!out_open_) {
      // An expression cut off by the end of the output is no answer either.
      if (pid_ > 0) {
        kill();
      }
      fail(output_.find_first_not_of(" \t\r\n") == std::string::npos
               ? "closed its output without answering"
               : "closed its output in the middle of an answer");
    }
    int wait_ms = -1;
    if (timeout > 0) {
      auto const left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) {
        char seconds[32];
        std::snprintf(seconds, sizeof(seconds), "%g", timeout);
        fail(std::string("gave no answer within ") + seconds + " s and was stopped");
      }
      wait_ms = static_cast<int>(left < 1000000 ? left : 1000000);
    }
    // The answer is often there already (the commands went in one batch): read before waiting.
    std::size_t const had = output_.size();
    drain(out_, output_, out_open_);
    if (output_.size() != had || !out_open_) {
      continue;
    }
    read_available(true, wait_ms);
  }
}

}  // namespace tvx
