// Reading an ASCII drawing file: the group pairs, the sections and the
// records, checked as they are read, before anything is made of them.
//
// Grammar (each item a group pair "code / value"):
//   file     := section* "0/EOF"
//   section  := "0/SECTION" "2/name" body "0/ENDSEC"
//   HEADER   := ("9/$NAME" group*)*
//   TABLES   := ("0/TABLE" group* record* "0/ENDTAB")*
//   BLOCKS   := ("0/BLOCK" group* record* "0/ENDBLK" group*)*
//   CLASSES, ENTITIES, OBJECTS := record*
//   record   := "0/TYPE" group*   (up to the next 0 group)
// Other sections (THUMBNAILIMAGE, ACDSDATA ...) are skipped whole.
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

// Walks the group pairs of the text. A line where a group code belongs that
// is not one is dropped, with the lines after it up to the next that is,
// and noted.
class Cursor {
 public:
  Cursor(std::string_view text, std::vector<std::wstring> &notes) : text_(text), notes_(notes) { next(); }
  int code() const { return code_; }
  std::string_view value() const { return value_; }
  int line() const { return line_; }  // of the code
  bool atEnd() const { return end_; }
  [[noreturn]] void fail(const std::wstring &what, int line = 0) const {
    throw ParseError{L"line " + std::to_wstring(line ? line : line_) + L": " + what};
  }
  void next() {
    int firstBad = 0, lastBad = 0;
    std::string_view bad;
    while (true) {
      std::string_view codeLine;
      if (!readLine(codeLine)) {
        end_ = true;
        code_ = -1;
        break;
      }
      std::string_view c = trim(codeLine);
      int v = 0;
      auto r = std::from_chars(c.data(), c.data() + c.size(), v);
      if (c.empty() || r.ec != std::errc() || r.ptr != c.data() + c.size() || v < 0 || v > 1071) {
        if (!firstBad) firstBad = lineNo_, bad = codeLine;
        lastBad = lineNo_;
        continue;
      }
      line_ = lineNo_;
      std::string_view val;
      if (!readLine(val)) {
        notes_.push_back(L"line " + std::to_wstring(line_) + L": the file ends after group code " +
                         std::to_wstring(v) + L", before its value");
        end_ = true;
        code_ = -1;
        break;
      }
      if (!val.empty() && val.back() == '\r') val.remove_suffix(1);
      if (v == 999) continue;  // a comment
      code_ = v;
      value_ = val;
      break;
    }
    if (firstBad) {
      std::wstring where = firstBad == lastBad ? L"line " + std::to_wstring(firstBad)
                                               : L"lines " + std::to_wstring(firstBad) + L"-" +
                                                     std::to_wstring(lastBad);
      notes_.push_back(where + L": dropped, expected a group code, found " + quoted(bad));
    }
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
  std::vector<std::wstring> &notes_;
  size_t pos_ = 0;
  int lineNo_ = 0;
  int line_ = 0;
  int code_ = -1;
  std::string_view value_;
  bool end_ = false;
};

// A value that does not read as its code's kind: the group is dropped.
struct BadValue {};

class Parser {
 public:
  Parser(std::string_view text, Drawing &d)
      : c_(text, d.notes), d_(d), handleLimit_(64 * uint64_t(text.size()) + 65536) {}
  void file();

