#include "views/frame/frame_search.h"

#include <QMetaObject>
#include <QPointer>

#include <chrono>
#include <filesystem>

#include "index/sqlite/index_database.h"
#include "index/index_route.h"
#include "index/postgres/indexes_conf.h"
#include "index/postgres/pg_index_route.h"
#include "engine/volume/ntfs_volume_route.h"
#include "props/plugins/plugin_columns.h"

namespace trovix::views {

// The index route of one frame. A fresh SqliteIndexRoute is made before every search (the
// route reads the index's scope once), and with it the choice of the file servers' shared
// indexes (indexes.conf, read again, so an edit counts from the next search; the server that
// answers says so in the status line), while the search panel keeps one reference to this.
class RenewableIndexRoute final : public engine::IndexRoute {
 public:
  explicit RenewableIndexRoute(std::string path) : path_(std::move(path)) { Renew(); }
  // A new route, unless the index's files and the servers' list are as they were when the
  // last one was made: then it would read the same scope and servers again, which a search as
  // typed would pay at every key.
  void Renew() {
    std::string stamp = Stamp();
    if (route_ && stamp == stamp_) return;
    stamp_ = std::move(stamp);
    shared_.reset();
    route_ = std::make_unique<engine::index::SqliteIndexRoute>(path_);
    shared_ = std::make_unique<engine::index::SharedIndexRoutes>(*route_);
  }
  bool ServiceAvailable() override { return shared_->ServiceAvailable(); }
  bool IsInScope(const std::string& root) override { return shared_->IsInScope(root); }
  int64_t RunIndexQuery(rules::RuleSet& rule_set, const std::string& root, const engine::IndexQueryOptions& options,
                        engine::ResultSink& sink, std::stop_token stop) override {
    return shared_->RunIndexQuery(rule_set, root, options, sink, stop);
  }

 private:
  // Each file's size and time of change: any write to the index (its log first) or the list
  // changes one of them.
  std::string Stamp() const {
    std::string stamp;
    for (const std::string& file : {path_, path_ + "-wal", engine::index::DefaultIndexesConfPath()}) {
      std::error_code size_error, time_error;
      const auto size = std::filesystem::file_size(file, size_error);
      const auto time = std::filesystem::last_write_time(file, time_error);
      stamp += size_error || time_error ? std::string("-;")
                     : std::to_string(size) + "@" + std::to_string(time.time_since_epoch().count()) + ";";
    }
    return stamp;
  }
  std::string path_;
  std::string stamp_;
  std::unique_ptr<engine::index::SqliteIndexRoute> route_;
  std::unique_ptr<engine::index::SharedIndexRoutes> shared_;
};

// The search's own thread calls this sink. The batching sink queues the frequent events; the
// rare ones travel as queued calls of their own.
class FrameSearch::WorkerSink final : public engine::ResultSink {
 public:
  WorkerSink(FrameSearch* owner, engine::BatchingSink* batching) : owner_(owner), batching_(batching) {}
  void SetStatus(const std::string& text) override { batching_->SetStatus(text); }
  void SearchState(bool running, std::shared_ptr<const rules::RuleSet> rules) override {
    batching_->SearchState(running, std::move(rules));
  }
  int AddResult(const props::ShellItemPtr& item) override { return batching_->AddResult(item); }
  void ShowAdvice(uint32_t notify_bit, const std::string& text) override {
    const QString copy = QString::fromStdString(text);
    QMetaObject::invokeMethod(owner_, [o = owner_, notify_bit, copy] { emit o->advice(notify_bit, copy); },
                              Qt::QueuedConnection);
  }
  // Kept, not posted: the end of the search must find it there whichever comes first.
  void ReportUnread(const std::vector<engine::UnreadCount>& counts) override {
    std::lock_guard lock(owner_->unread_mutex_);
    owner_->unread_ = counts;
  }
  // Posted, not queued with the status: a newer status would replace it in the queue, and the
  // count at the end would overwrite it on the status line.
  void Notice(const std::string& text) override {
    const QString copy = QString::fromStdString(text);
    QMetaObject::invokeMethod(owner_, [o = owner_, copy] { emit o->notice(copy); }, Qt::QueuedConnection);
  }
  void ReportError(const std::string& path, int error) override {
    const QString copy = QString::fromStdString(path);
    QMetaObject::invokeMethod(owner_, [o = owner_, copy, error] { emit o->rootError(copy, error); },
                              Qt::QueuedConnection);
  }

