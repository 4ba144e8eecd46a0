// What the server is configured with: its file, faults, sensor readings, the address of its store. The first character
// says which.
#include "veskd/configuration.h"

#include "fuzz/target.h"
#include "veskd/certificates.h"
#include "veskd/faults.h"
#include "veskd/sensors.h"
#include "veskd/store_address.h"

namespace {

using namespace veskd;

const std::string kRefusal = "0000810010101";
const std::string kKey = "0034820010000" + std::string(340, 'a');
const std::string kPage = "0001410370000N00040" + std::string(40, 'a');

// Whatever deviates is played on a refusal, on a reply and on a page.
void play_faults(const std::string &file) {
  Faults faults(file);
  for (const char *tran_id : {"1001", "1037", "1043", "2001"}) {
    for (int i = 0; i < 8; ++i) {
      const Fault *fault = faults.next_request(tran_id);
      if (fault == nullptr) continue;
      for (const std::string &bytes : {kRefusal, kKey, kPage}) {
        Reply reply;
        reply.code = bytes == kRefusal ? RC_MALFORMED_REQUEST : RC_SUCCESS;
        reply.bytes = WipedText(bytes);
        distort(*fault, reply);
        fuzz::require(!reply.bytes.text().empty(), "a reply that deviates is one");
      }
    }
  }
  faults.next_handshake(false);
  faults.next_handshake(true);
}

// The files that docs/veskd.toml names.
void write_files() {
  const Identity authority = make_authority("authority", Days(1));
  const auto write_identity = [&](const LeafRequest &request) {
    const Identity leaf = make_leaf(authority, request, Days(1));
    fuzz::scratch().write(request.common_name + ".pem", certificate_pem(leaf.certificate.get()));
    fuzz::scratch().write(request.common_name + "-key.pem", private_key_pem(leaf.key.get()).text());
  };
  fuzz::scratch().write("authority.pem", certificate_pem(authority.certificate.get()));
  write_identity({"server", Purpose::kServer, {"127.0.0.1"}});
  write_identity({"mirror", Purpose::kClient, {}, true});
  fuzz::scratch().write("tickets.key", std::string(64, 'a') + "\n");
  fuzz::scratch().write("sensors", "fan cpu 900 500 9000\n");
}

void read(char kind, std::string_view text) {
  switch (kind) {
    case 'c':
      read_configuration(fuzz::scratch().write("veskd.toml", text));
      return;
    case 'f':
      return play_faults(fuzz::scratch().write("faults.toml", text));
    case 's':
      if (const auto readings = parse_readings(text)) {
        for (const Reading &reading : *readings) line_of(reading);
        for (const char *sensor : {"app", "fan"}) states(*readings, sensor, 4);
        temperature_states(*readings, 8);
      }
      return;
    case 'a':
      StoreAddress(std::string(text)).name();
      return;
    default:
      return;
  }
}

}  // namespace

FUZZ_TARGET(input) {
  static const bool has_files = (write_files(), true);
  fuzz::require(has_files, "there are files");
  const char kind = fuzz::take_kind(input);
  try {
    read(kind, input);
  } catch (const StartError &) {
  }
  return 0;
}
