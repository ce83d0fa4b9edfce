// The fixed names. LogTrace stands in trace_log.cpp, MakeFolders in make_folders.cpp.
#include "utils/DunraSTTUtils.h"

#include <algorithm>
#include <atomic>
#include <cstring>

char DunraSTTUtils::mDunraSTTPath[4096];
char DunraSTTUtils::mDunraHangPath[4096];
std::atomic<long> DunraSTTUtils::mDunraSTTLogLvl{0};
std::atomic<long> DunraSTTUtils::mDunraSTTLogHostFlag{0};

namespace {

constexpr size_t LOG_FOLDER_SIZE = 4096;

// An unchanged path is not written again: every report sets the paths, and writing would race with readers.
void KeepLogFolder(char* keptFolder, const char* logFolder) {
  const auto length = static_cast<unsigned>(std::min(std::strlen(logFolder), LOG_FOLDER_SIZE - 1));
  if (std::strncmp(keptFolder, logFolder, length) == 0) return;
  DunraSTTUtils::StrNCopy(keptFolder, LOG_FOLDER_SIZE, logFolder, length);
  ++trace::logSettings;
}

}  // namespace

DunraSTTUtils::DunraSTTUtils() {
  std::fill(std::begin(mDunraSTTPath), std::end(mDunraSTTPath), '\0');
  ++trace::logSettings;
}

void DunraSTTUtils::SetPath(const char* path) {
  KeepLogFolder(mDunraSTTPath, path);
}
const char* DunraSTTUtils::GetPath() {
  return mDunraSTTPath;
}
void DunraSTTUtils::SetHangPath(const char* path) {
  KeepLogFolder(mDunraHangPath, path);
}
const char* DunraSTTUtils::GetHangPath() {
  return mDunraHangPath;
}
void DunraSTTUtils::SetLogLevel(long level) {
  mDunraSTTLogLvl = level;
}
void DunraSTTUtils::SetLogHostnameFlag(long flag) {
  if (mDunraSTTLogHostFlag.exchange(flag) != flag) ++trace::logSettings;
}

void DunraSTTUtils::StrNCopy(char* dst, unsigned /*size*/, const char* src, unsigned len) {
  const size_t copied = strnlen(src, len);
  std::memcpy(dst, src, copied);
  std::memset(dst + copied, 0, len - copied);
}

char* DunraSTTUtils::StrCate(char* dst, unsigned /*size*/, const char* src) {
  return std::strcat(dst, src);
}
