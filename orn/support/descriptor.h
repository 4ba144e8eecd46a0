// A file descriptor and its owner.
#ifndef ORN_SUPPORT_DESCRIPTOR_H
#define ORN_SUPPORT_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace orn {

// 0 is a descriptor like any other.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor &&other) noexcept : number_(other.release()) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }

  int number() const { return number_; }
  int release() { return std::exchange(number_, -1); }
  explicit operator bool() const { return number_ >= 0; }

 private:
  int number_ = -1;
};

}  // namespace orn

#endif
