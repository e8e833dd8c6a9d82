// trovix-plugin-host: the helper process that runs content plugins for the search process.
//
//   trovix-plugin-host --serve [--ini FILE]   the pool's mode: request frames on standard
//                                             input, answer frames on standard output
//                                             (platform/plugin_protocol.h)
//   trovix-plugin-host --sandbox              what holds in a host's sandbox, layer by layer
//
// A plugin is a library of someone else's making that reads files of every kind: it runs here,
// never in the search process or the desktop program. The host enters the same sandbox as the
// document reader before it loads any library (read-only file system, no sockets, the same
// seccomp allow-list), so a plugin that writes its settings or phones home is refused. A plugin
// that crashes takes only this process with it; one that hangs is first asked to stop
// (ContentStopGetValue, from the watchdog thread here) and then killed by the pool.
//
// `--ini FILE` is the plugin settings file: it is handed to every plugin through
// ContentSetDefaultParams, and, when it exists, becomes COMMANDER_INI unless that is set
// already, since plugins look there for their own settings.
//
// As in trovix-extract, nothing but frames may reach standard output: descriptor 1 is pointed
// at standard error before any library runs (a plugin that prints must not break a frame).
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <clocale>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/frame_io.h"
#include "platform/plugin_protocol.h"
#include "platform/process_pool.h"
#include "platform/sandbox.h"
#include "plugin_host/plugin_library.h"

namespace {

namespace platform = trovix::platform;
namespace plugin = trovix::plugin;

// Asks a plugin to stop when a call runs past its time. One thread for the host's life; armed
// around each value call.
class Watchdog {
 public:
  Watchdog() : thread_([this] { Run(); }) {}
  ~Watchdog() {
    {
      std::lock_guard lock(mutex_);
      quit_ = true;
    }
    cv_.notify_all();
    thread_.join();
  }

  void Arm(plugin::PluginLibrary* library, const std::string& path, uint32_t after_ms) {
    std::lock_guard lock(mutex_);
    library_ = library;
    path_ = path;
    deadline_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(after_ms);
    fired_ = false;
    cv_.notify_all();
  }
  // True when the stop call was made during the armed time.
  bool Disarm() {
    std::lock_guard lock(mutex_);
    library_ = nullptr;
    return fired_;
  }

