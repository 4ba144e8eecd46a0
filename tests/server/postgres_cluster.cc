#include "tests/server/postgres_cluster.h"

#include <fcntl.h>
#include <grp.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace veskd::test {
namespace {

namespace fs = std::filesystem;

// Who owns the cluster: PostgreSQL refuses to run as root.
struct User {
  uid_t user;
  gid_t group;
};

User cluster_user() {
  if (::geteuid() != 0) return {::geteuid(), ::getegid()};
  const passwd *entry = ::getpwnam("postgres");
  if (entry == nullptr) throw std::runtime_error("there is no user postgres to run PostgreSQL as");
  return {entry->pw_uid, entry->pw_gid};
}

// Its output goes to a file. At the end of this thread it is told to stop at once.
pid_t spawn(const std::vector<std::string> &arguments, const fs::path &output) {
  std::vector<char *> argv;
  for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
  argv.push_back(nullptr);
  const User user = cluster_user();
  const bool changes_user = ::geteuid() == 0;
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  const int file = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  ::dup2(file, STDOUT_FILENO);
  ::dup2(file, STDERR_FILENO);
  if (changes_user && (::setgroups(0, nullptr) != 0 || ::setgid(user.group) != 0 || ::setuid(user.user) != 0))
    ::_exit(126);
  // Behind the change of user, which would undo it.
  ::prctl(PR_SET_PDEATHSIG, SIGQUIT);
  if (::getppid() != parent || ::chdir("/") != 0) ::_exit(125);
  ::execv(argv[0], argv.data());
  ::_exit(127);
}

std::string content(const fs::path &path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

std::string program(const char *name) {
  return std::string(POSTGRES_PROGRAMS) + "/" + name;
}

}  // namespace

PostgresCluster::PostgresCluster(Durability durability) : durability_(durability) {
  const User user = cluster_user();
  if (::chown(directory_.path().c_str(), user.user, user.group) != 0)
    throw std::runtime_error("the cluster's directory cannot be given to its user");
  const pid_t maker = spawn({program("initdb"), "--no-sync", "--auth=trust", "--encoding=UTF8", "--no-locale",
                             "--username=veskd", "--pgdata=" + (directory_ / "data").string()},
                            directory_ / "output");
  int status = 0;
  if (::waitpid(maker, &status, 0) != maker || status != 0)
    throw std::runtime_error("no PostgreSQL cluster: " + content(directory_ / "output"));
  start();
}

PostgresCluster::~PostgresCluster() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGQUIT);
  ::waitpid(pid_, nullptr, 0);
}

std::string PostgresCluster::uri() const {
  return "postgresql:///postgres?user=veskd&host=" + directory_.path().string();
}

// What a killed one leaves running keeps a new one from starting for a moment.
void PostgresCluster::start() {
  const std::string on_disk = durability_ == Durability::kOnDisk ? "on" : "off";
  const auto is_up = [this] { return PQping(uri().c_str()) == PQPING_OK; };
  const auto has_ended = [this] { return ::waitpid(pid_, nullptr, WNOHANG) == pid_; };
  const bool is_started = eventually(
      [&] {
        if (pid_ < 0 || has_ended())
          pid_ = spawn({program("postgres"), "-D", (directory_ / "data").string(), "-c", "listen_addresses=", "-c",
                        "unix_socket_directories=" + directory_.path().string(), "-c", "fsync=" + on_disk, "-c",
                        "full_page_writes=" + on_disk, "-c", "max_connections=300", "-c", "shared_buffers=32MB"},
                       directory_ / "output");
        return is_up();
      },
      std::chrono::seconds(60));
  if (!is_started) throw std::runtime_error("PostgreSQL does not start: " + content(directory_ / "output"));
}

void PostgresCluster::kill() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

}  // namespace veskd::test
