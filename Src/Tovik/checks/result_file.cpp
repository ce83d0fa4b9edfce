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
constexpr size_t COMMA_BLOCK = 64;              // bytes whose commas are looked for at once
constexpr size_t LINE_PIECE = RESULT_LINE - 1;  // longest line that the line buffer holds
constexpr size_t RECOGNITION_FIELD = 13;
constexpr size_t FILE_TIME_FIELD = 16;
constexpr size_t XRT_FIELD = 19;
constexpr size_t RESPONSE_FIELD = 22;
constexpr size_t LAST_FIELD = RESPONSE_FIELD;

// Returns a file's lines as fgets does, without copying them.
class ResultLineReader {
 public:
  explicit ResultLineReader(base::UniqueFd resultFile)
      : resultFile_(std::move(resultFile)),
        csvLines_(static_cast<char*>(std::calloc(RESULT_READ_SIZE + COMMA_BLOCK, 1))) {}
  // False when there was no memory; nothing else may be called then.
  bool Ready() const { return csvLines_ != nullptr; }

  // The next line with its newline, or a piece of LINE_PIECE bytes; valid until the next call, and
  // COMMA_BLOCK bytes behind it are readable. False at the end.
  bool Next(std::string_view* csvLine) {
    size_t lineLength = LinePieceLength();
    while (lineLength == 0 && FillLines()) lineLength = LinePieceLength();
    if (lineLength == 0) lineLength = csvLinesEnd_ - csvLinesBegin_;
    *csvLine = {csvLines_.get() + csvLinesBegin_, lineLength};
    csvLinesBegin_ += lineLength;
    return lineLength > 0;
  }
  // True once a NUL byte was read. Few files have one, so only then is each line searched for it.
  bool MetNul() const { return nulSeen_; }

 private:
  // The length of the first line or piece that is complete in the buffer; 0 when none is.
  size_t LinePieceLength() const {
    const size_t pieceLimit = std::min(csvLinesEnd_ - csvLinesBegin_, LINE_PIECE);
    const char* pieceStart = csvLines_.get() + csvLinesBegin_;
    const void* newline = pieceLimit == 0 ? nullptr : std::memchr(pieceStart, '\n', pieceLimit);
    if (newline != nullptr) return static_cast<size_t>(static_cast<const char*>(newline) - pieceStart) + 1;
    return pieceLimit == LINE_PIECE ? LINE_PIECE : 0;
  }
  bool FillLines() {
    std::memmove(csvLines_.get(), csvLines_.get() + csvLinesBegin_, csvLinesEnd_ - csvLinesBegin_);
    csvLinesEnd_ -= std::exchange(csvLinesBegin_, 0);
    const size_t csvBytesRead =
        base::ReadUpTo(resultFile_.Get(), csvLines_.get() + csvLinesEnd_, RESULT_READ_SIZE - csvLinesEnd_);
    nulSeen_ = nulSeen_ || std::memchr(csvLines_.get() + csvLinesEnd_, '\0', csvBytesRead) != nullptr;
    csvLinesEnd_ += csvBytesRead;
    return csvBytesRead > 0;
  }

  base::UniqueFd resultFile_;
  base::UniqueText csvLines_;
  size_t csvLinesBegin_ = 0;
  size_t csvLinesEnd_ = 0;
  bool nulSeen_ = false;
};

bool IsCsvDigit(char csvChar) {
  return csvChar >= '0' && csvChar <= '9';
}

// As atoi; a number out of int's range becomes the nearest int.
int64_t CsvFieldToInteger(std::string_view csvField) {
  return std::clamp<int64_t>(base::LeadingNumber(csvField), INT_MIN, INT_MAX);
}

// Slow, but reads every form: blanks, signs, exponents, hexadecimal, infinities.
double CsvFieldToDoubleByLibrary(std::string_view csvField) {
  char fieldCopy[RESULT_LINE];
  fieldCopy[csvField.copy(fieldCopy, LINE_PIECE)] = 0;
  return std::strtod(fieldCopy, nullptr);
}

// As atof. Digits with a point and at most 15 figures, as the engine writes them, are one exact integer and
// one exact power of ten: their quotient is the correctly rounded value.
double CsvFieldToDouble(std::string_view csvField) {
  static constexpr double POWERS_OF_TEN[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                             1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  if (csvField.size() > 16) return CsvFieldToDoubleByLibrary(csvField);
  int64_t fieldFigures = 0;
  size_t decimalPlaces = 0;
  bool pointSeen = false;
  for (const char csvChar : csvField) {
    if (IsCsvDigit(csvChar)) {
      fieldFigures = fieldFigures * 10 + (csvChar - '0');
      decimalPlaces += pointSeen ? 1 : 0;
    } else if (csvChar == '.' && !pointSeen) {
      pointSeen = true;
    } else {
      return CsvFieldToDoubleByLibrary(csvField);
    }
  }
  if (fieldFigures > int64_t{999'999'999'999'999}) return CsvFieldToDoubleByLibrary(csvField);
  return static_cast<double>(fieldFigures) / POWERS_OF_TEN[decimalPlaces];
}

static_assert(std::numeric_limits<float>::is_iec559, "a field too large for a float becomes infinite");
float CsvFieldToFloat(std::string_view csvField) {
  return static_cast<float>(CsvFieldToDouble(csvField));
}

// A bit for each byte of a block that is a comma, the first byte's lowest. Most of a large file's time is
// spent here, and every x86-64 has the instructions.
uint64_t CommasOfBlock(const char* csvBlock) {
  uint64_t commas = 0;
#ifdef __SSE2__
  for (size_t i = 0; i < COMMA_BLOCK; i += sizeof(__m128i)) {
    const __m128i csvBytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(csvBlock + i));
    const int commasFound = _mm_movemask_epi8(_mm_cmpeq_epi8(csvBytes, _mm_set1_epi8(',')));
    commas |= uint64_t{static_cast<unsigned>(commasFound)} << i;
  }
#else
  for (size_t i = 0; i < COMMA_BLOCK; ++i) commas |= uint64_t{csvBlock[i] == ','} << i;
#endif
  return commas;
}

