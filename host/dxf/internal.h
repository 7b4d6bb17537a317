// Insides of the drawing-file writer and reader (host/dxf/*.cpp).
//
// The file is a sequence of group pairs, each two lines: the group code (an
// integer, right-aligned in three columns when written) and its value. The
// code says the value's kind (groupKind). Text is written in ASCII: other
// characters as \U+XXXX, control characters as ^ and the character 64 above
// (^J for a line feed) and ^ itself as "^ ", so that a value never breaks the
// line structure.
#pragma once

#include <charconv>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "db/db.h"
#include "dxf/dxf.h"

namespace vantry::host {

// Chooses the handle an object joins a database with while a file is read
// into it (0: the next new handle); a null chooser removes it
// (host/db/database.cpp).
using HandleChooser = std::function<uint64_t(const AcDbObject *)>;
void setHandleChooser(const AcDbDatabase *db, HandleChooser chooser);

namespace dxf {

enum class Kind { Text, Real, Int, Handle, Binary };
// The kind of a group code's value. Handles are hexadecimal text; binary
// chunks are hexadecimal text too but are kept as text.
Kind groupKind(int code);
// Whether a handle code is a reference to an object of the drawing (330-369,
// 390-399, 480-481): the reader turns those into ids.
bool isReference(int code);

// Appends the file form of a text value.
void appendText(std::string &out, std::wstring_view text);
// The text of a file value (escapes undone; UTF-8, else Windows-1252 bytes).
std::wstring readText(std::string_view value);

// A buffered writer of group pairs onto a FILE. Numbers are written with
// std::to_chars in their shortest exact form, so reading gives back the same
// doubles.
class Out {
 public:
  explicit Out(FILE *f) : f_(f) { buf_.reserve(kChunk + 4096); }
  void text(int code, std::wstring_view s) {
    codeLine(code);
    appendText(buf_, s);
    buf_ += '\n';
    spill();
  }
  void ascii(int code, std::string_view s) {
    codeLine(code);
    buf_ += s;
    buf_ += '\n';
    spill();
  }
  void real(int code, double v);
  void integer(int code, int64_t v);
  void handle(int code, uint64_t h);
  void point(int code, const double *xyz, int dims);
  // A group as a filer holds it; a reference as its object's handle (or
  // the text read, when it names no object).
  void item(const AcDbDxfFiler::Item &it);
  // Writes what is buffered; false once any write failed.
  bool flush();
  bool failed() const { return failed_; }

 private:
  static constexpr size_t kChunk = 1 << 20;
  void codeLine(int code);
  void spill() {
    if (buf_.size() >= kChunk) flush();
  }
  FILE *f_;
  std::string buf_;
  bool failed_ = false;
};

// What a written file holds beside the database's own objects, where the
// drawing does not keep the file's own: the viewport "*Active", the
// dimension style Standard, layouts, the multiline style Standard, the plot
// settings and plot style name dictionaries. A handle of 0 means the
// drawing keeps its own and the writer makes none.
struct Fixed {
  // Heads of the tables the database does not model (the file's when kept).
  uint64_t vportTable = 0, viewTable = 0, ucsTable = 0, dimTable = 0;
  uint64_t vportActive = 0, dimStandard = 0;
  // The layout dictionary: the drawing's (kept) or the writer's.
  uint64_t layoutDict = 0;
  bool keptLayoutDict = false;
  // Layouts the writer makes, for layout blocks without one of their own.
  struct Layout {
    uint64_t handle, block;
    std::string name;
    int tab;
  };
  std::vector<Layout> layouts;
  uint64_t mlineDict = 0, mlineStandard = 0, plotSettingsDict = 0, plotStyleDict = 0;
  // Plot style name placeholders the writer makes, by name, "Normal" first.
  std::vector<std::pair<std::wstring, uint64_t>> plotStyles;
  // Database objects they refer to.
  uint64_t nod = 0, standardStyle = 0;
};
void writeClasses(Out &out, const std::vector<std::vector<AcDbDxfFiler::Item>> &kept);
void writeTableHead(Out &out, const char *name, uint64_t handle, int count);
void writeActiveViewport(Out &out, const Fixed &fx, const AcDbExtents &extents);
void writeStandardDimStyle(Out &out, const Fixed &fx);
// The root dictionary's entries for the fixed objects, as 3/350 pairs.
void writeFixedRootEntries(Out &out, const Fixed &fx);
// The fixed objects; the made layouts only with the writer's own layout
// dictionary (writeLayout puts them in a kept one).
void writeFixedObjects(Out &out, const Fixed &fx);
void writeLayout(Out &out, const Fixed &fx, const Fixed::Layout &layout);

// Writes an object's extended data: 1001 and the application's name, then
// its items (points as three groups, binary chunks as hexadecimal).
void writeXData(Out &out, const AcDbObject *obj);

// One entity or object of a file: its type, its groups (up to the extended
// data, codes 5/105 and the 102 groups left out), handle, owner, reactors,
// extension dictionary and extended data.
struct Record {
  std::wstring type;
  int line = 0;  // of its 0 group
  uint64_t handle = 0, owner = 0, xdict = 0;
  bool hasOwner = false;
  std::vector<uint64_t> reactors;
  AcDbDxfFiler fields{true};
  resbuf *xdata = nullptr;  // owned
  // What belongs to it: a POLYLINE's VERTEX and SEQEND records, an INSERT's
  // ATTRIB and SEQEND records.
  std::vector<Record> subs;
  Record() = default;
  Record(Record &&o) noexcept;
  Record &operator=(Record &&o) noexcept;
  Record(const Record &) = delete;
  ~Record();
};

// A file as read, before anything is made of it. Reference groups keep
// their handle in Item::integer until the database gives them ids.
struct Table {
  std::wstring name;
  Record head;
  std::vector<Record> records;
};
struct Block {
  Record begin, end;  // the BLOCK and the ENDBLK (empty when missing)
  std::vector<Record> entities;
};
struct Drawing {
  std::map<std::wstring, AcDbDxfFiler::Item> header;  // variable -> its first value
  std::vector<Table> tables;
  std::vector<Block> blocks;
  std::vector<Record> classes, entities, objects;
  uint64_t maxHandle = 0;  // the largest handle named anywhere, $HANDSEED - 1 included
  // What was dropped or repaired while reading, one line each ("line 12:
  // ..."), in the order found.
  std::vector<std::wstring> notes;
};
// Reads a whole file's text, recovering what it can of a damaged one (notes
// say what was dropped); false with *error naming the line only when
// nothing of it reads as a drawing file.
bool parseDxf(std::string_view text, Drawing &out, std::wstring *error);
// Makes the drawing's contents in db (emptied first). Entity kinds the
// database has no class for are kept as their groups.
Acad::ErrorStatus buildDrawing(Drawing &d, AcDbDatabase *db, std::wstring *error);
// Deletes every object of db (none may be open); false when one is open.
bool emptyDatabase(AcDbDatabase *db);
// Adds what every drawing holds and db lacks: the five tables, linetypes
// ByBlock, ByLayer, Continuous, layer 0, text style Standard, both spaces,
// application ACAD, the root dictionary with ACAD_GROUP (unless not
// dictionaries); and the settings that name them.
void completeDatabase(AcDbDatabase *db, bool dictionaries = true);

}  // namespace dxf
}  // namespace vantry::host
