// Work that needs a process of its own: another environment, another user, another end.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace qal::test {

struct ChildResult {
  int status = -1;  // as waitpid gives it
  std::string out;  // what it wrote to standard output
  std::string err;  // what it wrote to standard error

  bool exited_with(int code) const;
  bool killed_by(int signal) const;
};

// Runs `body` in a forked child. Its exit status is 1 when an expectation in it failed, else 0.
ChildResult run_in_child(const std::function<void()> &body);

// Expects `body` to pass in a forked child.
ChildResult in_child(const std::function<void()> &body);

// Expects `body` to pass in a child of a process in which nothing was used before: in a run of
// several cases the program starts again for this one alone.
void in_new_process(const std::function<void()> &body);

// Like run_in_child and in_child, but as an ordinary user: a process of root gives up root first.
ChildResult run_unprivileged(const std::function<void()> &body);
ChildResult in_unprivileged_child(const std::function<void()> &body);

// Starts a program with exactly this environment, its standard input empty, and waits for it.
ChildResult run_program(const std::vector<std::string> &arguments,
                        const std::map<std::string, std::string> &environment);

void become_unprivileged();

std::map<std::string, std::string> current_environment();

// Not every system has clearenv.
void clear_environment();

}  // namespace qal::test
