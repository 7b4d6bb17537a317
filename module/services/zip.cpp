// Zip archives: CreateZip and ExtractZip, through libzip.
//
// CreateZip writes the archive beside its target and renames it into place
// when libzip has written all of it, so a failure leaves any archive that was
// there untouched. ExtractZip trusts nothing in the archive: before it writes
// anything it refuses entries that would land outside the target folder (a
// name from the root, a drive, a ".." part), links, more entries than
// kMaxEntries and declared sizes beyond the extraction limit; while it reads
// it counts what each entry really expands to, since a header can lie. It
// extracts into a fresh folder beside the target and moves the result in only
// when every entry was read whole, so a failure leaves nothing behind.
#include <sys/stat.h>
#include <zip.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "common/files.h"
#include "common/text.h"
#include "frame/implementations.h"
#include "frame/value_list.h"
#include "services/services.h"

namespace vantry::services {

std::optional<std::string> entryPathInside(std::string_view name) {
  if (name.empty() || name[0] == '/' || name[0] == '\\') return std::nullopt;
  if (name.size() >= 2 && name[1] == ':') return std::nullopt;  // a drive, "C:" or "C:\..."
  std::string out;
  size_t i = 0;
  while (i <= name.size()) {
    size_t end = name.find_first_of("/\\", i);
    if (end == std::string_view::npos) end = name.size();
    std::string_view part = name.substr(i, end - i);
    if (part == "..") return std::nullopt;
    if (!part.empty() && part != ".") {
      if (!out.empty()) out += '/';
      out += part;
    }
    i = end + 1;
  }
  return out;
}

}  // namespace vantry::services

