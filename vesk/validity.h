// How long certificates are valid.
#pragma once

#include <openssl/x509.h>

#include <string>

namespace command {

// A certificate that runs out sooner is warned of.
inline constexpr int kWarningDays = 30;

// Whole days from now, which end on the side of now.
int days_until(const ASN1_TIME *time);

bool has_passed(const ASN1_TIME *time);

std::string date_of(const ASN1_TIME *time);

// As in "1 day".
std::string days_text(int days);

}  // namespace command
