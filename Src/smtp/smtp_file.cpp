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
size_t KnownFileRest(FILE* stream) {
  struct stat fileStatus {};
  if (::fstat(::fileno(stream), &fileStatus) != 0 || !S_ISREG(fileStatus.st_mode)) return 0;
  const off_t offset = ::ftello(stream);
  return offset >= 0 && offset < fileStatus.st_size ? static_cast<size_t>(fileStatus.st_size - offset) : 0;
}

// Makes room for at least FILE_READ_SIZE bytes and a terminator after the bytes held.
int ReserveFileRead(base::UniqueText& contents, size_t fileBytes, size_t& allocated) {
  size_t wantedBytes = 0;
  if (smtp_si_add_size_t(fileBytes, FILE_READ_SIZE + 1, &wantedBytes) != 0) return -1;
  if (wantedBytes <= allocated) return 0;
  if (smtp_si_add_size_t(wantedBytes, allocated, &wantedBytes) != 0) return -1;
  if (!base::Resize(contents, wantedBytes)) return -1;
  allocated = wantedBytes;
  return 0;
}

}  // namespace

char* smtp_ffile_get_contents(FILE* stream, size_t* length) {
  base::UniqueText contents;
  size_t fileBytes = 0;
  size_t allocated = KnownFileRest(stream);
  if (allocated > 0) {
    // Larger than needed, so that the end of the file shows without another allocation.
    allocated += FILE_READ_SIZE + 1;
    contents.reset(static_cast<char*>(smtp_reallocarray(nullptr, allocated, 1)));
    if (contents == nullptr) return nullptr;
  }
  while (true) {
    if (ReserveFileRead(contents, fileBytes, allocated) != 0) return smtp_out_of_memory();
    errno = 0;
    const size_t wantedBytes = allocated - 1 - fileBytes;
    const size_t bytesRead = std::fread(contents.get() + fileBytes, 1, wantedBytes, stream);
    fileBytes += bytesRead;
    if (std::ferror(stream) != 0) return nullptr;
    if (bytesRead < wantedBytes) break;
  }
  contents.get()[fileBytes] = '\0';
  if (length != nullptr) *length = fileBytes;
  return contents.release();
}

namespace {

// Opens a FIFO without waiting for its other end.
base::UniqueFile OpenWholeFile(const char* path) {
  base::UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd.Valid()) return nullptr;
  base::UniqueFile stream(::fdopen(fd.Get(), "rb"));
  if (stream != nullptr) fd.Release();
  return stream;
}

}  // namespace

char* smtp_file_get_contents(const char* path, size_t* length) {
  const base::UniqueFile stream = OpenWholeFile(path);
  return stream == nullptr ? nullptr : smtp_ffile_get_contents(stream.get(), length);
}

char* smtp_ffile_base64_lines(FILE* stream, size_t* length) {
  const base::UniqueText filePiece(static_cast<char*>(std::malloc(BASE64_FILE_PIECE)));
  smtp_base64_lines_writer writer;
  if (filePiece == nullptr || writer.ReserveLines(KnownFileRest(stream)) != 0) return smtp_out_of_memory();
  for (size_t bytesRead = BASE64_FILE_PIECE; bytesRead == BASE64_FILE_PIECE;) {
    errno = 0;
    bytesRead = std::fread(filePiece.get(), 1, BASE64_FILE_PIECE, stream);
    if (std::ferror(stream) != 0) return nullptr;
    if (writer.AddLines(filePiece.get(), bytesRead) != 0) return smtp_out_of_memory();
  }
  base::UniqueText base64Lines = writer.FinishLines(length);
  return base64Lines != nullptr ? base64Lines.release() : smtp_out_of_memory();
}

char* smtp_file_base64_lines(const char* path, size_t* length) {
  const base::UniqueFile stream = OpenWholeFile(path);
  if (stream == nullptr) return nullptr;
  std::setvbuf(stream.get(), nullptr, _IONBF, 0);  // reads whole pieces anyway
  return smtp_ffile_base64_lines(stream.get(), length);
}
