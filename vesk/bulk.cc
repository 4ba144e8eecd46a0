#include "vesk/bulk.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdio>
#include <exception>
#include <mutex>
#include <thread>

#include "vesk/failure.h"
#include "vesk/journal.h"
#include "vesk/key_commands.h"
#include "vesk/list_output.h"
#include "vesk/progress.h"
#include "vesk/text.h"
#include "vesk/watch.h"

namespace command {
namespace {

constexpr std::uint32_t kDefaultJobs = 8;
constexpr std::uint32_t kMaxJobs = 64;

// Where the server cannot be reached the next name fares no better.
bool ends_all(const Failure &failure) {
  return failure.code() == ExitCode::kConnection || failure.code() == ExitCode::kTimeOut;
}

class Run {
 public:
  Run(const Settings &settings, const Connection &connection, const BulkOptions &options,
      const std::vector<BulkItem> &items, const BulkTask &task)
      : connection_(connection),
        items_(items),
        task_(task),
        is_dry_run_(options.dry_run),
        journal_(options.from == "-" || is_dry_run_ ? "" : *options.from,
                 fmt::format("vesk {} {}", task.words, connection.server())),
        output_(settings, {}, "results", {"name", "outcome", "error"}),
        tells_failures_(settings.form() == Form::kJson || settings.form() == Form::kCsv) {}

  void work(std::uint32_t jobs) {
    {
      const Progress progress([this] {
        return fmt::format("{}: {} of {}, {} failed", task_.words, num_looked_at_.load(), items_.size(),
                           num_failed_.load());
      });
      std::vector<std::jthread> workers;
      for (std::uint32_t i = 0; i < jobs; ++i) workers.emplace_back([this] { take_turns(); });
    }
    if (unforeseen_) std::rethrow_exception(unforeseen_);
  }

  // Tells how it came out.
  void conclude() {
    const std::size_t num_open = items_.size() - num_looked_at_;
    Members members = {{"done", is_dry_run_ ? 0 : num_done_},
                       {"done_before", num_done_before_},
                       {"failed", num_failed_.load()},
                       {"not_tried", num_open}};
    if (is_dry_run_) members.emplace_back("dry_run", true);
    output_.end({}, members);
    if (num_failed_ == 0 && num_open == 0) journal_.remove();
    const std::string summary =
        fmt::format("{} {} of {}{}{}{}", task_.done, num_done_, items_.size(), told(", {} before", num_done_before_),
                    told(", {} failed", num_failed_), told(", {} not tried", num_open));
    if (num_failed_ == 0 && num_open == 0) {
      fmt::print(stderr, "{}\n", summary);
      return;
    }
    if (is_dry_run_) throw Failure(first_code_, summary);
    const bool is_partly = num_done_ + num_done_before_ > 0;
    throw Failure(is_partly ? ExitCode::kPartly : first_code_, summary, "run it again to go on with what is not done");
  }

 private:
  static std::string told(const char *format, std::size_t count) {
    return count == 0 ? std::string() : fmt::format(fmt::runtime(format), count);
  }

  void take_turns() {
    try {
      while (!is_over_) {
        const std::size_t turn = next_++;
        if (turn >= items_.size()) return;
        take(items_[turn]);
        ++num_looked_at_;
      }
    } catch (...) {
      // The disk is full, or the reader of standard output has gone: all workers end.
      const std::lock_guard lock(mutex_);
      if (!unforeseen_) unforeseen_ = std::current_exception();
      is_over_ = true;
    }
  }

  void take(const BulkItem &item) {
    if (journal_.has(item.name)) {
      const std::lock_guard lock(mutex_);
      ++num_done_before_;
      return;
    }
    journal_.begin(item.name);
    try {
      run(item);
    } catch (const Failure &failure) {
      if (!ends_all(failure)) journal_.withdraw(item.name);
      note_failure(item, failure);
      return;
    }
    journal_.add(item.name);
    const std::lock_guard lock(mutex_);
    ++num_done_;
    output_.add(Members{{"name", item.name}, {"outcome", is_dry_run_ ? "possible" : "done"}, {"error", Json()}},
                fmt::format("{} {}", task_.done, printable(item.name)));
  }

  void run(const BulkItem &item) const {
    const int status = task_.run(item);
    // What a run had begun that was ended may have been done after all.
    if (status != 0 && status == task_.already && journal_.has_begun(item.name)) return;
    connection_.require(status, key_subject(item.name));
  }

  void note_failure(const BulkItem &item, const Failure &failure) {
    const std::lock_guard lock(mutex_);
    if (num_failed_++ == 0) first_code_ = failure.code();
    if (ends_all(failure)) is_over_ = true;
    if (tells_failures_)
      output_.add(Members{{"name", item.name}, {"outcome", "failed"}, {"error", failure.what()}}, {});
    const Uninterrupted whole_line;
    fmt::print(stderr, "{}failed: {}\n", clear_line(), failure.what());
  }

  const Connection &connection_;
  const std::vector<BulkItem> &items_;
  const BulkTask &task_;
  const bool is_dry_run_;
  Journal journal_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<bool> is_over_ = false;
  std::atomic<std::size_t> num_looked_at_ = 0;
  std::atomic<std::size_t> num_failed_ = 0;

  std::mutex mutex_;  // for what follows
  ListOutput output_;
  const bool tells_failures_;
  std::size_t num_done_ = 0;
  std::size_t num_done_before_ = 0;
  ExitCode first_code_ = ExitCode::kOther;
  std::exception_ptr unforeseen_;
};

}  // namespace

void add_bulk_options(Command &command, BulkOptions &options) {
  command.option("--from", &options.from, "FILE", Kind::kFile,
                 "work off a file: a name a line, or .csv, or .json; - for standard input");
  command.option("--jobs", &options.jobs, "N", Kind::kNumber, "with --from: so many at a time, 1 to 64 [8]").needs = {
      "--from"};
}

void require_one_source(bool has_names, const BulkOptions &options) {
  if (has_names != options.from.has_value()) return;
  throw Failure(ExitCode::kUsage, has_names ? "there is a NAME and a file of names" : "NAME is required",
                "give either NAME or --from FILE");
}

void run_bulk(const Settings &settings, const Connection &connection, const BulkOptions &options,
              const std::vector<BulkItem> &items, const BulkTask &task) {
  const std::uint32_t jobs = options.jobs ? parse_number("jobs", *options.jobs, 1, kMaxJobs) : kDefaultJobs;
  Run run(settings, connection, options, items, task);
  run.work(jobs);
  run.conclude();
}

}  // namespace command
