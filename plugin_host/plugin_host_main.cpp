// trovix-plugin-host: the helper process that runs content plugins for the search process,
// and lister plugins for the desktop program's quick view.
//
//   trovix-plugin-host --serve [--lister] [--ini FILE]   the pool's mode: request frames on
//                                             standard input, answer frames on standard output
//                                             (platform/plugin_protocol.h)
//   trovix-plugin-host --sandbox [--lister]   what holds in a host's sandbox, layer by layer
//
// `--lister` starts a host for lister plugins only. A lister draws into the desktop's pane
// through its own connection to the X server, so this host's sandbox admits unix stream
// sockets (platform/sandbox.h, SandboxOptions::x11_client) and nothing else more than a
// content host's; a content host never gets them.
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
#include <vector>

#include "platform/frame_io.h"
#include "platform/helper_serve.h"
#include "platform/plugin_protocol.h"
#include "platform/process_pool.h"
#include "platform/sandbox.h"
#include "plugin_host/lister_library.h"
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

// The libraries of one kind (plugin::PluginLibrary, plugin::ListerLibrary) asked for so far,
// loaded once each; one that failed is not tried again.
template <typename Library>
class Libraries {
 public:
  explicit Libraries(std::string ini) : ini_(std::move(ini)) {}
  Library* Get(const std::string& path, std::string* error) {
    auto [it, made] = libraries_.try_emplace(path);
    if (made) it->second.library = Library::Load(path, ini_, &it->second.error);
    *error = it->second.error;
    return it->second.library.get();
  }

 private:
  struct Entry {
    std::unique_ptr<Library> library;
    std::string error;
  };
  std::string ini_;
  std::map<std::string, Entry> libraries_;
};

bool Answer(int out, const plugin::PluginRequest& request,
            Libraries<plugin::PluginLibrary>& libraries, Watchdog& watchdog) {
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
    case plugin::kOpSandbox:
    case plugin::kOpListDetect:
    case plugin::kOpListLoad:
    case plugin::kOpListClose:
      break;
  }
  return SendEnd(out, {plugin::kPluginBadRequest, "bad request"});
}

// The lister libraries asked for so far, and the window each parent shows: one lister window
// per parent, so that a window the desktop no longer wants (its answer came too late, or its
// close was lost) is closed by the next load at the latest.
class Listers {
 public:
  explicit Listers(std::string ini) : libraries_(std::move(ini)) {}

  plugin::ListerLibrary* Get(const std::string& path, std::string* error) {
    return libraries_.Get(path, error);
  }

  // `path` shown under `parent` by `library`: in the window it shows there already when the
  // plugin can load the next file into it, else in a new one (the old one closed first).
  uint64_t Show(plugin::ListerLibrary* library, uint64_t parent, const std::string& path) {
    if (auto it = shown_.find(parent); it != shown_.end()) {
      if (it->second.library == library &&
          library->OpenNext(parent, it->second.window, path, kShowFlags))
        return it->second.window;
      it->second.library->Close(it->second.window);
      shown_.erase(it);
    }
    const uint64_t window = library->Open(parent, path, kShowFlags);
    if (window != 0) shown_[parent] = {library, window};
    return window;
  }

  void Close(uint64_t window) {
    for (auto it = shown_.begin(); it != shown_.end(); ++it) {
      if (it->second.window != window) continue;
      it->second.library->Close(window);
      shown_.erase(it);
      return;
    }
  }

 private:
  // A preview: long lines wrapped, pictures shrunk to the pane but never blown up, centred.
  static constexpr int32_t kShowFlags =
      plugin::kLcpWrapText | plugin::kLcpFitLargerOnly | plugin::kLcpCenter;

  struct Shown {
    plugin::ListerLibrary* library;
    uint64_t window;
  };
  Libraries<plugin::ListerLibrary> libraries_;
  std::map<uint64_t, Shown> shown_;
};

