#include "Tovik/checks/result_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
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
constexpr size_t RESULT_COMMA_BLOCK = 64;              // bytes whose commas are looked for at once
constexpr size_t RESULT_LINE_PIECE = RESULT_LINE - 1;  // longest line that the line buffer holds
constexpr size_t RESULT_RECOGNITION_FIELD = 13;
constexpr size_t RESULT_FILE_FIELD = 16;
constexpr size_t RESULT_XRT_FIELD = 19;
constexpr size_t RESULT_RESPONSE_FIELD = 22;
constexpr size_t LAST_RESULT_FIELD = RESULT_RESPONSE_FIELD;

// Returns a file's lines as fgets does, without copying them.
class ResultLineReader {
 public:
  explicit ResultLineReader(base::UniqueFd resultFile)
      : resultFile_(std::move(resultFile)),
        resultLines_(static_cast<char*>(std::calloc(RESULT_READ_SIZE + RESULT_COMMA_BLOCK, 1))) {}
  // False when there was no memory; nothing else may be called then.
  bool Ready() const { return resultLines_ != nullptr; }

  // The next line with its newline, or a piece of RESULT_LINE_PIECE bytes; valid until the next call, and
  // RESULT_COMMA_BLOCK bytes behind it are readable. False at the end.
  bool Next(std::string_view* resultLine) {
    size_t resultLength = ResultPieceLength();
    while (resultLength == 0 && FillLines()) resultLength = ResultPieceLength();
    if (resultLength == 0) resultLength = resultLinesEnd_ - resultLinesBegin_;
    *resultLine = {resultLines_.get() + resultLinesBegin_, resultLength};
    resultLinesBegin_ += resultLength;
    return resultLength > 0;
  }
  // True once a NUL byte was read. Few files have one, so only then is each line searched for it.
  bool MetNul() const { return resultHasNul_; }

 private:
  // The length of the first line or piece that is complete in the buffer; 0 when none is.
  size_t ResultPieceLength() const {
    const size_t pieceLimit = std::min(resultLinesEnd_ - resultLinesBegin_, RESULT_LINE_PIECE);
    const char* pieceStart = resultLines_.get() + resultLinesBegin_;
    const void* newline = pieceLimit == 0 ? nullptr : std::memchr(pieceStart, '\n', pieceLimit);
    if (newline != nullptr) return static_cast<size_t>(static_cast<const char*>(newline) - pieceStart) + 1;
    return pieceLimit == RESULT_LINE_PIECE ? RESULT_LINE_PIECE : 0;
  }
  bool FillLines() {
    std::memmove(resultLines_.get(), resultLines_.get() + resultLinesBegin_,
                 resultLinesEnd_ - resultLinesBegin_);
    resultLinesEnd_ -= std::exchange(resultLinesBegin_, 0);
    const size_t resultBytesRead = base::ReadUpTo(resultFile_.Get(), resultLines_.get() + resultLinesEnd_,
                                                  RESULT_READ_SIZE - resultLinesEnd_);
    resultHasNul_ =
        resultHasNul_ || std::memchr(resultLines_.get() + resultLinesEnd_, '\0', resultBytesRead) != nullptr;
    resultLinesEnd_ += resultBytesRead;
    return resultBytesRead > 0;
  }

  base::UniqueFd resultFile_;
  base::UniqueText resultLines_;
  size_t resultLinesBegin_ = 0;
  size_t resultLinesEnd_ = 0;
  bool resultHasNul_ = false;
};

bool IsResultDigit(char resultChar) {
  return resultChar >= '0' && resultChar <= '9';
}

// As atoi; a number out of int's range becomes the nearest int.
int64_t ResultInteger(std::string_view resultField) {
  return std::clamp<int64_t>(base::LeadingNumber(resultField), INT_MIN, INT_MAX);
}

// Slow, but reads every form: blanks, signs, exponents, hexadecimal, infinities.
double ResultDoubleByLibrary(std::string_view resultField) {
  char resultCopy[RESULT_LINE];
  resultCopy[resultField.copy(resultCopy, RESULT_LINE_PIECE)] = 0;
  return std::strtod(resultCopy, nullptr);
}

// As atof. Digits with a point and at most 15 figures, as the engine writes them, are one exact integer and
// one exact power of ten: their quotient is the correctly rounded value.
double ResultDouble(std::string_view resultField) {
  static constexpr double RESULT_POWERS_OF_TEN[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                    1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  if (resultField.size() > 16) return ResultDoubleByLibrary(resultField);
  int64_t resultFigures = 0;
  size_t resultPlaces = 0;
  bool resultHasPoint = false;
  for (const char resultChar : resultField) {
    if (IsResultDigit(resultChar)) {
      resultFigures = resultFigures * 10 + (resultChar - '0');
      resultPlaces += resultHasPoint ? 1 : 0;
    } else if (resultChar == '.' && !resultHasPoint) {
      resultHasPoint = true;
    } else {
      return ResultDoubleByLibrary(resultField);
    }
  }
  if (resultFigures > int64_t{999'999'999'999'999}) return ResultDoubleByLibrary(resultField);
  return static_cast<double>(resultFigures) / RESULT_POWERS_OF_TEN[resultPlaces];
}

static_assert(std::numeric_limits<float>::is_iec559, "a field too large for a float becomes infinite");
float ResultFloat(std::string_view resultField) {
  return static_cast<float>(ResultDouble(resultField));
}

// A bit for each byte of a block that is a comma, the first byte's lowest. Most of a large file's time is
// spent here, and every x86-64 has the instructions.
uint64_t ResultCommas(const char* resultBlock) {
  uint64_t resultCommas = 0;
#ifdef __SSE2__
  for (size_t i = 0; i < RESULT_COMMA_BLOCK; i += sizeof(__m128i)) {
    const __m128i resultBytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(resultBlock + i));
    const int commasInResult = _mm_movemask_epi8(_mm_cmpeq_epi8(resultBytes, _mm_set1_epi8(',')));
    resultCommas |= uint64_t{static_cast<unsigned>(commasInResult)} << i;
  }
#else
  for (size_t i = 0; i < RESULT_COMMA_BLOCK; ++i) resultCommas |= uint64_t{resultBlock[i] == ','} << i;
#endif
  return resultCommas;
}

