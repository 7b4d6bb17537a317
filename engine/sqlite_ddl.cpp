// Taking a CREATE TABLE text apart (sqlite_ddl.h). The tokens are SQLite's:
// words, quoted names ("x", [x], `x`), string literals, numbers, single
// punctuation, with comments skipped; parentheses are matched so that a
// part's commas inside a CHECK or a type's size do not split it.
#include "sqlite_ddl.h"

#include <cctype>

#include "sqlite_internal.h"

namespace vantry::engine::sqlite {
namespace {

struct Token {
  size_t begin = 0, end = 0;
  bool word = false;  // a bare word (keyword or name)
  char punct = 0;     // a single punctuation character, else 0
};

// Tokens of s[begin, end).
std::vector<Token> tokenize(const std::string &s, size_t begin, size_t end) {
  std::vector<Token> out;
  size_t i = begin;
  while (i < end) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (std::isspace(c)) {
      ++i;
      continue;
    }
    if (c == '-' && i + 1 < end && s[i + 1] == '-') {
      while (i < end && s[i] != '\n') ++i;
      continue;
    }
    if (c == '/' && i + 1 < end && s[i + 1] == '*') {
      size_t close = s.find("*/", i + 2);
      i = close == std::string::npos || close >= end ? end : close + 2;
      continue;
    }
    Token t;
    t.begin = i;
    if (c == '"' || c == '\'' || c == '`' || c == '[') {
      char closing = c == '[' ? ']' : static_cast<char>(c);
      ++i;
      while (i < end) {
        if (s[i] == closing) {
          if (closing != ']' && i + 1 < end && s[i + 1] == closing) {
            i += 2;
            continue;
          }
          ++i;
          break;
        }
        ++i;
      }
    } else if (std::isalnum(c) || c == '_' || c >= 0x80) {
      t.word = true;
      while (i < end) {
        unsigned char d = static_cast<unsigned char>(s[i]);
        if (!(std::isalnum(d) || d == '_' || d == '$' || d >= 0x80 || (d == '.' && std::isdigit(c)))) break;
        ++i;
      }
    } else {
      t.punct = static_cast<char>(c);
      ++i;
    }
    t.end = i;
    out.push_back(t);
  }
  return out;
}

std::string upper(std::string s) {
  for (char &c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

std::string trim(const std::string &s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return {};
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

// Index of the token after the group that opens at tokens[i] (a "(").
size_t skipGroup(const std::vector<Token> &tokens, size_t i) {
  int depth = 0;
  for (; i < tokens.size(); ++i) {
    if (tokens[i].punct == '(') ++depth;
    if (tokens[i].punct == ')' && --depth == 0) return i + 1;
  }
  return i;
}

// The names inside the group that opens at tokens[i], which moves past it.
std::vector<std::string> groupNames(const std::string &s, const std::vector<Token> &tokens, size_t *i) {
  std::vector<std::string> names;
  size_t end = skipGroup(tokens, *i);
  bool expectName = true;
  for (size_t k = *i + 1; k + 1 < end; ++k) {
    if (tokens[k].punct == ',') {
      expectName = true;
    } else if (expectName && !tokens[k].punct) {
      names.push_back(unquoteIdent(s.substr(tokens[k].begin, tokens[k].end - tokens[k].begin)));
      expectName = false;
    }
  }
  *i = end;
  return names;
}

bool isClauseStart(const std::string &word) {
  static const char *const kStarts[] = {"CONSTRAINT", "PRIMARY", "NOT",     "NULL",      "UNIQUE", "CHECK",
                                        "DEFAULT",    "COLLATE", "REFERENCES", "GENERATED", "AS"};
  for (const char *k : kStarts)
    if (word == k) return true;
  return false;
}

TablePart parseColumn(const std::string &s, const std::vector<Token> &tk) {
  TablePart col;
  col.isColumn = true;
  auto text = [&](size_t a, size_t b) { return s.substr(tk[a].begin, tk[b - 1].end - tk[a].begin); };
  auto word = [&](size_t k) {
    return k < tk.size() && tk[k].word ? upper(s.substr(tk[k].begin, tk[k].end - tk[k].begin)) : std::string();
  };
  col.nameText = text(0, 1);
  col.name = unquoteIdent(col.nameText);
  size_t i = 1;
  while (i < tk.size() && !isClauseStart(word(i))) i = tk[i].punct == '(' ? skipGroup(tk, i) : i + 1;
  if (i > 1) col.type = text(1, i);
  while (i < tk.size()) {
    size_t start = i;
    ColumnClause clause;
    if (word(i) == "CONSTRAINT" && i + 1 < tk.size()) {
      clause.constraintName = unquoteIdent(text(i + 1, i + 2));
      i += 2;
    }
    std::string w = word(i);
    clause.kind = w == "NOT" ? "NOTNULL" : w == "AS" ? "GENERATED" : w;
    ++i;
    if (w == "DEFAULT") {
      if (i < tk.size() && (tk[i].punct == '-' || tk[i].punct == '+')) ++i;
      if (i < tk.size()) i = tk[i].punct == '(' ? skipGroup(tk, i) : i + 1;
    } else if (w == "NOT") {
      ++i;  // NULL
    }
    if (w == "REFERENCES" && i < tk.size()) clause.refTable = unquoteIdent(text(i, i + 1));
    // The rest of the clause: up to the next clause's first word, keeping a
    // foreign key's NOT DEFERRABLE and a generated column's AS with it.
    while (i < tk.size()) {
      std::string next = word(i);
      bool keep = (w == "REFERENCES" && next == "NOT" && word(i + 1) == "DEFERRABLE") ||
                  (w == "GENERATED" && next == "AS");
      if (isClauseStart(next) && !keep) break;
      i = tk[i].punct == '(' ? skipGroup(tk, i) : i + 1;
    }
    clause.text = text(start, i);
    col.clauses.push_back(std::move(clause));
  }
  col.text = columnText(col);
  return col;
}

TablePart parsePart(const std::string &s, size_t begin, size_t end) {
  std::vector<Token> tk = tokenize(s, begin, end);
  TablePart part;
  if (tk.empty()) return part;
  auto word = [&](size_t k) {
    return k < tk.size() && tk[k].word ? upper(s.substr(tk[k].begin, tk[k].end - tk[k].begin)) : std::string();
  };
  size_t i = 0;
  std::string name;
  if (word(0) == "CONSTRAINT" && tk.size() > 2) {
    name = unquoteIdent(s.substr(tk[1].begin, tk[1].end - tk[1].begin));
    i = 2;
  }
  std::string w = word(i);
  if (w != "PRIMARY" && w != "UNIQUE" && w != "CHECK" && w != "FOREIGN") return parseColumn(s, tk);
  part.kind = w;
  part.constraintName = name;
  part.text = trim(s.substr(begin, end - begin));
  while (i < tk.size() && tk[i].punct != '(') ++i;
  if (w != "CHECK" && i < tk.size()) part.columns = groupNames(s, tk, &i);
  if (w == "FOREIGN") {
    while (i < tk.size() && word(i) != "REFERENCES") ++i;
    if (i + 1 < tk.size()) part.refTable = unquoteIdent(s.substr(tk[i + 1].begin, tk[i + 1].end - tk[i + 1].begin));
  }
  return part;
}

}  // namespace

std::string unquoteIdent(const std::string &text) {
  if (text.size() >= 2) {
    char a = text.front(), b = text.back();
    if ((a == '"' && b == '"') || (a == '`' && b == '`') || (a == '\'' && b == '\'')) {
      std::string out;
      for (size_t i = 1; i + 1 < text.size(); ++i) {
        out += text[i];
        if (text[i] == a && i + 2 < text.size() && text[i + 1] == a) ++i;
      }
      return out;
    }
    if (a == '[' && b == ']') return text.substr(1, text.size() - 2);
  }
  return text;
}

bool parseCreateTable(const std::string &sql, TableDdl *out) {
  std::vector<Token> tk = tokenize(sql, 0, sql.size());
  size_t open = 0;
  while (open < tk.size() && tk[open].punct != '(') ++open;
  if (open == tk.size()) return false;
  size_t close = skipGroup(tk, open);
  if (close == 0 || close > tk.size() || tk[close - 1].punct != ')') return false;
  TableDdl ddl;
  ddl.head = sql.substr(0, tk[open].end);
  ddl.tail = sql.substr(tk[close - 1].begin);
  size_t partBegin = tk[open].end;
  for (size_t i = open + 1; i < close; ++i) {
    if (tk[i].punct == '(') {
      i = skipGroup(tk, i) - 1;
      continue;
    }
    if (tk[i].punct == ',' || i == close - 1) {
      TablePart part = parsePart(sql, partBegin, tk[i].begin);
      if (part.isColumn || !part.kind.empty()) ddl.parts.push_back(std::move(part));
      partBegin = tk[i].end;
    }
  }
  *out = std::move(ddl);
  return true;
}

std::string columnText(const TablePart &column) {
  std::string out = column.nameText;
  if (!column.type.empty()) out += " " + column.type;
  for (const ColumnClause &c : column.clauses) out += " " + c.text;
  return out;
}

std::string createTableText(const TableDdl &ddl, const std::string &name) {
  std::string out = "CREATE TABLE " + quoteIdent(name) + " (";
  for (size_t i = 0; i < ddl.parts.size(); ++i) {
    const TablePart &p = ddl.parts[i];
    out += (i ? ", " : "") + (p.isColumn ? columnText(p) : p.text);
  }
  return out + ddl.tail;
}

void dropClauses(TablePart *column, const std::string &kind) {
  std::vector<ColumnClause> kept;
  for (ColumnClause &c : column->clauses)
    if (c.kind != kind) kept.push_back(std::move(c));
  column->clauses = std::move(kept);
}

}  // namespace vantry::engine::sqlite
