// The row decoder of the Access reader: turns the bytes of one stored row
// into typed values. It knows the on-disk row layout (Jet 3 and Jet 4 and
// later) and every field type's encoding, and nothing else: pages come from
// a `PageSource` that the caller provides, so the decoder runs in-process
// over any bytes (the fuzz target feeds it mutated pages) and never reads
// outside what it was handed.
//
// Row layout, from the row's first byte: the stored column count (1 byte in
// Jet 3, 2 in Jet 4), the fixed-length columns, the variable-length columns;
// from the row's last byte backwards: the null mask ((count + 7) / 8 bytes,
// bit set = not null, and for yes/no fields the value itself), the number of
// variable columns stored, then the table of their offsets (and in Jet 3 a
// jump table for rows past 255 bytes), with the end of the variable data as
// the entry after the last.
//
// Long values (memo, OLE) keep a 12-byte header in the row: a 32-bit length
// whose top two bits say where the data is (0x80 inline after the header,
// 0x40 one row of a long-value page, 0 a chain of such rows each starting
// with a pointer to the next), then a pointer (row number in the low byte,
// page above it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vantry::engine::access {

enum class Jet { k3, k4 };

// Field types as the file numbers them.
namespace coltype {
inline constexpr int kBool = 0x01, kByte = 0x02, kInt = 0x03, kLong = 0x04, kMoney = 0x05, kFloat = 0x06,
                     kDouble = 0x07, kDateTime = 0x08, kBinary = 0x09, kText = 0x0a, kOle = 0x0b, kMemo = 0x0c,
                     kGuid = 0x0f, kNumeric = 0x10, kBigBinary = 0x11, kComplex = 0x12, kBigInt = 0x13,
                     kExtDateTime = 0x14;
}

// Where a column lives in a row.
struct ColumnLayout {
  int type = 0;
  bool fixed = false;
  int fixedOffset = 0;  // from the first byte after the column count
  int varIndex = 0;     // position in the variable-offset table
  int rowColumn = 0;    // bit in the null mask (counts deleted columns)
  int size = 0;         // declared length in bytes
  int precision = 0;    // decimal fields
  int scale = 0;
};

struct Value {
  enum Kind { kNull, kInteger, kReal, kText, kBlob, kCurrency, kDecimal, kDate };
  Kind kind = kNull;
  int64_t integer = 0;  // kInteger; kCurrency: ten-thousandths
  double real = 0;      // kReal; kDate: days since 1899-12-30
  std::string text;     // kText (UTF-8), kBlob (bytes), kDecimal (exact, "-12.50"), kDate ("YYYY-MM-DD HH:MM:SS")
};

// Pages of the file, for long values and moved rows. `page` answers false
// for a page that cannot be read; the buffer stays valid until the next call.
class PageSource {
 public:
  virtual ~PageSource() = default;
  virtual bool page(uint32_t number, const uint8_t **data) = 0;
  virtual size_t pageSize() const = 0;
};

// One column's bytes within a row, after cracking.
struct FieldSpan {
  bool present = false;  // false: null (or a column added after the row was written)
  bool bit = false;      // a yes/no field's value
  size_t offset = 0, length = 0;
};

// Splits a row into its fields. False when the row's own tables do not fit
// inside it (a damaged row): nothing is decoded from it.
bool crackRow(Jet jet, const uint8_t *row, size_t length, const std::vector<ColumnLayout> &columns,
              std::vector<FieldSpan> *fields);

// Decodes one field. Long values longer than `maxLong` bytes, and chains that
// leave the file or loop, make it answer false (the row is damaged).
bool decodeField(Jet jet, const ColumnLayout &column, const uint8_t *row, const FieldSpan &span, PageSource *pages,
                 Value *out, size_t maxLong = size_t(1) << 30);

// Text as stored: Jet 3 in the code page (Windows-1252), Jet 4 as UTF-16LE or
// its compressed form (0xFF 0xFE, then runs of one-byte characters switched
// with 0x00 to and from runs of two-byte ones).
std::string decodeText(Jet jet, const uint8_t *data, size_t length);
void appendText(Jet jet, const uint8_t *data, size_t length, std::string *into);

// The date of a stored day count, to the second (fractions of a second
// rounded), in "YYYY-MM-DD HH:MM:SS". Before 1899-12-30 the day counts back
// and the fraction still counts forward: -1.25 is 1899-12-29 06:00:00.
// Empty for a count outside years 100-9999.
std::string formatDate(double days);

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}": the first three groups stored
// little-endian.
std::string formatGuid(const uint8_t *bytes);

// A scaled decimal of 17 bytes: a sign byte (0x80 negative), then a 128-bit
// magnitude as four 32-bit little-endian words, most significant first.
std::string formatDecimal(const uint8_t *bytes, int scale);

// Ten-thousandths as exact decimal text, "-12.3456".
std::string formatCurrency(int64_t tenThousandths);

// An attachment's bytes as Access keeps them: a 32-bit flag (1: the rest is
// a zlib stream, 0: stored as is) and the 32-bit length of what follows once
// unpacked; unpacked, a 32-bit header length, a 32-bit word, the length of
// the file's extension in characters with its null, the extension in
// UTF-16LE, then the file's bytes from the header's end. False for bytes
// that do not hold together (or unpack beyond `maxLength`).
bool unpackAttachment(const std::string &stored, std::string *file, size_t maxLength = size_t(1) << 30);

// A row's location on a data page: its offset and length, and its flags
// (deleted; moved elsewhere with a pointer left here). False when the slot
// does not exist or points outside the page.
struct RowSlot {
  size_t offset = 0, length = 0;
  bool deleted = false, moved = false;
};
bool rowSlot(Jet jet, const uint8_t *page, size_t pageSize, int row, RowSlot *slot);
int rowCount(Jet jet, const uint8_t *page);

}  // namespace vantry::engine::access
