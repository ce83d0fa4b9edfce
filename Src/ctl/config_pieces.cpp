#include "ctl/config_pieces.h"

#include <algorithm>

#include "Tovik/config/config_line.h"

namespace ctl {
namespace {

constexpr std::string_view COMMENT_STARTS = ";:/";
constexpr std::string_view WHITE = " \t\n\v\f\r";
constexpr std::string_view BLANKS = " \t";

bool ValueFollows(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(WHITE), text.size()));
  text.remove_prefix(std::min(text.find_first_of(WHITE), text.size()));
  return text.find_first_not_of(BLANKS) != std::string_view::npos;
}

ConfigPiece PieceOf(ConfigLine* parser, std::string_view bytes) {
  ConfigPiece piece;
  piece.text = bytes.substr(0, bytes.find('\0'));
  piece.comment = !piece.text.empty() && COMMENT_STARTS.find(piece.text[0]) != std::string_view::npos;
  if (!parser->Take(piece.text.c_str())) return piece;
  piece.key = parser->Key();
  piece.value = parser->Value();
  piece.own_value = ValueFollows(piece.text);
  return piece;
}

}  // namespace

std::vector<ConfigPiece> SplitConfig(std::string_view text) {
  std::vector<ConfigPiece> pieces;
  ConfigLine parser;
  for (size_t at = 0, line = 1; at < text.size(); ++line) {
    const size_t found = text.find('\n', at);
    const size_t end = found == std::string_view::npos ? text.size() : found + 1;
    const size_t length = end - at - (found == std::string_view::npos ? 0 : 1);
    for (bool rest = false; at < end; rest = true) {
      const size_t size = std::min(CONFIG_PIECE, end - at);
      ConfigPiece piece = PieceOf(&parser, text.substr(at, size));
      piece.line = line;
      piece.length = length;
      piece.rest = rest;
      pieces.push_back(std::move(piece));
      at += size;
    }
  }
  return pieces;
}

}  // namespace ctl
