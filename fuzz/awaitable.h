// Included before everything else: the name that veskd/server.h needs of Asio's coroutines, where the compiler has
// none.
#pragma once

#include <asio/any_io_executor.hpp>

namespace asio {

template <typename, typename = any_io_executor>
class awaitable;

}  // namespace asio
