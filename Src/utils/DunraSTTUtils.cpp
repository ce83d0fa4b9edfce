// The fixed names. LogTrace stands in trace_log.cpp, MakeFolders in make_folders.cpp.
#include "utils/DunraSTTUtils.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "utils/trace_log.h"

char DunraSTTUtils::mDunraSTTPath[4096];
char DunraSTTUtils::mDunraHangPath[4096];
std::atomic<long> DunraSTTUtils::mDunraSTTLogLvl{0};
std::atomic<long> DunraSTTUtils::mDunraSTTLogHostFlag{0};

DunraSTTUtils::DunraSTTUtils() {
  std::fill(std::begin(mDunraSTTPath), std::end(mDunraSTTPath), '\0');
  trace::LogPathChanged();
}

void DunraSTTUtils::SetPath(const char* path) {
  trace::KeepLogFolder(mDunraSTTPath, path);
}
const char* DunraSTTUtils::GetPath() {
  return mDunraSTTPath;
}
void DunraSTTUtils::SetHangPath(const char* path) {
  trace::KeepLogFolder(mDunraHangPath, path);
}
const char* DunraSTTUtils::GetHangPath() {
  return mDunraHangPath;
}
void DunraSTTUtils::SetLogLevel(long level) {
  mDunraSTTLogLvl = level;
}
void DunraSTTUtils::SetLogHostnameFlag(long flag) {
  if (mDunraSTTLogHostFlag.exchange(flag) != flag) trace::LogPathChanged();
}

void DunraSTTUtils::StrNCopy(char* dst, unsigned /*size*/, const char* src, unsigned len) {
  const size_t copied = strnlen(src, len);
  std::memcpy(dst, src, copied);
  std::memset(dst + copied, 0, len - copied);
}

char* DunraSTTUtils::StrCate(char* dst, unsigned /*size*/, const char* src) {
  return std::strcat(dst, src);
}
