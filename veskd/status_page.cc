#include "veskd/status_page.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <vector>

namespace veskd {
namespace {

constexpr double kFewDays = 30;

// Colours go with the reader's choice of light or dark, and nothing is told by colour alone. A wide table scrolls by
// itself on a small screen.
constexpr std::string_view kStyle = R"css(
:root { color-scheme: light dark; --line: #c4c8ce; --good: #17692f; --bad: #b3150b; --soft: #f2f4f7; }
@media (prefers-color-scheme: dark) { :root { --line: #4a505a; --good: #74d28c; --bad: #ff938a; --soft: #22262c; } }
body { font: 1rem/1.5 system-ui, sans-serif; margin: 0 auto; padding: 1rem; max-width: 75rem; }
h1 { font-size: 1.5rem; margin: 0; }
h2 { font-size: 1.15rem; margin: 2rem 0 0.5rem; }
p { margin: 0.25rem 0; }
.table { overflow-x: auto; }
table { border-collapse: collapse; }
caption { text-align: left; padding-bottom: 0.25rem; }
th, td { text-align: left; padding: 0.3rem 0.75rem; border: 1px solid var(--line); overflow-wrap: break-word; max-width: 24rem; }
th { background: var(--soft); }
.number { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap; }
.good { color: var(--good); }
.bad { color: var(--bad); font-weight: bold; }
progress { width: 6rem; vertical-align: middle; }
)css";

std::string escaped(std::string_view text) {
  std::string html;
  for (const char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

// A cell's HTML, from texts that may be anything.
std::string cell(std::string_view text) {
  return fmt::format("<td>{}</td>", escaped(text));
}
std::string number_cell(std::string_view text) {
  return fmt::format("<td class=\"number\">{}</td>", escaped(text));
}
std::string number_cell(std::int64_t number) {
  return number_cell(std::to_string(number));
}
std::string state_cell(bool is_good, std::string_view text) {
  return fmt::format("<td class=\"{}\">{}</td>", is_good ? "good" : "bad", escaped(text));
}
std::string name_cell(std::string_view text) {
  return fmt::format("<th scope=\"row\">{}</th>", escaped(text));
}

struct Section {
  std::string_view heading;
  std::string_view caption;
  std::vector<std::string_view> columns;
  std::vector<std::string> rows;  // each the HTML of its cells
  std::string_view when_empty;    // stands in for a table without rows
};

std::string html_of(const Section &section) {
  std::string html = fmt::format("<section>\n<h2>{}</h2>\n", section.heading);
  if (section.rows.empty()) return html + fmt::format("<p>{}</p>\n</section>\n", section.when_empty);
  html += fmt::format(
      "<div class=\"table\" role=\"region\" aria-label=\"{}\" tabindex=\"0\">\n<table>\n<caption>{}</caption>\n"
      "<thead><tr>",
      section.heading, section.caption);
  for (const std::string_view column : section.columns) html += fmt::format("<th scope=\"col\">{}</th>", column);
  html += "</tr></thead>\n<tbody>\n";
  for (const std::string &row : section.rows) html += fmt::format("<tr>{}</tr>\n", row);
  return html + "</tbody>\n</table>\n</div>\n</section>\n";
}

std::string checks(const ServerStatus &status) {
  Section section{"Readiness", "What the server needs to do its work", {"Check", "State"}, {}, ""};
  for (const Check &check : status.checks)
    section.rows.push_back(name_cell(check.name) + state_cell(check.holds(), check.holds() ? "in order" : check.fault));
  return html_of(section);
}

std::string load(const ServerStatus &status) {
  return html_of({"Queues",
                  "What waits for the store, and what reads from it",
                  {"Queue", "Length"},
                  {name_cell("Changes that wait to be written") +
                       number_cell(static_cast<std::int64_t>(status.load.num_waiting_changes)),
                   name_cell("Lists that are being told") +
                       number_cell(fmt::format("{} of {}", status.load.num_lists, Store::kMaxLists))},
                  ""});
}

std::string certificates(const ServerStatus &status) {
  Section section{"Certificates",
                  "What the server shows and trusts",
                  {"Certificate", "Subject", "Valid until", "Days left"},
                  {},
                  ""};
  for (const CertificateStatus &certificate : status.certificates) {
    const std::string days = fmt::format("{:.0f}", std::floor(certificate.days_left));
    section.rows.push_back(name_cell(certificate.name) + cell(certificate.subject) + cell(certificate.end) +
                           (certificate.days_left < kFewDays ? state_cell(false, days) : number_cell(days)));
  }
  return html_of(section);
}

std::string limit_cell(double limit) {
  return std::abs(limit) < kNoLimit ? number_cell(fmt::format("{:g}", limit)) : number_cell("none");
}

std::string readings(const ServerStatus &status) {
  Section section{"Appliance",
                  "Readings, and between which values they are in order",
                  {"Kind", "Name", "Value", "Lowest", "Highest", "State"},
                  {},
                  status.readings ? "There are no sensors." : "The sensors cannot be read."};
  for (const Reading &reading : status.readings.value_or(std::vector<Reading>()))
    section.rows.push_back(cell(reading.kind) + name_cell(reading.name) +
                           number_cell(reading.value ? fmt::format("{:g}", *reading.value) : "unreadable") +
                           limit_cell(reading.low) + limit_cell(reading.high) +
                           state_cell(!reading.is_fault(), reading.is_fault() ? "fault" : "in order"));
  return html_of(section);
}

std::string state_of(const Mirror &mirror) {
  if (mirror.status == kUp) return state_cell(true, "up");
  if (mirror.status == kDown) return state_cell(false, "down");
  if (mirror.status == kRefuses) return state_cell(false, "refuses");
  return cell("not tried yet");
}

std::string_view data_text(const MirrorStatus &status) {
  const std::string_view data_hash_status = data_hash_status_now(status.mirror, status.num_waiting);
  if (data_hash_status == kSameData) return "the same";
  return data_hash_status == kOtherData ? "different" : "not known";
}

constexpr std::string_view kStoreUnreadable = "The store cannot be read.";

std::string mirrors(const ServerStatus &status) {
  Section section{"Mirrors",
                  "Who gets copies of mirror keys",
                  {"Mirror", "Address", "State", "Waiting changes", "Faults", "Data"},
                  {},
                  status.store ? "There are no mirrors." : kStoreUnreadable};
  if (!status.store) return html_of(section);
  for (const MirrorStatus &shown : status.store->mirrors) {
    const Mirror &mirror = shown.mirror;
    section.rows.push_back(name_cell(mirror.name) + cell(fmt::format("{} port {}", mirror.host, mirror.port)) +
                           state_of(mirror) + number_cell(shown.num_waiting) + number_cell(mirror.fault_count) +
                           cell(data_text(shown)));
  }
  return html_of(section);
}

std::string fullness_cell(const TemplateStatus &status) {
  const std::int64_t generated = status.family.num_generated;
  const std::int64_t passed = status.is_full ? generated : status.family.next_increment;
  return fmt::format(
      "<td><progress max=\"{0}\" value=\"{1}\">{1} of {0}</progress> {2}</td>", generated, passed,
      status.is_full ? "full" : fmt::format("{} %", passed * 100 / std::max<std::int64_t>(generated, 1)));
}

std::string templates(const ServerStatus &status) {
  Section section{"Key templates",
                  "How many of their keys are gone",
                  {"Template", "Keys", "Next increment", "Full"},
                  {},
                  status.store ? "There are no templates." : kStoreUnreadable};
  if (!status.store) return html_of(section);
  for (const TemplateStatus &entry : status.store->templates)
    section.rows.push_back(name_cell(entry.family.constant) + number_cell(entry.family.num_generated) +
                           number_cell(entry.is_full ? "none" : increment_text(entry.family.next_increment)) +
                           fullness_cell(entry));
  const std::string_view more = status.store->has_more_templates ? "<p>There are more templates than these.</p>\n" : "";
  return html_of(section).append(more);
}

std::string result_text(std::int64_t return_code) {
  const ReturnCodeText *code = find_return_code(static_cast<int>(return_code));
  return fmt::format("{:04} {}", return_code, code != nullptr ? code->name : "");
}

std::string audit(const ServerStatus &status) {
  Section section{"Audit",
                  "The last operations that changed or handed out keys, newest first",
                  {"Number", "Time", "Operation", "Object", "Result", "Client", "From"},
                  {},
                  status.store ? "The audit has no entries." : kStoreUnreadable};
  if (!status.store) return html_of(section);
  for (const AuditEntry &entry : status.store->audit)
    section.rows.push_back(number_cell(entry.number) + cell(entry.time) + name_cell(entry.event.function) +
                           cell(entry.event.object) +
                           state_cell(entry.event.return_code == RC_SUCCESS, result_text(entry.event.return_code)) +
                           cell(entry.event.caller) + cell(entry.event.peer));
  return html_of(section);
}

std::string head(const ServerStatus &status) {
  const bool is_ready = all_hold(status.checks);
  return fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>Key server: {1}</title>\n"
      "<style>{0}</style>\n</head>\n<body>\n<header>\n<h1>Key server: <span class=\"{2}\">{1}</span></h1>\n"
      "<p>Serves keys on {3}. As of {4}. <a href=\"/\">Look again</a></p>\n</header>\n<main>\n",
      kStyle, is_ready ? "ready" : "not ready", is_ready ? "good" : "bad", escaped(status.address),
      escaped(status.time));
}

constexpr std::string_view kFoot =
    "</main>\n<footer>\n<p>For programs: <a href=\"/metrics\">metrics</a>, <a href=\"/healthz\">health</a>, "
    "<a href=\"/readyz\">readiness</a></p>\n</footer>\n</body>\n</html>\n";

}  // namespace

std::string status_page(const ServerStatus &status) {
  return head(status) + checks(status) + mirrors(status) + load(status) + templates(status) + certificates(status) +
         readings(status) + audit(status) + std::string(kFoot);
}

std::string status_page_policy() {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> hash;
  SHA256(reinterpret_cast<const unsigned char *>(kStyle.data()), kStyle.size(), hash.data());
  std::array<unsigned char, 4 * ((SHA256_DIGEST_LENGTH + 2) / 3) + 1> text;
  EVP_EncodeBlock(text.data(), hash.data(), static_cast<int>(hash.size()));
  return fmt::format(
      "default-src 'none'; style-src 'sha256-{}'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
      reinterpret_cast<const char *>(text.data()));
}

}  // namespace veskd
