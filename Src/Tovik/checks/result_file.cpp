#include "Tovik/checks/result_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include "base/number.h"
#include "base/regular_file.h"
#include "base/unique_handles.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

constexpr size_t RESULT_READ_SIZE = size_t{256} << 10;
constexpr size_t COMMA_BLOCK = 64;              // bytes whose commas are looked for at once
constexpr size_t LINE_PIECE = RESULT_LINE - 1;  // longest line that the line buffer holds
constexpr size_t RECOGNITION_FIELD = 13;
constexpr size_t FILE_FIELD = 16;
constexpr size_t XRT_FIELD = 19;
constexpr size_t RESPONSE_FIELD = 22;
constexpr size_t LAST_FIELD = RESPONSE_FIELD;

using UniqueRecords = std::unique_ptr<RESULT_LIST, base::MallocFree>;

// Returns a file's lines as fgets does, without copying them.
class ResultLineReader {
 public:
  explicit ResultLineReader(base::UniqueFd csv)
      : csv_(std::move(csv)), lines_(static_cast<char*>(std::calloc(RESULT_READ_SIZE + COMMA_BLOCK, 1))) {}
  // False when there was no memory; nothing else may be called then.
  bool Ready() const { return lines_ != nullptr; }

  // The next line with its newline, or a piece of LINE_PIECE bytes; valid until the next call, and
  // COMMA_BLOCK bytes behind it are readable. False at the end.
  bool Next(std::string_view* line) {
    size_t length = LinePieceLength();
    while (length == 0 && FillLines()) length = LinePieceLength();
    if (length == 0) length = linesEnd_ - linesBegin_;
    *line = {lines_.get() + linesBegin_, length};
    linesBegin_ += length;
    return length > 0;
  }
  // True once a NUL byte was read. Few files have one, so only then is each line searched for it.
  bool MetNul() const { return nuls_; }

 private:
  // The length of the first line or piece that is complete in the buffer; 0 when none is.
  size_t LinePieceLength() const {
    const size_t limit = std::min(linesEnd_ - linesBegin_, LINE_PIECE);
    const char* start = lines_.get() + linesBegin_;
    const void* newline = limit == 0 ? nullptr : std::memchr(start, '\n', limit);
    if (newline != nullptr) return static_cast<size_t>(static_cast<const char*>(newline) - start) + 1;
    return limit == LINE_PIECE ? LINE_PIECE : 0;
  }
  bool FillLines() {
    std::memmove(lines_.get(), lines_.get() + linesBegin_, linesEnd_ - linesBegin_);
    linesEnd_ -= std::exchange(linesBegin_, 0);
    const size_t got = base::ReadUpTo(csv_.Get(), lines_.get() + linesEnd_, RESULT_READ_SIZE - linesEnd_);
    nuls_ = nuls_ || std::memchr(lines_.get() + linesEnd_, '\0', got) != nullptr;
    linesEnd_ += got;
    return got > 0;
  }

  base::UniqueFd csv_;
  base::UniqueText lines_;
  size_t linesBegin_ = 0;
  size_t linesEnd_ = 0;
  bool nuls_ = false;
};

bool IsFieldDigit(char c) {
  return c >= '0' && c <= '9';
}

// As atoi; a number out of int's range becomes the nearest int.
int64_t FieldToInteger(std::string_view field) {
  return std::clamp<int64_t>(base::LeadingNumber(field), INT_MIN, INT_MAX);
}

// Slow, but reads every form: blanks, signs, exponents, hexadecimal, infinities.
double FieldToDoubleByLibrary(std::string_view field) {
  char copy[RESULT_LINE];
  copy[field.copy(copy, LINE_PIECE)] = 0;
  return std::strtod(copy, nullptr);
}

