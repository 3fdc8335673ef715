// Programs that a bench runs beside itself, and what they take of the machine.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <exception>
#include <string>
#include <vector>

namespace valmere::bench {

// Purpose: a new folder below the system's one for temporary files.
// Owner: the bench; it is removed with it.
// Threads: one.
// Errors: std::runtime_error when it can't be made.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string Path(const char* name) const { return path_ + "/" + name; }

 private:
  const std::string path_;
};

// Purpose: a running program, whose output goes nowhere.
// Owner: the bench. It is ended by force, with what it has started, when its owner goes, or when the
// bench itself ends.
// Threads: one.
// Errors: one that can't be started is one that has ended.
class Program {
 public:
  // `handed` is a listening socket that the program gets as from a service manager; -1 is none.
  explicit Program(const std::vector<std::string>& words, int handed = -1);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t process() const { return process_; }

 private:
  const pid_t process_;
};

// Repeats what throws as long as a program does not answer yet; gives up after ten seconds.
template <class Try>
void AwaitAnswer(Try attempt) {
  constexpr useconds_t kPause = 100;
  for (int left = 100'000;; --left) {
    try {
      attempt();
      return;
    } catch (const std::exception&) {
      if (left == 0) throw;
    }
    usleep(kPause);
  }
}

// As many descriptors as the system lets the bench have, and what it starts.
void AllowManyDescriptors();

// The number behind `name` in a file of the process's folder in /proc; 0 when there is none.
long ProcessFigure(pid_t process, const char* file, const char* name);

// Processes and all that they have started.
std::vector<pid_t> WithChildren(std::vector<pid_t> processes);

// The memory that they share with no other process and have written to, once it stays the same.
double PrivateKilobytes(const std::vector<pid_t>& processes);

// The processor time that they have taken so far.
double ProcessorMicroseconds(const std::vector<pid_t>& processes);

}  // namespace valmere::bench
