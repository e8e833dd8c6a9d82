#include "views/program/speech.h"

#include <QGuiApplication>

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#ifdef TROVIX_HAVE_ESPEAK
#include <espeak-ng/espeak_ng.h>
#endif

#include "base/string_table.h"

namespace trovix::views {
namespace {

bool g_talk = false;
SpeechHook g_speech_hook;

#ifdef TROVIX_HAVE_ESPEAK
// The voice: one thread owns every espeak-ng call, from set-up to the last word, because the
// library keeps global state and is not meant to be entered from two threads. Texts queue up
// and are spoken one after the other; the UI thread only hands them over.
class Voice {
 public:
  static Voice& Instance() {
    static Voice voice;
    return voice;
  }

  // The first call starts the thread and waits for the library's set-up (it probes the sound
  // device once); afterwards this only queues. False when the voice could not be set up.
  bool Speak(const std::string& text) {
    std::call_once(started_, [this] {
      std::promise<bool> ready;
      std::future<bool> result = ready.get_future();
      thread_ = std::thread([this, ready = std::move(ready)]() mutable { Run(std::move(ready)); });
      usable_ = result.get();
    });
    if (!usable_) return false;
    {
      std::lock_guard lock(mutex_);
      queue_.push_back(text);
    }
    wake_.notify_one();
    return true;
  }

  ~Voice() {
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable()) thread_.join();
  }

 private:
  Voice() = default;

  static bool SetUp() {
    espeak_ng_InitializePath(nullptr);
    espeak_ng_ERROR_CONTEXT context = nullptr;
    if (espeak_ng_Initialize(&context) != ENS_OK) {
      espeak_ng_ClearErrorContext(&context);
      return false;
    }
    // Synchronous mode on our own thread: Synthesize returns when the words were played, so
    // the queue never outruns the sound device and a failing device is seen here.
    if (espeak_ng_InitializeOutput(
            static_cast<espeak_ng_OUTPUT_MODE>(ENOUTPUT_MODE_SYNCHRONOUS | ENOUTPUT_MODE_SPEAK_AUDIO), 0, nullptr) != ENS_OK ||
        espeak_ng_SetVoiceByName("en") != ENS_OK) {
      espeak_ng_Terminate();
      return false;
    }
    return true;
  }

  void Run(std::promise<bool> ready) {
    const bool ok = SetUp();
    ready.set_value(ok);
    if (!ok) return;
    for (;;) {
      std::string text;
      {
        std::unique_lock lock(mutex_);
        wake_.wait(lock, [this] { return stop_ || !queue_.empty(); });
        if (stop_) break;
        text = std::move(queue_.front());
        queue_.pop_front();
      }
      espeak_ng_Synthesize(text.c_str(), text.size() + 1, 0, POS_CHARACTER, 0, espeakCHARS_UTF8, nullptr,
                           nullptr);
      espeak_ng_Synchronize();
    }
    espeak_ng_Terminate();
  }

  std::once_flag started_;
  bool usable_ = false;
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::string> queue_;
  bool stop_ = false;
};
#endif

}  // namespace

void SetTalkEnabled(bool enabled) { g_talk = enabled; }
bool TalkEnabled() { return g_talk; }

bool Say(const std::string& text) {
  if (!g_talk || text.empty()) return false;
  if (g_speech_hook) return g_speech_hook(text);
#ifdef TROVIX_HAVE_ESPEAK
  return Voice::Instance().Speak(text);
#else
  return false;
#endif
}

void ReportError(QWidget* parent, uint32_t string_id, const char* spoken) {
  if (spoken && Say(spoken)) return;
  ShowStringBox(parent, string_id, QMessageBox::Warning);
}

SpeechHook SetSpeechHook(SpeechHook hook) {
  std::swap(g_speech_hook, hook);
  return hook;
}

}  // namespace trovix::views
