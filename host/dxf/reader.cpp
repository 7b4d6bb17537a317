// Reading an ASCII drawing file: the group pairs, the sections and the
// records, checked as they are read, before anything is made of them.
//
// Grammar (each item a group pair "code / value"):
//   file     := section* "0/EOF"
//   section  := "0/SECTION" "2/name" body "0/ENDSEC"
//   HEADER   := ("9/$NAME" group*)*
//   TABLES   := ("0/TABLE" group* record* "0/ENDTAB")*
//   BLOCKS   := ("0/BLOCK" group* record* "0/ENDBLK" group*)*
//   ENTITIES, OBJECTS := record*
//   record   := "0/TYPE" group*   (up to the next 0 group)
// Other sections (CLASSES, THUMBNAILIMAGE ...) are skipped whole.
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "dxf/internal.h"
#include "common/text.h"

namespace vantry::host {
namespace dxf {
namespace {

// Thrown inside the parser; caught once in parseDxf.
struct ParseError {
  std::wstring text;
};

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.back() == '\r' || s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  return s;
}

std::wstring quoted(std::string_view s) {
  if (s.size() > 40) s = s.substr(0, 40);
  return L"\"" + readText(s) + L"\"";
}

// Walks the group pairs of the text.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : text_(text) { next(); }
  int code() const { return code_; }
  std::string_view value() const { return value_; }
  int line() const { return line_; }  // of the code
  bool atEnd() const { return end_; }
  [[noreturn]] void fail(const std::wstring &what, int line = 0) const {
    throw ParseError{L"line " + std::to_wstring(line ? line : line_) + L": " + what};
  }
  void next() {
    std::string_view codeLine;
    if (!readLine(codeLine)) {
      end_ = true;
      code_ = -1;
      return;
    }
    line_ = lineNo_;
    std::string_view c = trim(codeLine);
    int v = 0;
    auto r = std::from_chars(c.data(), c.data() + c.size(), v);
    if (c.empty() || r.ec != std::errc() || r.ptr != c.data() + c.size())
      fail(L"expected a group code, found " + quoted(codeLine));
    std::string_view val;
    if (!readLine(val)) fail(L"the file ends after group code " + std::to_wstring(v) + L", before its value");
    if (!val.empty() && val.back() == '\r') val.remove_suffix(1);
    code_ = v;
    value_ = val;
  }
  bool is(int code, std::string_view value) const { return code_ == code && trim(value_) == value; }

 private:
  bool readLine(std::string_view &out) {
    if (pos_ >= text_.size()) return false;
    const char *start = text_.data() + pos_;
    const void *nl = std::memchr(start, '\n', text_.size() - pos_);
    size_t len = nl ? size_t(static_cast<const char *>(nl) - start) : text_.size() - pos_;
    out = std::string_view(start, len);
    pos_ += len + (nl ? 1 : 0);
    ++lineNo_;
    return true;
  }
  std::string_view text_;
  size_t pos_ = 0;
  int lineNo_ = 0;
  int line_ = 0;
  int code_ = -1;
  std::string_view value_;
  bool end_ = false;
};

class Parser {
 public:
  Parser(std::string_view text, Drawing &d)
      : c_(text), d_(d), handleLimit_(64 * uint64_t(text.size()) + 65536) {}
  void file();

 private:
  void expectMore() const {
    if (c_.atEnd()) c_.fail(L"the file ends without EOF", lastLine_);
  }
  void advance() {
    lastLine_ = c_.line() + 1;
    c_.next();
  }
  void header();
  void tables();
  void blocks();
  void records(std::vector<Record> &out, std::string_view end);
  // The record at a 0 group, with the groups up to the next 0 group.
  Record record();
  // Collects the VERTEX/ATTRIB records up to SEQEND that follow a record.
  void subRecords(Record &r, bool required);
  void skipSection();
  double real(int code, std::string_view v) const;
  int64_t integer(int code, std::string_view v) const;
  uint64_t handle(int code, std::string_view v);
  void xdataItem(Record &r, resbuf **&tail);
  void seeHandle(uint64_t h) {
    if (h > d_.maxHandle) d_.maxHandle = h;
  }

