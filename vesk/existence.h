// What dry runs ask the server: whether a name is there. The requests change nothing.
#pragma once

#include <string>

#include "vesk/connection.h"

namespace command {

// A kind of what the server keeps by name.
struct NamedKind {
  int (*look)(const Connection &connection, const std::string &name);  // the status of a request that needs it
  int unknown;                                                         // which it is when there is none
  int exists;  // by which the server refuses another of that name
};

extern const NamedKind kKeys;
extern const NamedKind kTemplates;
extern const NamedKind kCertificates;
extern const NamedKind kPrivateKeys;
extern const NamedKind kMirrors;

// 0 when it is there, or when there is none; else the status that a command would meet that needs it so.
int status_of_existing(const Connection &connection, const NamedKind &kind, const std::string &name);
int status_of_new(const Connection &connection, const NamedKind &kind, const std::string &name);

}  // namespace command
