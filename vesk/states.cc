#include "vesk/states.h"

namespace command {
namespace {

struct Meaning {
  char character;
  State state;
};

constexpr Meaning kMirrorStates[] = {{'U', {"up", Health::kGood}},
                                     {'N', {"not tried yet", Health::kUnknown}},
                                     {'D', {"down", Health::kFault}},
                                     {'R', {"refuses this server", Health::kFault}}};
constexpr Meaning kMirrorData[] = {{'Y', {"the same keys", Health::kGood}},
                                   {'?', {"not known to be the same", Health::kUnknown}},
                                   {'N', {"other keys", Health::kFault}}};

template <std::size_t kCount>
State meaning_of(const Meaning (&meanings)[kCount], char character) {
  for (const Meaning &meaning : meanings) {
    if (meaning.character == character) return meaning.state;
  }
  return {"a state that this command does not know", Health::kUnknown};
}

}  // namespace

State mirror_state(char state) {
  return meaning_of(kMirrorStates, state);
}

State mirror_data(char data) {
  return meaning_of(kMirrorData, data);
}

State machine_state(std::string_view field) {
  // The characters that the library takes for a fault.
  if (field.find_first_of("18") != std::string_view::npos) return {"fault", Health::kFault};
  if (field.find_first_not_of('-') == std::string_view::npos) return {"nothing to measure", Health::kPlain};
  return {"in order", Health::kGood};
}

}  // namespace command
