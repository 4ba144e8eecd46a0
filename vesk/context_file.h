// The user's named servers: a file in their configuration folder.
#pragma once

#include <map>
#include <string>

namespace command {

// The values of a context by the names of Target's members, as in "host".
using Context = std::map<std::string, std::string>;

struct Contexts {
  std::map<std::string, Context> named;
  std::string current;  // empty for none
};

// $XDG_CONFIG_HOME/vesk/contexts.toml, or that below ~/.config; empty when the user has no such folder.
std::string context_file();

// None when there is no file; fails when it is none that this command could have written.
Contexts read_contexts();

// Reads the file, has it changed and writes it anew, whole or not at all, while no other run of this command does.
template <typename Change>
void change_contexts(Change change);

// Holds the lock of the file, and makes its folder.
class ContextLock {
 public:
  ContextLock();
  ~ContextLock();
  ContextLock(const ContextLock &) = delete;
  ContextLock &operator=(const ContextLock &) = delete;

 private:
  int folder_ = -1;
};

void write_contexts(const Contexts &contexts);

template <typename Change>
void change_contexts(Change change) {
  const ContextLock lock;
  Contexts contexts = read_contexts();
  change(contexts);
  write_contexts(contexts);
}

}  // namespace command
