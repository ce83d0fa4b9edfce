#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "utils/DunraSTTUtils.h"

namespace {

constexpr size_t FOLDER_PATH_SIZE = 4096;
constexpr mode_t PARENT_FOLDER_MODE = 0754;
constexpr mode_t FOLDER_MODE = 0755;

bool IsSeparator(char c) {
  return c == '/' || c == '\\';
}

bool IsRooted(const std::string& path) {
  return (path.size() > 1 && path[1] == ':') || (!path.empty() && (path[0] == '/' || path[0] == '.'));
}

}  // namespace

int DunraSTTUtils::MakeFolders(const char* path) {
  if (path == nullptr) return 0;
  std::string work(path, strnlen(path, FOLDER_PATH_SIZE - 1));
  bool skipRoot = IsRooted(work);
  for (size_t i = 0; i < work.size(); ++i) {
    if (!IsSeparator(work[i])) continue;
    if (!skipRoot) ::mkdir(work.substr(0, i).c_str(), PARENT_FOLDER_MODE);
    skipRoot = false;
    work[i] = '/';
  }
  if (work.empty() || work.back() != '/') ::mkdir(work.c_str(), FOLDER_MODE);
  if (::chmod(path, FOLDER_MODE) != 0) std::printf("path: %s\n", work.c_str());
  return 0;
}