 private:
  FrameSearch* owner_;
  engine::BatchingSink* batching_;
};

FrameSearch::FrameSearch(std::string index_path, QObject* parent)
    : QObject(parent), index_path_(index_path.empty() ? engine::index::DefaultIndexPath() : std::move(index_path)) {
  batching_ = std::make_unique<engine::BatchingSink>([this] {
    QMetaObject::invokeMethod(this, &FrameSearch::Drain, Qt::QueuedConnection);
  });
  worker_sink_ = std::make_unique<WorkerSink>(this, batching_.get());
  index_route_ = std::make_unique<RenewableIndexRoute>(index_path_);
  volume_route_ = std::make_unique<engine::NtfsVolumeScan>();
  panel_ = std::make_unique<engine::SearchPanel>(*worker_sink_, *volume_route_, *index_route_);
}

FrameSearch::~FrameSearch() {
  // The worker must be gone before the sinks it calls.
  panel_->RequestStop();
  panel_->Wait();
  panel_.reset();
  if (props::PluginHostClient* host = props::SharedPluginHost(); host && notices_taken_) host->SetNoticeHandler(nullptr);
}

void FrameSearch::TakePluginNotices() {
  // A content plugin switched off after its failures is told once, on the status line of the
  // frame whose search met it last. The host tells it from the search's worker thread.
  props::PluginHostClient* host = props::SharedPluginHost();
  if (!host) return;
  notices_taken_ = true;
  QPointer<FrameSearch> self(this);
  host->SetNoticeHandler([self](const std::string& text) {
    const QString copy = QString::fromStdString(text);
    if (FrameSearch* owner = self.data())
      QMetaObject::invokeMethod(
          owner, [self, copy] {
            if (self) emit self->status(copy);
          },
          Qt::QueuedConnection);
  });
}

engine::StartOutcome FrameSearch::StartOrStop(const engine::SearchRequest& request) {
  if (!panel_->running()) {
    // A search that ended may still have events queued; they belong to it, not to the next.
    Drain();
    index_route_->Renew();
    taken_ = 0;
    TakePluginNotices();
    std::lock_guard lock(unread_mutex_);
    unread_.clear();
  }
  return panel_->StartOrStop(request);
}

void FrameSearch::Stop() { panel_->RequestStop(); }

void FrameSearch::DiscardQueued() {
  struct Dropping final : engine::ResultSink {
    void SetStatus(const std::string&) override {}
    void SearchState(bool, std::shared_ptr<const rules::RuleSet>) override {}
    int AddResult(const props::ShellItemPtr&) override { return 0; }
  } drop;
  batching_->Drain(drop);
  pending_.clear();
}
bool FrameSearch::running() const { return panel_->running(); }
bool FrameSearch::WaitFor(int milliseconds) { return panel_->WaitFor(std::chrono::milliseconds(milliseconds)); }
const std::string& FrameSearch::error() const { return panel_->error(); }
const engine::DetectiveReport& FrameSearch::detective_report() const { return panel_->detective_report(); }
bool FrameSearch::index_answered() const { return panel_->index_memory(); }

bool FrameSearch::IndexCovers(const std::vector<std::string>& roots) {
  // While a search runs its route is in use; the next search renews it anyway.
  if (!panel_->running()) index_route_->Renew();
  if (roots.empty() || !index_route_->ServiceAvailable()) return false;
  for (const std::string& root : roots)
    if (!index_route_->IsInScope(root)) return false;
  return true;
}

QString FrameSearch::unread_note() const {
  engine::UnreadWording wording;
  wording.search_zip = "the setting \"Read the file inside compressed files\" reads them";
  std::lock_guard lock(unread_mutex_);
  QString note;
  for (const std::string& sentence : engine::DescribeUnread(unread_, wording))
    note += (note.isEmpty() ? "" : "; ") + QString::fromStdString(sentence);
  return note;
}

void FrameSearch::Drain() {
  batching_->Drain(*this);
  FlushResults();
}

void FrameSearch::FlushResults() {
  if (pending_.empty()) return;
  std::vector<props::ShellItemPtr> batch;
  batch.swap(pending_);
  emit results(batch);
}

void FrameSearch::SetStatus(const std::string& text) {
  FlushResults();
  emit status(QString::fromStdString(text));
}

void FrameSearch::SearchState(bool running, std::shared_ptr<const rules::RuleSet>) {
  FlushResults();
  if (running) {
    emit started();
  } else {
    emit finished(taken_);
  }
}

int FrameSearch::AddResult(const props::ShellItemPtr& item) {
  pending_.push_back(item);
  ++taken_;
  return 0;
}

}  // namespace trovix::views
