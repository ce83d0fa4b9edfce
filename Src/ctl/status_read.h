// Fills the picture from /proc, socket diagnostics, the logs and the record. Writes nothing and makes no
// connection. Reads at most the last 256 KiB of a log.
#ifndef CTL_STATUS_READ_H
#define CTL_STATUS_READ_H

#include <mutex>
#include <string>

#include "ctl/clock.h"
#include "ctl/status_picture.h"

namespace ctl {

inline constexpr size_t LOG_TAIL = size_t{256} * 1024;

// What was seen so far, passed from the thread that reads to the one that waits.
class SharedPicture {
 public:
  // stage: what is read next, in words; empty: all is read.
  void Store(const Picture& picture, const std::string& stage) {
    const std::lock_guard<std::mutex> lock(mutex_);
    picture_ = picture;
    stage_ = stage;
  }
  Picture Load(std::string* stage) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    *stage = stage_;
    return picture_;
  }

 private:
  mutable std::mutex mutex_;
  Picture picture_;
  std::string stage_ = "the configuration";
};

// Reads everything, the most telling parts first, and stores the picture after each. May block as long as a
// file system does. Only one thread may call it at a time.
void ReadPicture(const std::string& config, bool second_look, SharedPicture* shared);

// Each reads one part.
void SeeProcesses(const Moment& now, Picture* picture);
void SeePort(bool second_look, Picture* picture);
void SeeLogs(Picture* picture);
void SeeRecord(const Moment& now, Picture* picture);

}  // namespace ctl

#endif