bool AnswerLister(int out, const plugin::PluginRequest& request, Listers& listers) {
  if (request.op == plugin::kOpListClose) {
    listers.Close(request.window);
    return SendEnd(out, {plugin::kPluginOk, ""});
  }
  if (request.op != plugin::kOpListDetect && request.op != plugin::kOpListLoad)
    return SendEnd(out, {plugin::kPluginBadRequest, "a lister host runs lister plugins only"});
  std::string error;
  plugin::ListerLibrary* library = listers.Get(request.library, &error);
  if (!library) return SendEnd(out, {plugin::kPluginNotLoaded, error});
  plugin::PluginEnd end{plugin::kPluginOk, library->loaded_path()};
  if (request.op == plugin::kOpListDetect) {
    end.detect = library->DetectString();
    return SendEnd(out, end);
  }
  if (request.window == 0) return SendEnd(out, {plugin::kPluginBadRequest, "no parent window"});
  end.window = listers.Show(library, request.window, request.path);
  if (end.window == 0) end = {plugin::kPluginNoValue, "the lister refused the file"};
  return SendEnd(out, end);
}

// What a serving host holds: made once the sandbox holds, so the watchdog's thread is under it.
struct Host {
  Host(const std::string& ini, std::string sandbox_layers)
      : libraries(ini), listers(ini), layers(std::move(sandbox_layers)) {}
  Watchdog watchdog;
  Libraries<plugin::PluginLibrary> libraries;
  Listers listers;
  std::string layers;
};

platform::ServeStep Dispatch(int out, const platform::Frame& frame, Host& host, bool lister) {
  plugin::PluginRequest request;
  if (frame.type != plugin::kPluginRequest || !request.Decode(frame.payload))
    return platform::StepOf(SendEnd(out, {plugin::kPluginBadRequest, "bad request"}));
  if (request.op == plugin::kOpSandbox)
    return platform::StepOf(SendEnd(out, {plugin::kPluginOk, host.layers}));
  const bool lister_op = request.op >= plugin::kOpListDetect;
  if (lister != lister_op)
    return platform::StepOf(SendEnd(
        out, {plugin::kPluginBadRequest, lister ? "a lister host runs lister plugins only"
                                                : "a content host runs content plugins only"}));
  return platform::StepOf(lister ? AnswerLister(out, request, host.listers)
                                 : Answer(out, request, host.libraries, host.watchdog));
}

int Serve(const std::string& ini, bool lister) {
  platform::ServeLoop loop;
  loop.program = "trovix-plugin-host";
  loop.sandbox.x11_client = lister;
  loop.before_sandbox = [&ini] {
    // Plugins read and write text in the system code page: the locale's character set here.
    setlocale(LC_ALL, "");
    if (!ini.empty() && access(ini.c_str(), F_OK) == 0) setenv("COMMANDER_INI", ini.c_str(), 0);
  };
  loop.start = [&ini, lister](const platform::SandboxReport& report) -> platform::ServeDispatch {
    auto host = std::make_shared<Host>(ini, report.Layers());
    return [host, lister](int out, const platform::Frame& frame) {
      return Dispatch(out, frame, *host, lister);
    };
  };
  return platform::ServeFrames(loop);
}

// What holds in a host, told by one started as the search process starts them.
int ReportSandbox(bool lister) {
  std::vector<std::string> args = {"--serve"};
  if (lister) args.push_back("--lister");
  std::unique_ptr<platform::ProcessPool> pool = platform::OneHelperPool(std::move(args));
  if (!pool) return 2;
  plugin::PluginRequest request;
  request.op = plugin::kOpSandbox;
  plugin::PluginAnswer answer(request);
  platform::ExchangeFailure failure;
  const platform::ExchangeStatus status =
      plugin::AskPluginHost(*pool, request, &answer, 30'000, &failure);
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
  bool serve = false;
  bool sandbox = false;
  bool lister = false;
  const char* ini = nullptr;
  bool ok = argc >= 2;
  for (int i = 1; ok && i < argc; ++i) {
    if (i == 1 && strcmp(argv[i], "--serve") == 0)
      serve = true;
    else if (i == 1 && strcmp(argv[i], "--sandbox") == 0)
      sandbox = true;
    else if (i > 1 && strcmp(argv[i], "--lister") == 0 && !lister)
      lister = true;
    else if (i > 1 && serve && strcmp(argv[i], "--ini") == 0 && !ini && i + 1 < argc)
      ini = argv[++i];
    else
      ok = false;
  }
  if (ok && serve) return Serve(ini ? ini : "", lister);
  if (ok && sandbox) return ReportSandbox(lister);
  fprintf(stderr,
          "usage: trovix-plugin-host --serve [--lister] [--ini FILE]\n"
          "       trovix-plugin-host --sandbox [--lister]\n");
  return 2;
}