namespace vantry::lispfn {
namespace {

namespace fs = std::filesystem;
using frame::ArgList;
using services::tell;

constexpr zip_int64_t kMaxEntries = 100000;

struct ZipCloser {
  void operator()(zip_t *z) const { zip_discard(z); }
};
using ZipHandle = std::unique_ptr<zip_t, ZipCloser>;

std::wstring wide(const std::string &s) {
  return text::fromUtf8(s);
}

std::wstring zipErrorText(int code) {
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  std::wstring message = wide(zip_error_strerror(&error));
  zip_error_fini(&error);
  return message;
}

// --- CreateZip --------------------------------------------------------------------

struct Member {
  std::string source;  // the file on disk; empty for a folder entry
  std::string name;    // the name in the archive, "/"-separated, folders end in "/"
};

// A file as itself, a folder as its name and everything below it. Links to
// folders are not followed (a loop would never end); links to files are
// stored as the file they point to.
bool collect(fs::path source, const fs::path &skip, std::vector<Member> &members, std::wstring &why) {
  std::error_code ec;
  // A trailing separator would make every path below relate as "../name".
  while (!source.has_filename() && source.has_relative_path()) source = source.parent_path();
  fs::file_status st = fs::status(source, ec);
  // "dir/", "." and ".." are named by the folder they stand for; the root
  // has no name, and its contents go in at the top.
  fs::path named = fs::absolute(source, ec).lexically_normal();
  if (!named.has_filename()) named = named.parent_path();
  std::string base = named.filename().string();
  if (fs::is_regular_file(st)) {
    members.push_back({source.string(), base});
    return true;
  }
  if (!fs::is_directory(st)) {
    why = L"CreateZip: " + wide(source.string()) + L" was not found.";
    return false;
  }
  std::string prefix = base.empty() ? "" : base + "/";
  if (!prefix.empty()) members.push_back({"", prefix});
  fs::recursive_directory_iterator it(source, fs::directory_options::none, ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    const fs::path &p = it->path();
    if (fs::exists(skip) && fs::equivalent(p, skip, ec)) continue;
    std::string rel = prefix + p.lexically_relative(source).generic_string();
    if (it->is_directory(ec) && !it->is_symlink(ec))
      members.push_back({"", rel + "/"});
    else if (it->is_regular_file(ec))
      members.push_back({p.string(), rel});
  }
  if (ec) {
    why = L"CreateZip: " + wide(source.string()) + L" could not be read (" + wide(ec.message()) + L").";
    return false;
  }
  return true;
}

bool writeArchive(const std::string &path, const std::vector<Member> &members, std::wstring &why) {
  int err = 0;
  ZipHandle z(zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err));
  if (!z) {
    why = zipErrorText(err);
    return false;
  }
  for (const Member &m : members) {
    zip_int64_t index;
    if (m.source.empty()) {
      index = zip_dir_add(z.get(), m.name.c_str(), ZIP_FL_ENC_UTF_8);
    } else {
      zip_source_t *src = zip_source_file(z.get(), m.source.c_str(), 0, -1);
      index = src ? zip_file_add(z.get(), m.name.c_str(), src, ZIP_FL_ENC_UTF_8) : -1;
      if (src && index < 0) zip_source_free(src);
    }
    if (index < 0) {
      why = wide(m.name) + L": " + wide(zip_strerror(z.get()));
      return false;
    }
  }
  if (zip_close(z.get()) != 0) {
    why = wide(zip_strerror(z.get()));
    return false;
  }
  z.release();  // closed: nothing left to discard
  return true;
}

// --- ExtractZip ----------------------------------------------------------------------

bool isLink(zip_t *z, zip_uint64_t index) {
  zip_uint8_t opsys;
  zip_uint32_t attributes;
  if (zip_file_get_external_attributes(z, index, 0, &opsys, &attributes) != 0) return false;
  return opsys == ZIP_OPSYS_UNIX && ((attributes >> 16) & S_IFMT) == S_IFLNK;
}

struct Entry {
  zip_uint64_t index;
  std::string path;  // below the target
  bool folder;
  zip_uint64_t size;  // as declared
};

// Checks every entry before anything is written; false with the reason.
bool plan(zip_t *z, uint64_t limit, std::vector<Entry> &entries, std::wstring &why) {
  zip_int64_t count = zip_get_num_entries(z, 0);
  if (count > kMaxEntries) {
    why = L"it holds more than " + std::to_wstring(kMaxEntries) + L" entries";
    return false;
  }
  uint64_t total = 0;
  for (zip_int64_t i = 0; i < count; ++i) {
    zip_stat_t st;
    if (zip_stat_index(z, i, 0, &st) != 0 || !(st.valid & ZIP_STAT_NAME)) {
      why = wide(zip_strerror(z));
      return false;
    }
    std::string name = st.name;
    std::optional<std::string> path = services::entryPathInside(name);
    if (!path) {
      why = L"the entry \"" + wide(name) + L"\" would land outside the folder";
      return false;
    }
    if (isLink(z, i)) {
      why = L"the entry \"" + wide(name) + L"\" is a link";
      return false;
    }
    bool folder = !name.empty() && (name.back() == '/' || name.back() == '\\');
    zip_uint64_t size = (st.valid & ZIP_STAT_SIZE) ? st.size : 0;
    total += size;
    if (total > limit) {
      why = L"it expands beyond the limit of " + std::to_wstring(limit >> 20) + L" MB";
      return false;
    }
    if (!path->empty()) entries.push_back({zip_uint64_t(i), *path, folder, size});
  }
  return true;
}

// Reads every entry into `folder`, counting what each really expands to.
bool extractInto(zip_t *z, const std::vector<Entry> &entries, const fs::path &folder, uint64_t limit,
                 std::wstring &why) {
  std::error_code ec;
  uint64_t total = 0;
  std::vector<char> buffer(1 << 16);
  for (const Entry &e : entries) {
    fs::path out = folder / e.path;
    if (e.folder) {
      fs::create_directories(out, ec);
      if (ec && !fs::is_directory(out)) {
        why = wide(e.path) + L": " + wide(ec.message());
        return false;
      }
      continue;
    }
    fs::create_directories(out.parent_path(), ec);
    zip_file_t *in = zip_fopen_index(z, e.index, 0);
    if (!in) {
      why = wide(e.path) + L": " + wide(zip_strerror(z));
      return false;
    }
    std::FILE *f = std::fopen(out.c_str(), "wb");
    bool ok = f != nullptr;
    if (!ok) why = wide(e.path) + L": " + wide(std::strerror(errno));
    uint64_t written = 0;
    while (ok) {
      zip_int64_t n = zip_fread(in, buffer.data(), buffer.size());
      if (n < 0) {
        why = wide(e.path) + L": " + wide(zip_file_strerror(in));
        ok = false;
      } else if (n == 0) {
        break;
      } else if ((written += n) > e.size || (total += n) > limit) {
        why = L"it expands beyond " + std::wstring(written > e.size ? L"the sizes it declares" : L"the limit of " + std::to_wstring(limit >> 20) + L" MB");
        ok = false;
      } else if (std::fwrite(buffer.data(), 1, n, f) != size_t(n)) {
        why = wide(e.path) + L": " + wide(std::strerror(errno));
        ok = false;
      }
    }
    zip_fclose(in);
    if (f && std::fclose(f) != 0 && ok) {
      why = wide(e.path) + L": " + wide(std::strerror(errno));
      ok = false;
    }
    if (!ok) return false;
    if (acedUsrBrk()) {
      why = L"cancelled";
      return false;
    }
  }
  return true;
}

// Moves what was extracted into an existing folder: files replace files of
// the same name, folders merge.
bool mergeInto(const fs::path &from, const fs::path &to, std::wstring &why) {
  std::error_code ec;
  for (const fs::directory_entry &e : fs::directory_iterator(from, ec)) {
    fs::path dest = to / e.path().filename();
    if (e.is_directory(ec) && fs::is_directory(dest, ec)) {
      if (!mergeInto(e.path(), dest, why)) return false;
      continue;
    }
    if (fs::is_directory(dest, ec) || (e.is_directory(ec) && fs::exists(dest, ec))) {
      why = wide(dest.string()) + L" is in the way";
      return false;
    }
    fs::rename(e.path(), dest, ec);
    if (ec) {
      why = wide(dest.string()) + L": " + wide(ec.message());
      return false;
    }
  }
  return !ec;
}

}  // namespace

