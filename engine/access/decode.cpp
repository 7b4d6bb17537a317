// The row decoder: row layout and field encodings (decode.h).
#include "decode.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <set>

#include <zlib.h>

namespace vantry::engine::access {

namespace {

uint16_t u16(const uint8_t *p) { return uint16_t(p[0] | p[1] << 8); }
uint32_t u32(const uint8_t *p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }

void appendUtf8(std::string *out, uint32_t c) {
  if (c < 0x80) {
    out->push_back(char(c));
  } else if (c < 0x800) {
    out->push_back(char(0xC0 | c >> 6));
    out->push_back(char(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out->push_back(char(0xE0 | c >> 12));
    out->push_back(char(0x80 | (c >> 6 & 0x3F)));
    out->push_back(char(0x80 | (c & 0x3F)));
  } else {
    out->push_back(char(0xF0 | c >> 18));
    out->push_back(char(0x80 | (c >> 12 & 0x3F)));
    out->push_back(char(0x80 | (c >> 6 & 0x3F)));
    out->push_back(char(0x80 | (c & 0x3F)));
  }
}

// Windows-1252 between 0x80 and 0x9F; the rest of the page is Latin-1.
constexpr uint16_t kCp1252High[32] = {0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD,
                                      0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};

// UTF-16 code units to UTF-8; a lone surrogate becomes U+FFFD.
class Utf16 {
 public:
  explicit Utf16(std::string *out) : out_(out) {}
  void unit(uint16_t u) {
    if (high_) {
      if (u >= 0xDC00 && u <= 0xDFFF) {
        appendUtf8(out_, 0x10000 + ((uint32_t(high_) - 0xD800) << 10) + (u - 0xDC00));
        high_ = 0;
        return;
      }
      appendUtf8(out_, 0xFFFD);
      high_ = 0;
    }
    if (u >= 0xD800 && u <= 0xDBFF) {
      high_ = u;
    } else if (u >= 0xDC00 && u <= 0xDFFF) {
      appendUtf8(out_, 0xFFFD);
    } else {
      appendUtf8(out_, u);
    }
  }
  bool idle() const { return high_ == 0; }
  void finish() {
    if (high_) appendUtf8(out_, 0xFFFD);
    high_ = 0;
  }

 private:
  std::string *out_;
  uint16_t high_ = 0;
};

// Days from 1970-01-01 to a civil date, and back (proleptic Gregorian).
int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = unsigned(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + int64_t(doe) - 719468;
}

void civilFromDays(int64_t z, int64_t *y, unsigned *m, unsigned *d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = unsigned(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  *y = int64_t(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  *d = doy - (153 * mp + 2) / 5 + 1;
  *m = mp < 10 ? mp + 3 : mp - 9;
  *y += *m <= 2;
}

// "YYYY-MM-DD HH:MM:SS" for a year 1-9999 (no printf: dates are many).
std::string dateText(int64_t y, unsigned m, unsigned d, int64_t seconds) {
  char b[19];
  auto two = [&](int at, unsigned v) {
    b[at] = char('0' + v / 10 % 10);
    b[at + 1] = char('0' + v % 10);
  };
  two(0, unsigned(y / 100));
  two(2, unsigned(y % 100));
  b[4] = '-';
  two(5, m);
  b[7] = '-';
  two(8, d);
  b[10] = ' ';
  two(11, unsigned(seconds / 3600));
  b[13] = ':';
  two(14, unsigned(seconds / 60 % 60));
  b[16] = ':';
  two(17, unsigned(seconds % 60));
  return std::string(b, sizeof b);
}

size_t fixedSize(const ColumnLayout &c) {
  switch (c.type) {
    case coltype::kBool: return 0;
    case coltype::kByte: return 1;
    case coltype::kInt: return 2;
    case coltype::kLong:
    case coltype::kFloat:
    case coltype::kComplex: return 4;
    case coltype::kMoney:
    case coltype::kDouble:
    case coltype::kDateTime:
    case coltype::kBigInt: return 8;
    case coltype::kGuid: return 16;
    case coltype::kNumeric: return 17;
    default: return c.size > 0 ? size_t(c.size) : 0;
  }
}

// Reads a long value's bytes (memo, OLE) from its 12-byte header.
bool readLong(Jet jet, const uint8_t *field, size_t length, PageSource *pages, size_t maxLong, std::string *out) {
  out->clear();
  if (length < 12) return false;
  uint32_t head = u32(field);
  size_t total = head & 0x3FFFFFFF;
  if (total > maxLong) return false;
  uint32_t where = head & 0xC0000000;
  if (where == 0x80000000) {
    if (total > length - 12) return false;
    out->assign(reinterpret_cast<const char *>(field + 12), total);
    return true;
  }
  if (!pages) return false;
  uint32_t pointer = u32(field + 4);
  // A chain that comes back to a row it read loops: damage.
  std::set<uint32_t> seen;
  while (out->size() < total) {
    if (pointer == 0 || !seen.insert(pointer).second) return false;
    const uint8_t *page = nullptr;
    if (!pages->page(pointer >> 8, &page)) return false;
    RowSlot slot;
    if (!rowSlot(jet, page, pages->pageSize(), int(pointer & 0xFF), &slot)) return false;
    const uint8_t *data = page + slot.offset;
    size_t n = slot.length;
    if (where == 0x40000000) {
      out->assign(reinterpret_cast<const char *>(data), std::min(n, total));
      return out->size() == total;
    }
    if (n <= 4) return false;
    pointer = u32(data);
    size_t take = std::min(n - 4, total - out->size());
    out->append(reinterpret_cast<const char *>(data + 4), take);
  }
  return true;
}

}  // namespace

int rowCount(Jet jet, const uint8_t *page) { return u16(page + (jet == Jet::k3 ? 8 : 12)); }

bool rowSlot(Jet jet, const uint8_t *page, size_t pageSize, int row, RowSlot *slot) {
  size_t base = jet == Jet::k3 ? 8 : 12;
  int count = u16(page + base);
  if (row < 0 || row >= count || base + 2 + size_t(count) * 2 > pageSize) return false;
  uint16_t raw = u16(page + base + 2 + row * 2);
  size_t start = raw & 0x1FFF;
  size_t end = row == 0 ? pageSize : (u16(page + base + row * 2) & 0x1FFF);
  if (start >= pageSize || end > pageSize || start > end) return false;
  slot->offset = start;
  slot->length = end - start;
  slot->deleted = (raw & 0x8000) != 0;
  slot->moved = (raw & 0x4000) != 0;
  return true;
}

bool crackRow(Jet jet, const uint8_t *row, size_t length, const std::vector<ColumnLayout> &columns,
              std::vector<FieldSpan> *fields) {
  fields->assign(columns.size(), FieldSpan{});
  size_t countSize = jet == Jet::k3 ? 1 : 2;
  if (length < countSize + 1) return false;
  size_t stored = jet == Jet::k3 ? row[0] : u16(row);
  size_t maskSize = (stored + 7) / 8;
  if (maskSize + countSize > length) return false;
  const uint8_t *mask = row + length - maskSize;
  auto notNull = [&](int bit) {
    return size_t(bit) < stored && (mask[bit / 8] >> (bit % 8) & 1) != 0;
  };

  bool anyVariable = false;
  for (const ColumnLayout &c : columns) anyVariable |= !c.fixed;

  // The variable-offset table: entry i is where variable column i starts,
  // entry `varCount` where the variable data ends.
  std::vector<size_t> offsets;
  size_t varCount = 0;
  size_t dataEnd = length - maskSize;
  if (anyVariable) {
    if (jet == Jet::k4) {
      if (length < maskSize + 2 + countSize) return false;
      varCount = u16(row + length - maskSize - 2);
      size_t tableBytes = (varCount + 1) * 2;
      if (tableBytes + maskSize + 2 + countSize > length) return false;
      const uint8_t *end = row + length - maskSize - 2;
      offsets.resize(varCount + 1);
      for (size_t i = 0; i <= varCount; ++i) offsets[i] = u16(end - 2 * (i + 1));
      dataEnd = length - maskSize - 2 - tableBytes;
    } else {
      if (length < maskSize + 1 + countSize) return false;
      varCount = row[length - maskSize - 1];
      // Offsets are one byte; the jump table says from which entry on each
      // further 256 is added. Its size follows from the row's length alone,
      // so it may end in a dummy entry (0xFF) that no offset reaches.
      size_t jumps = (length - 1) / 256;
      size_t fixedPart = maskSize + 1 + varCount + 1;
      if (fixedPart + countSize + jumps > length) return false;
      const uint8_t *jump = row + length - maskSize - 1 - jumps;
      const uint8_t *end = jump;
      offsets.resize(varCount + 1);
      for (size_t i = 0; i <= varCount; ++i) {
        size_t add = 0;
        for (size_t j = 0; j < jumps; ++j)
          if (jump[j] <= i) add += 256;
        offsets[i] = end[-1 - ptrdiff_t(i)] + add;
      }
      dataEnd = length - fixedPart - jumps;
    }
  }

  for (size_t k = 0; k < columns.size(); ++k) {
    const ColumnLayout &c = columns[k];
    FieldSpan &f = (*fields)[k];
    if (c.type == coltype::kBool) {
      f.present = true;
      f.bit = notNull(c.rowColumn);
      continue;
    }
    if (!notNull(c.rowColumn)) continue;
    if (c.fixed) {
      size_t start = countSize + size_t(std::max(0, c.fixedOffset));
      size_t n = fixedSize(c);
      if (start + n > dataEnd) return false;
      f.present = true;
      f.offset = start;
      f.length = n;
    } else {
      if (c.varIndex < 0 || size_t(c.varIndex) >= varCount) continue;  // added after the row was written
      size_t start = offsets[c.varIndex], end = offsets[c.varIndex + 1];
      if (start > end || end > dataEnd || start < countSize) return false;
      f.present = true;
      f.offset = start;
      f.length = end - start;
    }
  }
  return true;
}

std::string decodeText(Jet jet, const uint8_t *data, size_t length) {
  std::string out;
  appendText(jet, data, length, &out);
  return out;
}

void appendText(Jet jet, const uint8_t *data, size_t length, std::string *into) {
  std::string &out = *into;
  out.reserve(out.size() + length);
  if (jet == Jet::k3) {
    for (size_t i = 0; i < length; ++i) {
      uint8_t b = data[i];
      appendUtf8(&out, b >= 0x80 && b < 0xA0 ? kCp1252High[b - 0x80] : b);
    }
    return;
  }
  Utf16 utf(&out);
  if (length >= 2 && data[0] == 0xFF && data[1] == 0xFE) {
    bool compressed = true;
    for (size_t i = 2; i < length;) {
      if (data[i] == 0) {
        compressed = !compressed;
        ++i;
      } else if (compressed) {
        if (data[i] < 0x80 && utf.idle()) {
          size_t run = i;
          while (run < length && data[run] != 0 && data[run] < 0x80) ++run;
          out.append(reinterpret_cast<const char *>(data + i), run - i);
          i = run;
        } else {
          utf.unit(data[i++]);
        }
      } else if (i + 1 < length) {
        utf.unit(u16(data + i));
        i += 2;
      } else {
        break;
      }
    }
  } else {
    for (size_t i = 0; i + 1 < length; i += 2) utf.unit(u16(data + i));
  }
  utf.finish();
}

std::string formatDate(double days) {
  if (!std::isfinite(days) || days < -657434.0 || days > 2958466.0) return std::string();
  double whole = std::trunc(days);
  double fraction = std::fabs(days - whole);
  int64_t seconds = std::llround(fraction * 86400.0);
  int64_t day = int64_t(whole);
  if (seconds >= 86400) {
    seconds -= 86400;
    day += 1;
  }
  int64_t y;
  unsigned m, d;
  civilFromDays(daysFromCivil(1899, 12, 30) + day, &y, &m, &d);
  return dateText(y, m, d, seconds);
}

std::string formatGuid(const uint8_t *b) {
  char buf[48];
  std::snprintf(buf, sizeof buf, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", unsigned(u32(b)),
                unsigned(u16(b + 4)), unsigned(u16(b + 6)), b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
  return buf;
}

namespace {

std::string scaledText(unsigned __int128 magnitude, bool negative, int scale) {
  std::string digits;
  do {
    digits.insert(digits.begin(), char('0' + int(magnitude % 10)));
    magnitude /= 10;
  } while (magnitude != 0);
  if (scale > 0) {
    if (digits.size() <= size_t(scale)) digits.insert(0, size_t(scale) + 1 - digits.size(), '0');
    digits.insert(digits.size() - size_t(scale), 1, '.');
  }
  bool zero = digits.find_first_not_of("0.") == std::string::npos;
  return negative && !zero ? "-" + digits : digits;
}

}  // namespace

std::string formatDecimal(const uint8_t *b, int scale) {
  unsigned __int128 v = 0;
  for (int w = 0; w < 4; ++w) v = v << 32 | u32(b + 1 + 4 * w);
  return scaledText(v, (b[0] & 0x80) != 0, std::clamp(scale, 0, 38));
}

std::string formatCurrency(int64_t t) {
  bool negative = t < 0;
  unsigned __int128 magnitude = negative ? (unsigned __int128)(-(__int128)t) : (unsigned __int128)t;
  return scaledText(magnitude, negative, 4);
}

bool decodeField(Jet jet, const ColumnLayout &c, const uint8_t *row, const FieldSpan &span, PageSource *pages,
                 Value *out, size_t maxLong) {
  // Reset without giving up the text's buffer: rows reuse their values.
  out->kind = Value::kNull;
  out->integer = 0;
  out->real = 0;
  out->text.clear();
  if (!span.present) return true;
  const uint8_t *p = row + span.offset;
  size_t n = span.length;
  auto integer = [&](int64_t v) {
    out->kind = Value::kInteger;
    out->integer = v;
  };
  switch (c.type) {
    case coltype::kBool: integer(span.bit ? -1 : 0); return true;
    case coltype::kByte: integer(p[0]); return true;
    case coltype::kInt: integer(int16_t(u16(p))); return true;
    case coltype::kLong:
    case coltype::kComplex: integer(int32_t(u32(p))); return true;
    case coltype::kBigInt: integer(int64_t(uint64_t(u32(p)) | uint64_t(u32(p + 4)) << 32)); return true;
    case coltype::kMoney:
      out->kind = Value::kCurrency;
      out->integer = int64_t(uint64_t(u32(p)) | uint64_t(u32(p + 4)) << 32);
      out->text = formatCurrency(out->integer);
      return true;
    case coltype::kFloat: {
      float f;
      std::memcpy(&f, p, 4);
      // The shortest text that reads back as the same single, read as a
      // double: 1.1 stays 1.1 rather than 1.10000002384.
      char buf[32];
      auto r = std::to_chars(buf, buf + sizeof buf, f);
      out->kind = Value::kReal;
      std::from_chars(buf, r.ptr, out->real);
      return true;
    }
    case coltype::kDouble:
      out->kind = Value::kReal;
      std::memcpy(&out->real, p, 8);
      return true;
    case coltype::kDateTime: {
      double d;
      std::memcpy(&d, p, 8);
      std::string text = formatDate(d);
      if (text.empty()) return true;  // outside the calendar Access keeps: no date
      out->kind = Value::kDate;
      out->real = d;
      out->text = std::move(text);
      return true;
    }
    case coltype::kExtDateTime: {
      // 19 digits of days since 0001-01-01, ':', 12 digits of seconds, 7 of
      // 100 ns, as text.
      if (n < 39) return false;
      int64_t days = 0, secs = 0;
      for (int i = 0; i < 19; ++i) {
        if (p[i] < '0' || p[i] > '9') return false;
        days = days * 10 + (p[i] - '0');
        if (days > 3652058) return false;  // past 9999-12-31; also keeps 19 digits from overflowing
      }
      for (int i = 20; i < 32; ++i) {
        if (p[i] < '0' || p[i] > '9') return false;
        secs = secs * 10 + (p[i] - '0');
      }
      if (days > 3652058 || secs >= 86400) return false;
      int64_t y;
      unsigned m, d;
      civilFromDays(daysFromCivil(1, 1, 1) + days, &y, &m, &d);
      out->kind = Value::kDate;
      out->text = dateText(y, m, d, secs);
      return true;
    }
    case coltype::kGuid:
      if (n < 16) return false;
      out->kind = Value::kText;
      out->text = formatGuid(p);
      return true;
    case coltype::kNumeric:
      if (n < 17) return false;
      out->kind = Value::kDecimal;
      out->text = formatDecimal(p, c.scale);
      return true;
    case coltype::kText:
      out->kind = Value::kText;
      appendText(jet, p, n, &out->text);
      return true;
    case coltype::kBinary:
    case coltype::kBigBinary:
      out->kind = Value::kBlob;
      out->text.assign(reinterpret_cast<const char *>(p), n);
      return true;
    case coltype::kMemo:
    case coltype::kOle: {
      std::string bytes;
      if (!readLong(jet, p, n, pages, maxLong, &bytes)) return false;
      if (c.type == coltype::kMemo) {
        out->kind = Value::kText;
        out->text = decodeText(jet, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
      } else {
        out->kind = Value::kBlob;
        out->text = std::move(bytes);
      }
      return true;
    }
    default:
      out->kind = Value::kBlob;
      out->text.assign(reinterpret_cast<const char *>(p), n);
      return true;
  }
}

bool unpackAttachment(const std::string &stored, std::string *file, size_t maxLength) {
  auto u32 = [](const std::string &s, size_t o) {
    const auto *p = reinterpret_cast<const uint8_t *>(s.data()) + o;
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
  };
  if (stored.size() < 8) return false;
  uint32_t packed = u32(stored, 0), length = u32(stored, 4);
  if (length > maxLength || packed > 1) return false;
  std::string body;
  if (packed == 0) {
    body = stored.substr(8);
  } else {
    body.resize(length);
    z_stream z{};
    if (inflateInit(&z) != Z_OK) return false;
    z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(stored.data() + 8));
    z.avail_in = uInt(stored.size() - 8);
    z.next_out = reinterpret_cast<Bytef *>(body.data());
    z.avail_out = uInt(body.size());
    int rc = inflate(&z, Z_FINISH);
    size_t got = body.size() - z.avail_out;
    inflateEnd(&z);
    if (rc != Z_STREAM_END || got != length) return false;
  }
  if (body.size() < 12) return false;
  uint32_t header = u32(body, 0), extension = u32(body, 8);
  if (header < 12 || header > body.size() || size_t(extension) * 2 > header - 12) return false;
  *file = body.substr(header);
  return true;
}

}  // namespace vantry::engine::access
