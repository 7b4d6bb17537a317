// Small text helpers of the server engine's SQL: names quoted for the
// server, ASCII case changes (names and keywords are compared in ASCII),
// prefixes.
#pragma once

#include <cctype>
#include <string>
#include <string_view>

namespace vantry::engine::pg {

// A name as the server reads it exactly: in double quotes, inner ones doubled.
inline std::string quoteIdent(const std::string &name) {
  std::string out = "\"";
  for (char ch : name) out += ch == '"' ? std::string("\"\"") : std::string(1, ch);
  return out + "\"";
}

inline std::string lower(std::string s) {
  for (char &ch : s) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  return s;
}

inline std::string upper(std::string s) {
  for (char &ch : s) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
  return s;
}

inline bool startsWith(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }

}  // namespace vantry::engine::pg