// (CreateZip zipFile source): source is a file, a folder (stored under its
// own name with everything below it) or a list of them. T when the archive
// was written; nil with a message when a source is missing or the archive
// could not be written.
int CreateZip() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  if (!cur) return 1;
  std::wstring zipFile;
  if (!frame::readString(cur, zipFile)) return 2;
  if (!cur) return 1;
  std::vector<std::wstring> sources;
  if (cur->restype == RTLB) {
    frame::readListBegin(cur);
    std::wstring s;
    while (frame::readString(cur, s)) sources.push_back(s);
    if (!frame::readListEnd(cur)) return 2;
  } else {
    std::wstring s;
    if (!frame::readString(cur, s)) return 2;
    sources.push_back(s);
  }
  if (zipFile.empty() || sources.empty()) return 3;

  std::string target = text::nativePath(zipFile);
  std::vector<Member> members;
  std::wstring why;
  for (const std::wstring &s : sources) {
    if (s.empty()) return 3;
    if (!collect(text::nativePath(s), target, members, why)) {
      tell(why);
      return 0;
    }
  }
  std::string error;
  bool written = files::replaceFile(
      target, [&](const std::string &temp) { return writeArchive(temp, members, why); }, &error);
  if (!written) {
    if (why.empty()) why = wide(error);
    tell(L"CreateZip: " + zipFile + L" could not be written (" + why + L").");
    return 0;
  }
  acedRetT();
  return 0;
}

// (ExtractZip zipFile folder): T when every entry was extracted below the
// folder (made when missing); nil with a message, and nothing written, when
// the archive cannot be read or is refused.
int ExtractZip() {
  acedRetNil();
  ArgList args;
  resbuf *&cur = args.cursor();
  if (!cur) return 1;
  std::wstring zipFile, folder;
  if (!frame::readString(cur, zipFile)) return 2;
  if (!cur) return 1;
  if (!frame::readString(cur, folder)) return 2;
  if (zipFile.empty() || folder.empty()) return 3;

  int err = 0;
  ZipHandle z(zip_open(text::nativePath(zipFile).c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &err));
  if (!z) {
    tell(L"ExtractZip: " + zipFile + L" cannot be opened (" + zipErrorText(err) + L").");
    return 0;
  }
  uint64_t limit = services::extractLimit();
  std::vector<Entry> entries;
  std::wstring why;
  if (!plan(z.get(), limit, entries, why)) {
    tell(L"ExtractZip: " + zipFile + L" was refused: " + why + L".");
    return 0;
  }

  std::error_code ec;
  fs::path target = fs::absolute(text::nativePath(folder), ec).lexically_normal();
  if (!target.has_filename()) target = target.parent_path();  // "out/" names out
  if (fs::exists(target, ec) && !fs::is_directory(target, ec)) {
    tell(L"ExtractZip: " + folder + L" is a file, not a folder.");
    return 0;
  }
  // Folders made for the target's parents are removed again on a failure.
  fs::path firstMade;
  for (fs::path p = target.parent_path(); !p.empty() && !fs::exists(p, ec); p = p.parent_path()) {
    firstMade = p;
    if (p == p.parent_path()) break;
  }
  fs::create_directories(target.parent_path(), ec);
  std::string pattern = (target.parent_path() / ("." + target.filename().string() + ".unzip-XXXXXX")).string();
  if (ec || !::mkdtemp(pattern.data())) {
    tell(L"ExtractZip: " + folder + L" cannot be written (" + wide(std::strerror(errno)) + L").");
    if (!firstMade.empty()) fs::remove_all(firstMade, ec);
    return 0;
  }
  fs::path temp = pattern;
  bool ok = extractInto(z.get(), entries, temp, limit, why);
  if (ok && !fs::exists(target, ec)) {
    fs::rename(temp, target, ec);
    if (ec) {
      why = wide(ec.message());
      ok = false;
    }
  } else if (ok) {
    ok = mergeInto(temp, target, why);
  }
  fs::remove_all(temp, ec);
  if (!ok) {
    if (!firstMade.empty()) fs::remove_all(firstMade, ec);
    tell(L"ExtractZip: " + zipFile + L" was not extracted: " + why + L".");
    return 0;
  }
  acedRetT();
  return 0;
}

}  // namespace vantry::lispfn