// The fields of a line up to the last one that is used. RESULT_COMMA_BLOCK bytes after the line must be
// readable.
class ResultFields {
 public:
  explicit ResultFields(std::string_view resultLine) : resultLine_(resultLine) {
    for (size_t resultLineAt = 0; resultLineAt < resultLine.size() && resultFieldCount_ < LAST_RESULT_FIELD;
         resultLineAt += RESULT_COMMA_BLOCK) {
      uint64_t resultCommas = ResultCommas(resultLine.data() + resultLineAt);
      if (resultLine.size() - resultLineAt < RESULT_COMMA_BLOCK)
        resultCommas &= (uint64_t{1} << (resultLine.size() - resultLineAt)) - 1;
      for (; resultCommas != 0 && resultFieldCount_ < LAST_RESULT_FIELD; resultCommas &= resultCommas - 1) {
        resultFieldEnds_[++resultFieldCount_] =
            resultLineAt + static_cast<size_t>(std::countr_zero(resultCommas));
      }
    }
    if (resultFieldCount_ < LAST_RESULT_FIELD) resultFieldEnds_[++resultFieldCount_] = resultLine.size();
  }
  // Fields count from 1; one beyond the line's end is empty.
  std::string_view Field(size_t fieldNumber) const {
    if (fieldNumber > resultFieldCount_) return {};
    const size_t fieldBegin = fieldNumber == 1 ? 0 : resultFieldEnds_[fieldNumber - 1] + 1;
    return resultLine_.substr(fieldBegin, resultFieldEnds_[fieldNumber] - fieldBegin);
  }

 private:
  std::string_view resultLine_;
  size_t resultFieldEnds_[LAST_RESULT_FIELD + 1];
  size_t resultFieldCount_ = 0;
};

// A line up to its first NUL byte, without its newline.
std::string_view ResultLineText(std::string_view resultPiece, bool mayHoldNul) {
  if (mayHoldNul) resultPiece = resultPiece.substr(0, resultPiece.find('\0'));
  if (resultPiece.ends_with('\n')) resultPiece.remove_suffix(1);
  return resultPiece;
}

void ParseResultLine(std::string_view resultLine, RESULT_LIST& resultRecord) {
  const ResultFields resultFields(resultLine);
  resultRecord.recognition_time = ResultInteger(resultFields.Field(RESULT_RECOGNITION_FIELD));
  resultRecord.file_time = ResultFloat(resultFields.Field(RESULT_FILE_FIELD));
  resultRecord.xrt = ResultFloat(resultFields.Field(RESULT_XRT_FIELD));
  resultRecord.response_time = ResultInteger(resultFields.Field(RESULT_RESPONSE_FIELD));
}

RESULT_LIST* RefuseResults(int resultErrno) {
  errno = resultErrno;
  return nullptr;
}

}  // namespace

char* GetNextString(char* src, char sep, char* dst) {
  const std::string_view resultRest(src);
  std::string_view resultField = resultRest.substr(0, resultRest.find(sep));
  char* nextField = src + resultField.size() + (resultField.size() < resultRest.size() ? 1 : 0);
  if (resultField.ends_with('\n')) resultField.remove_suffix(1);
  dst[resultField.copy(dst, RESULT_LINE - 1)] = 0;
  return nextField;
}

RESULT_LIST* GetResultReadData(const char* path, int64_t count) {
  if (count < 0 || count > MAX_RESULT_RECORDS) return RefuseResults(count < 0 ? EINVAL : EFBIG);
  base::UniqueFd resultFile = base::OpenRegular(path);
  if (!resultFile.Valid()) return nullptr;
  ResultLineReader resultLines(std::move(resultFile));
  const auto resultRoom = static_cast<size_t>(std::max<int64_t>(count, 1));
  UniqueResults resultRecords(static_cast<RESULT_LIST*>(std::calloc(resultRoom, sizeof(RESULT_LIST))));
  if (resultRecords == nullptr || !resultLines.Ready()) return RefuseResults(ENOMEM);
  std::string_view resultLine;
  for (int64_t i = 0; i < count && resultLines.Next(&resultLine); ++i) {
    ParseResultLine(ResultLineText(resultLine, resultLines.MetNul()), resultRecords.get()[i]);
  }
  return resultRecords.release();
}

void FreeResultData(RESULT_LIST* records) {
  std::free(records);
}
