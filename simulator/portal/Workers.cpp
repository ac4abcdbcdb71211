#include "simulator/portal/Workers.h"

#include <system_error>
#include <utility>

namespace portal {

Workers::Workers(std::size_t threads, std::size_t waiting) : _waiting(waiting) {
  try {
    while (_threads.size() < threads) _threads.emplace_back([this] { work(); });
  } catch (const std::system_error&) {
    if (_threads.empty()) throw;
  }
}

Workers::~Workers() { end(); }

void Workers::add(Job job) {
  std::unique_lock lock(_mutex);
  _roomy.wait(lock, [this] { return _jobs.size() < _waiting; });
  _jobs.push_back(std::move(job));
  _busy.notify_one();
}

void Workers::end() {
  {
    const std::lock_guard lock(_mutex);
    _ending = true;
  }
  _busy.notify_all();
  for (std::thread& thread : _threads) thread.join();
  _threads.clear();
}

void Workers::work() {
  std::unique_lock lock(_mutex);
  for (;;) {
    _busy.wait(lock, [this] { return !_jobs.empty() || _ending; });
    if (_jobs.empty()) return;
    const Job job = std::move(_jobs.front());
    _jobs.pop_front();
    _roomy.notify_one();
    lock.unlock();
    job();
    lock.lock();
  }
}

}  // namespace portal
