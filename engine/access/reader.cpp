// Reading an Access file through mdbtools' catalog and table definitions,
// with rows decoded from the pages themselves (reader.h).
#include "reader.h"

#include <fcntl.h>
#include <mdbtools.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>

namespace vantry::engine::access {

namespace {

// Pages read straight from the file. Jet files with a database key keep
// their pages (all but the first) in RC4 under the key xor the page number.
class FilePages : public PageSource {
 public:
  FilePages(int fd, size_t pageSize, uint32_t key) : fd_(fd), size_(pageSize), key_(key), buf_(pageSize) {}
  bool page(uint32_t number, const uint8_t **data) override {
    if (number == 0) return false;
    ssize_t n = ::pread(fd_, buf_.data(), size_, off_t(number) * off_t(size_));
    if (n != ssize_t(size_)) return false;
    if (key_ != 0) rc4(key_ ^ number);
    *data = buf_.data();
    return true;
  }
  size_t pageSize() const override { return size_; }

 private:
  void rc4(uint32_t key) {
    uint8_t k[4] = {uint8_t(key), uint8_t(key >> 8), uint8_t(key >> 16), uint8_t(key >> 24)};
    uint8_t s[256];
    for (int i = 0; i < 256; ++i) s[i] = uint8_t(i);
    for (int i = 0, j = 0; i < 256; ++i) {
      j = (j + s[i] + k[i % 4]) & 0xFF;
      std::swap(s[i], s[j]);
    }
    for (size_t n = 0, i = 0, j = 0; n < size_; ++n) {
      i = (i + 1) & 0xFF;
      j = (j + s[i]) & 0xFF;
      std::swap(s[i], s[j]);
      buf_[n] ^= s[(s[i] + s[j]) & 0xFF];
    }
  }
  int fd_;
  size_t size_;
  uint32_t key_;
  std::vector<uint8_t> buf_;
};

std::vector<ColumnLayout> layouts(const std::vector<Column> &columns) {
  std::vector<ColumnLayout> out;
  for (const Column &c : columns) out.push_back(c.layout);
  return out;
}

}  // namespace

struct Reader::State {
  MdbHandle *mdb = nullptr;
  int fd = -1;
  Jet jet = Jet::k4;
  std::vector<Table> tables;
  std::vector<MdbTableDef *> defs;  // the definition of each table, freed with the state
  std::unique_ptr<FilePages> pages;
  // The hidden table of each complex field, and where its columns are.
  struct Flat {
    MdbTableDef *def = nullptr;
    Table table;
    int key = -1, fileName = -1, fileType = -1, fileData = -1, value = -1;
  };
  std::vector<Flat> flats;  // by Reader::complexFields' order
  ~State() {
    for (MdbTableDef *def : defs) mdb_free_tabledef(def);
    if (mdb) mdb_close(mdb);
    if (fd >= 0) ::close(fd);
  }

  // Each column's bit in the null mask: its number in the table definition,
  // which counts deleted columns (the library's own numbering does not), by
  // the column's name. Read from the definition's pages (chained by the
  // pointer at offset 4, each continuing after its 8-byte header).
  std::map<std::string, int> nullBits(MdbTableDef *def) {
    std::map<std::string, int> out;
    std::vector<uint8_t> tdef;
    uint32_t pg = uint32_t(def->entry->table_pg);
    for (int hops = 0; pg != 0 && hops < 64; ++hops) {
      const uint8_t *p = nullptr;
      if (!pages->page(pg, &p) || p[0] != 0x02) break;
      size_t from = tdef.empty() ? 0 : 8;
      tdef.insert(tdef.end(), p + from, p + pages->pageSize());
      pg = uint32_t(p[4]) | uint32_t(p[5]) << 8 | uint32_t(p[6]) << 16 | uint32_t(p[7]) << 24;
    }
    auto u16 = [&](size_t o) { return o + 2 <= tdef.size() ? int(tdef[o] | tdef[o + 1] << 8) : -1; };
    auto u32 = [&](size_t o) { return o + 4 <= tdef.size() ? long(u16(o)) | long(u16(o + 2)) << 16 : -1L; };
    bool j3 = jet == Jet::k3;
    int cols = u16(j3 ? 25 : 45);
    long realIdx = u32(j3 ? 31 : 51);
    if (cols <= 0 || realIdx < 0 || realIdx > 1000) return out;
    size_t colStart = (j3 ? 43 : 63) + size_t(realIdx) * (j3 ? 8 : 12);
    size_t colSize = j3 ? 18 : 25;
    size_t names = colStart + size_t(cols) * colSize;
    for (int i = 0; i < cols; ++i) {
      int number = u16(colStart + size_t(i) * colSize + (j3 ? 1 : 5));
      size_t len = 0;
      if (j3) {
        if (names >= tdef.size()) return out;
        len = tdef[names++];
      } else {
        int l = u16(names);
        if (l < 0) return out;
        len = size_t(l);
        names += 2;
      }
      if (names + len > tdef.size()) return out;
      out[decodeText(jet, tdef.data() + names, len)] = number;
      names += len;
    }
    return out;
  }

