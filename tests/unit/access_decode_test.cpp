// The Access row decoder on rows and pages built here byte by byte: the row
// layouts of both formats, each field encoding, long values and damage.
#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <string>

#include "access/decode.h"

namespace vantry::engine::access {
namespace {

using Bytes = std::vector<uint8_t>;

void put16(Bytes *b, size_t at, unsigned v) {
  (*b)[at] = uint8_t(v);
  (*b)[at + 1] = uint8_t(v >> 8);
}

Bytes utf16(const std::u16string &s) {
  Bytes b;
  for (char16_t c : s) {
    b.push_back(uint8_t(c));
    b.push_back(uint8_t(c >> 8));
  }
  return b;
}

std::string text(Jet jet, const Bytes &b) { return decodeText(jet, b.data(), b.size()); }

TEST(AccessDecode, TextInEachStoredForm) {
  EXPECT_EQ(text(Jet::k4, utf16(u"Duct 400\u00d7250")), "Duct 400\u00d7250");
  // A character outside the basic plane, and a lone surrogate.
  EXPECT_EQ(text(Jet::k4, utf16(u"\U0001F600")), "\xF0\x9F\x98\x80");
  EXPECT_EQ(text(Jet::k4, utf16(std::u16string(1, char16_t(0xD800)) + u"a")), "\xEF\xBF\xBD" "a");
  // Compressed: one byte per character, 0x00 switching to two-byte runs and back.
  Bytes c = {0xFF, 0xFE, 'A', 'b', 0x00, 0x3A, 0x04, 0x00, 'z'};
  EXPECT_EQ(text(Jet::k4, c), "Ab\xD0\xBAz");
  // Jet 3 keeps the Windows code page: 0x80 is the euro sign, 0xA3 the pound.
  EXPECT_EQ(text(Jet::k3, Bytes{0x80, ' ', 0xA3}), "\xE2\x82\xAC \xC2\xA3");
}

TEST(AccessDecode, DatesCountDaysBothWaysFromTheEpoch) {
  EXPECT_EQ(formatDate(0), "1899-12-30 00:00:00");
  EXPECT_EQ(formatDate(1.5), "1899-12-31 12:00:00");
  // Before the epoch the day counts back but the time still counts forward.
  EXPECT_EQ(formatDate(-1.25), "1899-12-29 06:00:00");
  EXPECT_EQ(formatDate(-0.5), "1899-12-30 12:00:00");
  EXPECT_EQ(formatDate(-115858.0), "1582-10-15 00:00:00");  // proleptic calendar, no Julian switch
  // Kept to the second: a hair before midnight is the next day.
  EXPECT_EQ(formatDate(45321.0 + 86399.9999 / 86400), "2024-01-31 00:00:00");
  EXPECT_EQ(formatDate(45321.0 + 3661.4 / 86400), "2024-01-30 01:01:01");
  EXPECT_EQ(formatDate(1e12), "");
  EXPECT_EQ(formatDate(std::numeric_limits<double>::quiet_NaN()), "");

  // The extended date/time of newer files is stored as digits. Nineteen nines
  // of days once overflowed the count before the range was checked.
  ColumnLayout ext{coltype::kExtDateTime, true, 0, 0, 0, 42};
  auto decodeExt = [&](const std::string &digits, Value *v) {
    FieldSpan span{true, false, 0, digits.size()};
    return decodeField(Jet::k4, ext, reinterpret_cast<const uint8_t *>(digits.data()), span, nullptr, v);
  };
  Value v;
  ASSERT_TRUE(decodeExt("0000000000000738914:000000003661:0000000", &v));
  EXPECT_EQ(v.text, "2024-01-30 01:01:01");
  EXPECT_FALSE(decodeExt("9999999999999999999:000000000000:0000000", &v));
  EXPECT_FALSE(decodeExt("0000000000003652059:000000000000:0000000", &v));  // after 9999-12-31
}

TEST(AccessDecode, CurrencyAndDecimalAreExact) {
  EXPECT_EQ(formatCurrency(INT64_MAX), "922337203685477.5807");
  EXPECT_EQ(formatCurrency(INT64_MIN), "-922337203685477.5808");
  EXPECT_EQ(formatCurrency(-1), "-0.0001");
  EXPECT_EQ(formatCurrency(35000), "3.5000");

  // Sign byte, then four little-endian words, most significant first.
  Bytes d(17, 0);
  d[0] = 0x80;
  d[13] = 0x39;  // 12345 in the last word
  d[14] = 0x30;
  EXPECT_EQ(formatDecimal(d.data(), 2), "-123.45");
  EXPECT_EQ(formatDecimal(d.data(), 6), "-0.012345");
  Bytes big(17, 0);
  big[1] = 1;  // 2^96
  EXPECT_EQ(formatDecimal(big.data(), 0), "79228162514264337593543950336");
  Bytes zero(17, 0);
  zero[0] = 0x80;
  EXPECT_EQ(formatDecimal(zero.data(), 2), "0.00");  // no negative zero
}

TEST(AccessDecode, GuidsPrintWithTheFirstGroupsLittleEndian) {
  Bytes g = {0x78, 0x56, 0x34, 0x12, 0xBC, 0x9A, 0xF0, 0xDE, 1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(formatGuid(g.data()), "{12345678-9ABC-DEF0-0102-030405060708}");
}

// A Jet 4 row: a long (fixed), a yes/no, then two texts (variable).
struct Jet4Row {
  std::vector<ColumnLayout> columns{
      {coltype::kLong, true, 0, 0, 0, 4},
      {coltype::kBool, true, 0, 0, 1, 0},
      {coltype::kText, false, 0, 0, 2, 100},
      {coltype::kText, false, 0, 1, 3, 100},
  };
  // stored: how many columns the row was written with; mask: its null bits.
  Bytes build(int32_t id, const Bytes &t0, const Bytes &t1, uint8_t mask, int stored = 4, int varStored = 2) {
    Bytes row = {uint8_t(stored), 0, uint8_t(id), uint8_t(id >> 8), uint8_t(id >> 16), uint8_t(id >> 24)};
    size_t v0 = row.size();
    row.insert(row.end(), t0.begin(), t0.end());
    size_t v1 = row.size();
    row.insert(row.end(), t1.begin(), t1.end());
    size_t end = row.size();
    std::vector<size_t> offsets = {v0, v1, end};
    offsets.resize(size_t(varStored) + 1);
    offsets[size_t(varStored)] = end;
    for (int i = varStored; i >= 0; --i) {  // stored last entry first
      row.push_back(uint8_t(offsets[size_t(i)]));
      row.push_back(uint8_t(offsets[size_t(i)] >> 8));
    }
    row.push_back(uint8_t(varStored));
    row.push_back(0);
    row.push_back(mask);
    return row;
  }
};

std::vector<Value> decodeAll(Jet jet, const Bytes &row, const std::vector<ColumnLayout> &cols) {
  std::vector<FieldSpan> spans;
  EXPECT_TRUE(crackRow(jet, row.data(), row.size(), cols, &spans));
  std::vector<Value> out(cols.size());
  for (size_t i = 0; i < cols.size(); ++i) EXPECT_TRUE(decodeField(jet, cols[i], row.data(), spans[i], nullptr, &out[i]));
  return out;
}

TEST(AccessDecode, AttachmentsUnpackAndDamagedOnesAreRefused) {
  // Stored as is (flag 0): header of 20 bytes, extension "pdf" (3 + null).
  auto le = [](uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
  std::string inner = le(20) + le(1) + le(4) + std::string("p\0d\0f\0\0\0", 8) + "%PDF-1.4 body";
  std::string file;
  ASSERT_TRUE(unpackAttachment(le(0) + le(uint32_t(inner.size())) + inner, &file));
  EXPECT_EQ(file, "%PDF-1.4 body");
  struct Case {
    const char *why;
    std::string stored;
  } bad[] = {
      {"too short", le(0)},
      {"unknown packing", le(7) + le(uint32_t(inner.size())) + inner},
      {"no zlib stream", le(1) + le(uint32_t(inner.size())) + inner},
      {"header past the end", le(0) + le(12) + le(99) + le(1) + le(0)},
      {"extension longer than the header", le(0) + le(16) + le(16) + le(1) + le(9) + le(0)},
      {"beyond the limit", le(1) + le(0xFFFFFFF0u) + "x"},
  };
  for (const Case &c : bad) EXPECT_FALSE(unpackAttachment(c.stored, &file)) << c.why;
}

TEST(AccessDecode, Jet4RowsWithNullsBitsAndLaterColumns) {
  Jet4Row r;
  auto v = decodeAll(Jet::k4, r.build(-7, utf16(u"D-7"), utf16(u""), 0b1111), r.columns);
  EXPECT_EQ(v[0].integer, -7);
  EXPECT_EQ(v[1].integer, -1);  // yes is -1, as Access stores it
  EXPECT_EQ(v[2].text, "D-7");
  EXPECT_EQ(v[3].kind, Value::kText);  // empty text is not null
  EXPECT_EQ(v[3].text, "");

  v = decodeAll(Jet::k4, r.build(1, utf16(u"x"), utf16(u"y"), 0b0101), r.columns);
  EXPECT_EQ(v[1].integer, 0);
  EXPECT_EQ(v[3].kind, Value::kNull);

  // A row written before the last text was added: that field is null.
  v = decodeAll(Jet::k4, r.build(2, utf16(u"x"), Bytes{}, 0b0101, 3, 1), r.columns);
  EXPECT_EQ(v[2].text, "x");
  EXPECT_EQ(v[3].kind, Value::kNull);
}

TEST(AccessDecode, DamagedRowsAreRefusedNotRead) {
  Jet4Row r;
  Bytes row = r.build(1, utf16(u"abc"), utf16(u"de"), 0b1111);
  std::vector<FieldSpan> spans;
  Bytes tooMany = row;
  put16(&tooMany, tooMany.size() - 3, 400);  // more variable columns than the row can hold
  EXPECT_FALSE(crackRow(Jet::k4, tooMany.data(), tooMany.size(), r.columns, &spans));
  Bytes pastEnd = row;
  put16(&pastEnd, pastEnd.size() - 5, 0x0FFF);  // an offset past the data
  EXPECT_FALSE(crackRow(Jet::k4, pastEnd.data(), pastEnd.size(), r.columns, &spans));
  EXPECT_FALSE(crackRow(Jet::k4, row.data(), 1, r.columns, &spans));
  Bytes wide = {0xFF, 0xFF, 0};  // claims 65535 columns in three bytes
  EXPECT_FALSE(crackRow(Jet::k4, wide.data(), wide.size(), r.columns, &spans));
}

TEST(AccessDecode, Jet3RowsPastTwoHundredFiftySixBytesUseTheJumpTable) {
  // One fixed byte, then two texts: the first 300 bytes long, so the second
  // starts past offset 256 and the jump table says so.
  std::vector<ColumnLayout> cols{{coltype::kByte, true, 0, 0, 0, 1},
                                 {coltype::kText, false, 0, 0, 1, 255},
                                 {coltype::kText, false, 0, 1, 2, 255}};
  Bytes row = {3, 42};
  row.insert(row.end(), 300, 'a');
  row.insert(row.end(), {'e', 'n', 'd'});
  size_t end = row.size();                       // 305
  row.push_back(uint8_t(end));                   // end of data (entry 2), +256
  row.push_back(uint8_t(2 + 300));               // column 1 at 302, +256
  row.push_back(2);                              // column 0 at 2
  // Jump table: its size follows the row's length: (len - 1) / 256 = 1 entry;
  // columns numbered 1 and on are past 256.
  row.push_back(1);
  row.push_back(2);     // two variable columns
  row.push_back(0x07);  // null mask: all present
  ASSERT_EQ((row.size() - 1) / 256, 1u);
  auto v = decodeAll(Jet::k3, row, cols);
  EXPECT_EQ(v[0].integer, 42);
  EXPECT_EQ(v[1].text.size(), 300u);
  EXPECT_EQ(v[2].text, "end");
}

// Pages held in memory, for long values.
class MemoryPages : public PageSource {
 public:
  std::map<uint32_t, Bytes> pages;
  bool page(uint32_t n, const uint8_t **data) override {
    auto it = pages.find(n);
    if (it == pages.end()) return false;
    *data = it->second.data();
    return true;
  }
  size_t pageSize() const override { return 4096; }
  // A long-value page holding `rows`, the first at the page's end.
  void add(uint32_t n, const std::vector<Bytes> &rows) {
    Bytes p(4096, 0);
    p[0] = 1;
    put16(&p, 12, unsigned(rows.size()));
    size_t at = 4096;
    for (size_t i = 0; i < rows.size(); ++i) {
      at -= rows[i].size();
      std::copy(rows[i].begin(), rows[i].end(), p.begin() + long(at));
      put16(&p, 14 + 2 * i, unsigned(at));
    }
    pages[n] = p;
  }
};

Bytes longHeader(uint32_t length, uint32_t where, uint32_t page, uint8_t row) {
  uint32_t head = length | where;
  uint32_t ptr = page << 8 | row;
  return {uint8_t(head), uint8_t(head >> 8), uint8_t(head >> 16), uint8_t(head >> 24),
          uint8_t(ptr),  uint8_t(ptr >> 8),  uint8_t(ptr >> 16),  uint8_t(ptr >> 24),
          0,             0,                  0,                   0};
}

TEST(AccessDecode, LongValuesInlineOnOnePageAndInChains) {
  ColumnLayout memo{coltype::kMemo, false, 0, 0, 0, 0};
  ColumnLayout ole{coltype::kOle, false, 0, 0, 0, 0};
  MemoryPages pages;
  Value v;
  auto decode = [&](const ColumnLayout &c, const Bytes &field) {
    FieldSpan s{true, false, 0, field.size()};
    return decodeField(Jet::k4, c, field.data(), s, &pages, &v);
  };

  Bytes inl = longHeader(4, 0x80000000, 0, 0);
  Bytes hi = utf16(u"hi");
  inl.insert(inl.end(), hi.begin(), hi.end());
  ASSERT_TRUE(decode(memo, inl));
  EXPECT_EQ(v.text, "hi");

  pages.add(9, {Bytes{'a', 'b'}, Bytes{1, 2, 3}});
  ASSERT_TRUE(decode(ole, longHeader(3, 0x40000000, 9, 1)));
  EXPECT_EQ(v.kind, Value::kBlob);
  EXPECT_EQ(v.text, std::string("\x01\x02\x03", 3));

  // A chain: each part starts with the pointer to the next.
  pages.add(10, {Bytes{0x00, 11, 0, 0, 'A', 'B'}});  // next: page 11, row 0
  pages.add(11, {Bytes{0, 0, 0, 0, 'C', 'D'}});
  ASSERT_TRUE(decode(ole, longHeader(4, 0, 10, 0)));
  EXPECT_EQ(v.text, "ABCD");

  // A chain that points back at itself, one that leaves the file, and a
  // length past what the row holds are damage, not a hang or a read outside.
  pages.add(12, {Bytes{0x00, 12, 0, 0, 'A'}});
  EXPECT_FALSE(decode(ole, longHeader(100, 0, 12, 0)));
  EXPECT_FALSE(decode(ole, longHeader(4, 0, 99, 0)));
  EXPECT_FALSE(decode(memo, longHeader(4000, 0x80000000, 0, 0)));
}

}  // namespace
}  // namespace vantry::engine::access
