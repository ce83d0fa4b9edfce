// Fills the picture: thin readers of /proc, the socket diagnostics, the logs, the record. Nothing is written,
// nothing connected; of a log the last 256 KiB at most.
#ifndef CTL_STATUS_READ_H
#define CTL_STATUS_READ_H

#include <mutex>
#include <string>

#include "ctl/clock.h"
#include "ctl/status_picture.h"

namespace ctl {

inline constexpr size_t LOG_TAIL = 256 * 1024;

// What is seen so far, handed from the thread that reads to the one that waits for it.
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

// Reads everything, in an order that tells the most first. May block as long as a file system does. Not for
// two threads at once.
void ReadPicture(const std::string& config, bool second_look, SharedPicture* shared);

// The readers of its parts.
void SeeProcesses(const Moment& now, Picture* picture);
void SeePort(bool second_look, Picture* picture);
void SeeLogs(Picture* picture);
void SeeRecord(const Moment& now, Picture* picture);

}  // namespace ctl

#endif
