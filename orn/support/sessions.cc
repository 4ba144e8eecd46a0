#include "orn/support/sessions.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace orn {
namespace {

// Negative when the certificate has expired, or says nonsense.
std::chrono::seconds validity_left(const X509 *certificate) {
  int days = 0;
  int seconds = 0;
  if (ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate)) != 1) return std::chrono::seconds(-1);
  return std::chrono::days(days) + std::chrono::seconds(seconds);
}

}  // namespace

Clock::time_point checked_until(const SSL *ssl) {
  std::chrono::seconds left = Sessions::kLongestAge;
  const STACK_OF(X509) *chain = SSL_get0_verified_chain(ssl);
  for (int i = 0; i < sk_X509_num(chain); ++i) left = std::min(left, validity_left(sk_X509_value(chain, i)));
  return Clock::now() + left;
}

Sessions::Server &Sessions::server(const std::string &name, Clock::time_point now) {
  auto found = servers_.find(name);
  if (found == servers_.end()) {
    if (servers_.size() >= kMostServers) {
      const auto used_before = [](const auto &a, const auto &b) { return a.second.last_used < b.second.last_used; };
      servers_.erase(std::min_element(servers_.begin(), servers_.end(), used_before));
    }
    found = servers_.try_emplace(name).first;
  }
  found->second.last_used = now;
  return found->second;
}

Ticket Sessions::take(const std::string &name) {
  if (!resumption_is_on) return {};
  const Clock::time_point now = Clock::now();
  std::lock_guard lock(mutex_);
  std::deque<Ticket> &tickets = server(name, now).tickets;
  // The newest lasts longest.
  while (!tickets.empty()) {
    Ticket newest = std::move(tickets.back());
    tickets.pop_back();
    if (newest.expires > now) return newest;
  }
  return {};
}

void Sessions::keep(const std::string &name, std::span<Ticket> kept) {
  if (!resumption_is_on || kept.empty()) return;
  const Clock::time_point now = Clock::now();
  std::lock_guard lock(mutex_);
  Server &of_name = server(name, now);
  if (of_name.paused_until > now) return;
  std::move(kept.begin(), kept.end(), std::back_inserter(of_name.tickets));
  while (of_name.tickets.size() > kMostTickets) of_name.tickets.pop_front();
}

void Sessions::drop(const std::string &name) {
  std::lock_guard lock(mutex_);
  const auto found = servers_.find(name);
  if (found != servers_.end()) found->second.tickets.clear();
}

void Sessions::pause(const std::string &name) {
  const Clock::time_point now = Clock::now();
  std::lock_guard lock(mutex_);
  Server &paused = server(name, now);
  paused.tickets.clear();
  paused.paused_until = now + kPause;
}

void Sessions::drop_all() {
  std::lock_guard lock(mutex_);
  servers_.clear();
}

}  // namespace orn
