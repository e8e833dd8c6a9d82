// FrameSearch: one frame's search, between the search panel's engine (engine::SearchPanel, which
// runs the search on its worker thread) and the frame's widgets on the UI thread.
//
// The worker's events go into a BatchingSink; the UI thread is woken once per batch and gets
// them in order through the signals below: many found items arrive as one `results` batch, so
// a million results cost a few thousand signal deliveries, not a million. Advice and unreadable
// roots are rare and posted one by one.
//
// Each search gets routes of its own (the index route reads the index's scope once, and a
// long-lived window must see a scope changed since). Start and Stop on the UI thread only.
#pragma once

#include <QObject>
#include <QString>

#include <memory>
#include <mutex>
#include <vector>

#include "engine/results/batching_sink.h"
#include "engine/search/search_panel.h"

namespace trovix::engine {
class NtfsVolumeScan;
}

namespace trovix::views {

class RenewableIndexRoute;

class FrameSearch : public QObject, private engine::ResultSink {
  Q_OBJECT
 public:
  // `index_path`: the index database; empty for the usual one.
  explicit FrameSearch(std::string index_path = {}, QObject* parent = nullptr);
  ~FrameSearch() override;

  // Starts the request, or stops the running search. The message for the refusals is error().
  engine::StartOutcome StartOrStop(const engine::SearchRequest& request);
  void Stop();
  // Drops what a search that has ended still has queued, its results included: the search
  // started at once in its place clears the list anyway, and handing them to the list first
  // would make the new search's first results wait behind them.
  void DiscardQueued();
  bool running() const;
  // Waits for a running search to end (when the window closes); true when none runs.
  bool WaitFor(int milliseconds);
  const std::string& error() const;
  const engine::DetectiveReport& detective_report() const;
  // The last search was answered by the index: "Click for robust search" applies.
  bool index_answered() const;
  // Whether the index can answer a search of every one of these roots now (it is there and
  // covers each root whole).
  bool IndexCovers(const std::vector<std::string>& roots);
  // The files the last search met and could not read, in words ("2,335 .gz files not read:
  // ..."), empty when it read every file it met. Complete once `finished` was sent.
  QString unread_note() const;

 signals:
  void started();
  void results(const std::vector<props::ShellItemPtr>& items);
  void status(const QString& text);
  // Something the search says once and that must stay in view after the count: where results
  // came from a drive's catalogue and how old it is, folders that did not answer.
  void notice(const QString& text);
  // The search ended; `taken` results were delivered.
  void finished(qint64 taken);
  void advice(quint32 notify_bit, const QString& text);
  void rootError(const QString& path, int error);

 private:
  // Called on the UI thread by the batching sink's Drain.
  void SetStatus(const std::string& text) override;
  void SearchState(bool running, std::shared_ptr<const rules::RuleSet> rules) override;
  int AddResult(const props::ShellItemPtr& item) override;
  void Drain();
  // Makes this frame's status line the place where plugin failures are told.
  void TakePluginNotices();
  void FlushResults();

  // Receives the worker's calls: the three queued ones go to the batching sink, the rare ones
  // are posted to the UI thread.
  class WorkerSink;

  std::string index_path_;
  std::unique_ptr<engine::BatchingSink> batching_;
  std::unique_ptr<WorkerSink> worker_sink_;
  std::unique_ptr<RenewableIndexRoute> index_route_;
  std::unique_ptr<engine::NtfsVolumeScan> volume_route_;
  std::unique_ptr<engine::SearchPanel> panel_;
  std::vector<props::ShellItemPtr> pending_;
  mutable std::mutex unread_mutex_;  // the worker writes, the UI thread reads
  std::vector<engine::UnreadCount> unread_;
  qint64 taken_ = 0;
  bool notices_taken_ = false;
};

}  // namespace trovix::views
