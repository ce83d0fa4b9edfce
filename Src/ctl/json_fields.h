// Fields of JSON that others may have written. A field of the wrong type counts as missing.
#ifndef CTL_JSON_FIELDS_H
#define CTL_JSON_FIELDS_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

using Json = nlohmann::ordered_json;

// The object in the text; an empty one when the text is anything else.
inline Json ParseObject(std::string_view text) {
  Json json = Json::parse(text, nullptr, false);
  return json.is_object() ? json : Json::object();
}

inline std::optional<std::string> TextField(const Json& json, const char* key) {
  const auto field = json.find(key);
  if (field == json.end() || !field->is_string()) return std::nullopt;
  return field->get<std::string>();
}

inline std::optional<int64_t> NumberField(const Json& json, const char* key) {
  const auto field = json.find(key);
  if (field == json.end() || !field->is_number_integer()) return std::nullopt;
  return field->get<int64_t>();
}

inline std::optional<double> FigureField(const Json& json, const char* key) {
  const auto field = json.find(key);
  if (field == json.end() || !field->is_number()) return std::nullopt;
  return field->get<double>();
}

// The value, or null for none.
template <typename T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

}  // namespace ctl

#endif
