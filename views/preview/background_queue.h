// BackgroundQueue: slow work for the UI thread (asking the renderer for a picture, reading a
// document's text) done on a thread of the queue's own, newest request first, so that what is
// on screen now comes before what was scrolled past. Each job runs on the worker and returns
// the closure that the UI thread then runs with the answer.
//
// The window never waits for a job: destroying the queue drops every job not started and
// lets the worker go (detached); a job still running finishes on its own (the renderer's and
// the reader's deadlines bound it) and its answer is dropped. Whatever a job captures must
// therefore stay valid without the queue's owner: shared pointers and copies, never `this`
// of a widget.
//
// UI thread for every call; the jobs run on the queue's thread.
#pragma once

#include <QObject>

#include <functional>
#include <memory>

namespace trovix::views {

class BackgroundQueue : public QObject {
  Q_OBJECT
 public:
  // A job: runs on the worker, returns what the UI thread runs afterwards (or nothing).
  using Job = std::function<std::function<void()>()>;

  // `max_queued`: jobs waiting beyond this drop the oldest (rows long scrolled past).
  explicit BackgroundQueue(size_t max_queued, QObject* parent = nullptr);
  ~BackgroundQueue() override;

  // `dropped` runs (on the UI thread, at once) if the job is dropped before it starts, by a
  // newer job past `max_queued` or by Clear.
  void Post(Job job, std::function<void()> dropped = {});
  // Drops every job not started yet (a new item replaces what was asked for the old one).
  void Clear();

  struct State;  // shared by the queue and its worker thread (defined in the .cpp)

 private:
  std::shared_ptr<State> state_;
};

}  // namespace trovix::views