 private:
  void Run() {
    std::unique_lock lock(mutex_);
    while (!quit_) {
      if (!library_ || fired_) {
        cv_.wait(lock);
        continue;
      }
      if (cv_.wait_until(lock, deadline_) != std::cv_status::timeout) continue;
      if (!library_ || fired_ || std::chrono::steady_clock::now() < deadline_) continue;
      fired_ = true;
      plugin::PluginLibrary* library = library_;
      const std::string path = path_;
      // The stop call may take the plugin's own lock; the serving thread must be free to
      // disarm meanwhile, so the call is made without ours.
      lock.unlock();
      library->Stop(path);
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable cv_;
  plugin::PluginLibrary* library_ = nullptr;
  std::string path_;
  std::chrono::steady_clock::time_point deadline_;
  bool fired_ = false;
  bool quit_ = false;
  std::thread thread_;
};

bool SendEnd(int out, const plugin::PluginEnd& end) {
  return platform::WriteFrame(out, plugin::kPluginEnd, end.Encode()) == platform::FrameStatus::kOk;
}

// The libraries asked for so far, loaded once each; one that failed is not tried again.
class Libraries {
 public:
  explicit Libraries(std::string ini) : ini_(std::move(ini)) {}
  plugin::PluginLibrary* Get(const std::string& path, std::string* error) {
    auto [it, made] = libraries_.try_emplace(path);
    if (made) it->second.library = plugin::PluginLibrary::Load(path, ini_, &it->second.error);
    *error = it->second.error;
    return it->second.library.get();
  }

 private:
  struct Entry {
    std::unique_ptr<plugin::PluginLibrary> library;
    std::string error;
  };
  std::string ini_;
  std::map<std::string, Entry> libraries_;
};

bool Answer(int out, const plugin::PluginRequest& request, Libraries& libraries, Watchdog& watchdog) {
  std::string error;
  plugin::PluginLibrary* library = libraries.Get(request.library, &error);
  if (!library) return SendEnd(out, {plugin::kPluginNotLoaded, error});
  switch (request.op) {
    case plugin::kOpFields: {
      const plugin::FieldList list = library->Fields();
      for (const plugin::PluginField& field : list.fields)
        if (platform::WriteFrame(out, plugin::kPluginField, field.Encode()) != platform::FrameStatus::kOk) return false;
      plugin::PluginEnd end{plugin::kPluginOk, library->loaded_path()};
      end.detect = library->DetectString();
      end.full_text = list.full_text;
      end.full_text_type = list.full_text_type;
      return SendEnd(out, end);
    }
    case plugin::kOpValue: {
      plugin::PluginValue value;
      watchdog.Arm(library, request.path, request.stop_after_ms);
      const plugin::CallResult result = library->Value(request.path, request.field, &value);
      const bool stopped = watchdog.Disarm();
      if (result == plugin::CallResult::kOverrun)
        return SendEnd(out, {plugin::kPluginOverrun, "the plugin wrote past its value buffer"});
      if (stopped) return SendEnd(out, {plugin::kPluginStopped, "the plugin took too long and was stopped"});
      if (value.type < 1) return SendEnd(out, {plugin::kPluginNoValue, ""});
      if (platform::WriteFrame(out, plugin::kPluginValue, value.Encode()) != platform::FrameStatus::kOk) return false;
      return SendEnd(out, {plugin::kPluginOk, ""});
    }
    case plugin::kOpText: {
      uint64_t sent = 0;
      bool broken = false;
      bool any = false;
      watchdog.Arm(library, request.path, request.stop_after_ms);
      const plugin::CallResult result = library->FullText(request.path, request.field, [&](std::string&& piece) {
        // Each piece gets the time a value gets.
        watchdog.Arm(library, request.path, request.stop_after_ms);
        if (sent + piece.size() > request.max_text_bytes) piece.resize(request.max_text_bytes - sent);
        if (!piece.empty()) {
          any = true;
          sent += piece.size();
          broken = platform::WriteFrame(out, plugin::kPluginText, piece) != platform::FrameStatus::kOk;
        }
        return !broken && sent < request.max_text_bytes && !platform::InputPending(0);
      });
      const bool stopped = watchdog.Disarm();
      if (broken) return false;
      if (result == plugin::CallResult::kOverrun)
        return SendEnd(out, {plugin::kPluginOverrun, "the plugin wrote past its text buffer"});
      if (stopped) return SendEnd(out, {plugin::kPluginStopped, "the plugin took too long and was stopped"});
      return SendEnd(out, {any ? plugin::kPluginOk : plugin::kPluginNoValue, ""});
    }
    case plugin::kOpSandbox: break;
  }
  return SendEnd(out, {plugin::kPluginBadRequest, "bad request"});
}

int Serve(const std::string& ini) {
  int out = dup(1);
  if (out < 0 || dup2(2, 1) < 0) return 1;
  // Plugins read and write text in the system code page: the locale's character set here.
  setlocale(LC_ALL, "");
  if (!ini.empty() && access(ini.c_str(), F_OK) == 0) setenv("COMMANDER_INI", ini.c_str(), 0);
  const platform::SandboxReport report = platform::EnterSandbox();
  if (std::string missing = report.Missing(); !missing.empty())
    fprintf(stderr, "trovix-plugin-host: %s\n", missing.c_str());
  Watchdog watchdog;
  Libraries libraries(ini);
  for (;;) {
    platform::Frame frame;
    platform::FrameStatus status = platform::ReadFrame(0, &frame, -1);
    if (status == platform::FrameStatus::kClosed) return 0;
    if (status != platform::FrameStatus::kOk) return 1;
    if (frame.type == platform::kFrameCancel) continue;  // came after its request ended
    plugin::PluginRequest request;
    if (frame.type != plugin::kPluginRequest || !request.Decode(frame.payload)) {
      if (!SendEnd(out, {plugin::kPluginBadRequest, "bad request"})) return 1;
      continue;
    }
    if (request.op == plugin::kOpSandbox) {
      if (!SendEnd(out, {plugin::kPluginOk, report.Layers()})) return 1;
      continue;
    }
    if (!Answer(out, request, libraries, watchdog)) return 1;
  }
}

// What holds in a host, told by one started as the search process starts them.
int ReportSandbox() {
  platform::PoolOptions options;
  options.program = platform::ThisProgram();
  if (options.program.empty()) return 2;
  options.args = {"--serve"};
  options.size = 1;
  platform::ProcessPool pool(options);
  plugin::PluginRequest request;
  request.op = plugin::kOpSandbox;
  plugin::PluginAnswer answer(request);
  platform::ExchangeFailure failure;
  const platform::ExchangeStatus status = plugin::AskPluginHost(pool, request, &answer, 30'000, &failure);
  if (status != platform::ExchangeStatus::kOk || answer.end().code != plugin::kPluginOk) {
    fprintf(stderr, "trovix-plugin-host: the host failed (%s)\n", failure.what.c_str());
    return 2;
  }
  fputs(answer.end().message.c_str(), stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // A client that goes away must end a write with an error, not kill the host mid-answer.
  signal(SIGPIPE, SIG_IGN);
  if (argc == 2 && strcmp(argv[1], "--serve") == 0) return Serve("");
  if (argc == 4 && strcmp(argv[1], "--serve") == 0 && strcmp(argv[2], "--ini") == 0) return Serve(argv[3]);
  if (argc == 2 && strcmp(argv[1], "--sandbox") == 0) return ReportSandbox();
  fprintf(stderr, "usage: trovix-plugin-host --serve [--ini FILE]\n       trovix-plugin-host --sandbox\n");
  return 2;
}
