// The keep-alive thread: NOOP on the control connection until it is told to stop.

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "yinet/ftp/ftp_codes.h"
#include "yinet/ftp/ftps.h"
#include "yinet/ftp/ftps_state.h"
#include "yinet/host/contained.h"
#include "yinet/host/setting_table.h"
#include "yinet/host/text.h"

namespace yinet {

// Wakes one wait per signal. Thread-safe.
class FtpStopEvent {
 public:
  explicit FtpStopEvent(std::string name) : name_(std::move(name)) {}

  void signal() {
    const std::lock_guard guard(mutex_);
    signalled_ = true;
    changed_.notify_one();
  }
  // Whether it was signalled before the time was over; it is not any more then.
  bool wait_for(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, time, [this] { return signalled_; })) return false;
    signalled_ = false;
    return true;
  }
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  const std::string name_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool signalled_ = false;
};

class FtpThread {
 public:
  template <typename Work>
  explicit FtpThread(Work work) : thread_(std::move(work)) {}
  void join() { thread_.join(); }

 private:
  std::thread thread_;
};

}  // namespace yinet

using namespace yinet;
using namespace yinet::ftp;

namespace {

constexpr std::string_view kEventName = "FTPS:NOOPSTOP$1$";
std::atomic<unsigned> g_threads_started = 0;

// For debuggers and the system's lists of threads, which show the first 15 characters.
void name_thread(const std::string& name) {
  constexpr std::size_t kLongest = 15;
  pthread_setname_np(pthread_self(), name.substr(0, kLongest).c_str());
}

}  // namespace

tNoopThreadHandle ftps::StartNoopThread() {
  return contained(tNoopThreadHandle(), [&] {
    auto event = std::make_unique<FtpStopEvent>(formatted(kEventName, std::to_string(g_threads_started++)));
    auto thread = std::make_unique<FtpThread>([this, stop = event.get()] {
      name_thread(stop->name());
      m_NoopThread(this, stop);
    });
    return tNoopThreadHandle{thread.release(), event.release()};
  });
}

int ftps::m_NoopThread(ftps* object, FtpStopEvent* stop_event) {
  return contained(0, [&] {
    const auto stopped = [&] {
      return stop_event->wait_for(std::chrono::milliseconds(setting_number(settings::kFtpNoopInterval)));
    };
    while (!stopped()) {
      const std::lock_guard guard(object->state_->dialogue);
      object->set_last_command("NOOP");
      if (!object->connected()) object->set_last_mes(YString(kUnconnected));
      else if (object->send_line("NOOP")) object->get_ftpserver_mes();
      else object->set_last_mes(YString(kSendFailed));
    }
    return 0;
  });
}

void ftps::StopNOOPThread(tNoopThreadHandle& handle) {
  const std::unique_ptr<FtpThread> thread(std::exchange(handle.thread, nullptr));
  const std::unique_ptr<FtpStopEvent> event(std::exchange(handle.stop_event, nullptr));
  if (event) event->signal();
  if (thread) thread->join();
}
