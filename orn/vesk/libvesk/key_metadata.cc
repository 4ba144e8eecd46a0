#include "orn/vesk/wire/key_metadata.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>

#include "orn/vesk/libvesk/call_frame.h"

using namespace vesk;

extern const char opLut[wire::kOperators][3] = {"XX", "EQ", "NE", "CT", "GT", "LT", "GE", "LE"};

namespace {

// The test of the metadata arguments: the addresses of all but md03 have a bit in common. It is no test of each: a null
// pointer among them fails it, and so do fifteen addresses that share no bit.
bool share_a_bit(std::initializer_list<const char *> pointers) {
  std::uintptr_t common = ~std::uintptr_t{0};
  for (const char *pointer : pointers) common &= reinterpret_cast<std::uintptr_t>(pointer);
  return common != 0;
}

struct Term {
  const char *value;
  int op;
};
using Terms = std::array<Term, wire::kMetadataFields>;

bool has_known_operators(const Terms &terms) {
  return std::ranges::all_of(
      terms, [](const Term &term) { return term.op >= 0 && term.op < static_cast<int>(wire::kOperators); });
}

// A criterion for every field, empty where the field is not filtered.
class Criteria {
 public:
  explicit Criteria(const Terms &terms) {
    for (std::size_t i = 0; i < terms.size(); ++i) {
      const auto &[value, op] = terms[i];
      if (value == nullptr || op == 0) continue;
      std::snprintf(criteria_[i].data(), criteria_[i].size(), "%s %s '%-64s'", wire::kMetadataLabels[i], opLut[op],
                    value);
    }
  }

  void put(Session &session) const {
    for (std::size_t i = 0; i < criteria_.size(); ++i) session.pcaFilter[i] = criteria_[i].data();
  }

 private:
  std::array<std::array<char, wire::kCriterionBytes>, wire::kMetadataFields> criteria_{};
};

// A query into a file or a list.
int query(const Server &server, const Terms &terms, const char *outputFile, LinkedList *list) {
  if (!has_known_operators(terms)) return ERR_METADATA_ARGUMENT;
  const Criteria criteria(terms);
  return public_call(
      server, wire::kRetrieveMetadata, [&](RequestFields &request) { wire::put_text(request.caDataFile, outputFile); },
      [&](Session *session) {
        criteria.put(*session);
        RetrieveMetadata(session, list);
      });
}

}  // namespace

int qSetMetadata(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                 const char *instance, const char *md01, const char *md02, const char *md03, const char *md04,
                 const char *md05, const char *md06, const char *md07, const char *md08, const char *md09,
                 const char *md10, const char *md11, const char *md12, const char *md13, const char *md14,
                 const char *md15, const char *md16) {
  if (!share_a_bit({md01, md02, md04, md05, md06, md07, md08, md09, md10, md11, md12, md13, md14, md15, md16}))
    return ERR_METADATA_ARGUMENT;
  const std::array<const char *, wire::kMetadataFields> values = {md01, md02, md03, md04, md05, md06, md07, md08,
                                                                  md09, md10, md11, md12, md13, md14, md15, md16};
  return public_call(
      {paths, host, port}, wire::kSetMetadata,
      [&](RequestFields &request) {
        wire::put_padded(request.caKeyName, keyName);
        wire::put_padded(request.caInstance, instance);
        auto &md = request.caMetadata;
        for (std::size_t i = 0; i < values.size(); ++i) wire::put_padded(md[i], values[i]);
        LIBVESK_TRACE(
            "Metadata:\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]\n[%s]"
            "\n",
            md[0], md[1], md[2], md[3], md[4], md[5], md[6], md[7], md[8], md[9], md[10], md[11], md[12], md[13],
            md[14], md[15]);
      },
      SetMetadata);
}

int qRetrieveMetadata(const CertificatePaths *paths, const char *host, uint32_t port, const char *value01,
                      int operator01, const char *value02, int operator02, const char *value03, int operator03,
                      const char *value04, int operator04, const char *value05, int operator05, const char *value06,
                      int operator06, const char *value07, int operator07, const char *value08, int operator08,
                      const char *value09, int operator09, const char *value10, int operator10, const char *value11,
                      int operator11, const char *value12, int operator12, const char *value13, int operator13,
                      const char *value14, int operator14, const char *value15, int operator15, const char *value16,
                      int operator16, const char *outputFile) {
  return query({paths, host, port},
               {{{value01, operator01},
                 {value02, operator02},
                 {value03, operator03},
                 {value04, operator04},
                 {value05, operator05},
                 {value06, operator06},
                 {value07, operator07},
                 {value08, operator08},
                 {value09, operator09},
                 {value10, operator10},
                 {value11, operator11},
                 {value12, operator12},
                 {value13, operator13},
                 {value14, operator14},
                 {value15, operator15},
                 {value16, operator16}}},
               outputFile, nullptr);
}

int qRetrieveMetadata_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, const char *value01,
                            int operator01, const char *value02, int operator02, const char *value03, int operator03,
                            const char *value04, int operator04, const char *value05, int operator05,
                            const char *value06, int operator06, const char *value07, int operator07,
                            const char *value08, int operator08, const char *value09, int operator09,
                            const char *value10, int operator10, const char *value11, int operator11,
                            const char *value12, int operator12, const char *value13, int operator13,
                            const char *value14, int operator14, const char *value15, int operator15,
                            const char *value16, int operator16, LinkedList *list) {
  return query({paths, host, port},
               {{{value01, operator01},
                 {value02, operator02},
                 {value03, operator03},
                 {value04, operator04},
                 {value05, operator05},
                 {value06, operator06},
                 {value07, operator07},
                 {value08, operator08},
                 {value09, operator09},
                 {value10, operator10},
                 {value11, operator11},
                 {value12, operator12},
                 {value13, operator13},
                 {value14, operator14},
                 {value15, operator15},
                 {value16, operator16}}},
               "", list);
}