  Cursor c_;
  Drawing &d_;
  uint64_t handleLimit_;
  int lastLine_ = 0;
};

double Parser::real(int code, std::string_view v) const {
  std::string_view t = trim(v);
  double out = 0;
  const char *b = t.data(), *e = t.data() + t.size();
  if (!t.empty() && *b == '+') ++b;
  auto r = std::from_chars(b, e, out);
  if (t.empty() || r.ec != std::errc() || r.ptr != e || !std::isfinite(out))
    c_.fail(L"expected a number for group code " + std::to_wstring(code) + L", found " + quoted(v),
            c_.line() + 1);
  return out;
}

int64_t Parser::integer(int code, std::string_view v) const {
  std::string_view t = trim(v);
  int64_t out = 0;
  const char *b = t.data(), *e = t.data() + t.size();
  if (!t.empty() && *b == '+') ++b;
  auto r = std::from_chars(b, e, out);
  if (t.empty() || r.ec != std::errc() || r.ptr != e)
    c_.fail(L"expected an integer for group code " + std::to_wstring(code) + L", found " + quoted(v),
            c_.line() + 1);
  return out;
}

uint64_t Parser::handle(int code, std::string_view v) {
  std::string_view t = trim(v);
  uint64_t out = 0;
  auto r = std::from_chars(t.data(), t.data() + t.size(), out, 16);
  if (t.empty() || r.ec != std::errc() || r.ptr != t.data() + t.size())
    c_.fail(L"expected a handle for group code " + std::to_wstring(code) + L", found " + quoted(v),
            c_.line() + 1);
  // Handles may run sparse, but not without bound: the store gets a stub
  // for every handle up to the largest.
  if (out > handleLimit_)
    c_.fail(L"the handle " + readText(t) + L" is beyond any this file could hold", c_.line() + 1);
  seeHandle(out);
  return out;
}

void Parser::file() {
  while (true) {
    expectMore();
    if (c_.is(0, "EOF")) return;
    if (!c_.is(0, "SECTION")) c_.fail(L"expected SECTION or EOF, found " + quoted(c_.value()));
    advance();
    expectMore();
    if (c_.code() != 2)
      c_.fail(L"expected the section's name (group 2), found group " + std::to_wstring(c_.code()));
    std::string name(trim(c_.value()));
    advance();
    if (name == "HEADER")
      header();
    else if (name == "TABLES")
      tables();
    else if (name == "BLOCKS")
      blocks();
    else if (name == "ENTITIES")
      records(d_.entities, "ENDSEC");
    else if (name == "OBJECTS")
      records(d_.objects, "ENDSEC");
    else
      skipSection();
    expectMore();
    advance();  // ENDSEC
  }
}

void Parser::skipSection() {
  while (expectMore(), !c_.is(0, "ENDSEC")) advance();
}

void Parser::header() {
  while (expectMore(), !c_.is(0, "ENDSEC")) {
    if (c_.code() != 9)
      c_.fail(L"expected a header variable (group 9), found group " + std::to_wstring(c_.code()));
    std::wstring name = readText(trim(c_.value()));
    advance();
    bool first = true;
    while (expectMore(), c_.code() != 9 && c_.code() != 0) {
      if (first) {
        AcDbDxfFiler::Item it;
        it.code = c_.code();
        switch (groupKind(c_.code())) {
          case Kind::Real:
            it.real[0] = real(c_.code(), c_.value());
            break;
          case Kind::Int:
            it.integer = integer(c_.code(), c_.value());
            break;
          case Kind::Handle:
            it.integer = int64_t(handle(c_.code(), c_.value()));
            break;
          default:
            it.text = readText(c_.value());
        }
        d_.header[name] = it;
        first = false;
      }
      advance();
    }
  }
  auto seed = d_.header.find(L"$HANDSEED");
  if (seed != d_.header.end() && seed->second.integer > 0) seeHandle(uint64_t(seed->second.integer) - 1);
}

void Parser::tables() {
  while (expectMore(), !c_.is(0, "ENDSEC")) {
    if (!c_.is(0, "TABLE")) c_.fail(L"expected TABLE, found " + quoted(c_.value()));
    Table t;
    t.head = record();
    t.head.fields.getString(2, t.name);
    records(t.records, "ENDTAB");
    advance();  // ENDTAB
    while (expectMore(), c_.code() != 0) advance();
    d_.tables.push_back(std::move(t));
  }
}

void Parser::blocks() {
  while (expectMore(), !c_.is(0, "ENDSEC")) {
    if (!c_.is(0, "BLOCK")) c_.fail(L"expected BLOCK, found " + quoted(c_.value()));
    Block b;
    b.begin = record();
    records(b.entities, "ENDBLK");
    record();  // ENDBLK and its groups
    d_.blocks.push_back(std::move(b));
  }
}

void Parser::records(std::vector<Record> &out, std::string_view end) {
  while (expectMore(), !c_.is(0, end)) {
    if (c_.code() != 0) c_.fail(L"expected a 0 group, found group " + std::to_wstring(c_.code()));
    if (c_.is(0, "ENDSEC") || c_.is(0, "EOF"))
      c_.fail(L"expected " + readText(end) + L" before " + quoted(c_.value()));
    Record r = record();
    if (r.type == L"POLYLINE") {
      subRecords(r, true);
    } else if (r.type == L"INSERT") {
      int64_t follow = 0;
      r.fields.getInt(66, follow);
      if (follow) subRecords(r, true);
    }
    out.push_back(std::move(r));
  }
}

void Parser::subRecords(Record &r, bool required) {
  while (expectMore(), c_.is(0, "VERTEX") || c_.is(0, "ATTRIB")) r.subs.push_back(record());
  if (c_.is(0, "SEQEND")) {
    r.subs.push_back(record());
  } else if (required) {
    c_.fail(L"the " + r.type + L" of line " + std::to_wstring(r.line) + L" has no SEQEND");
  }
}

// Fields go into the filer in the file's form; points gather their 20 and
// 30 groups; extended data from the first 1001 on goes into a chain.
Record Parser::record() {
  Record r;
  r.type = readText(trim(c_.value()));
  r.line = c_.line();
  advance();
  bool marker = false;  // a 100 group was seen: later 330 groups are fields
  resbuf **tail = &r.xdata;
  while (expectMore(), c_.code() != 0) {
    int code = c_.code();
    std::string_view v = c_.value();
    if (code >= 1000) {
      xdataItem(r, tail);
      continue;
    }
    if (r.xdata) c_.fail(L"group " + std::to_wstring(code) + L" after the extended data");
    // A dimension style's handle is 105: its 5 names the arrow block.
    if (code == 105 || (code == 5 && r.type != L"DIMSTYLE")) {
      r.handle = handle(code, v);
      advance();
      continue;
    }
    if (code == 102) {
      std::string_view name = trim(v);
      if (name.empty() || name[0] != '{') c_.fail(L"expected a 102 group opening with {, found " + quoted(v));
      int open = c_.line();
      advance();
      while (expectMore(), !(c_.code() == 102 && trim(c_.value()) == "}")) {
        if (c_.code() == 0 || c_.code() == 102)
          c_.fail(L"the 102 group opened at line " + std::to_wstring(open) + L" is not closed");
        if (c_.code() == 330 && name == "{ACAD_REACTORS") r.reactors.push_back(handle(330, c_.value()));
        if (c_.code() == 360 && name == "{ACAD_XDICTIONARY") r.xdict = handle(360, c_.value());
        advance();
      }
      advance();
      continue;
    }
    if (code == 330 && !marker && !r.hasOwner) {
      r.owner = handle(code, v);
      r.hasOwner = true;
      advance();
      continue;
    }
    if (code == 100) marker = true;
    AcDbDxfFiler::Item it;
    it.code = code;
    switch (groupKind(code)) {
      case Kind::Real:
        it.real[0] = real(code, v);
        // A point: x at 10-18, 110-112, 210; y and z 10 and 20 codes above.
        if ((code >= 10 && code <= 18) || (code >= 110 && code <= 112) || code == 210) {
          it.dims = 1;
          advance();
          if (!c_.atEnd() && c_.code() == code + 10) {
            it.real[1] = real(code + 10, c_.value());
            it.dims = 2;
            advance();
            if (!c_.atEnd() && c_.code() == code + 20) {
              it.real[2] = real(code + 20, c_.value());
              it.dims = 3;
              advance();
            }
          }
          if (it.dims == 1) it.dims = 0;  // a lone x: a plain real
          r.fields.items().push_back(std::move(it));
          continue;
        }
        break;
      case Kind::Int:
        it.integer = integer(code, v);
        break;
      case Kind::Handle:
        if (code == 5) {  // a dimension style's arrow block
          it.text = readText(v);
          break;
        }
        it.integer = int64_t(handle(code, v));
        it.text = readText(trim(v));
        break;
      case Kind::Text:
      case Kind::Binary:
        it.text = readText(v);
        break;
    }
    r.fields.items().push_back(std::move(it));
    advance();
  }
  return r;
}

void Parser::xdataItem(Record &r, resbuf **&tail) {
  int code = c_.code();
  std::string_view v = c_.value();
  if (!r.xdata && code != 1001)
    c_.fail(L"extended data must start with group 1001, found group " + std::to_wstring(code));
  resbuf *rb = nullptr;
  if (code == 1004) {
    std::string_view t = trim(v);
    if (t.size() % 2 || t.size() > 254) c_.fail(L"a binary chunk of group 1004 is not valid: " + quoted(v));
    rb = acutNewRb(1004);
    rb->resval.rbinary.clen = short(t.size() / 2);
    rb->resval.rbinary.buf = static_cast<char *>(std::malloc(t.size() / 2 + 1));
    for (size_t i = 0; i + 1 < t.size(); i += 2) {
      unsigned b = 0;
      auto res = std::from_chars(t.data() + i, t.data() + i + 2, b, 16);
      if (res.ec != std::errc() || res.ptr != t.data() + i + 2) {
        acutRelRb(rb);
        c_.fail(L"a binary chunk of group 1004 is not valid: " + quoted(v));
      }
      rb->resval.rbinary.buf[i / 2] = char(b);
    }
    advance();
  } else if (code >= 1010 && code <= 1013) {
    rb = acutNewRb(code);
    rb->resval.rpoint[0] = real(code, v);
    advance();
    for (int k = 1; k <= 2; ++k) {
      if (!c_.atEnd() && c_.code() == code + 10 * k) {
        rb->resval.rpoint[k] = real(c_.code(), c_.value());
        advance();
      }
    }
  } else {
    switch (rbKind(code)) {
      case RbKind::String: {
        rb = acutNewRb(code);
        std::wstring s = readText(v);
        acutNewString(s.c_str(), rb->resval.rstring);
        break;
      }
      case RbKind::Real:
        rb = acutNewRb(code);
        rb->resval.rreal = real(code, v);
        break;
      case RbKind::Short:
        rb = acutNewRb(code);
        rb->resval.rint = short(integer(code, v));
        break;
      case RbKind::Long:
        rb = acutNewRb(code);
        rb->resval.rlong = int32_t(integer(code, v));
        break;
      default:
        c_.fail(L"group " + std::to_wstring(code) + L" cannot be extended data");
    }
    advance();
  }
  *tail = rb;
  tail = &rb->rbnext;
}

}  // namespace

