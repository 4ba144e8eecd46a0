// What of a file of names is done: a file beside it from which a second run goes on.
#pragma once

#include <mutex>
#include <set>
#include <string>

namespace command {

class Journal {
 public:
  // task says what is done to the names, and where; a journal of another task is refused. Without a path, which is that
  // of the file of names, nothing is kept.
  Journal(const std::string &path, const std::string &task);
  ~Journal();
  Journal(const Journal &) = delete;
  Journal &operator=(const Journal &) = delete;

  // Whether an earlier run has done it.
  bool has(const std::string &name) const { return earlier_.contains(name); }

  // Whether an earlier run was about to do it and was ended: it may be done or not.
  bool has_begun(const std::string &name) const { return begun_.contains(name); }

  // Threads may call these at the same time. What is added is on the disk when add returns; what is withdrawn was not
  // done.
  void begin(const std::string &name);
  void add(const std::string &name);
  void withdraw(const std::string &name);

  // Takes the journal away: there is nothing left to go on with.
  void remove();

 private:
  void read(const std::string &task);
  void note(char mark, const std::string &name, bool flushes);
  void append(char mark, const std::string &text);
  void flush();

  std::string path_;
  int descriptor_ = -1;
  std::set<std::string> earlier_;
  std::set<std::string> begun_;
  std::mutex mutex_;
};

}  // namespace command
