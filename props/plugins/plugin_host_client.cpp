#include "props/plugins/plugin_host_client.h"

#include <algorithm>
#include <cstdio>

#include "props/plugins/plugin_values.h"

namespace trovix::props {
namespace {

// The time past a value's own that the host gets to answer after asking the plugin to stop,
// before the pool kills it.
constexpr int64_t kStopGraceMs = 1000;
// Loading a library and listing its fields runs the plugin's start-up code: more than a value.
constexpr int64_t kFieldsTimeoutMs = 15'000;
// A full text is many calls, each held to the value's time by the host; the whole is bounded
// too.
constexpr int64_t kTextTimeoutMs = 60'000;

}  // namespace

std::string PluginDisabledMessage(const std::string& library, bool lister) {
  return std::string(lister ? "the lister plugin " : "the content plugin ") + library + " failed " +
         std::to_string(kPluginFailuresToDisable) +
         " times and is switched off until the program is started again";
}

PluginHostClient::PluginHostClient(PluginHostOptions options) : options_(std::move(options)) {
  if (options_.program.empty()) options_.program = DefaultProgram();
}

std::string PluginHostClient::DefaultProgram() {
  return platform::HelperBesideThisProgram("TROVIX_PLUGIN_HOST", "trovix-plugin-host");
}

platform::ProcessPool& PluginHostClient::Pool() {
  std::lock_guard lock(mutex_);
  if (!pool_) {
    platform::PoolOptions pool;
    pool.program = options_.program;
    pool.args = {"--serve"};
    if (!options_.ini.empty()) pool.args = {"--serve", "--ini", options_.ini};
    pool.size = options_.helpers;
    pool.memory_limit = options_.memory_limit;
    // A plugin finds its own settings through this variable when the user set it.
    pool.environment = {"COMMANDER_INI"};
    if (options_.lister) {
      pool.args.insert(pool.args.begin() + 1, "--lister");
      // One host: a lister's window lives in the connection of the host that made it, and
      // only that host can close it.
      pool.size = 1;
      // The X library finds the server by DISPLAY and its cookie by XAUTHORITY, else in HOME.
      pool.environment.insert(pool.environment.end(), {"DISPLAY", "XAUTHORITY", "HOME"});
    }
    pool_ = std::make_unique<platform::ProcessPool>(std::move(pool));
  }
  return *pool_;
}

uint64_t PluginHostClient::host_starts() const {
  std::lock_guard lock(mutex_);
  return pool_ ? pool_->starts() : 0;
}

bool PluginHostClient::Disabled(const std::string& library) const {
  std::lock_guard lock(mutex_);
  auto it = failures_.find(library);
  return it != failures_.end() && it->second >= kPluginFailuresToDisable;
}

void PluginHostClient::SetNoticeHandler(std::function<void(const std::string&)> handler) {
  std::lock_guard lock(mutex_);
  notice_ = std::move(handler);
}

void PluginHostClient::CountFailure(const std::string& library) {
  std::function<void(const std::string&)> notice;
  {
    std::lock_guard lock(mutex_);
    if (++failures_[library] != kPluginFailuresToDisable) return;
    notice = notice_;
  }
  const std::string text = PluginDisabledMessage(library, options_.lister);
  if (notice) {
    notice(text);
  } else {
    std::fprintf(stderr, "%s\n", text.c_str());
  }
}

PluginOutcome PluginHostClient::Ask(const plugin::PluginRequest& request, int64_t timeout_ms,
                                    const AnswerFn& on_answer,
                                    const std::function<bool(const platform::Frame&)>& keep_going,
                                    plugin::PluginEnd* end_out) {
  PluginOutcome outcome;
  if (Disabled(request.library)) {
    outcome.message = PluginDisabledMessage(request.library, options_.lister);
    return outcome;
  }
  plugin::PluginAnswer answer(request);
  platform::ExchangeFailure failure;
  const platform::ExchangeStatus status =
      plugin::AskPluginHost(Pool(), request, &answer, timeout_ms, &failure, [&](const platform::Frame& frame) {
        on_answer(answer, frame);
        return !keep_going || keep_going(frame);
      });
  switch (status) {
    case platform::ExchangeStatus::kOk:
      break;
    case platform::ExchangeStatus::kUnavailable:
      outcome.message = "the plugin host could not be started (" + failure.what + ")";
      return outcome;
    case platform::ExchangeStatus::kStopped:  // never asked to stop: no stop is passed
      outcome.message = "the plugin was stopped";
      return outcome;
    case platform::ExchangeStatus::kTimedOut:
    case platform::ExchangeStatus::kCrashed:
    case platform::ExchangeStatus::kRefused:
      outcome.host_failed = true;
      outcome.message = "the plugin failed (" + failure.what + ")";
      CountFailure(request.library);
      return outcome;
  }
  const plugin::PluginEnd& end = answer.end();
  if (end_out) *end_out = end;
  switch (end.code) {
    case plugin::kPluginOk: outcome.status = S_OK; break;
    case plugin::kPluginNoValue: outcome.status = S_FALSE; break;
    default: outcome.status = E_FAIL; break;
  }
  outcome.message = end.message;
  return outcome;
}

const PluginFieldList& PluginHostClient::Fields(const std::string& library) {
  {
    std::lock_guard lock(mutex_);
    if (auto it = fields_.find(library); it != fields_.end()) return *it->second;
  }
  auto list = std::make_unique<PluginFieldList>();
  plugin::PluginRequest request;
  request.op = plugin::kOpFields;
  request.library = library;
  plugin::PluginEnd end;
  const PluginOutcome outcome = Ask(
      request, kFieldsTimeoutMs,
      [&](const plugin::PluginAnswer& answer, const platform::Frame&) { list->fields.push_back(answer.field()); },
      nullptr, &end);
  list->loaded = outcome.status == S_OK;
  if (list->loaded) {
    list->full_text = end.full_text;
    list->detect = end.detect;
  } else {
    list->fields.clear();
    list->error = outcome.message;
  }
  std::lock_guard lock(mutex_);
  auto [it, made] = fields_.try_emplace(library, std::move(list));
  return *it->second;
}

PluginOutcome PluginHostClient::Value(const std::string& library, int32_t field, int32_t declared_type,
                                      const std::string& path, PropValue* value) {
  plugin::PluginRequest request;
  request.op = plugin::kOpValue;
  request.library = library;
  request.path = path;
  request.field = field;
  request.stop_after_ms = static_cast<uint32_t>(options_.timeout_ms);
  plugin::PluginValue answer_value;
  bool has_value = false;
  PluginOutcome outcome = Ask(request, options_.timeout_ms + kStopGraceMs,
                              [&](const plugin::PluginAnswer& answer, const platform::Frame&) {
                                answer_value = answer.value();
                                has_value = true;
                              });
  if (outcome.status != S_OK) return outcome;
  if (!has_value) {
    outcome.status = E_FAIL;
    return outcome;
  }
  outcome.status = ConvertPluginValue(answer_value, declared_type, value);
  return outcome;
}

PluginOutcome PluginHostClient::Text(const std::string& library, int32_t field, const std::string& path,
                                     uint64_t max_bytes, const std::function<bool(const std::string&)>& on_piece) {
  plugin::PluginRequest request;
  request.op = plugin::kOpText;
  request.library = library;
  request.path = path;
  request.field = field;
  request.stop_after_ms = static_cast<uint32_t>(options_.timeout_ms);
  request.max_text_bytes = max_bytes;
  bool more = true;
  return Ask(
      request, std::max(kTextTimeoutMs, options_.timeout_ms * 12),
      [&](const plugin::PluginAnswer&, const platform::Frame& frame) {
        if (frame.type == plugin::kPluginText && more) more = on_piece(frame.payload);
      },
      [&](const platform::Frame&) { return more; });
}

PluginOutcome PluginHostClient::ListerDetect(const std::string& library, std::string* detect) {
  {
    std::lock_guard lock(mutex_);
    if (auto it = lister_detect_.find(library); it != lister_detect_.end()) {
      *detect = it->second;
      return {S_OK, "", false};
    }
  }
  plugin::PluginRequest request;
  request.op = plugin::kOpListDetect;
  request.library = library;
  plugin::PluginEnd end;
  PluginOutcome outcome = Ask(
      request, kFieldsTimeoutMs, [](const plugin::PluginAnswer&, const platform::Frame&) {},
      nullptr, &end);
  if (outcome.status != S_OK) {
    outcome.status = E_FAIL;
    return outcome;
  }
  *detect = end.detect;
  std::lock_guard lock(mutex_);
  lister_detect_[library] = end.detect;
  return outcome;
}

PluginOutcome PluginHostClient::ListerShow(const std::string& library, const std::string& path,
                                           uint64_t parent, uint64_t* window) {
  *window = 0;
  plugin::PluginRequest request;
  request.op = plugin::kOpListLoad;
  request.library = library;
  request.path = path;
  request.window = parent;
  plugin::PluginEnd end;
  // A lister has no stop call: at its time the host is killed, and its windows go with it.
  PluginOutcome outcome = Ask(
      request, options_.timeout_ms, [](const plugin::PluginAnswer&, const platform::Frame&) {},
      nullptr, &end);
  if (outcome.status == S_OK) {
    *window = end.window;
    if (*window == 0) outcome.status = E_FAIL;
  }
  return outcome;
}

void PluginHostClient::ListerClose(uint64_t window) {
  if (window == 0) return;
  plugin::PluginRequest request;
  request.op = plugin::kOpListClose;
  request.window = window;
  Ask(request, options_.timeout_ms, [](const plugin::PluginAnswer&, const platform::Frame&) {});
}

}  // namespace trovix::props
