// The platform's registry (include/host/win32.h), kept as a settings file,
// and its LISP face: vl-registry-read, vl-registry-write, vl-registry-delete.
//
// The file holds one value per line:
//   <key path> TAB <value name> TAB <type> TAB <data as hex>
// with the key path from its root ("HKEY_CURRENT_USER\Software\..."), and
// "%", TAB and line ends in names written as %25, %09, %0A, %0D. A key
// without values is a line with an empty name, type 0 and no data. It is read
// at first use and replaced by a complete new file after every change, so a
// failed write leaves the settings as they were (and the change is undone).
// Without a place for the file (no VANTRY_REGISTRY, XDG_CONFIG_HOME or HOME)
// the settings live for the process only.
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/files.h"
#include "common/text.h"
#include "session/internal.h"
#include "session/session.h"

struct HKEY__ {
  std::wstring path;  // upper-cased, from the root, "\"-separated, no trailing "\"
};

namespace vantry::host {
namespace {

struct RegValue {
  std::wstring name;  // as first written
  DWORD type = REG_NONE;
  std::string data;
};

// key path (upper case) -> value name (upper case) -> value. A key with no
// values is kept as an empty map so that opening it finds it.
using Store = std::map<std::wstring, std::map<std::wstring, RegValue>>;

struct Registry {
  bool loaded = false;
  std::string file;
  Store store;
};

Registry &registry() {
  static Registry r;
  return r;
}

std::string settingsFile() {
  if (const char *p = std::getenv("VANTRY_REGISTRY"); p && *p) return p;
  if (const char *p = std::getenv("XDG_CONFIG_HOME"); p && *p) return std::string(p) + "/vantry/registry";
  if (const char *p = std::getenv("HOME"); p && *p) return std::string(p) + "/.config/vantry/registry";
  return {};
}

std::string escapeName(const std::wstring &name) {
  std::string out;
  for (char c : text::toUtf8(name)) {
    if (c == '%' || c == '\t' || c == '\n' || c == '\r') {
      char buf[4];
      std::snprintf(buf, sizeof buf, "%%%02X", static_cast<unsigned char>(c));
      out += buf;
    } else {
      out += c;
    }
  }
  return out;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Hex pairs to bytes; with `percent`, only the "%XX" escapes are hex.
bool unhex(const std::string &s, std::string &out, bool percent) {
  out.clear();
  for (size_t i = 0; i < s.size();) {
    if (percent && s[i] != '%') {
      out += s[i++];
      continue;
    }
    size_t at = percent ? i + 1 : i;
    if (at + 1 >= s.size()) return false;
    int hi = hexDigit(s[at]), lo = hexDigit(s[at + 1]);
    if (hi < 0 || lo < 0) return false;
    out += static_cast<char>(hi * 16 + lo);
    i = at + 2;
  }
  return true;
}

void load() {
  Registry &r = registry();
  if (r.loaded) return;
  r.loaded = true;
  r.file = settingsFile();
  if (r.file.empty()) return;
  std::ifstream in(r.file, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    std::vector<std::string> f;
    size_t start = 0;
    for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
      f.push_back(line.substr(start, tab - start));
    f.push_back(line.substr(start));
    std::string key, name, data;
    // A line that does not read is passed over: the rest of the settings stand.
    if (f.size() != 4 || !unhex(f[0], key, true) || !unhex(f[1], name, true) || !unhex(f[3], data, false))
      continue;
    RegValue v{text::fromUtf8(name), static_cast<DWORD>(std::strtoul(f[2].c_str(), nullptr, 10)), data};
    auto &values = r.store[text::upcase(text::fromUtf8(key))];
    if (!(f[1].empty() && f[2] == "0")) values[text::upcase(v.name)] = v;
  }
}

void makeParents(const std::string &file) {
  for (size_t slash = file.find('/', 1); slash != std::string::npos; slash = file.find('/', slash + 1))
    ::mkdir(file.substr(0, slash).c_str(), 0700);
}

bool save() {
  Registry &r = registry();
  if (r.file.empty()) return true;
  makeParents(r.file);
  return files::replaceFile(r.file, [&](const std::string &temp) {
    std::ofstream out(temp, std::ios::binary);
    static const char *hex = "0123456789abcdef";
    for (const auto &[key, values] : r.store) {
      // Empty keys are kept as a line with the reserved type 0 and no name.
      if (values.empty()) out << escapeName(key) << "\t\t0\t\n";
      for (const auto &[upper, v] : values) {
        out << escapeName(key) << '\t' << escapeName(v.name) << '\t' << v.type << '\t';
        for (unsigned char c : v.data) out << hex[c >> 4] << hex[c & 15];
        out << '\n';
      }
    }
    out.flush();
    return bool(out);
  });
}

const wchar_t *rootName(HKEY key) {
  if (key == HKEY_CURRENT_USER) return L"HKEY_CURRENT_USER";
  if (key == HKEY_LOCAL_MACHINE) return L"HKEY_LOCAL_MACHINE";
  return nullptr;
}

// The full upper-case path of subKey below key; empty when key is no key.
std::wstring fullPath(HKEY key, const wchar_t *subKey) {
  std::wstring base;
  if (const wchar_t *root = rootName(key))
    base = root;
  else if (key)
    base = key->path;
  else
    return {};
  std::wstring sub = subKey ? subKey : L"";
  for (size_t i = 0; i < sub.size();) {
    size_t end = sub.find(L'\\', i);
    if (end == std::wstring::npos) end = sub.size();
    if (end > i) base += L"\\" + text::upcase(sub.substr(i, end - i));
    i = end + 1;
  }
  return base;
}

bool validKey(HKEY key) {
  return key && (rootName(key) || !key->path.empty());
}

}  // namespace
}  // namespace vantry::host

using vantry::host::registry;
using vantry::host::validKey;

LONG RegCreateKeyExW(HKEY key, const wchar_t *subKey, DWORD, wchar_t *, DWORD, DWORD, void *, HKEY *result,
                     DWORD *disposition) {
  if (!validKey(key) || !result) return ERROR_INVALID_PARAMETER;
  vantry::host::load();
  auto &store = registry().store;
  std::wstring path = vantry::host::fullPath(key, subKey);
  std::vector<std::wstring> created;
  // Parents exist as keys of their own, as on the platform.
  for (size_t slash = path.find(L'\\'); ; slash = path.find(L'\\', slash + 1)) {
    std::wstring part = slash == std::wstring::npos ? path : path.substr(0, slash);
    if (part.find(L'\\') != std::wstring::npos && !store.count(part)) {
      store[part];
      created.push_back(part);
    }
    if (slash == std::wstring::npos) break;
  }
  if (!created.empty() && !vantry::host::save()) {
    for (const std::wstring &part : created) store.erase(part);
    return ERROR_WRITE_FAULT;
  }
  if (disposition) *disposition = created.empty() ? REG_OPENED_EXISTING_KEY : REG_CREATED_NEW_KEY;
  *result = new HKEY__{path};
  return ERROR_SUCCESS;
}

LONG RegOpenKeyExW(HKEY key, const wchar_t *subKey, DWORD, DWORD, HKEY *result) {
  if (!validKey(key) || !result) return ERROR_INVALID_PARAMETER;
  vantry::host::load();
  std::wstring path = vantry::host::fullPath(key, subKey);
  if (path.find(L'\\') != std::wstring::npos && !registry().store.count(path)) return ERROR_FILE_NOT_FOUND;
  *result = new HKEY__{path};
  return ERROR_SUCCESS;
}

LONG RegCloseKey(HKEY key) {
  if (!key || vantry::host::rootName(key)) return key ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
  delete key;
  return ERROR_SUCCESS;
}

LONG RegQueryValueExW(HKEY key, const wchar_t *name, DWORD *, DWORD *type, BYTE *data, DWORD *size) {
  if (!validKey(key)) return ERROR_INVALID_HANDLE;
  vantry::host::load();
  auto &store = registry().store;
  auto k = store.find(vantry::host::fullPath(key, nullptr));
  if (k == store.end()) return ERROR_FILE_NOT_FOUND;
  auto v = k->second.find(vantry::text::upcase(name ? name : L""));
  if (v == k->second.end()) return ERROR_FILE_NOT_FOUND;
  if (type) *type = v->second.type;
  DWORD need = static_cast<DWORD>(v->second.data.size());
  if (data) {
    if (!size) return ERROR_INVALID_PARAMETER;
    if (*size < need) {
      *size = need;
      return ERROR_MORE_DATA;
    }
    std::memcpy(data, v->second.data.data(), need);
  }
  if (size) *size = need;
  return ERROR_SUCCESS;
}

LONG RegSetValueExW(HKEY key, const wchar_t *name, DWORD, DWORD type, const BYTE *data, DWORD size) {
  if (!validKey(key) || (size && !data)) return ERROR_INVALID_PARAMETER;
  if (type == REG_DWORD && size != 4) return ERROR_INVALID_PARAMETER;
  vantry::host::load();
  std::wstring path = vantry::host::fullPath(key, nullptr);
  if (path.find(L'\\') == std::wstring::npos) return ERROR_INVALID_PARAMETER;  // no values on a root
  auto &values = registry().store[path];
  std::wstring upper = vantry::text::upcase(name ? name : L"");
  auto old = values.find(upper);
  std::optional<vantry::host::RegValue> before;
  if (old != values.end()) before = old->second;
  values[upper] = {name ? name : L"", type, std::string(reinterpret_cast<const char *>(data), size)};
  if (vantry::host::save()) return ERROR_SUCCESS;
  if (before)
    values[upper] = *before;
  else
    values.erase(upper);
  return ERROR_WRITE_FAULT;
}

LONG RegEnumKeyExW(HKEY key, DWORD index, wchar_t *name, DWORD *nameSize, DWORD *, wchar_t *, DWORD *, void *) {
  if (!validKey(key) || !name || !nameSize) return ERROR_INVALID_PARAMETER;
  vantry::host::load();
  std::wstring prefix = vantry::host::fullPath(key, nullptr) + L"\\";
  const auto &store = registry().store;
  DWORD n = 0;
  // The store is ordered by path, so a key's children follow it in name order.
  for (auto it = store.lower_bound(prefix); it != store.end() && it->first.compare(0, prefix.size(), prefix) == 0;
       ++it) {
    std::wstring child = it->first.substr(prefix.size());
    if (child.find(L'\\') != std::wstring::npos) continue;
    if (n++ != index) continue;
    if (child.size() + 1 > *nameSize) return ERROR_MORE_DATA;
    std::copy(child.begin(), child.end(), name);
    name[child.size()] = L'\0';
    *nameSize = DWORD(child.size());
    return ERROR_SUCCESS;
  }
  return ERROR_NO_MORE_ITEMS;
}

LONG RegDeleteValueW(HKEY key, const wchar_t *name) {
  if (!validKey(key)) return ERROR_INVALID_HANDLE;
  vantry::host::load();
  auto &store = registry().store;
  auto k = store.find(vantry::host::fullPath(key, nullptr));
  if (k == store.end()) return ERROR_FILE_NOT_FOUND;
  std::wstring upper = vantry::text::upcase(name ? name : L"");
  auto v = k->second.find(upper);
  if (v == k->second.end()) return ERROR_FILE_NOT_FOUND;
  vantry::host::RegValue before = v->second;
  k->second.erase(v);
  if (vantry::host::save()) return ERROR_SUCCESS;
  k->second[upper] = before;
  return ERROR_WRITE_FAULT;
}

// --- vl-registry-read, vl-registry-write, vl-registry-delete ---------------------------

namespace vantry::host {
namespace {

using lisp::Interp;
using lisp::Value;

// "HKEY_CURRENT_USER\Software\X" -> root and the rest; null root when the
// path names no root this host keeps.
HKEY splitRoot(const std::wstring &path, std::wstring &rest) {
  size_t slash = path.find(L'\\');
  std::wstring root = text::upcase(path.substr(0, slash));
  rest = slash == std::wstring::npos ? L"" : path.substr(slash + 1);
  if (root == L"HKEY_CURRENT_USER") return HKEY_CURRENT_USER;
  if (root == L"HKEY_LOCAL_MACHINE") return HKEY_LOCAL_MACHINE;
  return nullptr;
}

// (vl-registry-read key [name]): a string for REG_SZ, an integer for
// REG_DWORD, nil for a missing key or value (or bytes of another type).
Value registryReadFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  std::wstring rest;
  HKEY root = splitRoot(lisp::strArg(in, args[0]), rest);
  std::wstring name = nargs > 1 && !args[1].isNil() ? lisp::strArg(in, args[1]) : L"";
  HKEY key;
  if (!root || RegOpenKeyExW(root, rest.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return Value();
  DWORD type = 0, size = 0;
  Value result;
  if (RegQueryValueExW(key, name.c_str(), nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
    std::string data(size, '\0');
    RegQueryValueExW(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(data.data()), &size);
    if (type == REG_DWORD && size == 4) {
      uint32_t n;
      std::memcpy(&n, data.data(), 4);
      result = Value::integer(static_cast<int32_t>(n));
    } else if (type == REG_SZ) {
      std::wstring s(size / sizeof(wchar_t), L'\0');
      std::memcpy(s.data(), data.data(), s.size() * sizeof(wchar_t));
      s.resize(std::wcslen(s.c_str()));
      result = lisp::makeString(s);
    }
  }
  RegCloseKey(key);
  return result;
}

// (vl-registry-write key [name] value): writes a string or an integer,
// creating the key; answers the value, or nil when it could not be written.
Value registryWriteFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 2, 3);
  std::wstring rest;
  HKEY root = splitRoot(lisp::strArg(in, args[0]), rest);
  std::wstring name = nargs == 3 && !args[1].isNil() ? lisp::strArg(in, args[1]) : L"";
  const Value &value = args[nargs - 1];
  // The value is read before the key is made: a bad argument raises its
  // error with no key left open.
  uint32_t n = 0;
  std::wstring text;
  bool isInt = value.type() == lisp::Type::Int;
  if (isInt)
    n = static_cast<uint32_t>(value.asInt());
  else
    text = lisp::strArg(in, value);
  HKEY key;
  if (!root || rest.empty() ||
      RegCreateKeyExW(root, rest.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) != ERROR_SUCCESS)
    return Value();
  LONG rc = isInt ? RegSetValueExW(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE *>(&n), 4)
                  : RegSetValueExW(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE *>(text.c_str()),
                                   static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(key);
  return rc == ERROR_SUCCESS ? value : Value();
}

// (vl-registry-delete key [name]): T when the value was there and is gone.
Value registryDeleteFn(Interp &in, const Value *args, int nargs) {
  lisp::needArgs(in, nargs, 1, 2);
  std::wstring rest;
  HKEY root = splitRoot(lisp::strArg(in, args[0]), rest);
  std::wstring name = nargs > 1 && !args[1].isNil() ? lisp::strArg(in, args[1]) : L"";
  HKEY key;
  if (!root || RegOpenKeyExW(root, rest.c_str(), 0, KEY_WRITE, &key) != ERROR_SUCCESS) return Value();
  LONG rc = RegDeleteValueW(key, name.c_str());
  RegCloseKey(key);
  return rc == ERROR_SUCCESS ? in.makeT() : Value();
}

}  // namespace

void reloadRegistry() {
  registry() = Registry{};
}

void installRegistryLisp(lisp::Interp &in) {
  in.defineSubr(L"vl-registry-read", registryReadFn);
  in.defineSubr(L"vl-registry-write", registryWriteFn);
  in.defineSubr(L"vl-registry-delete", registryDeleteFn);
}

}  // namespace vantry::host