 private:
  void note(int line, const std::wstring &what) {
    d_.notes.push_back(L"line " + std::to_wstring(line) + L": " + what);
  }
  void advance() {
    lastLine_ = c_.line() + 1;
    c_.next();
  }
  // Where a section's contents stop: its ENDSEC, or where the next section
  // or the end of the file shows that ENDSEC is missing.
  bool sectionEnd() const {
    return c_.atEnd() || c_.is(0, "ENDSEC") || c_.is(0, "EOF") || c_.is(0, "SECTION");
  }
  // Drops the groups up to the next 0 group, noting them as one run.
  void dropToNextRecord(const std::wstring &why) {
    int from = c_.line();
    while (!c_.atEnd() && c_.code() != 0) advance();
    note(from, L"dropped the groups up to line " + std::to_wstring(c_.atEnd() ? lastLine_ : c_.line() - 1) +
                   L": " + why);
  }
  void header();
  void tables();
  void blocks();
  // Records up to the 0 group `end`; false when the section (or `alsoStop`)
  // ended them first.
  bool records(std::vector<Record> &out, std::string_view end, std::string_view alsoStop = {});
  // The record at a 0 group, with the groups up to the next 0 group.
  Record record();
  // Collects the VERTEX/ATTRIB records up to SEQEND that follow a record.
  void subRecords(Record &r);
  void skipSection();
  double real(int code, std::string_view v);
  int64_t integer(int code, std::string_view v);
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

double Parser::real(int code, std::string_view v) {
  std::string_view t = trim(v);
  double out = 0;
  const char *b = t.data(), *e = t.data() + t.size();
  if (!t.empty() && *b == '+') ++b;
  auto r = std::from_chars(b, e, out);
  if (t.empty() || r.ec != std::errc() || r.ptr != e || !std::isfinite(out)) {
    note(c_.line() + 1, L"dropped group " + std::to_wstring(code) + L": expected a number, found " + quoted(v));
    throw BadValue{};
  }
  return out;
}

int64_t Parser::integer(int code, std::string_view v) {
  std::string_view t = trim(v);
  int64_t out = 0;
  const char *b = t.data(), *e = t.data() + t.size();
  if (!t.empty() && *b == '+') ++b;
  auto r = std::from_chars(b, e, out);
  if (t.empty() || r.ec != std::errc() || r.ptr != e) {
    note(c_.line() + 1, L"dropped group " + std::to_wstring(code) + L": expected an integer, found " + quoted(v));
    throw BadValue{};
  }
  return out;
}

uint64_t Parser::handle(int code, std::string_view v) {
  std::string_view t = trim(v);
  uint64_t out = 0;
  auto r = std::from_chars(t.data(), t.data() + t.size(), out, 16);
  if (t.empty() || r.ec != std::errc() || r.ptr != t.data() + t.size()) {
    note(c_.line() + 1, L"dropped group " + std::to_wstring(code) + L": expected a handle, found " + quoted(v));
    throw BadValue{};
  }
  // Handles may run sparse, but not without bound: the store gets a stub
  // for every handle up to the largest.
  if (out > handleLimit_) {
    note(c_.line() + 1, L"dropped group " + std::to_wstring(code) + L": the handle " + readText(t) +
                            L" is beyond any this file could hold");
    throw BadValue{};
  }
  seeHandle(out);
  return out;
}

void Parser::file() {
  bool sections = false, eof = false;
  while (!c_.atEnd()) {
    if (c_.is(0, "EOF")) {
      eof = true;
      break;
    }
    if (!c_.is(0, "SECTION")) {
      if (!sections) c_.fail(L"not a drawing file: expected SECTION, found " + quoted(c_.value()));
      int from = c_.line();
      while (!c_.atEnd() && !c_.is(0, "SECTION") && !c_.is(0, "EOF")) advance();
      note(from, L"dropped the groups up to line " + std::to_wstring(c_.atEnd() ? lastLine_ : c_.line() - 1) +
                     L": they are outside any section");
      continue;
    }
    sections = true;
    int at = c_.line();
    advance();
    if (c_.atEnd()) break;
    if (c_.code() != 2) {
      note(at, L"dropped a section without a name (group 2)");
      skipSection();
    } else {
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
      else if (name == "CLASSES")
        records(d_.classes, "ENDSEC");
      else
        skipSection();
    }
    if (c_.is(0, "ENDSEC"))
      advance();
    else
      note(c_.atEnd() ? lastLine_ : c_.line(), L"the section of line " + std::to_wstring(at) + L" has no ENDSEC");
  }
  if (!sections) c_.fail(L"not a drawing file: no SECTION", 1);
  if (!eof) note(lastLine_, L"the file ends without EOF; what came before is kept");
}

void Parser::skipSection() {
  while (!sectionEnd()) advance();
}

void Parser::header() {
  while (!sectionEnd()) {
    if (c_.code() != 9) {
      int from = c_.line();
      while (!sectionEnd() && c_.code() != 9) advance();
      note(from, L"dropped the header groups up to line " + std::to_wstring(c_.atEnd() ? lastLine_ : c_.line() - 1) +
                     L": they belong to no variable (group 9)");
      continue;
    }
    std::wstring name = readText(trim(c_.value()));
    advance();
    bool first = true;
    while (!c_.atEnd() && c_.code() != 9 && c_.code() != 0) {
      if (first) {
        AcDbDxfFiler::Item it;
        it.code = c_.code();
        try {
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
        } catch (const BadValue &) {
        }
        first = false;
      } else if (int c = c_.code(); c >= 20 && c <= 39 && (c % 10) < 9) {
        // The further coordinates of a point variable (10 20 30).
        auto found = d_.header.find(name);
        if (found != d_.header.end() && found->second.code == c % 10 + 10 && groupKind(c) == Kind::Real) {
          try {
            int axis = c / 10 - 1;
            found->second.real[axis] = real(c, c_.value());
            found->second.dims = std::max(found->second.dims, axis + 1 < 2 ? 2 : axis + 1);
          } catch (const BadValue &) {
          }
        }
      }
      advance();
    }
  }
  auto seed = d_.header.find(L"$HANDSEED");
  if (seed != d_.header.end() && seed->second.integer > 0 && uint64_t(seed->second.integer) <= handleLimit_)
    seeHandle(uint64_t(seed->second.integer) - 1);
}

void Parser::tables() {
  while (!sectionEnd()) {
    if (!c_.is(0, "TABLE")) {
      if (c_.code() == 0 && !c_.is(0, "ENDTAB")) {
        // A record outside any table: dropped whole.
        int at = c_.line();
        std::wstring type = readText(trim(c_.value()));
        advance();
        while (!c_.atEnd() && c_.code() != 0) advance();
        note(at, L"dropped the " + type + L" outside any table");
      } else if (c_.code() == 0) {
        advance();
      } else {
        dropToNextRecord(L"they belong to no table");
      }
      continue;
    }
    Table t;
    t.head = record();
    t.head.fields.getString(2, t.name);
    if (records(t.records, "ENDTAB", "TABLE")) {
      advance();  // ENDTAB
      while (!c_.atEnd() && c_.code() != 0) advance();
    } else {
      note(t.head.line, L"the TABLE " + t.name + L" has no ENDTAB; its records are kept");
    }
    d_.tables.push_back(std::move(t));
  }
}

void Parser::blocks() {
  while (!sectionEnd()) {
    if (!c_.is(0, "BLOCK")) {
      if (c_.code() == 0) {
        int at = c_.line();
        std::wstring type = readText(trim(c_.value()));
        advance();
        while (!c_.atEnd() && c_.code() != 0) advance();
        note(at, L"dropped the " + type + L" outside any block");
      } else {
        dropToNextRecord(L"they belong to no block");
      }
      continue;
    }
    Block b;
    b.begin = record();
    if (records(b.entities, "ENDBLK", "BLOCK"))
      b.end = record();
    else
      note(b.begin.line, L"the BLOCK has no ENDBLK; its entities are kept");
    d_.blocks.push_back(std::move(b));
  }
}

bool Parser::records(std::vector<Record> &out, std::string_view end, std::string_view alsoStop) {
  while (true) {
    if (c_.is(0, end)) return true;
    if (sectionEnd() || (!alsoStop.empty() && c_.is(0, alsoStop))) return false;
    if (c_.code() != 0) {
      dropToNextRecord(L"they belong to no record");
      continue;
    }
    Record r = record();
    if (r.type == L"POLYLINE") {
      subRecords(r);
    } else if (r.type == L"INSERT") {
      int64_t follow = 0;
      r.fields.getInt(66, follow);
      if (follow || c_.is(0, "ATTRIB")) subRecords(r);
    }
    out.push_back(std::move(r));
  }
}

void Parser::subRecords(Record &r) {
  while (c_.is(0, "VERTEX") || c_.is(0, "ATTRIB")) r.subs.push_back(record());
  if (c_.is(0, "SEQEND"))
    r.subs.push_back(record());
  else
    note(r.line, L"the " + r.type + L" has no SEQEND; one is added");
}

// Fields go into the filer in the file's form; points gather their 20 and
// 30 groups; extended data from the first 1001 on goes into a chain (an
// XRECORD's groups of 1000 and up are its data). A group that does not read
// is dropped and noted; the record stays.
Record Parser::record() {
  Record r;
  r.type = readText(trim(c_.value()));
  r.line = c_.line();
  advance();
  bool marker = false;  // a 100 group was seen: later 330 groups are fields
  bool xrecord = r.type == L"XRECORD";
  resbuf **tail = &r.xdata;
  while (!c_.atEnd() && c_.code() != 0) {
    int code = c_.code();
    std::string_view v = c_.value();
    try {
      if (code >= 1000 && !xrecord) {
        if (code == 1001 || r.xdata) {
          xdataItem(r, tail);
          continue;
        }
        note(c_.line(), L"dropped group " + std::to_wstring(code) +
                            L": extended data must start with its application (group 1001)");
        advance();
        continue;
      }
      // A dimension style's handle is 105: its 5 names the arrow block.
      // After a subclass marker a 5 is a field (a SORTENTSTABLE's sort
      // handles), not the record's handle.
      if (code == 105 || (code == 5 && r.type != L"DIMSTYLE" && !marker)) {
        r.handle = 0;
        r.handle = handle(code, v);
        advance();
        continue;
      }
      // 102 groups: "{NAME" ... "}" around the reactors, the extension
      // dictionary or an application's data; some objects also carry a 102
      // group holding a plain string, which is a field like any other.
      if (code == 102 && !trim(v).empty() && trim(v)[0] == '{') {
        std::string name(trim(v));
        int open = c_.line();
        advance();
        while (!c_.atEnd() && !(c_.code() == 102 && trim(c_.value()) == "}")) {
          if (c_.code() == 0) {
            note(open, L"the 102 group is not closed; it ends at line " + std::to_wstring(c_.line()));
            break;
          }
          try {
            if (c_.code() == 330 && name == "{ACAD_REACTORS") r.reactors.push_back(handle(330, c_.value()));
            if (c_.code() == 360 && name == "{ACAD_XDICTIONARY") r.xdict = handle(360, c_.value());
          } catch (const BadValue &) {
          }
          advance();
        }
        if (!c_.atEnd() && c_.code() != 0) advance();
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
          // A point: x at 10-18, 110-112, 210, 1010-1013 (an XRECORD's);
          // y and z 10 and 20 codes above.
          if ((code >= 10 && code <= 18) || (code >= 110 && code <= 112) || code == 210 ||
              (code >= 1010 && code <= 1013)) {
            it.dims = 1;
            advance();
            try {
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
            } catch (const BadValue &) {
              advance();
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
          if (code == 5) {  // a dimension style's arrow block, a sort handle
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
    } catch (const BadValue &) {
      advance();
    }
  }
  return r;
}

void Parser::xdataItem(Record &r, resbuf **&tail) {
  int code = c_.code();
  std::string_view v = c_.value();
  resbuf *rb = nullptr;
  if (code == 1004) {
    std::string_view t = trim(v);
    bool ok = t.size() % 2 == 0 && t.size() <= 254;
    if (ok) {
      rb = acutNewRb(1004);
      rb->resval.rbinary.clen = short(t.size() / 2);
      rb->resval.rbinary.buf = static_cast<char *>(std::malloc(t.size() / 2 + 1));
      for (size_t i = 0; ok && i + 1 < t.size(); i += 2) {
        unsigned b = 0;
        auto res = std::from_chars(t.data() + i, t.data() + i + 2, b, 16);
        ok = res.ec == std::errc() && res.ptr == t.data() + i + 2;
        rb->resval.rbinary.buf[i / 2] = char(b);
      }
    }
    if (!ok) {
      acutRelRb(rb);
      note(c_.line() + 1, L"dropped group 1004: not a binary chunk, found " + quoted(v));
      throw BadValue{};
    }
    advance();
  } else if (code >= 1010 && code <= 1013) {
    double x = real(code, v);
    rb = acutNewRb(code);
    rb->resval.rpoint[0] = x;
    advance();
    for (int k = 1; k <= 2; ++k) {
      if (!c_.atEnd() && c_.code() == code + 10 * k) {
        try {
          rb->resval.rpoint[k] = real(c_.code(), c_.value());
        } catch (const BadValue &) {
        }
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
      case RbKind::Real: {
        double d = real(code, v);
        rb = acutNewRb(code);
        rb->resval.rreal = d;
        break;
      }
      case RbKind::Short: {
        int64_t i = integer(code, v);
        rb = acutNewRb(code);
        rb->resval.rint = short(i);
        break;
      }
      case RbKind::Long: {
        int64_t i = integer(code, v);
        rb = acutNewRb(code);
        rb->resval.rlong = int32_t(i);
        break;
      }
      default:
        note(c_.line(), L"dropped group " + std::to_wstring(code) + L": it cannot be extended data");
        throw BadValue{};
    }
    advance();
  }
  (void)r;
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
  Acad::ErrorStatus es = dxf::buildDrawing(drawing, into, &why);
  if (es != Acad::eOk) {
    dxf::emptyDatabase(into);
    dxf::completeDatabase(into);
    return fail(es, why);
  }
  dxf::completeDatabase(into);
  std::wstring note;
  for (const std::wstring &n : drawing.notes) note += (note.empty() ? L"" : L"\n") + n;
  if (error) *error = note;
  return Acad::eOk;
}

}  // namespace vantry::host
