// Ends the command from outside of what it does: when its time is up, and on the signals by which users end programs.
#pragma once

#include <chrono>
#include <list>
#include <optional>
#include <string>

namespace command {

// From now on. words are those of the command, for the message. Call it before other threads are there.
void watch(const std::string &words, std::optional<std::chrono::seconds> limit);

// While it exists, the command is not ended: for short steps that belong together. Not twice on one thread.
class Uninterrupted {
 public:
  Uninterrupted();
  ~Uninterrupted();
  Uninterrupted(const Uninterrupted &) = delete;
  Uninterrupted &operator=(const Uninterrupted &) = delete;
};

// A file that goes with the command if it is ended while this exists. Made and destroyed while Uninterrupted.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(const std::string &path);
  ~UnfinishedFile();
  UnfinishedFile(const UnfinishedFile &) = delete;
  UnfinishedFile &operator=(const UnfinishedFile &) = delete;

 private:
  std::list<std::string>::iterator place_;
};

// What the cursor of the terminal stands behind, so that a message begins on a line of its own. Set it while
// Uninterrupted.
enum class OpenLine { kNone, kProgress, kQuestion };
void set_open_line(OpenLine line);

}  // namespace command
