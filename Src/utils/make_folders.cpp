#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "utils/trace_log.h"

namespace {

constexpr size_t FOLDER_PATH_SIZE = 4096;
constexpr mode_t PARENT_FOLDER_MODE = 0754;
constexpr mode_t FOLDER_MODE = 0755;

bool IsFolderSeparator(char folderByte) {
  return folderByte == '/' || folderByte == '\\';
}

bool IsRootedFolder(const std::string& folder) {
  return (folder.size() > 1 && folder[1] == ':') ||
         (!folder.empty() && (folder[0] == '/' || folder[0] == '.'));
}

}  // namespace

int DunraSTTUtils::MakeFolders(const char* folderPath) {
  if (folderPath == nullptr) return 0;
  std::string folders(folderPath, strnlen(folderPath, FOLDER_PATH_SIZE - 1));
  bool skipRootFolder = IsRootedFolder(folders);
  for (size_t i = 0; i < folders.size(); ++i) {
    if (!IsFolderSeparator(folders[i])) continue;
    if (!skipRootFolder) ::mkdir(folders.substr(0, i).c_str(), PARENT_FOLDER_MODE);
    skipRootFolder = false;
    folders[i] = '/';
  }
  if (folders.empty() || folders.back() != '/') ::mkdir(folders.c_str(), FOLDER_MODE);
  if (::chmod(folderPath, FOLDER_MODE) != 0) std::printf("path: %s\n", folders.c_str());
  return 0;
}
