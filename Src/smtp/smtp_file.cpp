#include "smtp/smtp_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "base/unique_handles.h"
#include "smtp/smtp_base64.h"
#include "smtp/smtp_strings.h"

namespace {

constexpr size_t FILE_READ_SIZE = 512;
// Small enough to stay in the processor's cache until it is encoded.
constexpr size_t BASE64_FILE_PIECE = smtp_base64_lines_writer::TWO_LINES_DATA * 512;

// The number of bytes left in a regular file, or 0. File sizes are far too small to overflow.
size_t KnownFileRest(FILE* mailFile) {
  struct stat mailFileStatus {};
  if (::fstat(::fileno(mailFile), &mailFileStatus) != 0 || !S_ISREG(mailFileStatus.st_mode)) return 0;
  const off_t mailFileOffset = ::ftello(mailFile);
  if (mailFileOffset < 0 || mailFileOffset >= mailFileStatus.st_size) return 0;
  return static_cast<size_t>(mailFileStatus.st_size - mailFileOffset);
}

// Makes room for at least FILE_READ_SIZE bytes and a terminator after the bytes held.
int ReserveFileRead(base::UniqueText& fileContents, size_t fileBytes, size_t& fileSpace) {
  size_t wantedFileBytes = 0;
  if (smtp_si_add_size_t(fileBytes, FILE_READ_SIZE + 1, &wantedFileBytes) != 0) return -1;
  if (wantedFileBytes <= fileSpace) return 0;
  if (smtp_si_add_size_t(wantedFileBytes, fileSpace, &wantedFileBytes) != 0) return -1;
  if (!base::Resize(fileContents, wantedFileBytes)) return -1;
  fileSpace = wantedFileBytes;
  return 0;
}

}  // namespace

char* smtp_ffile_get_contents(FILE* mailFile, size_t* length) {
  base::UniqueText fileContents;
  size_t fileBytes = 0;
  size_t fileSpace = KnownFileRest(mailFile);
  if (fileSpace > 0) {
    // Larger than needed, so that the end of the file shows without another allocation.
    fileSpace += FILE_READ_SIZE + 1;
    fileContents.reset(static_cast<char*>(smtp_reallocarray(nullptr, fileSpace, 1)));
    if (fileContents == nullptr) return nullptr;
  }
  while (true) {
    if (ReserveFileRead(fileContents, fileBytes, fileSpace) != 0) return smtp_out_of_memory();
    errno = 0;
    const size_t wantedFileBytes = fileSpace - 1 - fileBytes;
    const size_t fileBytesRead = std::fread(fileContents.get() + fileBytes, 1, wantedFileBytes, mailFile);
    fileBytes += fileBytesRead;
    if (std::ferror(mailFile) != 0) return nullptr;
    if (fileBytesRead < wantedFileBytes) break;
  }
  fileContents.get()[fileBytes] = '\0';
  if (length != nullptr) *length = fileBytes;
  return fileContents.release();
}

namespace {

// Opens a FIFO without waiting for its other end.
base::UniqueFile OpenMailFile(const char* path) {
  base::UniqueFd mailFd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!mailFd.Valid()) return nullptr;
  base::UniqueFile mailFile(::fdopen(mailFd.Get(), "rb"));
  if (mailFile != nullptr) mailFd.Release();
  return mailFile;
}

}  // namespace

char* smtp_file_get_contents(const char* path, size_t* length) {
  const base::UniqueFile mailFile = OpenMailFile(path);
  return mailFile == nullptr ? nullptr : smtp_ffile_get_contents(mailFile.get(), length);
}

char* smtp_ffile_base64_lines(FILE* mailFile, size_t* length) {
  const base::UniqueText filePiece(static_cast<char*>(std::malloc(BASE64_FILE_PIECE)));
  smtp_base64_lines_writer mailFileWriter;
  if (filePiece == nullptr || mailFileWriter.ReserveBase64Lines(KnownFileRest(mailFile)) != 0)
    return smtp_out_of_memory();
  for (size_t fileBytesRead = BASE64_FILE_PIECE; fileBytesRead == BASE64_FILE_PIECE;) {
    errno = 0;
    fileBytesRead = std::fread(filePiece.get(), 1, BASE64_FILE_PIECE, mailFile);
    if (std::ferror(mailFile) != 0) return nullptr;
    if (mailFileWriter.AddBase64Lines(filePiece.get(), fileBytesRead) != 0) return smtp_out_of_memory();
  }
  base::UniqueText fileLines = mailFileWriter.FinishBase64Lines(length);
  return fileLines != nullptr ? fileLines.release() : smtp_out_of_memory();
}

char* smtp_file_base64_lines(const char* path, size_t* length) {
  const base::UniqueFile mailFile = OpenMailFile(path);
  if (mailFile == nullptr) return nullptr;
  std::setvbuf(mailFile.get(), nullptr, _IONBF, 0);  // reads whole pieces anyway
  return smtp_ffile_base64_lines(mailFile.get(), length);
}
