// The two clients that are compared, and the three manners in which each makes the same call.
#pragma once

#include <array>
#include <memory>

#include "bench/allocations.h"
#include "bench/server.h"

namespace bench {

enum class Client { kLibrary, kBare };
inline constexpr std::array kClients = {Client::kLibrary, Client::kBare};
const char *name_of(Client client);

enum class Manner {
  kResumed,    // the session of an earlier call is resumed
  kInFull,     // a full handshake, with a context that was made before
  kFromFiles,  // everything anew: files, context, full handshake
};
inline constexpr std::array kManners = {Manner::kResumed, Manner::kInFull, Manner::kFromFiles};
const char *name_of(Manner manner);

// What a call asks for.
enum class Wanted {
  kKey,      // a key by its name
  kNextKey,  // the next key of a template
  kAnswer,   // an answer, for which the server looks at nothing
};
inline constexpr const char *kKeyName = "BENCHMARK";
inline constexpr const char *kConstant = "BENCHMARK_KEYS_";

// Makes the call, again and again, for one thread. Ends the process on failure.
class Caller {
 public:
  virtual ~Caller() = default;
  virtual void call() = 0;
  // A call for a key by its name that counts what is allocated between the handshake and the good-bye.
  virtual Allocations count_exchange() = 0;
};

// Makes the callers of one client, a thread each. All that are in use at a time are of one manner: the library's is the
// whole process's.
class Callers {
 public:
  virtual ~Callers() = default;
  // thread: below 64.
  virtual std::unique_ptr<Caller> make(int thread) const = 0;
};

std::unique_ptr<Callers> callers(Client client, Manner manner, const Server &server, Wanted wanted = Wanted::kKey);

}  // namespace bench
