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
constexpr size_t ENCODED_PIECE = smtp_base64_lines_writer::UNIT * 512;

char* OutOfMemory() {
  errno = ENOMEM;
  return nullptr;
}

// The number of bytes left in a regular file, or 0. File sizes are far too small to overflow.
size_t KnownRest(FILE* stream) {
  struct stat status {};
  if (::fstat(::fileno(stream), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  const off_t place = ::ftello(stream);
  return place >= 0 && place < status.st_size ? static_cast<size_t>(status.st_size - place) : 0;
}

// Makes room for at least FILE_READ_SIZE bytes and a terminator after the bytes held.
int ReserveFileRead(base::UniqueText& buffer, size_t held, size_t& allocated) {
  size_t wanted = 0;
  if (smtp_si_add_size_t(held, FILE_READ_SIZE + 1, &wanted) != 0) return -1;
  if (wanted <= allocated) return 0;
  if (smtp_si_add_size_t(wanted, allocated, &wanted) != 0) return -1;
  if (!base::Resize(buffer, wanted)) return -1;
  allocated = wanted;
  return 0;
}

}  // namespace

char* smtp_ffile_get_contents(FILE* stream, size_t* length) {
  base::UniqueText buffer;
  size_t held = 0;
  size_t allocated = KnownRest(stream);
  if (allocated > 0) {
    // Larger than needed, so that the end of the file shows without another allocation.
    allocated += FILE_READ_SIZE + 1;
    buffer.reset(static_cast<char*>(smtp_reallocarray(nullptr, allocated, 1)));
    if (buffer == nullptr) return nullptr;
  }
  while (true) {
    if (ReserveFileRead(buffer, held, allocated) != 0) return OutOfMemory();
    errno = 0;
    const size_t wanted = allocated - 1 - held;
    const size_t got = std::fread(buffer.get() + held, 1, wanted, stream);
    held += got;
    if (std::ferror(stream) != 0) return nullptr;
    if (got < wanted) break;
  }
  buffer.get()[held] = '\0';
  if (length != nullptr) *length = held;
  return buffer.release();
}

namespace {

// Opens a FIFO without waiting for its other end.
base::UniqueFile OpenFile(const char* path) {
  base::UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd.Valid()) return nullptr;
  base::UniqueFile stream(::fdopen(fd.Get(), "rb"));
  if (stream != nullptr) fd.Release();
  return stream;
}

}  // namespace

char* smtp_file_get_contents(const char* path, size_t* length) {
  const base::UniqueFile stream = OpenFile(path);
  return stream == nullptr ? nullptr : smtp_ffile_get_contents(stream.get(), length);
}

char* smtp_ffile_base64_lines(FILE* stream, size_t* length) {
  const base::UniqueText piece(static_cast<char*>(std::malloc(ENCODED_PIECE)));
  smtp_base64_lines_writer lines;
  if (piece == nullptr || lines.Reserve(KnownRest(stream)) != 0) return OutOfMemory();
  for (size_t got = ENCODED_PIECE; got == ENCODED_PIECE;) {
    errno = 0;
    got = std::fread(piece.get(), 1, ENCODED_PIECE, stream);
    if (std::ferror(stream) != 0) return nullptr;
    if (lines.Add(piece.get(), got) != 0) return OutOfMemory();
  }
  base::UniqueText text = lines.Finish(length);
  return text != nullptr ? text.release() : OutOfMemory();
}

char* smtp_file_base64_lines(const char* path, size_t* length) {
  const base::UniqueFile stream = OpenFile(path);
  if (stream == nullptr) return nullptr;
  std::setvbuf(stream.get(), nullptr, _IONBF, 0);  // reads whole pieces anyway
  return smtp_ffile_base64_lines(stream.get(), length);
}
