#include "vesk/settings.h"

#include <CLI/CLI.hpp>

namespace command {

void add_settings(CLI::App &app, Settings &settings) {
  const std::string connection = "Connection";
  app.add_option("--host", settings.host, "the server's host name or numeric address, at most 40 bytes (or VESK_HOST)")
      ->option_text("HOST")
      ->envname("VESK_HOST")
      ->group(connection);
  app.add_option("--port", settings.port, "the server's port, 1 to 65535 (or VESK_PORT)")
      ->option_text("PORT")
      ->envname("VESK_PORT")
      ->group(connection);
  app.add_option("--certificates", settings.certificates,
                 "the directory of the certificate files (or VESK_CERTIFICATES)")
      ->option_text("DIR")
      ->envname("VESK_CERTIFICATES")
      ->group(connection);
  app.add_option("--authority", settings.authority, "the trusted authority's file in DIR [authority.pem]")
      ->option_text("NAME")
      ->group(connection);
  app.add_option("--certificate", settings.certificate, "the client certificate's file in DIR [client.pem]")
      ->option_text("NAME")
      ->group(connection);
  app.add_option("--key", settings.key, "the client key's file in DIR [client-key.pem]")
      ->option_text("NAME")
      ->group(connection);

  const std::string output = "Output";
  app.add_option("--output", settings.output,
                 "table, json or, for lists, plain: the form of results on standard output [table]")
      ->option_text("FORM")
      ->group(output);
  app.add_option("--trace", settings.trace, "append the library's trace to a file, - for standard error")
      ->option_text("FILE")
      ->group(output);
}

}  // namespace command
