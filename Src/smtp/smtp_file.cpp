#include "smtp/smtp_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "base/owners.h"
#include "smtp/smtp_base64_lines.h"
#include "smtp/smtp_strings.h"

namespace {

constexpr size_t READ_SIZE = 512;
// Small enough to stay in the processor's cache until it is encoded.
constexpr size_t PIECE = smtp_base64_lines_writer::UNIT * 512;

char* OutOfMemory() {
  errno = ENOMEM;
  return nullptr;
}

// What a regular file still has to give, or 0; a file's size is far below what would overflow.
size_t KnownRest(FILE* stream) {
  struct stat status {};
  if (::fstat(::fileno(stream), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  const off_t place = ::ftello(stream);
  return place >= 0 && place < status.st_size ? static_cast<size_t>(status.st_size - place) : 0;
}

// Makes room for at least READ_SIZE bytes and a terminator behind those held.
int Reserve(base::UniqueText& buffer, size_t held, size_t& allocated) {
  size_t wanted = 0;
  if (smtp_si_add_size_t(held, READ_SIZE + 1, &wanted) != 0) return -1;
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
    // More than is known to come, so that the end of the file shows without growing.
    allocated += READ_SIZE + 1;
    buffer.reset(static_cast<char*>(smtp_reallocarray(nullptr, allocated, 1)));
    if (buffer == nullptr) return nullptr;
  }
  while (true) {
    if (Reserve(buffer, held, allocated) != 0) return OutOfMemory();
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

// Never waits for the other end of a FIFO.
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
  const base::UniqueText piece(static_cast<char*>(std::malloc(PIECE)));
  smtp_base64_lines_writer lines;
  if (piece == nullptr || lines.Reserve(KnownRest(stream)) != 0) return OutOfMemory();
  for (size_t got = PIECE; got == PIECE;) {
    errno = 0;
    got = std::fread(piece.get(), 1, PIECE, stream);
    if (std::ferror(stream) != 0) return nullptr;
    if (lines.Add(piece.get(), got) != 0) return OutOfMemory();
  }
  base::UniqueText text = lines.Finish(length);
  return text != nullptr ? text.release() : OutOfMemory();
}

char* smtp_file_base64_lines(const char* path, size_t* length) {
  const base::UniqueFile stream = OpenFile(path);
  if (stream == nullptr) return nullptr;
  std::setvbuf(stream.get(), nullptr, _IONBF, 0);  // the pieces are read as they are
  return smtp_ffile_base64_lines(stream.get(), length);
}
