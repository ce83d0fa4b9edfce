// A record that one thread replaces while others read: handed over as a whole. A reader keeps what it got for
// as long as it likes; the last one to let go releases it.
#ifndef BASE_SHARED_RECORD_H
#define BASE_SHARED_RECORD_H

#include <memory>
#include <mutex>
#include <utility>

namespace base {

template <typename T>
class SharedRecord {
 public:
  // Never null.
  std::shared_ptr<const T> Get() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return current_;
  }
  void Set(T value) {
    auto next = std::make_shared<const T>(std::move(value));
    const std::lock_guard<std::mutex> lock(mutex_);
    current_.swap(next);
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const T> current_ = std::make_shared<const T>();
};

}  // namespace base

#endif
