// The Access dialect of SQL, rewritten for SQLite token by token.
//
//   [name]                 -> "name"
//   SELECT [DISTINCT] TOP n -> SELECT [DISTINCT] ... LIMIT n (at the end of that SELECT)
//   DISTINCTROW            -> DISTINCT
//   LIKE 'a*b?'            -> LIKE 'a%b_' ESCAPE '\' (literal % and _ escaped)
//   LIKE '[a-c]#*'         -> REGEXP '^[a-c][0-9].*$' (character lists and digits)
//   #1/31/2024#            -> '2024-01-31 00:00:00'
//   a & b                  -> a || b
//   a + 'x', 'x' + a       -> a || 'x', 'x' || a (texts join; "+" between fields adds)
//   a Mod b                -> a % b
//   a \ b                  -> vt_intdiv(a, b) (a number or a field on each side)
//   DELETE * FROM t        -> DELETE FROM t (also DELETE t.* FROM t)
//   UPDATE a INNER JOIN b ON c SET ..., DELETE a.* FROM a INNER JOIN b ...:
//                             see rewriteJoinedWrite
//   True                   -> (-1), Access's yes: what yes/no fields hold, so
//                             "Lined = True" compares as in Access. SQLite's own
//                             "x IS [NOT] TRUE" and a name written t.True or
//                             AS True are left as they stand.
//   Left( Right( Format(   -> vt_left( vt_right( vt_format( (SQLite reserves or owns those
//   IsNull( Date()         -> vt_isnull( vt_date() (the same: ISNULL is an operator there)
//   Yes, On / No, Off      -> (-1) / 0 where a value stands (after a comparison, in a list)
//                             names; Format( keeps SQLite's meaning when its first argument
//                             is a string literal, as in SQLite's format('%d', x))
// False (0), IIf, Trim and two-argument InStr are SQLite's own; Nz, UCase,
// LCase, Len, Mid, Val, Now and three-argument InStr are registered on the
// connection (access_functions.cpp). Text that uses none of this comes back
// unchanged, byte for byte. Differences that stay: "&" does not turn a null
// into an empty text as Access does, and "+" between two text fields adds.
// Text comparisons, ORDER BY and GROUP BY terms and join conditions are made
// case-insensitive (markCaseInsensitive).
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "engine/schema.h"
#include "sqlite_internal.h"