bool parseDxf(std::string_view text, Drawing &out, std::wstring *error) {
  try {
    Parser(text, out).file();
  } catch (const ParseError &e) {
    if (error) *error = e.text;
    return false;
  }
  return true;
}

}  // namespace dxf

Acad::ErrorStatus openDxf(const std::string &path, AcDbDatabase *into, std::wstring *error) {
  auto fail = [&](Acad::ErrorStatus es, const std::wstring &why) {
    if (error) *error = why;
    return es;
  };
  if (!into) return fail(Acad::eNullObjectPointer, L"no drawing to read into");
  std::ifstream f(path, std::ios::binary);
  if (!f) {
    int e = errno;
    return fail(e == ENOENT ? Acad::eFileNotFound : Acad::eFileAccessErr,
                L"cannot read " + text::fromUtf8(path) + L": " + text::fromUtf8(std::strerror(e)));
  }
  std::string text;
  f.seekg(0, std::ios::end);
  std::streamoff size = f.tellg();
  if (size < 0) return fail(Acad::eFileAccessErr, L"cannot read " + text::fromUtf8(path));
  f.seekg(0);
  text.resize(size_t(size));
  if (size > 0 && !f.read(text.data(), size))
    return fail(Acad::eFileAccessErr, L"cannot read " + text::fromUtf8(path));
  if (text.find('\0') != std::string::npos)
    return fail(Acad::eDxfReadAborted, L"line 1: not an ASCII drawing file (binary data)");

  dxf::Drawing drawing;
  std::wstring why;
  if (!dxf::parseDxf(text, drawing, &why)) return fail(Acad::eDxfReadAborted, why);
  text.clear();
  text.shrink_to_fit();
  if (!dxf::emptyDatabase(into)) return fail(Acad::eWasOpenForWrite, L"an object of the drawing is open");
  std::map<std::wstring, int> skipped;
  Acad::ErrorStatus es = dxf::buildDrawing(drawing, into, skipped, &why);
  if (es != Acad::eOk) {
    dxf::emptyDatabase(into);
    dxf::completeDatabase(into);
    return fail(es, why);
  }
  dxf::completeDatabase(into);
  std::wstring note;
  for (const auto &[type, n] : skipped)
    note += (note.empty() ? L"skipped " : L", ") + std::to_wstring(n) + L" " + type;
  if (error) *error = note;
  return Acad::eOk;
}

}  // namespace vantry::host
