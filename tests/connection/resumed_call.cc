// Makes a resumed call on the main thread, which the system call test watches, between two calls of getppid().
#include <unistd.h>

#include "tests/connection/client.h"

int main() {
  const orn::SslContextPtr context = tests::make_server_context(tests::world().settings());
  tests::TlsServer server([&](tests::Line &line) {
    if (line.accept_tls(context.get())) tests::echo(line);
  });
  for (const bool is_watched : {false, true}) {
    if (is_watched) getppid();
    tests::Client client;
    if (tests::world().connect(client, server) != 0 || client.write("request") != 0 || client.read(7) != 0) return 1;
    if (is_watched && SSL_session_reused(static_cast<SSL *>(client.tls())) != 1) return 2;
    client.tear_down();
    if (is_watched) getppid();
  }
  return 0;
}