// The fields of a line up to the last one that is used. COMMA_BLOCK bytes after the line must be readable.
class ResultFields {
 public:
  explicit ResultFields(std::string_view csvLine) : csvLine_(csvLine) {
    for (size_t at = 0; at < csvLine.size() && fieldCount_ < LAST_FIELD; at += COMMA_BLOCK) {
      uint64_t commas = CommasOfBlock(csvLine.data() + at);
      if (csvLine.size() - at < COMMA_BLOCK) commas &= (uint64_t{1} << (csvLine.size() - at)) - 1;
      for (; commas != 0 && fieldCount_ < LAST_FIELD; commas &= commas - 1) {
        fieldEnds_[++fieldCount_] = at + static_cast<size_t>(std::countr_zero(commas));
      }
    }
    if (fieldCount_ < LAST_FIELD) fieldEnds_[++fieldCount_] = csvLine.size();
  }
  // Fields count from 1; one beyond the line's end is empty.
  std::string_view Field(size_t fieldNumber) const {
    if (fieldNumber > fieldCount_) return {};
    const size_t fieldBegin = fieldNumber == 1 ? 0 : fieldEnds_[fieldNumber - 1] + 1;
    return csvLine_.substr(fieldBegin, fieldEnds_[fieldNumber] - fieldBegin);
  }

 private:
  std::string_view csvLine_;
  size_t fieldEnds_[LAST_FIELD + 1];
  size_t fieldCount_ = 0;
};

// A line up to its first NUL byte, without its newline.
std::string_view ResultLineText(std::string_view linePiece, bool mayHoldNul) {
  if (mayHoldNul) linePiece = linePiece.substr(0, linePiece.find('\0'));
  if (linePiece.ends_with('\n')) linePiece.remove_suffix(1);
  return linePiece;
}

void ParseResultLine(std::string_view csvLine, RESULT_LIST& resultRecord) {
  const ResultFields csvFields(csvLine);
  resultRecord.recognition_time = CsvFieldToInteger(csvFields.Field(RECOGNITION_FIELD));
  resultRecord.file_time = CsvFieldToFloat(csvFields.Field(FILE_TIME_FIELD));
  resultRecord.xrt = CsvFieldToFloat(csvFields.Field(XRT_FIELD));
  resultRecord.response_time = CsvFieldToInteger(csvFields.Field(RESPONSE_FIELD));
}

RESULT_LIST* RefuseResults(int resultErrno) {
  errno = resultErrno;
  return nullptr;
}

}  // namespace

char* GetNextString(char* src, char sep, char* dst) {
  const std::string_view csvRest(src);
  std::string_view csvField = csvRest.substr(0, csvRest.find(sep));
  char* nextField = src + csvField.size() + (csvField.size() < csvRest.size() ? 1 : 0);
  if (csvField.ends_with('\n')) csvField.remove_suffix(1);
  dst[csvField.copy(dst, RESULT_LINE - 1)] = 0;
  return nextField;
}

RESULT_LIST* GetResultReadData(const char* path, int64_t count) {
  if (count < 0 || count > MAX_RESULT_RECORDS) return RefuseResults(count < 0 ? EINVAL : EFBIG);
  base::UniqueFd resultFile = base::OpenRegular(path);
  if (!resultFile.Valid()) return nullptr;
  ResultLineReader csvLines(std::move(resultFile));
  const auto recordRoom = static_cast<size_t>(std::max<int64_t>(count, 1));
  UniqueResults resultRecords(static_cast<RESULT_LIST*>(std::calloc(recordRoom, sizeof(RESULT_LIST))));
  if (resultRecords == nullptr || !csvLines.Ready()) return RefuseResults(ENOMEM);
  std::string_view csvLine;
  for (int64_t i = 0; i < count && csvLines.Next(&csvLine); ++i) {
    ParseResultLine(ResultLineText(csvLine, csvLines.MetNul()), resultRecords.get()[i]);
  }
  return resultRecords.release();
}

void FreeResultData(RESULT_LIST* records) {
  std::free(records);
}
