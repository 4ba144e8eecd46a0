// The status page in a real browser: what a person sees of a server that runs.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tests/server/program.h"
#include "tests/server/test_server.h"

namespace veskd::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string content_of(const std::filesystem::path &path) {
  std::ifstream file(path);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

// With a home of its own, and without its sandbox, which is not to be had as root and in containers.
bool browse(const std::string &url, const TemporaryDirectory &home) {
  const std::string path = home.path().string();
  const std::string command = fmt::format(
      "HOME={0} timeout 120 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
      "--disable-background-networking --disable-component-update --disable-sync --user-data-dir={0}/profile "
      "--window-size=1280,1400 --enable-logging=stderr --dump-dom --screenshot={0}/page.png {1} > {0}/page 2> {0}/log",
      path, url);
  return std::system(command.c_str()) == 0;
}

TEST(StatusPage, IsWhatTheBrowserShows) {
  const TemporaryDirectory directory;
  const TemporaryDirectory home;
  Program program({"dev", "--dir", directory.path().string(), "--watch-port", "0", "--quiet"});
  for (int line = 0; line < 3; ++line) program.read_line();
  const std::string where = program.read_line();
  const auto ready = nlohmann::json::parse(content_of(directory / "ready.json"));
  const std::string url = fmt::format("http://127.0.0.1:{}/", ready.at("watch_port").get<int>());
  EXPECT_EQ(where, url + " shows how it is");
  const CertificatePaths paths = client_paths(directory.path());
  const std::uint32_t port = ready.at("port");
  ASSERT_EQ(qSetMirrorAddress(&paths, "127.0.0.1", port, "<script>east", "192.0.2.1", 5696), 0);
  ASSERT_EQ(qAutoGenKeys(&paths, "127.0.0.1", port, "status-page-001", 'I', 4), 0);
  char key_name[65];
  unsigned char key_value[32];
  std::uint32_t last_increment = 0;
  ASSERT_EQ(qGetNextKey(&paths, "127.0.0.1", port, "status-page-001", key_name, key_value, &last_increment), 0);

  ASSERT_TRUE(browse(url, home)) << content_of(home / "log");
  const std::string page = content_of(home / "page");
  EXPECT_THAT(page, AllOf(HasSubstr("<title>Key server: ready</title>"), HasSubstr("</html>")));
  for (const char *section : {"Readiness", "Mirrors", "Queues", "Key templates", "Certificates", "Appliance", "Audit"})
    EXPECT_THAT(page, HasSubstr(fmt::format("<h2>{}</h2>", section)));
  EXPECT_THAT(page, AllOf(HasSubstr("<th scope=\"row\">&lt;script&gt;east</th><td>192.0.2.1 port 5696</td>"),
                          HasSubstr("<progress max=\"4\" value=\"1\">1 of 4</progress> 25 %"),
                          HasSubstr("<td>CN=veskd,O=veskd dev</td>"), Not(HasSubstr("<script"))));
  // It would complain of anything that the page's policy forbids, its own style included.
  EXPECT_THAT(content_of(home / "log"), Not(HasSubstr("Content Security Policy")));
  EXPECT_THAT(content_of(home / "page.png"), StartsWith("\x89PNG"));
}

}  // namespace
}  // namespace veskd::test
