// Where a key's value goes, and in which form. The value reaches nothing but the file or the pipe that was asked for.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "vesk/settings.h"

namespace command {

struct KeyOutputOptions {
  std::optional<std::string> out;  // a file, or "-" for standard output
  bool hex = false;
  bool base64 = false;
  bool force = false;
};

// Returns the option --out.
Option &add_key_output(Command &command, KeyOutputOptions &options);

class KeyOutput {
 public:
  // Refuses what can be refused before a key is asked for: an option without sense, a file that exists, a directory
  // that cannot be written, raw bytes for a terminal.
  KeyOutput(const KeyOutputOptions &options, const Settings &settings);

  bool is_wanted() const { return options_.out.has_value(); }
  bool is_standard_output() const { return options_.out == "-"; }
  const std::string &file() const { return *options_.out; }

  // Writes the value: all of it, or no file at all. A file is new, or replaced by force, and only its owner may read
  // it.
  void write(std::span<const unsigned char> value) const;

 private:
  KeyOutputOptions options_;
};

}  // namespace command