  Table describe(MdbTableDef *def) {
    std::map<std::string, int> bits = nullBits(def);
    Table t;
    t.name = def->name;
    t.declaredRows = def->num_rows;
    for (unsigned i = 0; i < def->num_cols; ++i) {
      auto *col = static_cast<MdbColumn *>(g_ptr_array_index(def->columns, i));
      Column c;
      c.name = col->name;
      c.layout.type = col->col_type;
      c.layout.fixed = col->is_fixed != 0;
      c.layout.fixedOffset = col->fixed_offset;
      c.layout.varIndex = int(col->var_col_num);
      auto bit = bits.find(c.name);
      c.layout.rowColumn = bit != bits.end() ? bit->second : col->row_col_num;
      c.layout.size = col->col_size;
      // The library files a decimal's precision and scale each under the
      // other's name.
      c.layout.precision = col->col_scale;
      c.layout.scale = col->col_prec;
      c.counter = col->is_long_auto != 0;
      c.guidCounter = col->is_uuid_auto != 0;
      if (const char *req = mdb_col_get_prop(col, "Required"))
        c.required = std::strcmp(req, "yes") == 0 || std::strcmp(req, "1") == 0 || std::strcmp(req, "True") == 0;
      if (const char *def_ = mdb_col_get_prop(col, "DefaultValue")) c.defaultValue = def_;
      t.columns.push_back(std::move(c));
    }
    // Index descriptions are checked before they are believed: some files
    // describe indexes (those backing relations) with no columns, or with
    // column numbers that name no field.
    for (unsigned i = 0; def->indices && i < def->indices->len; ++i) {
      auto *idx = static_cast<MdbIndex *>(g_ptr_array_index(def->indices, i));
      if (idx->index_type == 2) continue;  // a relation's index: the relation says it
      Index x;
      x.name = idx->name;
      x.primary = idx->index_type == 1;
      x.unique = x.primary || (idx->flags & MDB_IDX_UNIQUE) != 0;
      bool sound = idx->num_keys >= 1 && idx->num_keys <= MDB_MAX_IDX_COLS && !x.name.empty();
      for (unsigned k = 0; sound && k < idx->num_keys; ++k) {
        int n = idx->key_col_num[k] - 1;
        if (n < 0 || n >= int(t.columns.size()) || std::count(x.columns.begin(), x.columns.end(), n)) {
          sound = false;
          break;
        }
        x.columns.push_back(n);
        x.descending.push_back(idx->key_col_order[k] == MDB_DESC);
      }
      if (!sound) {
        ++t.droppedIndexes;
        continue;
      }
      t.indexes.push_back(std::move(x));
    }
    return t;
  }

  // Walks the table's data pages and hands each live row's bytes to `row`.
  bool walk(MdbTableDef *def, const std::function<bool(const uint8_t *, size_t)> &row, std::string *message) {
    mdb_rewind_table(def);
    size_t pageSize = size_t(mdb->fmt->pg_size);
    std::vector<uint8_t> page(pageSize), moved;
    while (mdb_read_next_dpg(def)) {
      std::memcpy(page.data(), mdb->pg_buf, pageSize);
      int count = rowCount(jet, page.data());
      for (int r = 0; r < count; ++r) {
        RowSlot slot;
        if (!rowSlot(jet, page.data(), pageSize, r, &slot) || slot.length == 0 || slot.deleted) continue;
        if (slot.moved) {
          // The row lives elsewhere; a pointer was left here.
          if (slot.length < 4) continue;
          const uint8_t *p = page.data() + slot.offset;
          uint32_t pointer = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
          const uint8_t *other = nullptr;
          RowSlot target;
          if (!pages->page(pointer >> 8, &other) || !rowSlot(jet, other, pageSize, int(pointer & 0xFF), &target)) {
            *message = "a moved row points outside the file";
            return false;
          }
          moved.assign(other + target.offset, other + target.offset + target.length);
          if (!row(moved.data(), moved.size())) return false;
          continue;
        }
        if (!row(page.data() + slot.offset, slot.length)) return false;
      }
    }
    return true;
  }