// As atof. Digits with a point and at most 15 figures, as the engine writes them, are one exact integer and
// one exact power of ten: their quotient is the correctly rounded value.
double FieldToDouble(std::string_view field) {
  static constexpr double POWERS_OF_TEN[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                             1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  if (field.size() > 16) return FieldToDoubleByLibrary(field);
  int64_t figures = 0;
  size_t places = 0;
  bool point = false;
  for (const char c : field) {
    if (IsFieldDigit(c)) {
      figures = figures * 10 + (c - '0');
      places += point ? 1 : 0;
    } else if (c == '.' && !point) {
      point = true;
    } else {
      return FieldToDoubleByLibrary(field);
    }
  }
  if (figures > int64_t{999'999'999'999'999}) return FieldToDoubleByLibrary(field);
  return static_cast<double>(figures) / POWERS_OF_TEN[places];
}

static_assert(std::numeric_limits<float>::is_iec559, "a field too large for a float becomes infinite");
float FieldToFloat(std::string_view field) {
  return static_cast<float>(FieldToDouble(field));
}

// A bit for each byte of a block that is a comma, the first byte's lowest. Most of a large file's time is
// spent here, and every x86-64 has the instructions.
uint64_t Commas(const char* block) {
  uint64_t commas = 0;
#ifdef __SSE2__
  for (size_t i = 0; i < COMMA_BLOCK; i += sizeof(__m128i)) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i));
    const int found = _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(',')));
    commas |= uint64_t{static_cast<unsigned>(found)} << i;
  }
#else
  for (size_t i = 0; i < COMMA_BLOCK; ++i) commas |= uint64_t{block[i] == ','} << i;
#endif
  return commas;
}

// The fields of a line up to the last one that is used. COMMA_BLOCK bytes after the line must be readable.
class ResultFields {
 public:
  explicit ResultFields(std::string_view line) : line_(line) {
    for (size_t at = 0; at < line.size() && fieldCount_ < LAST_FIELD; at += COMMA_BLOCK) {
      uint64_t commas = Commas(line.data() + at);
      if (line.size() - at < COMMA_BLOCK) commas &= (uint64_t{1} << (line.size() - at)) - 1;
      for (; commas != 0 && fieldCount_ < LAST_FIELD; commas &= commas - 1) {
        fieldEnds_[++fieldCount_] = at + static_cast<size_t>(std::countr_zero(commas));
      }
    }
    if (fieldCount_ < LAST_FIELD) fieldEnds_[++fieldCount_] = line.size();
  }
  // Fields count from 1; one beyond the line's end is empty.
  std::string_view Field(size_t number) const {
    if (number > fieldCount_) return {};
    const size_t begin = number == 1 ? 0 : fieldEnds_[number - 1] + 1;
    return line_.substr(begin, fieldEnds_[number] - begin);
  }

 private:
  std::string_view line_;
  size_t fieldEnds_[LAST_FIELD + 1];
  size_t fieldCount_ = 0;
};

// A line up to its first NUL byte, without its newline.
std::string_view ResultLineText(std::string_view piece, bool mayHoldNul) {
  if (mayHoldNul) piece = piece.substr(0, piece.find('\0'));
  if (piece.ends_with('\n')) piece.remove_suffix(1);
  return piece;
}

void ParseResultLine(std::string_view line, RESULT_LIST& record) {
  const ResultFields fields(line);
  record.recognition_time = FieldToInteger(fields.Field(RECOGNITION_FIELD));
  record.file_time = FieldToFloat(fields.Field(FILE_FIELD));
  record.xrt = FieldToFloat(fields.Field(XRT_FIELD));
  record.response_time = FieldToInteger(fields.Field(RESPONSE_FIELD));
}

RESULT_LIST* RefuseResults(int error) {
  errno = error;
  return nullptr;
}

}  // namespace

char* GetNextString(char* src, char sep, char* dst) {
  const std::string_view rest(src);
  std::string_view field = rest.substr(0, rest.find(sep));
  char* next = src + field.size() + (field.size() < rest.size() ? 1 : 0);
  if (field.ends_with('\n')) field.remove_suffix(1);
  dst[field.copy(dst, RESULT_LINE - 1)] = 0;
  return next;
}

RESULT_LIST* GetResultReadData(const char* path, int64_t count) {
  if (count < 0 || count > MAX_RESULT_RECORDS) return RefuseResults(count < 0 ? EINVAL : EFBIG);
  base::UniqueFd resultFile = base::OpenRegular(path);
  if (!resultFile.Valid()) return nullptr;
  ResultLineReader lines(std::move(resultFile));
  const auto recordRoom = static_cast<size_t>(std::max<int64_t>(count, 1));
  UniqueRecords records(static_cast<RESULT_LIST*>(std::calloc(recordRoom, sizeof(RESULT_LIST))));
  if (records == nullptr || !lines.Ready()) return RefuseResults(ENOMEM);
  std::string_view line;
  for (int64_t i = 0; i < count && lines.Next(&line); ++i) {
    ParseResultLine(ResultLineText(line, lines.MetNul()), records.get()[i]);
  }
  return records.release();
}

void FreeResultData(RESULT_LIST* records) {
  std::free(records);
}
