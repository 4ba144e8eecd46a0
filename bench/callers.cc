#include "bench/callers.h"

#include <fmt/format.h>
#include <openssl/crypto.h>

#include <string>
#include <utility>

#include "bench/bare_client.h"
#include "orn/support.h"
#include "orn/vesk/libvesk/call_frame.h"
#include "orn/vesk/wiped.h"
#include "orn/vesk/wire/connectivity.h"
#include "orn/vesk/wire/key_serving.h"

namespace bench {

namespace {

using vesk::wire::put_padded;

class LibraryCaller : public Caller {
 public:
  LibraryCaller(const Server &server, Manner manner, Wanted wanted, int thread)
      : server_(server),
        is_from_files_(manner == Manner::kFromFiles),
        wanted_(wanted),
        paths_(spelled_paths(server, is_from_files_ ? thread : 0)) {}

  void call() override {
    forget();
    switch (wanted_) {
      case Wanted::kKey:
        return retrieve();
      case Wanted::kNextKey:
        return draw();
      case Wanted::kAnswer:
        return require_done(qAdminNoop(&paths_, server_.host.c_str(), server_.port), "qAdminNoop");
    }
  }

  // As qRetrieveKey, which is this and a look at the name.
  Allocations count_exchange() override {
    vesk::Wiped<KeyRecord> record;
    Allocations counted{};
    forget();
    const auto fill = [](RequestFields &request) {
      put_padded(request.caKeyName, kKeyName);
      put_padded(request.caInstance, "");
      put_padded(request.caKeyFormat, "BIN");
    };
    const auto run = [&](Session *session) {
      const Allocations before = allocations();
      RetrieveKey(session, &*record);
      counted = allocations() - before;
    };
    require_done(vesk::public_call({&paths_, server_.host.c_str(), server_.port}, vesk::wire::kRetrieveKey, fill, run),
                 "RetrieveKey");
    return counted;
  }

 private:
  void forget() const {
    if (is_from_files_) TLSForgetAll();
  }

  void retrieve() const {
    vesk::Wiped<KeyRecord> record;
    require_done(qRetrieveKey(&paths_, server_.host.c_str(), server_.port, kKeyName, "", &*record), "qRetrieveKey");
  }

  void draw() const {
    char name[41];
    vesk::Wiped<std::array<unsigned char, 32>> value;
    std::uint32_t increment = 0;
    require_done(qGetNextKey(&paths_, server_.host.c_str(), server_.port, kConstant, name, value->data(), &increment),
                 "qGetNextKey");
  }

  const Server &server_;
  const bool is_from_files_;
  const Wanted wanted_;
  // Contexts are kept by path: of the calls from files, none finds what another thread has just read.
  const CertificatePaths paths_;
};

class LibraryCallers : public Callers {
 public:
  LibraryCallers(Manner manner, const Server &server, Wanted wanted)
      : manner_(manner), server_(server), wanted_(wanted) {
    TLSResumption(manner == Manner::kResumed);
  }
  std::unique_ptr<Caller> make(int thread) const override {
    return std::make_unique<LibraryCaller>(server_, manner_, wanted_, thread);
  }

 private:
  const Manner manner_;
  const Server &server_;
  const Wanted wanted_;
};

// A request, and how long the reply to it is.
struct Exchange {
  std::string request;
  std::size_t reply_bytes;
};

Exchange exchange_for(Wanted wanted) {
  using namespace vesk::wire;
  switch (wanted) {
    case Wanted::kKey:
      return {fmt::format("000712001{:<40}{:<24}BIN", kKeyName, ""), wire_size(kRetrieveKeyReply)};
    case Wanted::kNextKey:
      return {fmt::format("000512003{:<39}06H15BIN", kConstant), wire_size(kGetNextKeyReply)};
    case Wanted::kAnswer:
      break;
  }
  return {"000041043", wire_size(kAdminNoopReply)};
}

class BareCaller : public Caller {
 public:
  // context: what is shared, or null for one from the files with every call.
  BareCaller(const Server &server, SSL_CTX *context, bool resumes, Wanted wanted)
      : server_(server), shared_(context), resumes_(resumes), exchange_(exchange_for(wanted)) {}

  void call() override { count_exchange(); }

  Allocations count_exchange() override {
    const BareContext own = shared_ == nullptr ? read_context(server_) : nullptr;
    // A ticket serves once.
    const BareSession session = std::exchange(session_, nullptr);
    BareConnection connection(server_, own ? own.get() : shared_, session.get());
    require(!session || connection.is_resumed(), "the bare client's resumption");
    const Allocations before = allocations();
    exchange(connection);
    const Allocations counted = allocations() - before;
    if (resumes_) {
      session_ = connection.session();
      require(session_ != nullptr, "the server's sending of tickets");
    }
    return counted;
  }

 private:
  void exchange(BareConnection &connection) {
    char room[vesk::wire::wire_size(vesk::wire::kRetrieveKeyReply)];
    const std::span<char> reply(room, exchange_.reply_bytes);
    connection.write(exchange_.request);
    for (std::size_t got = 0; got < reply.size();) {
      const std::size_t more = connection.read(reply.subspan(got));
      require(more != 0, "the bare client's read");
      got += more;
    }
    OPENSSL_cleanse(room, sizeof room);
  }

  const Server &server_;
  SSL_CTX *const shared_;
  const bool resumes_;
  const Exchange exchange_;
  BareSession session_;
};

class BareCallers : public Callers {
 public:
  BareCallers(Manner manner, const Server &server, Wanted wanted)
      : server_(server),
        wanted_(wanted),
        resumes_(manner == Manner::kResumed),
        shared_(manner == Manner::kFromFiles ? nullptr : read_context(server)) {}
  std::unique_ptr<Caller> make(int) const override {
    return std::make_unique<BareCaller>(server_, shared_.get(), resumes_, wanted_);
  }

 private:
  const Server &server_;
  const Wanted wanted_;
  const bool resumes_;
  const BareContext shared_;
};

}  // namespace

const char *name_of(Client client) {
  return client == Client::kLibrary ? "library" : "bare";
}

const char *name_of(Manner manner) {
  switch (manner) {
    case Manner::kResumed:
      return "resumed";
    case Manner::kInFull:
      return "in full";
    case Manner::kFromFiles:
      break;
  }
  return "from files";
}

std::unique_ptr<Callers> callers(Client client, Manner manner, const Server &server, Wanted wanted) {
  if (client == Client::kLibrary) return std::make_unique<LibraryCallers>(manner, server, wanted);
  return std::make_unique<BareCallers>(manner, server, wanted);
}

}  // namespace bench
