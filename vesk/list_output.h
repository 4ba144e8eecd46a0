// A list on standard output: written entry by entry as it arrives, in the form that was asked for, never held whole.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "vesk/output.h"
#include "vesk/settings.h"

namespace CLI {
class App;
}

namespace command {

// Adds --null, which needs --output plain.
void add_null(CLI::App &command, bool &null_terminated);
void check_null(const Settings &settings, bool null_terminated);

// On a line of its own and unharmed: control characters, a DEL and bytes above ASCII as \xNN, a backslash doubled.
std::string escaped(std::string_view text);

// Sets a member to the text. JSON is Unicode: what is no UTF-8 is replaced in it, and its bytes are in base64 under the
// same member of the object "base64".
void put_text(Json &object, const std::string &member, std::string_view text);

class ListOutput {
 public:
  ListOutput(const Settings &settings, bool null_terminated) : settings_(settings), null_terminated_(null_terminated) {}

  // table is what a table shows of the entry, object what a document does; in plain form it is the name.
  void add(std::string_view name, std::string_view table, const Json &object);

  // The end of the list: the footer of a table, and the members that follow the entries in a document.
  void end(std::string_view footer, const Json &members);

  // The end of a list that failed: what was added is shown, and a document that was begun says that it is not complete.
  void abandon();

 private:
  void put(std::string_view bytes);
  void begin_document();
  void end_document(const Json &members);
  void flush();

  const Settings &settings_;
  const bool null_terminated_;
  std::string waiting_;
  std::size_t num_added_ = 0;
};

}  // namespace command
