// Keeps away from standard output what the library prints there by contract.
#pragma once

namespace command {

// While it exists, standard output leads nowhere. One at a time, on one thread.
class Silence {
 public:
  // Fails when standard output cannot be put aside, before anything is changed.
  Silence();
  ~Silence();
  Silence(const Silence &) = delete;
  Silence &operator=(const Silence &) = delete;

 private:
  int kept_;
};

}  // namespace command
