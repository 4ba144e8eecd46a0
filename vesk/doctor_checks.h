// The checks of vesk doctor, in their order.
#pragma once

#include "orn/support.h"
#include "orn/support/credentials.h"
#include "vesk/connection.h"
#include "vesk/diagnosis.h"

namespace command {

// The certificate files. What could be read of them is in credentials afterwards.
void check_client(Diagnosis &diagnosis, const Connection &connection, orn::Credentials &credentials);

// The way to the server, who it says it is, and what it answers.
void check_server(Diagnosis &diagnosis, const Connection &connection, const orn::Credentials &credentials);

CertificateInfo info_of(X509 *certificate);

// The shortest of the certificates' times. A certificate that has run out fails; one that soon will is warned of.
Finding validity_of(const std::string &subject, const std::vector<orn::X509Ptr> &certificates);

// When the clock is behind the beginning of a certificate's time, one of the two is wrong.
inline constexpr const char *kClockHint =
    "is the clock of this machine right? date -u; if it is, the certificate was made for a later day";

}  // namespace command