  // The rows of a system table as maps from field name to value.
  bool readSystem(const char *name, std::vector<std::map<std::string, Value>> *rows, std::string *message) {
    // Looked up in the catalog read at open: the library's own lookup by
    // name reads the catalog again, freeing the entries the tables point to.
    MdbTableDef *def = nullptr;
    for (unsigned i = 0; i < mdb->num_catalog && !def; ++i) {
      auto *entry = static_cast<MdbCatalogEntry *>(g_ptr_array_index(mdb->catalog, i));
      if (entry->object_type == MDB_TABLE && g_ascii_strcasecmp(entry->object_name, name) == 0)
        def = mdb_read_table(entry);
    }
    if (!def) return false;
    mdb_read_columns(def);
    Table t = describe(def);
    std::vector<ColumnLayout> cols = layouts(t.columns);
    std::vector<FieldSpan> spans;
    bool ok = walk(
        def,
        [&](const uint8_t *r, size_t n) {
          if (!crackRow(jet, r, n, cols, &spans)) return true;
          std::map<std::string, Value> m;
          for (size_t i = 0; i < cols.size(); ++i) {
            Value v;
            if (decodeField(jet, cols[i], r, spans[i], pages.get(), &v)) m[t.columns[i].name] = std::move(v);
          }
          rows->push_back(std::move(m));
          return true;
        },
        message);
    mdb_free_tabledef(def);
    return ok;
  }
};

Reader::Reader() : s_(std::make_unique<State>()) {}
Reader::~Reader() = default;

bool Reader::open(const std::string &path, std::string *message, bool *encrypted) {
  *encrypted = false;
  s_->fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (s_->fd < 0) {
    *message = std::strerror(errno);
    return false;
  }
  // The header names the engine that wrote the file; a table definition
  // page that does not start as one after a sound header means the pages are
  // encrypted.
  uint8_t head[0x20] = {};
  if (::pread(s_->fd, head, sizeof head, 0) != ssize_t(sizeof head) ||
      (std::memcmp(head + 4, "Standard Jet DB", 15) != 0 && std::memcmp(head + 4, "Standard ACE DB", 15) != 0)) {
    *message = "it is not an Access database file";
    return false;
  }
  size_t pageSize = head[0x14] == 0 ? 2048 : 4096;
  uint8_t tdef = 0;
  if (::pread(s_->fd, &tdef, 1, off_t(2 * pageSize)) != 1) {
    *message = "the file is cut short";
    return false;
  }
  if (tdef != 0x02) {
    *encrypted = true;
    *message = "it is encrypted or protected by a password";
    return false;
  }
  s_->mdb = mdb_open(path.c_str(), MDB_NOFLAGS);
  if (!s_->mdb || !mdb_read_catalog(s_->mdb, MDB_ANY)) {
    *message = "its catalog of tables cannot be read";
    return false;
  }
  if (s_->mdb->f->db_passwd[0] != '\0') {
    *encrypted = true;
    *message = "it is protected by a password";
    return false;
  }
  s_->jet = s_->mdb->f->jet_version == MDB_VER_JET3 ? Jet::k3 : Jet::k4;
  s_->pages = std::make_unique<FilePages>(s_->fd, size_t(s_->mdb->fmt->pg_size), s_->mdb->f->db_key);
  for (unsigned i = 0; i < s_->mdb->num_catalog; ++i) {
    auto *entry = static_cast<MdbCatalogEntry *>(g_ptr_array_index(s_->mdb->catalog, i));
    if (entry->object_type != MDB_TABLE || !mdb_is_user_table(entry)) continue;
    MdbTableDef *def = mdb_read_table(entry);
    if (!def) {
      *message = std::string("the definition of table '") + entry->object_name + "' cannot be read";
      return false;
    }
    mdb_read_columns(def);
    mdb_read_indices(def);
    s_->tables.push_back(s_->describe(def));
    s_->defs.push_back(def);
  }
  return true;
}

const std::vector<Table> &Reader::tables() const { return s_->tables; }
Jet Reader::format() const { return s_->jet; }

bool Reader::scan(size_t table, const std::function<void(std::vector<Value> &)> &row, std::string *message) {
  MdbTableDef *def = s_->defs[table];
  const Table &t = s_->tables[table];
  std::vector<ColumnLayout> cols = layouts(t.columns);
  std::vector<FieldSpan> spans;
  std::vector<Value> values(cols.size());
  bool ok = s_->walk(
      def,
      [&](const uint8_t *r, size_t n) {
        if (!crackRow(s_->jet, r, n, cols, &spans)) {
          *message = "a row of table '" + t.name + "' is damaged";
          return false;
        }
        for (size_t i = 0; i < cols.size(); ++i) {
          if (!decodeField(s_->jet, cols[i], r, spans[i], s_->pages.get(), &values[i])) {
            *message = "field '" + t.columns[i].name + "' of a row of table '" + t.name + "' is damaged";
            return false;
          }
        }
        row(values);
        return true;
      },
      message);
  return ok;
}

std::vector<ComplexField> Reader::complexFields(std::string *message) {
  std::vector<ComplexField> out;
  s_->flats.clear();
  std::vector<std::map<std::string, Value>> rows;
  // A file without complex columns has no catalog of them.
  if (s_->jet == Jet::k3 || !s_->readSystem("MSysComplexColumns", &rows, message)) return out;
  // Catalog ids are the table definition's page, with flags in the top byte.
  auto entry = [&](const std::map<std::string, Value> &row, const char *field) -> MdbCatalogEntry * {
    auto it = row.find(field);
    if (it == row.end() || it->second.kind != Value::kInteger) return nullptr;
    unsigned long page = static_cast<unsigned long>(it->second.integer) & 0xFFFFFFul;
    for (unsigned i = 0; i < s_->mdb->num_catalog; ++i) {
      auto *e = static_cast<MdbCatalogEntry *>(g_ptr_array_index(s_->mdb->catalog, i));
      if (e->object_type == MDB_TABLE && e->table_pg == page) return e;
    }
    return nullptr;
  };
  for (const auto &row : rows) {
    MdbCatalogEntry *owner = entry(row, "ConceptualTableID"), *flat = entry(row, "FlatTableID"),
                    *type = entry(row, "ComplexTypeObjectID");
    auto column = row.find("ColumnName");
    if (!owner || !flat || !type || column == row.end() || column->second.kind != Value::kText) continue;
    MdbTableDef *def = mdb_read_table(flat);
    if (!def) continue;
    mdb_read_columns(def);
    s_->defs.push_back(def);
    State::Flat f;
    f.def = def;
    f.table = s_->describe(def);
    // The owner's number sits in "<table>_<field>"; the rest are the type's own fields.
    std::string key = std::string(owner->object_name) + "_" + column->second.text;
    for (size_t i = 0; i < f.table.columns.size(); ++i) {
      const std::string &name = f.table.columns[i].name;
      int n = int(i);
      if (g_ascii_strcasecmp(name.c_str(), key.c_str()) == 0) f.key = n;
      if (g_ascii_strcasecmp(name.c_str(), "FileName") == 0) f.fileName = n;
      if (g_ascii_strcasecmp(name.c_str(), "FileType") == 0) f.fileType = n;
      if (g_ascii_strcasecmp(name.c_str(), "FileData") == 0) f.fileData = n;
      if (g_ascii_strcasecmp(name.c_str(), "Value") == 0) f.value = n;
    }
    ComplexField cf;
    cf.table = owner->object_name;
    cf.column = column->second.text;
    cf.attachment = g_ascii_strcasecmp(type->object_name, "MSysComplexType_Attachment") == 0;
    if (f.key < 0 || (cf.attachment ? f.fileData < 0 : f.value < 0)) {
      *message = "the values of field '" + cf.column + "' of table '" + cf.table + "' are kept in a form not known";
      continue;
    }
    if (!cf.attachment) cf.value = f.table.columns[size_t(f.value)];
    out.push_back(std::move(cf));
    s_->flats.push_back(std::move(f));
  }
  return out;
}

bool Reader::scanComplex(size_t field, const std::function<void(ComplexValue &)> &value, std::string *message) {
  const State::Flat &f = s_->flats[field];
  std::vector<ColumnLayout> cols = layouts(f.table.columns);
  std::vector<FieldSpan> spans;
  auto read = [&](const uint8_t *r, int column, Value *out) {
    if (column < 0) return true;
    return decodeField(s_->jet, cols[size_t(column)], r, spans[size_t(column)], s_->pages.get(), out);
  };
  return s_->walk(
      f.def,
      [&](const uint8_t *r, size_t n) {
        ComplexValue v;
        Value key;
        if (!crackRow(s_->jet, r, n, cols, &spans) || !read(r, f.key, &key) || !read(r, f.fileName, &v.fileName) ||
            !read(r, f.fileType, &v.fileType) || !read(r, f.fileData, &v.data) || !read(r, f.value, &v.value)) {
          *message = "a row of the values of a field of table '" + f.table.name + "' is damaged";
          return false;
        }
        if (key.kind != Value::kInteger) return true;  // belongs to no row
        v.key = key.integer;
        if (f.fileData >= 0 && v.data.kind == Value::kBlob) {
          std::string bytes;
          if (!unpackAttachment(v.data.text, &bytes)) {
            *message = "the packed bytes of an attachment in table '" + f.table.name + "' are damaged";
            return false;
          }
          v.data.text = std::move(bytes);
        }
        value(v);
        return true;
      },
      message);
}

std::vector<Relation> Reader::relations(std::string *message) {
  std::vector<std::map<std::string, Value>> rows;
  std::vector<Relation> out;
  if (!s_->readSystem("MSysRelationships", &rows, message)) return out;
  // One row per column pair, grouped by the relation's name, in column order.
  std::map<std::string, std::vector<std::pair<int64_t, const std::map<std::string, Value> *>>> byName;
  std::vector<std::string> order;
  for (const auto &r : rows) {
    auto name = r.find("szRelationship");
    if (name == r.end() || name->second.kind != Value::kText) continue;
    if (!byName.count(name->second.text)) order.push_back(name->second.text);
    auto col = r.find("icolumn");
    byName[name->second.text].push_back({col == r.end() ? 0 : col->second.integer, &r});
  }
  auto text = [](const std::map<std::string, Value> &r, const char *k) {
    auto it = r.find(k);
    return it == r.end() ? std::string() : it->second.text;
  };
  for (const std::string &name : order) {
    auto &parts = byName[name];
    std::stable_sort(parts.begin(), parts.end(), [](auto &a, auto &b) { return a.first < b.first; });
    Relation rel;
    rel.name = name;
    const auto &first = *parts.front().second;
    rel.table = text(first, "szObject");
    rel.referencedTable = text(first, "szReferencedObject");
    auto g = first.find("grbit");
    int64_t grbit = g == first.end() ? 0 : g->second.integer;
    rel.enforced = (grbit & 0x2) == 0;  // 0x2: referential integrity not enforced
    rel.cascadeUpdates = (grbit & 0x100) != 0;
    rel.cascadeDeletes = (grbit & 0x1000) != 0;
    for (auto &p : parts) {
      rel.columns.push_back(text(*p.second, "szColumn"));
      rel.referencedColumns.push_back(text(*p.second, "szReferencedColumn"));
    }
    out.push_back(std::move(rel));
  }
  return out;
}

std::vector<StoredQuery> Reader::queries(std::string *message) {
  std::vector<StoredQuery> out;
  std::map<uint32_t, std::string> names;
  for (unsigned i = 0; i < s_->mdb->num_catalog; ++i) {
    auto *entry = static_cast<MdbCatalogEntry *>(g_ptr_array_index(s_->mdb->catalog, i));
    if (entry->object_type == MDB_QUERY) names[uint32_t(entry->table_pg) & 0x00FFFFFF] = entry->object_name;
  }
  if (names.empty()) return out;
  std::vector<std::map<std::string, Value>> rows;
  if (!s_->readSystem("MSysQueries", &rows, message)) return out;
  std::map<uint32_t, std::vector<QueryRow>> byId;
  for (const auto &r : rows) {
    auto get = [&](const char *k) -> const Value * {
      auto it = r.find(k);
      return it == r.end() ? nullptr : &it->second;
    };
    const Value *id = get("ObjectId");
    if (!id || id->kind != Value::kInteger) continue;
    QueryRow q;
    if (const Value *v = get("Attribute")) q.attribute = int(v->integer);
    if (const Value *v = get("Flag")) q.flag = int(v->integer);
    if (const Value *v = get("Name1")) q.name1 = v->text;
    if (const Value *v = get("Name2")) q.name2 = v->text;
    if (const Value *v = get("Expression")) q.expression = v->text;
    byId[uint32_t(id->integer) & 0x00FFFFFF].push_back(std::move(q));
  }
  for (auto &[id, name] : names) {
    auto it = byId.find(id);
    if (it == byId.end()) continue;
    out.push_back(rebuildQuery(name, it->second));
  }
  return out;
}

}  // namespace vantry::engine::access
