// The one place where Asio's functions are compiled.
#include <asio/impl/src.hpp>
#include <asio/ssl/impl/src.hpp>
