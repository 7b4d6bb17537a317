// libFuzzer target: the Access row decoder (engine/access/decode.cpp) on
// mutated data pages, in-process. The library that reads catalogs is not
// fuzzed here: it runs in a child process that may die (import.cpp).
//
// Input: byte 0 picks the format (bit 0: Jet 3) and byte 1 the number of
// columns (1-16); then 4 bytes per column (type, fixed flag, offset or
// variable index, null-mask bit); the rest is a data page. Long values and
// moved rows point at pages 1-3, which are that same page.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "decode.h"

using namespace vantry::engine::access;

namespace {

class SamePage : public PageSource {
 public:
  SamePage(const uint8_t *data, size_t size) : data_(data), size_(size) {}
  bool page(uint32_t n, const uint8_t **out) override {
    if (n < 1 || n > 3) return false;
    *out = data_;
    return true;
  }
  size_t pageSize() const override { return size_; }

 private:
  const uint8_t *data_;
  size_t size_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) return 0;
  // The same bytes as a packed attachment, unpacked within a small limit.
  std::string file;
  unpackAttachment(std::string(reinterpret_cast<const char *>(data), size), &file, size_t(1) << 20);
  Jet jet = (data[0] & 1) ? Jet::k3 : Jet::k4;
  size_t count = size_t(data[1] % 16) + 1;
  size_t head = 2 + count * 4;
  if (size < head + 16) return 0;
  std::vector<ColumnLayout> columns;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t *c = data + 2 + i * 4;
    ColumnLayout l;
    l.type = c[0] % 0x15;
    l.fixed = (c[1] & 1) != 0;
    l.fixedOffset = c[2];
    l.varIndex = c[2] % 32;
    l.rowColumn = c[3];
    l.size = c[1] >> 1;
    l.precision = 18;
    l.scale = c[1] % 29;
    columns.push_back(l);
  }
  // The page is copied so that reads past it are caught.
  std::vector<uint8_t> page(data + head, data + size);
  SamePage pages(page.data(), page.size());
  std::vector<FieldSpan> spans;
  int rows = rowCount(jet, page.data());
  for (int r = 0; r < rows && r < 64; ++r) {
    RowSlot slot;
    if (!rowSlot(jet, page.data(), page.size(), r, &slot)) continue;
    std::vector<uint8_t> row(page.begin() + long(slot.offset), page.begin() + long(slot.offset + slot.length));
    if (!crackRow(jet, row.data(), row.size(), columns, &spans)) continue;
    Value v;
    for (size_t i = 0; i < columns.size(); ++i) decodeField(jet, columns[i], row.data(), spans[i], &pages, &v, 1 << 20);
  }
  return 0;
}
