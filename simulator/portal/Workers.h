// Threads that do one job after another, with a bounded queue.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace portal {

/// A fixed number of threads and a queue of a fixed length before them.
class Workers {
 public:
  using Job = std::function<void()>;

  /// Throws std::system_error when the system has not even one thread left; fewer than wanted do.
  /// @param threads how many jobs are done at a time
  /// @param waiting how many more jobs may wait
  Workers(std::size_t threads, std::size_t waiting);
  /// As `end`.
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  /// Hands a job over; waits while as many as allowed wait already. Not after `end`.
  void add(Job job);

  /// Waits until every job is done and ends the threads; does nothing the second time.
  void end();

 private:
  void work();

  const std::size_t _waiting;
  std::mutex _mutex;  ///< guards the members below, but for the threads
  std::condition_variable _roomy;
  std::condition_variable _busy;
  std::deque<Job> _jobs;
  bool _ending = false;
  std::vector<std::thread> _threads;
};

}  // namespace portal