namespace vantry::engine::sqlite {

namespace {

enum class Tok { kSpace, kWord, kBracket, kSQuote, kDQuote, kNumber, kHashDate, kPunct, kOther };

struct Token {
  Tok kind;
  std::string text;  // as written
};

bool isWordStart(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || (c & 0x80);
}
bool isWordChar(char c) {
  return isWordStart(c) || std::isdigit(static_cast<unsigned char>(c)) || c == '$';
}

std::vector<Token> tokenize(const std::string &s) {
  std::vector<Token> out;
  size_t i = 0, n = s.size();
  while (i < n) {
    size_t b = i;
    char c = s[i];
    Tok kind = Tok::kOther;
    if (std::isspace(static_cast<unsigned char>(c))) {
      while (i < n && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
      kind = Tok::kSpace;
    } else if (c == '-' && i + 1 < n && s[i + 1] == '-') {
      while (i < n && s[i] != '\n') ++i;
      kind = Tok::kSpace;
    } else if (c == '/' && i + 1 < n && s[i + 1] == '*') {
      size_t e = s.find("*/", i + 2);
      i = e == std::string::npos ? n : e + 2;
      kind = Tok::kSpace;
    } else if (isWordStart(c)) {
      while (i < n && isWordChar(s[i])) ++i;
      kind = Tok::kWord;
    } else if (std::isdigit(static_cast<unsigned char>(c)) ||
               (c == '.' && i + 1 < n && std::isdigit(static_cast<unsigned char>(s[i + 1])))) {
      while (i < n && (std::isalnum(static_cast<unsigned char>(s[i])) || s[i] == '.')) ++i;
      kind = Tok::kNumber;
    } else if (c == '\'' || c == '"' || c == '`') {
      ++i;
      while (i < n) {
        if (s[i] == c && i + 1 < n && s[i + 1] == c) {
          i += 2;
        } else if (s[i++] == c) {
          break;
        }
      }
      kind = c == '\'' ? Tok::kSQuote : (c == '"' ? Tok::kDQuote : Tok::kOther);
    } else if (c == '[') {
      size_t e = s.find(']', i);
      i = e == std::string::npos ? n : e + 1;
      kind = Tok::kBracket;
    } else if (c == '#') {
      size_t e = s.find('#', i + 1);
      std::string iso;
      if (e != std::string::npos && normalizeDate(s.substr(i + 1, e - i - 1), &iso)) {
        out.push_back({Tok::kHashDate, "'" + iso + "'"});
        i = e + 1;
        continue;
      }
      ++i;
    } else {
      static const char *kTwo[] = {"<>", "<=", ">=", "||", "!=", "==", "<<", ">>"};
      i += 1;
      for (const char *t : kTwo)
        if (s.compare(b, 2, t) == 0) i = b + 2;
      kind = Tok::kPunct;
    }
    out.push_back({kind, s.substr(b, i - b)});
  }
  return out;
}

bool is(const Token &t, const char *word) {
  if (t.kind != Tok::kWord || t.text.size() != std::strlen(word)) return false;
  for (size_t i = 0; i < t.text.size(); ++i)
    if (std::toupper(static_cast<unsigned char>(t.text[i])) != word[i]) return false;
  return true;
}

// The content of a quoted literal, quotes undone.
std::string unquote(const std::string &lit) {
  char q = lit[0];
  std::string out;
  for (size_t i = 1; i + 1 < lit.size(); ++i) {
    out += lit[i];
    if (lit[i] == q && lit[i + 1] == q) ++i;
  }
  return out;
}

// An Access pattern as an SQL LIKE pattern (escape '\'), or "" when it needs
// a regular expression (# or a character list).
std::string likePattern(const std::string &p) {
  std::string out;
  for (char c : p) {
    if (c == '#' || c == '[') return std::string();
    if (c == '*')
      out += '%';
    else if (c == '?')
      out += '_';
    else if (c == '%' || c == '_' || c == '\\')
      out += std::string("\\") + c;
    else
      out += c;
  }
  return out;
}

// Index of the next token that is not space, from i; tokens.size() if none.
size_t nextSolid(const std::vector<Token> &t, size_t i) {
  while (i < t.size() && t[i].kind == Tok::kSpace) ++i;
  return i;
}

// Index of the last token before i that is not space; t.size() if none.
size_t prevSolid(const std::vector<Token> &t, size_t i) {
  while (i > 0) {
    if (t[--i].kind != Tok::kSpace) return i;
  }
  return t.size();
}

// True as Access's constant: not SQLite's "IS [NOT] TRUE", not a qualified
// name or an alias, not a table qualifier.
bool isTrueConstant(const std::vector<Token> &t, size_t i) {
  if (!is(t[i], "TRUE")) return false;
  size_t p = prevSolid(t, i);
  if (p < t.size()) {
    if (t[p].text == "." || is(t[p], "IS") || is(t[p], "AS")) return false;
    if (is(t[p], "NOT")) {
      size_t q = prevSolid(t, p);
      if (q < t.size() && is(t[q], "IS")) return false;
    }
  }
  size_t n = nextSolid(t, i + 1);
  return !(n < t.size() && (t[n].text == "." || t[n].text == "("));
}

}  // namespace

namespace {

// Access's constants Yes and On (-1), No and Off (0), where a value stands:
// after a comparison or assignment, or in a list; 1 for yes, -1 for no, 0
// when the word is not such a constant here (ON of a join, a field named Yes).
int yesNoConstant(const std::vector<Token> &t, size_t i) {
  bool yes = is(t[i], "YES") || is(t[i], "ON");
  bool no = is(t[i], "NO") || is(t[i], "OFF");
  if (!yes && !no) return 0;
  size_t p = prevSolid(t, i);
  if (p >= t.size()) return 0;
  static const char *const kBefore[] = {"=", "==", "<>", "!=", "<", ">", "<=", ">="};
  bool valuePlace = false;
  for (const char *op : kBefore) valuePlace |= t[p].kind == Tok::kPunct && t[p].text == op;
  if (!is(t[i], "ON")) valuePlace |= t[p].text == "," || t[p].text == "(" || is(t[p], "THEN") || is(t[p], "ELSE");
  size_t n = nextSolid(t, i + 1);
  if (n < t.size() && (t[n].text == "." || t[n].text == "(")) return 0;
  return valuePlace ? (yes ? 1 : -1) : 0;
}

}  // namespace

std::string accessPatternToRegex(const std::string &pattern) {
  std::string out = "^";
  for (size_t i = 0; i < pattern.size(); ++i) {
    char c = pattern[i];
    if (c == '*') {
      out += ".*";
    } else if (c == '?') {
      out += '.';
    } else if (c == '#') {
      out += "[0-9]";
    } else if (c == '[') {
      size_t e = pattern.find(']', i + 1);
      if (e == std::string::npos) {
        out += "\\[";
        continue;
      }
      std::string set = pattern.substr(i + 1, e - i - 1);
      out += '[';
      size_t k = 0;
      if (!set.empty() && set[0] == '!') out += '^', k = 1;
      for (; k < set.size(); ++k) {
        if (set[k] == '\\' || set[k] == ']' || set[k] == '[' || set[k] == '^') out += '\\';
        out += set[k];
      }
      out += ']';
      i = e;
    } else {
      if (std::string("\\^$.|+(){}").find(c) != std::string::npos) out += '\\';
      out += c;
    }
  }
  return out + "$";
}

// Text compares without regard to case in Access. SQLite takes the collation
// of a comparison from an operand that names one with COLLATE, so these are
// marked COLLATE NOCASE: a string literal compared with anything; the right
// side of a comparison of two fields in a join's ON clause; and each term of
// ORDER BY and GROUP BY that names a field. A collation changes nothing in a
// comparison of numbers. Definitions (CREATE, ALTER, DROP) are left alone:
// there a COLLATE after a literal would be read as the column's collation.
bool isComparison(const Token &k) {
  static const char *const kOps[] = {"=", "==", "<>", "!=", "<", ">", "<=", ">="};
  if (k.kind != Tok::kPunct) return false;
  for (const char *op : kOps)
    if (k.text == op) return true;
  return false;
}

bool isNamePart(const Token &k) {
  return k.kind == Tok::kWord || k.kind == Tok::kBracket || k.kind == Tok::kDQuote;
}

// The end (one past) of a field reference starting at i (name, or
// name.name...), or i when there is none there; a function call is none.
size_t fieldRefEnd(const std::vector<Token> &t, size_t i) {
  if (i >= t.size() || !isNamePart(t[i])) return i;
  size_t e = i + 1;
  while (e + 1 < t.size() && t[e].kind == Tok::kPunct && t[e].text == "." && isNamePart(t[e + 1])) e += 2;
  size_t after = nextSolid(t, e);
  if (after < t.size() && t[after].kind == Tok::kPunct && t[after].text == "(") return i;
  return e;
}

// Access's "+" between texts concatenates, between numbers adds. A "+" with
// a text literal on either side joins texts (System + '-' + Linetype), and
// so does one between two text operands, a text operand being a literal or
// a field the schema declares as text (`textFields`, lower-case names, a
// qualified name by its last part); anything else stays SQLite's addition.
std::string nameOf(const Token &k) {
  if (k.kind == Tok::kWord) return asciiLower(k.text);
  return asciiLower(k.text.size() >= 2 ? k.text.substr(1, k.text.size() - 2) : std::string());
}

bool plusJoinsText(const std::vector<Token> &t, size_t i, const std::set<std::string> &textFields) {
  size_t before = i;
  while (before > 0 && t[before - 1].kind == Tok::kSpace) --before;
  size_t after = nextSolid(t, i + 1);
  if (before > 0 && t[before - 1].kind == Tok::kOther && t[before - 1].text == " COLLATE NOCASE") {
    --before;
    while (before > 0 && t[before - 1].kind == Tok::kSpace) --before;
  }
  bool leftLiteral = before > 0 && t[before - 1].kind == Tok::kSQuote;
  bool rightLiteral = after < t.size() && t[after].kind == Tok::kSQuote;
  if (leftLiteral || rightLiteral) return true;
  if (textFields.empty() || before == 0) return false;
  size_t left = before - 1;
  bool leftText = isNamePart(t[left]) && textFields.count(nameOf(t[left])) > 0;
  size_t rightEnd = fieldRefEnd(t, after);
  bool rightText = rightEnd > after && textFields.count(nameOf(t[rightEnd - 1])) > 0;
  return leftText && rightText;
}

// Access's definitions (CREATE TABLE, ALTER TABLE, CREATE INDEX, DROP
// INDEX) in SQLite's terms. Access's type names are kept where SQLite reads
// them with the right affinity (TEXT(n), LONG, YESNO, CURRENCY ... keep their
// names, which tell the engine how their values cross); COUNTER and
// AUTOINCREMENT become a counter SQLite numbers (INTEGER PRIMARY KEY
// AUTOINCREMENT, a PRIMARY KEY written for that field dropped), MEMO becomes
// LONGTEXT (SQLite would read MEMO as a number type). CREATE INDEX loses its
// WITH clause (a WITH PRIMARY the engine could not take apart as a primary
// key, primaryIndexStatement, makes the index unique); DROP INDEX i ON t
// loses "ON t".
bool isTypePosition(const std::vector<Token> &t, size_t i) {
  size_t name = prevSolid(t, i);
  if (name >= t.size() || !isNamePart(t[name])) return false;
  size_t before = prevSolid(t, name);
  if (before >= t.size()) return false;
  return t[before].text == "(" || t[before].text == "," || is(t[before], "ADD") || is(t[before], "COLUMN");
}

// Access's integer division a \ b: vt_intdiv(a, b), which rounds both to
// whole numbers first as Access does. An operand is a number (with its
// sign, on the right), a field (name or table.name), an expression in
// parentheses, or a call (name(...)).
size_t matchingOpen(const std::vector<Token> &t, size_t close) {
  int depth = 0;
  for (size_t k = close + 1; k-- > 0;) {
    if (t[k].kind != Tok::kPunct) continue;
    if (t[k].text == ")") ++depth;
    if (t[k].text == "(" && --depth == 0) return k;
  }
  return t.size();
}

size_t matchingClose(const std::vector<Token> &t, size_t open) {
  int depth = 0;
  for (size_t k = open; k < t.size(); ++k) {
    if (t[k].kind != Tok::kPunct) continue;
    if (t[k].text == "(") ++depth;
    if (t[k].text == ")" && --depth == 0) return k;
  }
  return t.size();
}

bool translateIntegerDivision(std::vector<Token> &t) {
  bool changed = false;
  for (size_t i = 0; i < t.size(); ++i) {
    if (t[i].kind != Tok::kPunct || t[i].text != "\\") continue;
    size_t leftEnd = prevSolid(t, i), rightStart = nextSolid(t, i + 1);
    if (leftEnd >= t.size() || rightStart >= t.size()) continue;
    size_t leftStart = leftEnd;
    if (t[leftEnd].kind == Tok::kPunct && t[leftEnd].text == ")") {
      leftStart = matchingOpen(t, leftEnd);
      if (leftStart >= t.size()) continue;
      size_t callee = prevSolid(t, leftStart);  // a call: its name goes with it
      if (callee < t.size() && t[callee].kind == Tok::kWord && !is(t[callee], "AND") && !is(t[callee], "OR") &&
          !is(t[callee], "NOT") && !is(t[callee], "SELECT") && !is(t[callee], "WHERE") && !is(t[callee], "ON"))
        leftStart = callee;
    } else if (t[leftEnd].kind != Tok::kNumber) {
      if (!isNamePart(t[leftEnd])) continue;
      while (leftStart >= 2 && t[leftStart - 1].text == "." && isNamePart(t[leftStart - 2])) leftStart -= 2;
    }
    size_t number = rightStart;  // a negative number: "-" then the digits
    if (t[rightStart].text == "-" && nextSolid(t, rightStart + 1) < t.size() &&
        t[nextSolid(t, rightStart + 1)].kind == Tok::kNumber)
      number = nextSolid(t, rightStart + 1);
    size_t rightEnd;
    if (t[rightStart].kind == Tok::kPunct && t[rightStart].text == "(") {
      size_t close = matchingClose(t, rightStart);
      if (close >= t.size()) continue;
      rightEnd = close + 1;
    } else if (t[number].kind == Tok::kNumber) {
      rightEnd = number + 1;
    } else if (isNamePart(t[rightStart]) && nextSolid(t, rightStart + 1) < t.size() &&
               t[nextSolid(t, rightStart + 1)].text == "(") {
      size_t close = matchingClose(t, nextSolid(t, rightStart + 1));
      if (close >= t.size()) continue;
      rightEnd = close + 1;
    } else {
      rightEnd = fieldRefEnd(t, rightStart);
    }
    if (rightEnd == rightStart) continue;
    t[leftStart].text = "vt_intdiv(" + t[leftStart].text;
    t[i].text = ",";
    t[rightEnd - 1].text += ")";
    changed = true;
  }
  return changed;
}

// Joined writes, as Access writes them, in SQLite's forms:
//   UPDATE a INNER JOIN b ON c SET a.x = b.y [WHERE w]
//     -> UPDATE a SET x = b.y FROM b WHERE (c) [AND (w)]
//   DELETE a.* FROM a INNER JOIN b ON c [WHERE w]
//     -> DELETE FROM a WHERE rowid IN (SELECT a.rowid FROM a INNER JOIN b ON c [WHERE w])
// (SQLite names the fields of SET without their table, and its DELETE takes
// one table.) Anything else comes back as it was.
std::string text(const std::vector<Token> &t, size_t from, size_t to) {
  std::string out;
  for (size_t k = from; k < to && k < t.size(); ++k) out += t[k].text;
  return out;
}

// Indexes of the depth-0 words of t, by position.
size_t findTop(const std::vector<Token> &t, size_t from, std::initializer_list<const char *> words) {
  int depth = 0;
  for (size_t k = from; k < t.size(); ++k) {
    if (t[k].text == "(") ++depth;
    if (t[k].text == ")") --depth;
    if (depth != 0) continue;
    for (const char *w : words)
      if (is(t[k], w)) return k;
    if (t[k].text == ";") return t.size();
  }
  return t.size();
}

std::string rewriteJoinedWrite(const std::string &sql) {
  std::vector<Token> t = tokenize(sql);
  size_t first = nextSolid(t, 0);
  if (first >= t.size()) return sql;
  size_t end = t.size();
  for (size_t k = first; k < t.size(); ++k)
    if (t[k].text == ";") {
      end = k;
      break;
    }
  if (is(t[first], "SELECT")) {
    // SELECT DISTINCTROW q.a, q.* ... FROM ... JOIN ...: each record of q's
    // table once, whatever the joins matched (Access's DISTINCTROW works on
    // whole records of the tables whose fields are selected):
    //   SELECT q.a ... FROM t AS q WHERE q.rowid IN (SELECT q.rowid FROM ...) [ORDER BY ...]
    // Only when every selected field is qualified by the one table; other
    // forms run as DISTINCT.
    size_t dr = nextSolid(t, first + 1);
    if (dr < end && is(t[dr], "DISTINCTROW")) {
      size_t from = findTop(t, dr + 1, {"FROM"});
      size_t join = from < end ? findTop(t, from + 1, {"JOIN"}) : end;
      size_t order = from < end ? findTop(t, from + 1, {"ORDER"}) : end;
      if (order > end) order = end;
      std::string q;
      bool one = from < end && join < order;
      int depth = 0;
      bool expectField = true;
      for (size_t k = dr + 1; one && k < from; ++k) {  // every item: q.name or q.*
        if (t[k].kind == Tok::kSpace) continue;
        if (t[k].text == "(") ++depth;
        if (t[k].text == ")") --depth;
        if (depth == 0 && t[k].text == ",") {
          expectField = true;
          continue;
        }
        if (!expectField) continue;
        expectField = false;
        if (!isNamePart(t[k]) || k + 2 >= from || t[k + 1].text != "." ||
            !(isNamePart(t[k + 2]) || t[k + 2].text == "*") || (!q.empty() && nameOf(t[k]) != q)) {
          one = false;
          break;
        }
        q = nameOf(t[k]);
        size_t after = nextSolid(t, k + 3);  // only "AS alias" may follow the field
        if (after < from && t[after].text != "," && !is(t[after], "AS")) one = false;
      }
      // The table that q names: "table [AS] q" or the table itself in FROM.
      std::string table;
      for (size_t k = from + 1; one && k < order; ++k) {
        if (!isNamePart(t[k]) || is(t[k], "AS") || is(t[k], "ON") || is(t[k], "INNER") || is(t[k], "JOIN"))
          continue;
        size_t next = nextSolid(t, k + 1);
        if (next < order && is(t[next], "AS")) next = nextSolid(t, next + 1);
        if (nameOf(t[k]) == q || (next < order && isNamePart(t[next]) && nameOf(t[next]) == q)) {
          table = t[k].text;
          break;
        }
      }
      if (one && !q.empty() && !table.empty()) {
        std::string alias = nameOf(Token{Tok::kWord, table}) == q ? "" : " AS " + quoteIdent(q);
        return text(t, 0, first) + "SELECT" + text(t, dr + 1, from) + "FROM " + table + alias + " WHERE " +
               quoteIdent(q) + ".rowid IN (SELECT " + quoteIdent(q) + ".rowid " + text(t, from, order) + ")" +
               (order < end ? " " + text(t, order, end) : std::string()) + text(t, end, t.size());
      }
    }
  }
  if (is(t[first], "SELECT")) {  // SELECT ... INTO new_table FROM ... -> CREATE TABLE new_table AS SELECT ...
    size_t into = findTop(t, first + 1, {"INTO", "FROM"});
    if (into >= end || !is(t[into], "INTO")) return sql;
    size_t name = nextSolid(t, into + 1);
    if (name >= end || !isNamePart(t[name])) return sql;
    return text(t, 0, first) + "CREATE TABLE " + t[name].text + " AS " + text(t, first, into) +
           text(t, name + 1, t.size());
  }
  if (is(t[first], "UPDATE")) {
    // Access writes joins of three tables or more in parentheses:
    // UPDATE (a INNER JOIN b ON c1) INNER JOIN c ON c2 SET ...; they go.
    size_t open = nextSolid(t, first + 1);
    if (open < end && t[open].kind == Tok::kPunct && t[open].text == "(") {
      size_t close = matchingClose(t, open);
      if (close < end && findTop(t, close + 1, {"SET"}) < end) {
        std::vector<Token> flat = t;
        flat[open].text = " ";
        flat[close].text = " ";
        return rewriteJoinedWrite(text(flat, 0, flat.size()));
      }
    }
    size_t join = findTop(t, first + 1, {"JOIN", "SET"});
    if (join >= end || !is(t[join], "JOIN")) return sql;
    size_t targetEnd = join;
    size_t kind = prevSolid(t, join);  // INNER / LEFT / RIGHT before JOIN
    if (kind < t.size() && (is(t[kind], "INNER") || is(t[kind], "LEFT") || is(t[kind], "RIGHT"))) targetEnd = kind;
    size_t on = findTop(t, join + 1, {"ON"}), set = findTop(t, join + 1, {"SET"});
    if (on >= end || set >= end || on > set) return sql;
    // More joins: the first join's condition goes to WHERE, the rest of the
    // joins stay in FROM as written.
    size_t onEnd = findTop(t, on + 1, {"INNER", "LEFT", "RIGHT", "JOIN", "SET"});
    std::string joined = text(t, join + 1, on);
    if (onEnd < set) joined += " " + text(t, onEnd, set);
    size_t where = findTop(t, set + 1, {"WHERE"});
    if (where > end) where = end;
    // SET a.x = ... -> SET x = ...: the table before each assigned field goes.
    std::string assigns;
    int depth = 0;
    bool targetPlace = true;
    for (size_t k = set + 1; k < where; ++k) {
      if (t[k].text == "(") ++depth;
      if (t[k].text == ")") --depth;
      if (depth == 0 && t[k].text == ",") targetPlace = true;
      if (depth == 0 && t[k].text == "=") targetPlace = false;
      if (targetPlace && isNamePart(t[k]) && k + 2 < where && t[k + 1].text == "." && isNamePart(t[k + 2])) {
        ++k;  // drop "a" and "."
        continue;
      }
      assigns += t[k].text;
    }
    std::string out = text(t, 0, targetEnd) + " SET" + assigns + " FROM " + joined + " WHERE (" +
                      text(t, on + 1, std::min(onEnd, set)) + ")";
    if (where < end) out += " AND (" + text(t, where + 1, end) + ")";
    return out + text(t, end, t.size());
  }
  if (is(t[first], "DELETE")) {
    size_t from = findTop(t, first + 1, {"FROM"});
    if (from >= end) return sql;
    size_t join = findTop(t, from + 1, {"JOIN", "WHERE"});
    if (join >= end || !is(t[join], "JOIN")) return sql;
    size_t name = nextSolid(t, from + 1);
    while (name < join && t[name].kind == Tok::kPunct && t[name].text == "(") name = nextSolid(t, name + 1);
    if (name >= join || !isNamePart(t[name])) return sql;
    // The deleted table's name, and what the joined select calls it.
    std::string qualifier = t[name].text;
    size_t next = nextSolid(t, name + 1);
    if (next < join && is(t[next], "AS")) next = nextSolid(t, next + 1);
    if (next < join && isNamePart(t[next]) && !is(t[next], "INNER") && !is(t[next], "LEFT") &&
        !is(t[next], "RIGHT"))
      qualifier = t[next].text;
    return text(t, 0, first) + "DELETE FROM " + t[name].text + " WHERE rowid IN (SELECT " + qualifier +
           ".rowid FROM " + text(t, nextSolid(t, from + 1), end) + ")" + text(t, end, t.size());
  }
  return sql;
}

bool translateDefinition(std::vector<Token> &t) {
  size_t first = nextSolid(t, 0);
  if (first >= t.size()) return false;
  bool create = is(t[first], "CREATE"), alter = is(t[first], "ALTER"), drop = is(t[first], "DROP");
  if (!create && !alter && !drop) return false;
  size_t second = nextSolid(t, first + 1);
  if (second < t.size() && is(t[second], "UNIQUE")) second = nextSolid(t, second + 1);
  bool index = second < t.size() && is(t[second], "INDEX");
  bool changed = false;
  auto blank = [&](size_t from, size_t to) {  // [from, to) becomes nothing
    for (size_t k = from; k < to && k < t.size(); ++k) t[k] = Token{Tok::kSpace, k == from ? " " : ""};
    changed = true;
  };
  if (drop && index) {  // DROP INDEX i ON t
    for (size_t i = second; i < t.size(); ++i)
      if (is(t[i], "ON")) {
        size_t end = i;
        while (end < t.size() && t[end].text != ";") ++end;
        blank(i, end);
        break;
      }
    return changed;
  }
  if (create && index) {  // ... WITH PRIMARY | DISALLOW NULL | IGNORE NULL
    int depth = 0;
    for (size_t i = second; i < t.size(); ++i) {
      if (t[i].text == "(") ++depth;
      if (t[i].text == ")") --depth;
      if (depth == 0 && is(t[i], "WITH")) {
        size_t end = i;
        bool primary = false;
        while (end < t.size() && t[end].text != ";") primary |= is(t[end++], "PRIMARY");
        blank(i, end);
        size_t u = nextSolid(t, first + 1);
        if (primary && !is(t[u], "UNIQUE")) t[first].text += " UNIQUE";
        break;
      }
    }
    return changed;
  }
  if (drop) return false;
  int depth = 0;
  std::vector<std::string> counters;  // fields made counters, lower-case
  bool counterOpen = false;  // inside the definition of a field made a counter
  for (size_t i = first; i < t.size(); ++i) {
    Token &k = t[i];
    if (k.text == "(") ++depth;
    if (k.text == ")") --depth;
    if ((k.text == "," && depth <= 1) || (!alter && depth < 1)) counterOpen = false;
    if (k.kind != Tok::kWord) continue;
    if ((is(k, "COUNTER") || is(k, "AUTOINCREMENT")) && isTypePosition(t, i)) {
      const Token &field = t[prevSolid(t, i)];
      counters.push_back(asciiLower(field.kind == Tok::kWord ? field.text : field.text.substr(1, field.text.size() - 2)));
      k.text = "INTEGER PRIMARY KEY AUTOINCREMENT";
      changed = true;
      size_t open = nextSolid(t, i + 1);  // COUNTER(seed, increment): SQLite starts at 1
      if (open < t.size() && t[open].text == "(") {
        size_t close = open;
        while (close < t.size() && t[close].text != ")") ++close;
        blank(open, close + 1);
      }
      counterOpen = true;
    } else if (is(k, "MEMO") && isTypePosition(t, i)) {
      k.text = "LONGTEXT";
      changed = true;
    } else if (counterOpen && is(k, "PRIMARY")) {
      size_t from = i, key = nextSolid(t, i + 1);
      size_t named = prevSolid(t, i);  // CONSTRAINT name PRIMARY KEY
      if (named < t.size()) {
        size_t constraint = prevSolid(t, named);
        if (constraint < t.size() && is(t[constraint], "CONSTRAINT")) from = constraint;
      }
      if (key < t.size() && is(t[key], "KEY")) blank(from, key + 1);
    }
  }
  // A table's [CONSTRAINT name] PRIMARY KEY (field) naming a counter goes too:
  // the counter is the key already.
  for (size_t i = first; i < t.size() && !counters.empty(); ++i) {
    if (!is(t[i], "PRIMARY")) continue;
    size_t key = nextSolid(t, i + 1), open = key < t.size() ? nextSolid(t, key + 1) : t.size();
    if (key >= t.size() || !is(t[key], "KEY") || open >= t.size() || t[open].text != "(") continue;
    size_t name = nextSolid(t, open + 1), close = name < t.size() ? nextSolid(t, name + 1) : t.size();
    if (close >= t.size() || t[close].text != ")" || !isNamePart(t[name])) continue;
    std::string field = asciiLower(t[name].kind == Tok::kWord ? t[name].text : t[name].text.substr(1, t[name].text.size() - 2));
    if (std::find(counters.begin(), counters.end(), field) == counters.end()) continue;
    size_t from = i, named = prevSolid(t, i);
    if (named < t.size() && prevSolid(t, named) < t.size() && is(t[prevSolid(t, named)], "CONSTRAINT"))
      from = prevSolid(t, named);
    size_t comma = prevSolid(t, from);
    if (comma < t.size() && t[comma].text == ",") from = comma;
    blank(from, close + 1);
  }
  return changed;
}

void markCaseInsensitive(std::vector<Token> &t, const std::vector<std::string> &textParams) {
  auto textParam = [&](size_t k) {
    if (k >= t.size() || (t[k].kind != Tok::kWord && t[k].kind != Tok::kBracket)) return false;
    std::string name = asciiLower(t[k].kind == Tok::kWord ? t[k].text : t[k].text.substr(1, t[k].text.size() - 2));
    for (const std::string &p : textParams)
      if (asciiLower(p) == name) return true;
    return false;
  };
  size_t first = nextSolid(t, 0);
  if (first >= t.size() || is(t[first], "CREATE") || is(t[first], "ALTER") || is(t[first], "DROP") ||
      is(t[first], "PRAGMA"))
    return;
  static const char *const kClauseEnds[] = {"WHERE", "JOIN", "INNER", "LEFT", "RIGHT", "GROUP", "ORDER", "HAVING",
                                            "LIMIT", "UNION", "EXCEPT", "INTERSECT", "ON", "SET", "FROM"};
  auto endsClause = [&](const Token &k) {
    if (k.kind == Tok::kPunct && (k.text == ")" || k.text == ";")) return true;
    for (const char *w : kClauseEnds)
      if (is(k, w)) return true;
    return false;
  };
  std::vector<size_t> marks;  // a COLLATE NOCASE goes after each of these tokens
  bool inOn = false, inSet = false;  // SET's "=" assigns, it compares nothing
  for (size_t i = 0; i < t.size(); ++i) {
    const Token &k = t[i];
    if (is(k, "SET")) inSet = true;
    if (is(k, "WHERE") || is(k, "FROM")) inSet = false;
    if (is(k, "ON")) {
      inOn = true;
      continue;
    }
    if (inOn && endsClause(k)) inOn = false;
    if (isComparison(k) && !inSet) {
      size_t before = i, after = nextSolid(t, i + 1);
      while (before > 0 && t[before - 1].kind == Tok::kSpace) --before;
      bool leftLiteral = before > 0 && t[before - 1].kind == Tok::kSQuote;
      if (after < t.size() && (t[after].kind == Tok::kSQuote || textParam(after)))
        marks.push_back(after);
      else if (leftLiteral || (before > 0 && textParam(before - 1)))
        marks.push_back(before - 1);
      else if (fieldRefEnd(t, after) > after && (inOn || (before > 0 && isNamePart(t[before - 1]))))
        marks.push_back(fieldRefEnd(t, after) - 1);  // field to field: text compares without case
    }
    if ((is(k, "ORDER") || is(k, "GROUP")) && nextSolid(t, i + 1) < t.size() && is(t[nextSolid(t, i + 1)], "BY")) {
      size_t j = nextSolid(t, i + 1) + 1;
      int depth = 0;
      for (;;) {  // one term per pass
        size_t start = nextSolid(t, j);
        size_t end = fieldRefEnd(t, start);
        size_t next = nextSolid(t, end);
        bool simple = end > start && (next >= t.size() || is(t[next], "ASC") || is(t[next], "DESC") ||
                                      t[next].text == "," || endsClause(t[next]));
        if (simple) marks.push_back(end - 1);
        // Skip to the comma that ends this term at its own depth, or the clause's end.
        size_t m = start;
        depth = 0;
        while (m < t.size()) {
          if (t[m].text == "(") ++depth;
          if (t[m].text == ")" && depth-- == 0) break;
          if (depth == 0 && (t[m].text == "," || t[m].text == ";" ||
                             (m != start && endsClause(t[m]) && t[m].kind == Tok::kWord)))
            break;
          ++m;
        }
        if (m >= t.size() || t[m].text != ",") break;
        j = m + 1;
      }
    }
  }
  // Insert from the back so that earlier indexes stay valid.
  std::sort(marks.begin(), marks.end());
  marks.erase(std::unique(marks.begin(), marks.end()), marks.end());
  for (auto it = marks.rbegin(); it != marks.rend(); ++it)
    t.insert(t.begin() + static_cast<long>(*it) + 1, Token{Tok::kOther, " COLLATE NOCASE"});
}

bool primaryIndexStatement(const std::string &sql, std::string *table, IndexSpec *index) {
  // Every statement passes here: only a CREATE is taken apart.
  size_t lead = sql.find_first_not_of(" \t\r\n");
  if (lead == std::string::npos || strncasecmp(sql.c_str() + lead, "CREATE", 6) != 0) return false;
  std::vector<Token> all = tokenize(sql);
  std::vector<const Token *> t;
  for (const Token &k : all)
    if (k.kind != Tok::kSpace) t.push_back(&k);
  while (!t.empty() && t.back()->text == ";") t.pop_back();
  auto name = [](const Token *k, std::string *out) {
    if (k->kind == Tok::kWord) *out = k->text;
    else if (k->kind == Tok::kBracket) *out = k->text.substr(1, k->text.size() - 2);
    else if (k->kind == Tok::kDQuote) *out = unquote(k->text);
    else return false;
    return !out->empty();
  };
  size_t i = 0;
  auto word = [&](const char *w) { return i < t.size() && is(*t[i], w) ? (++i, true) : false; };
  auto text = [&](const char *w) { return i < t.size() && t[i]->text == w ? (++i, true) : false; };
  IndexSpec key;
  if (!word("CREATE")) return false;
  key.unique = word("UNIQUE");
  if (!word("INDEX") || i >= t.size() || !name(t[i++], &key.name) || !word("ON") || i >= t.size() ||
      !name(t[i++], table) || !text("("))
    return false;
  do {
    std::string field;
    if (i >= t.size() || !name(t[i++], &field)) return false;
    bool desc = word("DESC");
    if (!desc) word("ASC");
    key.fields.push_back(field);
    key.descending.push_back(desc);
  } while (text(","));
  if (!text(")") || !word("WITH")) return false;
  while (i < t.size()) {
    if (word("PRIMARY")) key.primary = true;
    else if (word("DISALLOW") && word("NULL")) continue;
    else if (word("IGNORE") && word("NULL")) key.ignoreNulls = true;
    else return false;
  }
  if (!key.primary) return false;
  *index = std::move(key);
  return true;
}

namespace {
// How deep TOP n PERCENT translations are nested now, and how many the
// statement being translated has made (see the TOP branch below).
thread_local int percentDepth = 0;
thread_local int percentWork = 0;
}  // namespace

std::string rewriteAccessSql(const std::string &sql, const std::vector<std::string> &params,
                             const std::vector<std::string> &textParams, const std::set<std::string> &textFields) {
  if (percentDepth == 0) percentWork = 0;
  std::string joined = rewriteJoinedWrite(sql);
  std::vector<Token> t = tokenize(joined);
  bool defined = translateDefinition(t);
  defined |= translateIntegerDivision(t);
  markCaseInsensitive(t, textParams);
  bool marked = defined;
  for (const Token &k : t) marked |= k.kind == Tok::kOther && k.text == " COLLATE NOCASE";
  auto paramIndex = [&](const Token &k) {
    if (k.kind != Tok::kWord && k.kind != Tok::kBracket) return -1;
    std::string name = asciiLower(k.kind == Tok::kWord ? k.text : k.text.substr(1, k.text.size() - 2));
    for (size_t p = 0; p < params.size(); ++p)
      if (asciiLower(params[p]) == name) return static_cast<int>(p);
    return -1;
  };
  bool changed = marked || joined != sql;
  struct Pending {
    int depth;
    std::string limit;
  };
  std::vector<Pending> limits;  // TOP n waiting for the end of its SELECT
  int depth = 0;
  std::string out;
  auto closeLimits = [&](int atDepth) {
    while (!limits.empty() && limits.back().depth >= atDepth) {
      out += " LIMIT " + limits.back().limit;
      limits.pop_back();
    }
  };
  for (size_t i = 0; i < t.size(); ++i) {
    Token &k = t[i];
    if (k.kind == Tok::kPunct && k.text == "(") ++depth;
    if (k.kind == Tok::kPunct && (k.text == ")" || k.text == ";")) {
      closeLimits(k.text == ")" ? depth : 0);
      if (k.text == ")") --depth;
    }
    if (int p = paramIndex(k); p >= 0) {
      out += "?" + std::to_string(p + 1);
      changed = true;
    } else if (k.kind == Tok::kBracket) {
      out += quoteIdent(k.text.substr(1, k.text.size() - (k.text.back() == ']' ? 2 : 1)));
      changed = true;
    } else if (k.kind == Tok::kHashDate) {
      out += k.text;
      changed = true;
    } else if (k.kind == Tok::kPunct && k.text == "&") {
      out += "||";
      changed = true;
    } else if (k.kind == Tok::kPunct && k.text == "+" && plusJoinsText(t, i, textFields)) {
      out += "||";
      changed = true;
    } else if (int yes = yesNoConstant(t, i); yes != 0) {
      out += yes > 0 ? "(-1)" : "0";
      changed = true;
    } else if (is(k, "DATE") && nextSolid(t, i + 1) < t.size() && t[nextSolid(t, i + 1)].text == "(" &&
               nextSolid(t, nextSolid(t, i + 1) + 1) < t.size() &&
               t[nextSolid(t, nextSolid(t, i + 1) + 1)].text == ")") {
      out += "vt_date";  // Access's Date(): today; SQLite's date() is another function
      changed = true;
    } else if (isTrueConstant(t, i)) {
      out += "(-1)";  // in parentheses: "-True" must not become the comment "--1"
      changed = true;
    } else if (is(k, "DISTINCTROW")) {
      out += "DISTINCT";
      changed = true;
    } else if (is(k, "MOD") && !(nextSolid(t, i + 1) < t.size() && t[nextSolid(t, i + 1)].text == "(")) {
      out += "%";
      changed = true;
    } else if (is(k, "TOP") && nextSolid(t, i + 1) < t.size() &&
               t[nextSolid(t, i + 1)].kind == Tok::kNumber) {
      size_t num = nextSolid(t, i + 1);
      std::string limit = t[num].text;
      i = num;
      size_t pct = nextSolid(t, num + 1);
      // Each TOP n PERCENT translates the rest of its SELECT once more, and
      // a TOP PERCENT within that rest again. Past eight levels, or 64 such
      // translations for one statement, the rest is left as written, for
      // SQLite to refuse its syntax, rather than translated an exponential
      // number of times.
      if (pct < t.size() && is(t[pct], "PERCENT") && (percentDepth >= 8 || ++percentWork > 64)) {
        out += k.text;  // the number and PERCENT follow as they stand
        continue;
      }
      if (pct < t.size() && is(t[pct], "PERCENT")) {
        // TOP n PERCENT: n % of the rows the rest of this SELECT gives, rounded up.
        size_t from = t.size(), stop = t.size();
        int local = 0;
        for (size_t k = pct + 1; k < t.size(); ++k) {
          if (t[k].text == "(") ++local;
          if (t[k].text == ")" && local-- == 0) {
            stop = k;
            break;
          }
          if (local == 0 && from == t.size() && is(t[k], "FROM")) from = k;
          if (local == 0 && (t[k].text == ";" || is(t[k], "ORDER") || is(t[k], "UNION"))) {
            stop = k;
            break;
          }
        }
        std::string rest;
        for (size_t k = from; k < stop; ++k) rest += t[k].text;
        ++percentDepth;
        std::string counted = rewriteAccessSql("SELECT 1 " + rest, params, textParams, textFields);
        --percentDepth;
        limit = "(SELECT CAST(count(*) * " + t[num].text + " / 100.0 + 0.9999999 AS INTEGER) FROM (" + counted + "))";
        i = pct;
      }
      limits.push_back({depth, limit});
      changed = true;
    } else if ((is(k, "LEFT") || is(k, "RIGHT") || is(k, "FORMAT") || is(k, "ISNULL")) &&
               nextSolid(t, i + 1) < t.size() &&
               t[nextSolid(t, i + 1)].text == "(") {
      size_t arg = nextSolid(t, nextSolid(t, i + 1) + 1);
      bool sqliteFormat = is(k, "FORMAT") && arg < t.size() && t[arg].kind == Tok::kSQuote;
      out += sqliteFormat ? k.text : "vt_" + asciiLower(k.text);
      changed |= !sqliteFormat;
    } else if (is(k, "LIKE") && nextSolid(t, i + 1) < t.size() &&
               (t[nextSolid(t, i + 1)].kind == Tok::kSQuote || t[nextSolid(t, i + 1)].kind == Tok::kDQuote)) {
      size_t lit = nextSolid(t, i + 1);
      std::string pattern = unquote(t[lit].text);
      if (pattern.find_first_of("*?#[") == std::string::npos) {
        // `_` is a literal character in Access, with or without wildcards;
        // a pattern without Access's wildcards keeps SQLite's `%`.
        if (pattern.find('_') == std::string::npos) {
          out += k.text;
          continue;
        }
        std::string like;
        for (char c : pattern) like += c == '_' || c == '\\' ? std::string("\\") + c : std::string(1, c);
        out += "LIKE " + sqlString(like) + " ESCAPE '\\'";
        i = lit;
        changed = true;
        continue;
      }
      std::string like = likePattern(pattern);
      out += like.empty() ? "REGEXP " + sqlString(accessPatternToRegex(pattern))
                          : "LIKE " + sqlString(like) + " ESCAPE '\\'";
      i = lit;
      changed = true;
    } else if (is(k, "DELETE")) {
      out += k.text;
      size_t from = nextSolid(t, i + 1);
      while (from < t.size() && !is(t[from], "FROM") && from - i < 8) ++from;
      if (from < t.size() && is(t[from], "FROM") && nextSolid(t, i + 1) != from) {
        out += " ";
        i = from - 1;
        changed = true;
      }
    } else {
      out += k.text;
    }
  }
  closeLimits(0);
  return changed ? out : sql;
}

bool splitParameters(const std::string &sql, std::vector<std::string> *names, std::vector<std::string> *types,
                     std::string *body) {
  std::vector<Token> t = tokenize(sql);
  size_t i = nextSolid(t, 0);
  if (i >= t.size() || !is(t[i], "PARAMETERS")) {
    *body = sql;
    return true;
  }
  std::string name, type;
  bool haveName = false;
  for (i = i + 1; i < t.size(); ++i) {
    const Token &k = t[i];
    bool end = k.kind == Tok::kPunct && k.text == ";";
    if (end || (k.kind == Tok::kPunct && k.text == ",")) {
      if (!haveName) return false;
      names->push_back(name);
      while (!type.empty() && type.back() == ' ') type.pop_back();
      types->push_back(type);
      name.clear(), type.clear(), haveName = false;
      if (end) break;
    } else if (k.kind == Tok::kSpace) {
      if (!type.empty()) type += ' ';
    } else if (!haveName) {
      if (k.kind != Tok::kWord && k.kind != Tok::kBracket) return false;
      name = k.kind == Tok::kWord ? k.text : k.text.substr(1, k.text.size() - 2);
      haveName = true;
    } else {
      type += k.text;
    }
  }
  if (i >= t.size()) return false;  // no ";" ends the clause
  body->clear();
  for (++i; i < t.size(); ++i) body->append(t[i].text);
  return true;
}


namespace {

// Words that end a table's place in FROM: whatever follows a table name and
// is none of these is its alias.
bool endsTableTerm(const Token &k) {
  static const char *const kWords[] = {"WHERE", "INNER", "LEFT",  "RIGHT",  "OUTER",     "FULL",    "CROSS",
                                       "JOIN",  "ON",    "ORDER", "GROUP",  "HAVING",    "UNION",   "SET",
                                       "VALUES", "SELECT", "LIMIT", "EXCEPT", "INTERSECT", "NATURAL", "IN",
                                       "DEFAULT", "INDEXED", "NOT", "RETURNING", "WINDOW", "USING", "WITH"};
  for (const char *w : kWords)
    if (is(k, w)) return true;
  return false;
}

}  // namespace

std::string replaceTableNames(const std::string &sql,
                              const std::function<std::string(const TableName &)> &replace) {
  std::vector<Token> t = tokenize(sql);
  // The clause each parenthesis depth is in, so that a comma after FROM
  // names another table and one after SELECT does not.
  std::vector<bool> inFrom{false};
  bool changed = false;
  std::string out;
  for (size_t i = 0; i < t.size(); ++i) {
    const Token &k = t[i];
    if (k.kind == Tok::kPunct && k.text == "(") inFrom.push_back(false);
    if (k.kind == Tok::kPunct && k.text == ")" && inFrom.size() > 1) inFrom.pop_back();
    if (is(k, "FROM")) inFrom.back() = true;
    for (const char *w : {"SELECT", "WHERE", "GROUP", "ORDER", "HAVING", "SET", "VALUES", "ON", "UNION", "LIMIT"})
      if (is(k, w)) inFrom.back() = false;
    bool name = (k.kind == Tok::kWord && !is(k, "SELECT")) || k.kind == Tok::kBracket || k.kind == Tok::kDQuote;
    if (!name) {
      out += k.text;
      continue;
    }
    // What precedes the name: FROM, JOIN, INTO, UPDATE, a FROM list's comma,
    // or parentheses opened right after one of those.
    size_t p = prevSolid(t, i);
    if (p < t.size() && t[p].kind == Tok::kPunct && t[p].text == ",") {
      if (!inFrom.back()) p = t.size();
    } else {
      while (p < t.size() && t[p].kind == Tok::kPunct && t[p].text == "(") p = prevSolid(t, p);
    }
    TableName ref;
    bool target = p < t.size() && (is(t[p], "INTO") || is(t[p], "UPDATE"));
    bool source = p < t.size() && (is(t[p], "FROM") || is(t[p], "JOIN") || t[p].text == ",");
    size_t n = nextSolid(t, i + 1);
    bool qualified = n < t.size() && t[n].kind == Tok::kPunct && (t[n].text == "." || (!target && t[n].text == "("));
    if ((!target && !source) || qualified) {
      out += k.text;
      continue;
    }
    ref.name = k.kind == Tok::kWord ? k.text : k.text.substr(1, k.text.size() >= 2 ? k.text.size() - 2 : 0);
    ref.target = target;
    ref.aliased = n < t.size() && (is(t[n], "AS") || (isNamePart(t[n]) && !endsTableTerm(t[n])));
    std::string with = replace(ref);
    changed |= !with.empty();
    out += with.empty() ? k.text : with;
  }
  return changed ? out : sql;
}

}  // namespace vantry::engine::sqlite
