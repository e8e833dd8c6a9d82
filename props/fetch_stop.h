// The stop request that costly computations honour. A property value is fetched deep inside
// rule evaluation, where no stop token travels; the thread that evaluates items on behalf of
// a search says once which token stops it, and a long computation on that thread (a folder
// count) looks at it between items and ends early, keeping what it has.
//
// Thread-safety: the scope is per thread; each thread that evaluates items opens its own.
#pragma once

#include <stop_token>

namespace trovix::props {

// Makes `stop` the current thread's stop token until the scope ends (scopes nest).
class FetchStopScope {
 public:
  explicit FetchStopScope(std::stop_token stop);
  ~FetchStopScope();
  FetchStopScope(const FetchStopScope&) = delete;
  FetchStopScope& operator=(const FetchStopScope&) = delete;

 private:
  std::stop_token previous_;
};

// Whether the current thread's search has been asked to stop (false outside any scope).
bool FetchStopRequested();

}  // namespace trovix::props
