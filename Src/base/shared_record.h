// A record that one thread replaces while others read it. It is replaced as a whole. A reader keeps its copy
// for as long as it likes; the last reader frees it.
#ifndef BASE_SHARED_RECORD_H
#define BASE_SHARED_RECORD_H

#include <memory>
#include <mutex>
#include <utility>

namespace base {

template <typename T>
class SharedRecord {
 public:
  // The current record, never null.
  std::shared_ptr<const T> Get() const {
    const std::lock_guard<std::mutex> record_lock(record_mutex_);
    return current_record_;
  }
  void Set(T record) {
    auto next_record = std::make_shared<const T>(std::move(record));
    const std::lock_guard<std::mutex> record_lock(record_mutex_);
    current_record_.swap(next_record);
  }

 private:
  mutable std::mutex record_mutex_;
  std::shared_ptr<const T> current_record_ = std::make_shared<const T>();
};

}  // namespace base

#endif
