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
constexpr size_t BASE64_FILE_PIECE = smtp_base64_lines_writer::TWO_BASE64_LINES_DATA * 512;

// The number of bytes left in a regular file, or 0. File sizes are far too small to overflow.
size_t KnownFileRest(FILE* mailFile) {
  struct stat mailFileStatus {};
  if (::fstat(::fileno(mailFile), &mailFileStatus) != 0 || !S_ISREG(mailFileStatus.st_mode)) return 0;
  const off_t mailFileOffset = ::ftello(mailFile);
  if (mailFileOffset < 0 || mailFileOffset >= mailFileStatus.st_size) return 0;
  return static_cast<size_t>(mailFileStatus.st_size - mailFileOffset);
}

// Makes room for at least FILE_READ_SIZE bytes and a terminator after the bytes held.
int ReserveFileRead(base::UniqueText& mailFileText, size_t mailFileBytes, size_t& mailFileSpace) {
  size_t wantedMailBytes = 0;
  if (smtp_si_add_size_t(mailFileBytes, FILE_READ_SIZE + 1, &wantedMailBytes) != 0) return -1;
  if (wantedMailBytes <= mailFileSpace) return 0;
  if (smtp_si_add_size_t(wantedMailBytes, mailFileSpace, &wantedMailBytes) != 0) return -1;
  if (!base::Resize(mailFileText, wantedMailBytes)) return -1;
  mailFileSpace = wantedMailBytes;
  return 0;
}

}  // namespace

char* smtp_ffile_get_contents(FILE* mailFile, size_t* length) {
  base::UniqueText mailFileText;
  size_t mailFileBytes = 0;
  size_t mailFileSpace = KnownFileRest(mailFile);
  if (mailFileSpace > 0) {
    // Larger than needed, so that the end of the file shows without another allocation.
    mailFileSpace += FILE_READ_SIZE + 1;
    mailFileText.reset(static_cast<char*>(smtp_reallocarray(nullptr, mailFileSpace, 1)));
    if (mailFileText == nullptr) return nullptr;
  }
  while (true) {
    if (ReserveFileRead(mailFileText, mailFileBytes, mailFileSpace) != 0) return smtp_out_of_memory();
    errno = 0;
    const size_t wantedMailBytes = mailFileSpace - 1 - mailFileBytes;
    const size_t mailFileRead = std::fread(mailFileText.get() + mailFileBytes, 1, wantedMailBytes, mailFile);
    mailFileBytes += mailFileRead;
    if (std::ferror(mailFile) != 0) return nullptr;
    if (mailFileRead < wantedMailBytes) break;
  }
  mailFileText.get()[mailFileBytes] = '\0';
  if (length != nullptr) *length = mailFileBytes;
  return mailFileText.release();
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
  const base::UniqueText mailFilePiece(static_cast<char*>(std::malloc(BASE64_FILE_PIECE)));
  smtp_base64_lines_writer mailFileWriter;
  if (mailFilePiece == nullptr || mailFileWriter.ReserveBase64Lines(KnownFileRest(mailFile)) != 0)
    return smtp_out_of_memory();
  for (size_t mailFileRead = BASE64_FILE_PIECE; mailFileRead == BASE64_FILE_PIECE;) {
    errno = 0;
    mailFileRead = std::fread(mailFilePiece.get(), 1, BASE64_FILE_PIECE, mailFile);
    if (std::ferror(mailFile) != 0) return nullptr;
    if (mailFileWriter.AddBase64Lines(mailFilePiece.get(), mailFileRead) != 0) return smtp_out_of_memory();
  }
  base::UniqueText mailFileLines = mailFileWriter.FinishBase64Lines(length);
  return mailFileLines != nullptr ? mailFileLines.release() : smtp_out_of_memory();
}

char* smtp_file_base64_lines(const char* path, size_t* length) {
  const base::UniqueFile mailFile = OpenMailFile(path);
  if (mailFile == nullptr) return nullptr;
  std::setvbuf(mailFile.get(), nullptr, _IONBF, 0);  // reads whole pieces anyway
  return smtp_ffile_base64_lines(mailFile.get(), length);
}
